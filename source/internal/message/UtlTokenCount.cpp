#include "internal/message/UtlTokenCount.h"

#include <pthread.h>

#include <new>

#include "internal/thread/UtlBriefWait.h"

namespace utl {

namespace {

constexpr unsigned int CHUNK_SIZE = 1024;
constexpr unsigned int CHUNK_COUNT = 1024;

PipeEndState gFirstChunk[CHUNK_SIZE];
std::atomic<PipeEndState*> gChunks[CHUNK_COUNT] = {gFirstChunk};

// The handlers of the parent's other threads do not exist in a child process.
void resetHandlersInChild() {
    for (std::atomic<PipeEndState*>& chunk : gChunks) {
        PipeEndState* const states = chunk;
        for (unsigned int i = 0; states != nullptr && i < CHUNK_SIZE; ++i) {
            states[i].handlers = 0;
        }
    }
}

[[maybe_unused]] int const gAtForkRegistered = pthread_atfork(nullptr, nullptr, resetHandlersInChild);

// Counts wrap; a count may be older than the one that it is compared with.
bool isBelow(unsigned int written, unsigned int read, unsigned int capacity) {
    return static_cast<int>(written - read) < static_cast<int>(capacity);
}

}  // namespace

bool makePipeEndState(int handle) {
    unsigned int const chunk = static_cast<unsigned int>(handle) / CHUNK_SIZE;
    if (chunk >= CHUNK_COUNT) {
        return false;
    }
    if (gChunks[chunk] == nullptr) {
        auto* const made = new (std::nothrow) PipeEndState[CHUNK_SIZE];
        PipeEndState* none = nullptr;
        if (made != nullptr && !gChunks[chunk].compare_exchange_strong(none, made)) {
            delete[] made;
        }
    }
    return gChunks[chunk] != nullptr;
}

PipeEndState* findPipeEndState(int handle) {
    unsigned int const number = static_cast<unsigned int>(handle);
    if (number / CHUNK_SIZE >= CHUNK_COUNT) {
        return nullptr;
    }
    PipeEndState* const chunk = gChunks[number / CHUNK_SIZE];
    return chunk != nullptr ? chunk + number % CHUNK_SIZE : nullptr;
}

PipeEndState* findOpenPipeEnd(int handle) {
    PipeEndState* const state = findPipeEndState(handle);
    return state != nullptr && state->isOpen ? state : nullptr;
}

void openPipeEnd(int handle, int otherEnd, unsigned int capacity) {
    PipeEndState& state = *findPipeEndState(handle);
    state.otherEnd = otherEnd;
    state.capacity = capacity;
    state.tokens = 0;
    state.readSoFar = 0;
    state.isOpen = true;
}

// A handler counts itself before it looks, and none of them waits for anything.
void closePipeEnd(int handle) {
    PipeEndState* const state = findPipeEndState(handle);
    if (state != nullptr) {
        state->isOpen = false;
        waitBriefly([state] { return state->handlers == 0; });
    }
}

// The reader's count is looked at only if the one known does not suffice.
bool hasRoomAfter(PipeEndState& writer, unsigned int written) {
    if (isBelow(written, writer.readSoFar, writer.capacity)) {
        return true;
    }
    PipeEndState const* const reader = findOpenPipeEnd(writer.otherEnd);
    if (reader != nullptr) {
        writer.readSoFar = reader->tokens.load();
    }
    return isBelow(written, writer.readSoFar, writer.capacity);
}

bool reserveRoom(PipeEndState& writer) {
    unsigned int written = writer.tokens;
    do {
        if (!hasRoomAfter(writer, written)) {
            return false;
        }
    } while (!writer.tokens.compare_exchange_weak(written, written + 1));
    return true;
}

void countReadToken(int readEnd) {
    PipeEndState* const reader = findOpenPipeEnd(readEnd);
    if (reader != nullptr) {
        reader->tokens.store(reader->tokens.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    }
}

}  // namespace utl
