#pragma once

#include <atomic>

namespace utl {

// Tokens are counted for each end of an open pipe, under the number of its descriptor. Signal handlers look
// here, so the memory is never freed, and a place serves one pipe after another.

/// What is known of one end of a pipe. Reader and writers count for themselves, each in a cache line of its
/// own; *internally locked*, by atomics.
struct alignas(64) PipeEndState {
    std::atomic<bool> isOpen{false};
    std::atomic<int> otherEnd{0};            ///< of an open end; zeros need no space in the file
    std::atomic<unsigned int> tokens{0};     ///< read here; or written here, or about to be
    std::atomic<unsigned int> capacity{0};   ///< of a write end: tokens that fit for certain
    std::atomic<unsigned int> readSoFar{0};  ///< of a write end: tokens that had been read when last looked
    std::atomic<unsigned int> handlers{0};   ///< of a write end: signal handlers that are writing
};

/// Makes a place for a descriptor. False for a number beyond those that a process can have, and without
/// memory.
bool makePipeEndState(int handle);

/// The place of a descriptor, or null if there is none yet.
PipeEndState* findPipeEndState(int handle);

/// The place of an open end, or null.
PipeEndState* findOpenPipeEnd(int handle);

/// Opens a place that `makePipeEndState` made.
void openPipeEnd(int handle, int otherEnd, unsigned int capacity);

/// When this returns, no handler writes to the pipe and none will.
void closePipeEnd(int handle);

/// True if one more token fits after `written` ones.
bool hasRoomAfter(PipeEndState& writer, unsigned int written);

/// Reserves the room for one token. False if there is none.
bool reserveRoom(PipeEndState& writer);

/// Counts a token that the one reader of the pipe has read.
void countReadToken(int readEnd);

}  // namespace utl
