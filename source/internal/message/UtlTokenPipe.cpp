#include "internal/message/UtlTokenPipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "UtlLog.h"
#include "UtlThreadManager.h"
#include "UtlThreadWatchdog.h"
#include "internal/message/UtlTokenCount.h"
#include "internal/thread/UtlKeepAlive.h"

namespace utl {

static_assert(sizeof(PipeToken) == 8, "a token is 8 bytes");

namespace {

constexpr unsigned int TOKEN_BYTES = sizeof(PipeToken);

// In bytes; a page if the system does not tell, since no pipe is smaller.
int sizeOf(int handle) {
    int const bytes = fcntl(handle, F_GETPIPE_SZ);
    return bytes > 0 ? bytes : getpagesize();
}

// The tokens for which a pipe of so many bytes has room for certain. A pipe consists of pages, and a page
// that has been read in part is still occupied: it may hold a single token.
unsigned int certainTokens(int bytes) {
    return static_cast<unsigned int>(std::max(0, bytes - getpagesize())) / TOKEN_BYTES + 1;
}

// If the system does not allow that size, the pipe gets the largest that it allows, and never a smaller one
// than it has.
void enlarge(int handle, unsigned int tokens) {
    constexpr unsigned long long LARGEST = 1U << 30;
    int const present = sizeOf(handle);
    if (certainTokens(present) >= tokens) {
        return;
    }
    unsigned long long const needed = 1ULL * tokens * TOKEN_BYTES + static_cast<unsigned int>(getpagesize());
    unsigned long long bytes = needed < LARGEST ? needed : LARGEST;
    while (static_cast<long long>(bytes) > present &&
           fcntl(handle, F_SETPIPE_SZ, static_cast<int>(bytes)) < 0) {
        bytes /= 2;
    }
}

TokenIo writeCounted(PipeEndState& writer, int writeEnd, PipeToken const& token) {
    ssize_t const ret = write(writeEnd, &token, TOKEN_BYTES);
    TokenIo const io = {static_cast<unsigned int>(ret), errno};
    if (!io.isWhole()) {
        --writer.tokens;
    }
    return io;
}

// Waits in `read` while the watchdog does not watch the thread. `errno` is the one of the read, whatever the
// reports do.
TokenIo readUnwatched(StatementInfo const& place, int handle, PipeToken* token) {
    ThreadManager* const before = isKnownUnregistered() ? nullptr : ThreadManager::getOrNull();
    bool const watched = before != nullptr && before->isRegisteredWatchdog(0);
    if (watched) {
        before->keepAliveWatchdog(place);
        before->stopWatchdog(0);
    }
    errno = 0;
    ssize_t const ret = read(handle, token, sizeof(*token));
    TokenIo const io = {static_cast<unsigned int>(ret), errno};
    // The manager of before may be destroyed.
    ThreadManager* const after = watched ? ThreadManager::getOrNull() : nullptr;
    if (after != nullptr) {
        after->startWatchdog(0);
        after->keepAliveWatchdog(place);
    }
    return io;
}

}  // namespace

int openTokenPipe(TokenPipe& ends, unsigned int tokens) {
    int handles[2] = {-1, -1};
    ends[0] = -1;
    ends[1] = -1;
    if (pipe(handles) != 0) {
        return errno;
    }
    for (int const handle : handles) {
        fcntl(handle, F_SETFD, FD_CLOEXEC);
        if (!makePipeEndState(handle)) {
            close(handles[0]);
            close(handles[1]);
            return EMFILE;
        }
    }
    enlarge(handles[1], tokens);
    unsigned int const capacity = certainTokens(sizeOf(handles[1]));
    openPipeEnd(handles[0], handles[1], capacity);
    openPipeEnd(handles[1], handles[0], capacity);
    ends[0] = handles[0];
    ends[1] = handles[1];
    return 0;
}

ClosingTokenPipe::ClosingTokenPipe(TokenPipe& ends)
    : mReadEnd(ends[0].exchange(-1)), mWriteEnd(ends[1].exchange(-1)) {}

ClosingTokenPipe::~ClosingTokenPipe() {
    for (int const handle : {mWriteEnd, mReadEnd}) {
        if (handle != -1) {
            closePipeEnd(handle);
            close(handle);
        }
    }
}

void ClosingTokenPipe::wakeReader() const {
    if (mWriteEnd != -1 && reserveToken(mWriteEnd)) {
        writeReservedToken(mWriteEnd, PipeToken());
    }
}

bool hasRoomForToken(int writeEnd) {
    PipeEndState* const writer = findOpenPipeEnd(writeEnd);
    return writer == nullptr || hasRoomAfter(*writer, writer->tokens);
}

bool reserveToken(int writeEnd) {
    PipeEndState* const writer = findOpenPipeEnd(writeEnd);
    return writer == nullptr || reserveRoom(*writer);
}

unsigned int tokenCapacity(int writeEnd) {
    PipeEndState const* const writer = findOpenPipeEnd(writeEnd);
    return writer != nullptr ? writer->capacity.load() : 0;
}

bool isTokenPipeEmpty(int readEnd) {
    PipeEndState const* const reader = findOpenPipeEnd(readEnd);
    PipeEndState const* const writer = reader != nullptr ? findOpenPipeEnd(reader->otherEnd) : nullptr;
    return writer != nullptr && writer->tokens == reader->tokens;
}

TokenIo writeReservedToken(int writeEnd, PipeToken const& token) {
    PipeEndState* const writer = findOpenPipeEnd(writeEnd);
    return writer != nullptr ? writeCounted(*writer, writeEnd, token)
                             : TokenIo{static_cast<unsigned int>(-1), EBADF};
}

bool writeTokenFromHandler(int writeEnd, PipeToken const& token, TokenIo* io, bool* written) {
    *written = false;
    PipeEndState* const writer = findPipeEndState(writeEnd);
    if (writer == nullptr) {
        return true;
    }
    ++writer->handlers;
    bool isDone = true;
    if (writer->isOpen && reserveRoom(*writer)) {
        *io = writeCounted(*writer, writeEnd, token);
        *written = isDone = io->isWhole();
    }
    --writer->handlers;
    return isDone;
}

bool readToken(char const* owner, char const* name, StatementInfo const& place,
               std::atomic<int> const& readEnd, PipeToken* token) {
    for (;;) {
        *token = PipeToken();
        TokenIo const io = readUnwatched(place, readEnd, token);
        if (io.isWhole()) {
            countReadToken(readEnd);
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
