#pragma once

#include <atomic>

#include "UtlMsg.h"

namespace utl {

class StatementInfo;

/// One message through the pipe of a thread that sleeps in `read`: 8 bytes, the id first, native byte order.
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

/// Read end and write end; -1 for none.
using TokenPipe = std::atomic<int>[2];

/// Opens the pipe, blocking in both directions, with room for `tokens` tokens if the system allows it.
/// Returns 0, or `errno` with -1 in both ends.
int openTokenPipe(TokenPipe& ends, unsigned int tokens);

/// The ends of a pipe that nobody else sees any more; closes them when the scope ends. A reader that looks
/// for its end from now on finds none, and one that sleeps in `read` can be woken to look again. Until then
/// its descriptor stays open and cannot become another file.
class [[nodiscard]] ClosingTokenPipe {
  public:
    explicit ClosingTokenPipe(TokenPipe& ends);
    ~ClosingTokenPipe();
    ClosingTokenPipe(ClosingTokenPipe const&) = delete;
    ClosingTokenPipe& operator=(ClosingTokenPipe const&) = delete;

    /// Wakes a sleeping reader with a token that has no effect. If there is no room for it, the reader is
    /// awake.
    void wakeReader() const;

  private:
    int const mReadEnd;
    int const mWriteEnd;
};

/// False if one more token could block its writer. Tokens are counted from `write` to `read`, whoever writes
/// them: those of erased entries and of deleted timers stay in the pipe until they are read.
bool hasRoomForToken(int writeEnd);

/// Reserves the room for one token, which the caller then writes by `writeReservedToken`. False if the token
/// could block its writer. True if the pipe is closed: the write will fail.
bool reserveToken(int writeEnd);

/// The tokens for which the pipe has room; 0 if it is closed.
unsigned int tokenCapacity(int writeEnd);

/// True if no token waits to be read, and none is being written.
bool isTokenPipeEmpty(int readEnd);

/// Writes the token for which room was reserved.
TokenIo writeReservedToken(int writeEnd, PipeToken const& token);

/// Writes one token from a signal handler, which must not block. Without room for it, or if the pipe is
/// closed and its descriptor may be another file by now, writes nothing and returns true. False, with the
/// outcome in `*io`, if a write failed.
bool writeTokenFromHandler(int writeEnd, PipeToken const& token, TokenIo* io, bool* written);

/// Reads one token; waits for it. A thread under the watchdog is not watched meanwhile and reports `place`
/// before and after. An interrupted read is logged and repeated. False if the read returned anything but a
/// token, which is logged, too; `owner` and `name` are the class and the thread in the line.
bool readToken(char const* owner, char const* name, StatementInfo const& place,
               std::atomic<int> const& readEnd, PipeToken* token);

}  // namespace utl
