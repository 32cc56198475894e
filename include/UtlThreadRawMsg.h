#pragma once

#include "UtlMsg.h"

namespace utl {

/// A message in flat form: a buffer of fixed size with the id in its first 4 bytes and the values packed
/// after it in call order, in native byte order, without padding or tags. Valid inside one process only.
/// *External lock needed*: the buffers of a message thread are guarded by that thread's locks.
///
/// After the first operation that fails, every `set` and `get` fails until the next begin. The number of
/// bytes written is not recorded: only the capacity limits a `get`, and if the classes of sender and receiver
/// differ, it reads what an earlier message left there. `beginInput` and `beginOutput` set the position after
/// the id; on a fresh object the positions are 0.
class UTL_API ThreadRawMsg : public MsgDataBroker {
  public:
    /// The bytes of the id before the values.
    static constexpr unsigned int ID_BYTES = 4;

    /// Allocates `size` bytes, at least the 4 of the id, and leaves them uninitialised.
    explicit ThreadRawMsg(unsigned int size);

    /// Copies the bytes, not the positions: the copy must be begun before it is read.
    ThreadRawMsg(ThreadRawMsg const& source);

    /// Takes the source's size, bytes, positions and result. Reading continues where the source stood.
    ThreadRawMsg& operator=(ThreadRawMsg const& source);

    ~ThreadRawMsg() override;

    /// The whole buffer, `maxSize()` bytes with the id first. Valid until another message is assigned.
    [[nodiscard]] unsigned char* buffer() noexcept { return mBuffer; }
    [[nodiscard]] unsigned char const* buffer() const noexcept { return mBuffer; }

    /// The buffer's size in bytes, the id included.
    [[nodiscard]] unsigned int maxSize() const noexcept { return mMaxSize; }

    int beginInput() override;
    int endInput() override;
    int beginOutput() override;
    int endOutput() override;

    /// 0, or -1 once an operation has failed since the last begin.
    int getResult() override;

    /// Always works, whatever failed before.
    int setMsgId(int msgId) override;

    /// 0 for a null `msgId`. Always works otherwise, whatever failed before.
    int getMsgId(int* msgId) override;

    /// A value that does not fit whole fails: nothing is written and the position stays. Null texts and bytes
    /// fail in the same way. A null `wchar_t` text must not be passed, even after a failure: its length is
    /// determined first.
    ///@{
    int set(bool value) override;
    int set(unsigned char value) override;
    int set(unsigned short value) override;
    int set(unsigned int value) override;
    int set(unsigned long long value) override;
    int set(signed char value) override;
    int set(short value) override;
    int set(int value) override;
    int set(long long value) override;
    int set(float value) override;
    int set(double value) override;
    int set(void* value) override;
    int set(char const* text) override;
    int set(wchar_t const* text) override;
    int set(unsigned char const* bytes, unsigned int count) override;
    ///@}

    /// A value that is not there whole, or a null `out`, fails; nothing is stored and the position stays.
    /// Only `get(bool*)` does not test `out`; it stores true for any byte but 0.
    ///@{
    int get(bool* out) override;
    int get(unsigned char* out) override;
    int get(unsigned short* out) override;
    int get(unsigned int* out) override;
    int get(unsigned long long* out) override;
    int get(signed char* out) override;
    int get(short* out) override;
    int get(int* out) override;
    int get(long long* out) override;
    int get(float* out) override;
    int get(double* out) override;
    int get(void** out) override;
    ///@}

    /// Reads a text of at most `maxLen` characters, its terminator included. For a text that is longer, or
    /// that has no terminator, it returns 0, which is no failure of the broker: the position stays, so that a
    /// larger `out` can be tried.
    ///@{
    int get(char* out, unsigned int maxLen) override;
    int get(wchar_t* out, unsigned int maxLen) override;
    ///@}

    /// Reads `count` bytes.
    int get(unsigned char* out, unsigned int count) override;

  private:
    int put(void const* value, unsigned long long bytes);
    int take(void* out, unsigned long long bytes);
    int takeText(void* out, unsigned int length, unsigned int characterBytes);
    unsigned int checkOutputStrLength(unsigned int maxLen) const;
    unsigned int checkOutputWideStrLength(unsigned int maxLen) const;
    int fail();

    unsigned char* mBuffer;
    unsigned int mMaxSize;
    unsigned int mInputPos;
    unsigned int mOutputPos;
    int mResult;
};

}  // namespace utl
