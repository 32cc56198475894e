#pragma once

#include <atomic>

#include "UtlMsg.h"

namespace utl {

class StatementInfo;

/// What travels through the pipe of a thread that sleeps in `read`: 8 bytes, the id first, native byte order.
/// Tokens are written in one piece, so threads and signal handlers share a pipe without a lock.
struct PipeToken {
    int mId = MSG_ID_NONE;
    int mParam = -1;
};

/// Outcome of one `read` or `write` of a token, as it is logged.
struct TokenIo {
    unsigned int mRet;
    int mErrno;

    bool isWhole() const { return mRet == sizeof(PipeToken); }
};

/// Read end and write end; -1 where there is none.
using TokenPipe = std::atomic<int>[2];

/// Opens the pipe, blocking in both directions, with room for `tokens` tokens as far as the system allows.
/// Gives the `errno` of the failure, with -1 in both ends, or 0.
int openTokenPipe(TokenPipe& ends, unsigned int tokens);

/// The ends of a pipe that nobody else sees any more; closes them when the scope ends. A reader that looks
/// for its end from now on finds none, and one that sleeps in `read` can be woken to look again; until then
/// its descriptor stays open and cannot come to mean another file.
class [[nodiscard]] ClosingTokenPipe {
  public:
    explicit ClosingTokenPipe(TokenPipe& ends);
    ~ClosingTokenPipe();
    ClosingTokenPipe(ClosingTokenPipe const&) = delete;
    ClosingTokenPipe& operator=(ClosingTokenPipe const&) = delete;

    /// Wakes a sleeping reader with a token that means nothing. Where there is no room for it the reader is
    /// awake.
    void wakeReader() const;

  private:
    int const mReadEnd;
    int const mWriteEnd;
};

/// False when one more token could block its writer. Tokens are counted from `write` to `read`, whoever
/// writes them: those of entries that were erased and of timers that are gone stay in the pipe until they are
/// read.
bool hasRoomForToken(int writeEnd);

/// Takes the room for one token, which the caller then writes by `writeReservedToken`. False when the token
/// could block its writer. True where the pipe is gone: the write will say so.
bool reserveToken(int writeEnd);

/// The tokens for which the pipe has room; 0 where it is gone.
unsigned int tokenCapacity(int writeEnd);

/// True when no token waits to be read, and none is being written.
bool isTokenPipeEmpty(int readEnd);

/// Writes the token for which room was taken.
TokenIo writeReservedToken(int writeEnd, PipeToken const& token);

/// Writes one token from a signal handler, which must not block: without room for it, or where the pipe is
/// gone and its descriptor may mean another file by now, nothing is written and true is given. False, with
/// the outcome in `*io`, when a write failed.
bool writeTokenFromHandler(int writeEnd, PipeToken const& token, TokenIo* io, bool* written);

/// Reads one token; waits for it. A thread under the watchdog is not watched meanwhile and reports `place`
/// before and after. An interrupted read is logged and repeated. False when the pipe gave anything but a
/// token, which is logged too; `owner` and `name` are the class and the thread in the line.
bool readToken(char const* owner, char const* name, StatementInfo const& place,
               std::atomic<int> const& readEnd, PipeToken* token);

}  // namespace utl
