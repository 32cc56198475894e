#pragma once

#include <signal.h>
#include <time.h>

#include <atomic>

#include "internal/message/UtlTokenPipe.h"

namespace utl {

// One POSIX timer for one timer of the library: a real-time signal whose value is the write end of a token
// pipe. The handler that serves the signal writes {MSG_ID_TIMEOUT_SIGNAL, kernel timer number} into that
// pipe; the rest happens on the thread that reads it.
//
// Timers are known by their kernel numbers and pipes. An expiry that is still on its way when its timer goes
// finds it gone and is dropped: it must not reach a descriptor that was closed and means another file by
// then. A signal of no timer known here goes on to the handler that stood there before: a program may hold
// the library twice, once in itself and once in a plug-in, and each copy has timers of its own. For each
// timer only so many tokens wait in the pipe; more could only be ignored by the reader, and would fill the
// pipe up while the reader is busy.

/// Tokens of one timer that wait in the pipe at most. Two expiries are queued at most for a timer; the reader
/// finds out token by token which ones.
inline constexpr unsigned int TIMER_TOKENS_MAX = 4;

/// The number that `si_timerid` carries for the timer. 0 is a number like any other.
int kernelTimerNumber(timer_t id);

/// Creates a timer that is not armed. `*id` and `*number` are untouched on failure. Gives 0 or `errno`.
int createSystemTimer(int signalNumber, int writeEnd, timer_t* id, int* number);

/// Arms the timer: it expires every `milliseconds` from now on. 0 disarms it. Gives 0 or `errno`.
int armSystemTimer(timer_t id, unsigned int milliseconds);

/// Deletes the timer. When it returns 0, no signal of it writes a token any more. Gives 0 or `errno`; after a
/// failure the timer goes on.
int deleteSystemTimer(timer_t id, int number);

/// Gives up a timer that could not be deleted: it may go on, but no signal of it writes a token any more.
void abandonSystemTimer(int number);

/// The reader took a token of the timer out of the pipe.
void acknowledgeTimerToken(int number);

/// What the handlers do, with their arguments. False when a write was tried and gave `*io` instead of a whole
/// token. `errno` is what it was before.
bool serveTimerSignal(int signalNumber, siginfo_t* info, void* context, TokenIo* io);

/// The action that runs `handler`; interrupted calls go on behind it.
struct sigaction timerSignalAction(void (*handler)(int, siginfo_t*, void*));

/// Installs the action for the signal; signals that are not the library's go on to the handler that it
/// replaces. Gives 0 or `errno`.
int installSignalAction(int signalNumber, struct sigaction const& action);

}  // namespace utl
