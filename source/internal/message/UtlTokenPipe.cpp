#include "internal/message/UtlTokenPipe.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>

#include "UtlLog.h"
#include "UtlThreadManager.h"
#include "UtlThreadWatchdog.h"
#include "internal/thread/UtlBriefWait.h"
#include "internal/thread/UtlKeepAlive.h"

namespace utl {

static_assert(sizeof(PipeToken) == 8, "a token is 8 bytes");

namespace {

constexpr unsigned int TOKEN_BYTES = sizeof(PipeToken);

// What is known of one end of an open pipe, under its number. Signal handlers look here, so it is never
// freed, and a place serves one pipe after the other. Reader and writers count for themselves, each in its
// own cache line.
struct alignas(64) PipeState {
    std::atomic<bool> isOpen{false};
    std::atomic<int> otherEnd{-1};
    std::atomic<unsigned int> tokens{0};     // ever read here; or ever written here, or about to be
    std::atomic<unsigned int> capacity{0};   // of a write end: tokens that fit for certain
    std::atomic<unsigned int> readSoFar{0};  // of a write end: tokens that had been read when last looked
    std::atomic<unsigned int> handlers{0};   // of a write end: signal handlers that are writing
};

constexpr unsigned int CHUNK_SIZE = 1024;
constexpr unsigned int CHUNK_COUNT = 1024;

PipeState gFirstChunk[CHUNK_SIZE];
std::atomic<PipeState*> gChunks[CHUNK_COUNT] = {gFirstChunk};

PipeState* stateOf(int handle) {
    unsigned int const number = static_cast<unsigned int>(handle);
    if (number / CHUNK_SIZE >= CHUNK_COUNT) {
        return nullptr;
    }
    PipeState* const chunk = gChunks[number / CHUNK_SIZE];
    return chunk != nullptr ? chunk + number % CHUNK_SIZE : nullptr;
}

// False for a number beyond those that a process can have, and without memory.
bool makeRoomForState(int handle) {
    unsigned int const chunk = static_cast<unsigned int>(handle) / CHUNK_SIZE;
    if (chunk >= CHUNK_COUNT) {
        return false;
    }
    if (gChunks[chunk] == nullptr) {
        auto* const made = new (std::nothrow) PipeState[CHUNK_SIZE];
        PipeState* none = nullptr;
        if (made != nullptr && !gChunks[chunk].compare_exchange_strong(none, made)) {
            delete[] made;
        }
    }
    return gChunks[chunk] != nullptr;
}

PipeState* openStateOf(int handle) {
    PipeState* const state = stateOf(handle);
    return state != nullptr && state->isOpen ? state : nullptr;
}

// In bytes; a page where it cannot be had, since no pipe is smaller.
int sizeOf(int handle) {
    int const bytes = fcntl(handle, F_GETPIPE_SZ);
    return bytes > 0 ? bytes : getpagesize();
}

// The tokens for which a pipe of so many bytes has room for certain. It is kept in pages, and a page whose
// front has been read is still taken: it may hold a single token.
unsigned int certainTokens(int bytes) {
    return static_cast<unsigned int>(std::max(0, bytes - getpagesize())) / TOKEN_BYTES + 1;
}

// A pipe that the system does not allow at that size gets the largest that it allows; it never gets smaller.
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

void openState(int handle, int otherEnd, unsigned int capacity) {
    PipeState& state = *stateOf(handle);
    state.otherEnd = otherEnd;
    state.capacity = capacity;
    state.tokens = 0;
    state.readSoFar = 0;
    state.isOpen = true;
}

// When this returns, no handler writes to the pipe and none will. A handler enters first and looks then; none
// of them waits for anything.
void closeState(int handle) {
    PipeState* const state = stateOf(handle);
    if (state != nullptr) {
        state->isOpen = false;
        waitBriefly([state] { return state->handlers == 0; });
    }
}

// A handler of another thread is not there to finish in a child process.
void forgetHandlersInChild() {
    for (std::atomic<PipeState*>& chunk : gChunks) {
        PipeState* const states = chunk;
        for (unsigned int i = 0; states != nullptr && i < CHUNK_SIZE; ++i) {
            states[i].handlers = 0;
        }
    }
}

[[maybe_unused]] int const gForkIsSeen = pthread_atfork(nullptr, nullptr, forgetHandlersInChild);

// Counts wrap; a count may be older than the one that it is compared with.
bool isBelow(unsigned int written, unsigned int read, unsigned int capacity) {
    return static_cast<int>(written - read) < static_cast<int>(capacity);
}

// How many tokens have been read matters only where those known of do not suffice.
bool hasRoom(PipeState& writer, unsigned int written) {
    if (isBelow(written, writer.readSoFar, writer.capacity)) {
        return true;
    }
    PipeState const* const reader = openStateOf(writer.otherEnd);
    if (reader != nullptr) {
        writer.readSoFar = reader->tokens.load();
    }
    return isBelow(written, writer.readSoFar, writer.capacity);
}

bool reserve(PipeState& writer) {
    unsigned int written = writer.tokens;
    do {
        if (!hasRoom(writer, written)) {
            return false;
        }
    } while (!writer.tokens.compare_exchange_weak(written, written + 1));
    return true;
}

TokenIo writeCounted(PipeState& writer, int writeEnd, PipeToken const& token) {
    ssize_t const ret = write(writeEnd, &token, TOKEN_BYTES);
    TokenIo const io = {static_cast<unsigned int>(ret), errno};
    if (!io.isWhole()) {
        --writer.tokens;
    }
    return io;
}

// A token that was read out of the pipe, by its one reader.
void countRead(int readEnd) {
    PipeState* const reader = openStateOf(readEnd);
    if (reader != nullptr) {
        reader->tokens.store(reader->tokens.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    }
}

// Waits in `read` with the thread off the watchdog's list. `errno` belongs to the read, whatever the reports
// do.
TokenIo readUnwatched(StatementInfo const& place, int handle, PipeToken* token) {
    ThreadManager* const before = ThreadManager::getOrNull();
    bool const watched = before != nullptr && before->isRegisteredWatchdog(0);
    if (watched) {
        before->keepAliveWatchdog(place);
        before->stopWatchdog(0);
    }
    errno = 0;
    ssize_t const ret = read(handle, token, sizeof(*token));
    TokenIo const io = {static_cast<unsigned int>(ret), errno};
    ThreadManager* const after = ThreadManager::getOrNull();  // that of before may be gone
    if (watched && after != nullptr) {
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
        if (!makeRoomForState(handle)) {
            close(handles[0]);
            close(handles[1]);
            return EMFILE;
        }
    }
    enlarge(handles[1], tokens);
    unsigned int const capacity = certainTokens(sizeOf(handles[1]));
    openState(handles[0], handles[1], capacity);
    openState(handles[1], handles[0], capacity);
    ends[0] = handles[0];
    ends[1] = handles[1];
    return 0;
}

ClosingTokenPipe::ClosingTokenPipe(TokenPipe& ends)
    : mReadEnd(ends[0].exchange(-1)), mWriteEnd(ends[1].exchange(-1)) {}

ClosingTokenPipe::~ClosingTokenPipe() {
    for (int const handle : {mWriteEnd, mReadEnd}) {
        if (handle != -1) {
            closeState(handle);
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
    PipeState* const writer = openStateOf(writeEnd);
    return writer == nullptr || hasRoom(*writer, writer->tokens);
}

bool reserveToken(int writeEnd) {
    PipeState* const writer = openStateOf(writeEnd);
    return writer == nullptr || reserve(*writer);
}

unsigned int tokenCapacity(int writeEnd) {
    PipeState const* const writer = openStateOf(writeEnd);
    return writer != nullptr ? writer->capacity.load() : 0;
}

bool isTokenPipeEmpty(int readEnd) {
    PipeState const* const reader = openStateOf(readEnd);
    PipeState const* const writer = reader != nullptr ? openStateOf(reader->otherEnd) : nullptr;
    return writer != nullptr && writer->tokens == reader->tokens;
}

TokenIo writeReservedToken(int writeEnd, PipeToken const& token) {
    PipeState* const writer = openStateOf(writeEnd);
    return writer != nullptr ? writeCounted(*writer, writeEnd, token)
                             : TokenIo{static_cast<unsigned int>(-1), EBADF};
}

bool writeTokenFromHandler(int writeEnd, PipeToken const& token, TokenIo* io, bool* written) {
    *written = false;
    PipeState* const writer = stateOf(writeEnd);
    if (writer == nullptr) {
        return true;
    }
    ++writer->handlers;
    bool isDone = true;
    if (writer->isOpen && reserve(*writer)) {
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
            countRead(readEnd);
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
