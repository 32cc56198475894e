#include "UtlTokenPipe.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>

#include "UtlLog.h"
#include "UtlThreadManager.h"
#include "UtlThreadWatchdog.h"

namespace utl {

static_assert(sizeof(PipeToken) == 8, "a token is 8 bytes");

namespace {

// What a pipe of the default size holds for certain. It is kept in pages, and a page whose front has been
// read is still taken, so one page less than all of them.
constexpr unsigned int SAFE_TOKENS = 15 * 4096 / sizeof(PipeToken);

// The same margin, in bytes, for a pipe of any size.
unsigned long long pipeBytesFor(unsigned int tokens) {
    return 1ULL * tokens * sizeof(PipeToken) + getpagesize();
}

// A pipe that the system does not allow at that size gets the largest that it allows.
void enlarge(int handle, unsigned int tokens) {
    constexpr unsigned long long LARGEST = 1U << 30;
    unsigned long long bytes = pipeBytesFor(tokens);
    bytes = bytes < LARGEST ? bytes : LARGEST;
    while (fcntl(handle, F_SETPIPE_SZ, static_cast<int>(bytes)) < 0 &&
           bytes > SAFE_TOKENS * sizeof(PipeToken)) {
        bytes /= 2;
    }
}

// Waits in `read` with the thread off the watchdog's list. `errno` belongs to the read, whatever the reports
// do.
TokenIo readUnwatched(StatementInfo const& place, int handle, PipeToken* token) {
    ThreadManager* const manager = ThreadManager::get();
    bool const watched = manager->isRegisteredWatchdog(0);
    if (watched) {
        manager->keepAliveWatchdog(place);
        manager->stopWatchdog(0);
    }
    errno = 0;
    ssize_t const ret = read(handle, token, sizeof(*token));
    TokenIo const io = {static_cast<unsigned int>(ret), errno};
    if (watched) {
        manager->startWatchdog(0);
        manager->keepAliveWatchdog(place);
    }
    return io;
}

}  // namespace

int openTokenPipe(TokenPipe& ends, unsigned int tokens) {
    int handles[2] = {-1, -1};
    if (pipe(handles) != 0) {
        int const error = errno;
        ends[0] = -1;
        ends[1] = -1;
        return error;
    }
    for (int const handle : handles) {
        fcntl(handle, F_SETFD, FD_CLOEXEC);
    }
    if (tokens > SAFE_TOKENS) {
        enlarge(handles[1], tokens);
    }
    ends[0] = handles[0];
    ends[1] = handles[1];
    return 0;
}

ClosingTokenPipe::ClosingTokenPipe(TokenPipe& ends)
    : mReadEnd(ends[0].exchange(-1)), mWriteEnd(ends[1].exchange(-1)) {}

ClosingTokenPipe::~ClosingTokenPipe() {
    for (int const handle : {mReadEnd, mWriteEnd}) {
        if (handle != -1) {
            close(handle);
        }
    }
}

void ClosingTokenPipe::wakeReader() const {
    if (hasRoomForToken(mWriteEnd)) {
        writeToken(mWriteEnd, PipeToken());
    }
}

bool hasRoomForToken(int writeEnd) {
    pollfd end = {writeEnd, POLLOUT, 0};
    return poll(&end, 1, 0) == 1 && (end.revents & POLLOUT) != 0;
}

bool isTokenPipeFull(int writeEnd, unsigned int waiting) {
    if (waiting < SAFE_TOKENS) {
        return false;
    }
    int used = 0;
    int const size = fcntl(writeEnd, F_GETPIPE_SZ);
    if (size < 0 || ioctl(writeEnd, FIONREAD, &used) != 0) {
        return false;
    }
    return used + static_cast<int>(sizeof(PipeToken)) + getpagesize() > size;
}

TokenIo writeToken(int writeEnd, PipeToken const& token) {
    ssize_t const ret = write(writeEnd, &token, sizeof(token));
    return {static_cast<unsigned int>(ret), errno};
}

bool readToken(char const* owner, char const* name, StatementInfo const& place,
               std::atomic<int> const& readEnd, PipeToken* token) {
    for (;;) {
        *token = PipeToken();
        TokenIo const io = readUnwatched(place, readEnd, token);
        if (io.isWhole()) {
            return true;
        }
        if (io.mErrno != EINTR) {
            applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "%s(%s) Error. read Ret:%u errno:%d !!Break msg loop!!",
                   owner, name, io.mRet, io.mErrno);
            return false;
        }
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_INFO, "%s(%s) Error. read Ret:%u errno:%d=EINTR Retry read", owner,
               name, io.mRet, io.mErrno);
    }
}

}  // namespace utl
