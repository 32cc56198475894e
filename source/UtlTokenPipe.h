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

/// True when a token can be written without waiting, for certain.
bool hasRoomForToken(int writeEnd);

/// True when the pipe may not take one more token without blocking. Worth asking only where `waiting` tokens,
/// the number that the caller knows of, come near to what a pipe holds by default.
bool isTokenPipeFull(int writeEnd, unsigned int waiting);

/// Writes one token. Safe in a signal handler.
TokenIo writeToken(int writeEnd, PipeToken const& token);

/// Reads one token; waits for it. A thread under the watchdog is not watched meanwhile and reports `place`
/// before and after. An interrupted read is logged and repeated. False when the pipe gave anything but a
/// token, which is logged too; `owner` and `name` are the class and the thread in the line.
bool readToken(char const* owner, char const* name, StatementInfo const& place,
               std::atomic<int> const& readEnd, PipeToken* token);

}  // namespace utl
