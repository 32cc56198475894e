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
// A timer is identified by its kernel number and its pipe. If a timer is deleted while an expiry is on its
// way, the expiry is dropped: it must not reach a descriptor that was closed and may be another file by then.
// A signal of an unknown timer is passed to the handler that was installed before: a program may contain the
// library twice, once in itself and once in a plug-in, and each copy has its own timers. The number of tokens
// of one timer that wait in the pipe is limited: the reader would ignore more of them, and they would fill
// the pipe while the reader is busy.

/// How many tokens of one timer wait in the pipe at most. At most two expiries of a timer are queued; the
/// reader decides token by token which ones.
inline constexpr unsigned int TIMER_TOKENS_MAX = 4;

/// The number that `si_timerid` carries for the timer. 0 is a number like any other.
int kernelTimerNumber(timer_t id);

/// Creates a timer that is not armed. `*id` and `*number` are untouched on failure. Returns 0 or `errno`.
int createSystemTimer(int signalNumber, int writeEnd, timer_t* id, int* number);

/// Arms the timer: it expires every `milliseconds` from now on. 0 disarms it. Returns 0 or `errno`.
int armSystemTimer(timer_t id, unsigned int milliseconds);

/// Deletes the timer. Returns 0 or `errno`. After 0, no signal of it writes a token any more; after a failure
/// the timer continues.
int deleteSystemTimer(timer_t id, int number);

/// Abandons a timer that could not be deleted: it may continue, but no signal of it writes a token any more.
void abandonSystemTimer(int number);

/// The reader has read a token of the timer.
void acknowledgeTimerToken(int number);

/// The work of the handlers, with their arguments. False if a write was tried and did not write a whole
/// token: `*io` is its outcome then. `errno` is what it was before.
bool serveTimerSignal(int signalNumber, siginfo_t* info, void* context, TokenIo* io);

/// The action that runs `handler`; interrupted calls continue after it.
struct sigaction timerSignalAction(void (*handler)(int, siginfo_t*, void*));

/// Installs the action for the signal; signals that are not the library's are passed to the handler that it
/// replaces. Returns 0 or `errno`.
int installSignalAction(int signalNumber, struct sigaction const& action);

}  // namespace utl
