#include "UtlThreadRawMsg.h"

#include <cstring>
#include <cwchar>

namespace utl {

namespace {

static_assert(sizeof(int) == ThreadRawMsg::ID_BYTES, "an id takes the first 4 bytes");
static_assert(sizeof(wchar_t) == 4, "wide characters travel as 4 bytes");

unsigned char* newBufferLike(unsigned char const* source, unsigned int size) {
    auto* const buffer = new unsigned char[size];
    std::memcpy(buffer, source, size);
    return buffer;
}

}  // namespace

ThreadRawMsg::ThreadRawMsg(unsigned int size)
    : mBuffer(nullptr), mMaxSize(size < ID_BYTES ? ID_BYTES : size), mInputPos(0), mOutputPos(0), mResult(0) {
    mBuffer = new unsigned char[mMaxSize];
}

ThreadRawMsg::ThreadRawMsg(ThreadRawMsg const& source)
    : MsgDataBroker(source),
      mBuffer(newBufferLike(source.mBuffer, source.mMaxSize)),
      mMaxSize(source.mMaxSize),
      mInputPos(0),
      mOutputPos(0),
      mResult(0) {}

ThreadRawMsg& ThreadRawMsg::operator=(ThreadRawMsg const& source) {
    if (this == &source) {
        return *this;
    }
    if (mMaxSize == source.mMaxSize) {
        std::memcpy(mBuffer, source.mBuffer, mMaxSize);
    } else {
        unsigned char* const buffer = newBufferLike(source.mBuffer, source.mMaxSize);
        delete[] mBuffer;
        mBuffer = buffer;
        mMaxSize = source.mMaxSize;
    }
    mInputPos = source.mInputPos;
    mOutputPos = source.mOutputPos;
    mResult = source.mResult;
    return *this;
}

ThreadRawMsg::~ThreadRawMsg() {
    delete[] mBuffer;
}

int ThreadRawMsg::beginInput() {
    mResult = 0;
    mInputPos = ID_BYTES;
    return 1;
}

int ThreadRawMsg::endInput() {
    return 1;
}

int ThreadRawMsg::beginOutput() {
    mResult = 0;
    mOutputPos = ID_BYTES;
    return 1;
}

int ThreadRawMsg::endOutput() {
    return 1;
}

int ThreadRawMsg::getResult() {
    return mResult;
}

int ThreadRawMsg::setMsgId(int msgId) {
    std::memcpy(mBuffer, &msgId, ID_BYTES);
    return 1;
}

int ThreadRawMsg::getMsgId(int* msgId) {
    if (msgId == nullptr) {
        return 0;
    }
    std::memcpy(msgId, mBuffer, ID_BYTES);
    return 1;
}

int ThreadRawMsg::fail() {
    mResult = -1;
    return 0;
}

int ThreadRawMsg::put(void const* value, unsigned long long bytes) {
    if (mResult == -1) {
        return 0;
    }
    if (value == nullptr || mMaxSize - mInputPos < bytes) {
        return fail();
    }
    std::memcpy(mBuffer + mInputPos, value, static_cast<size_t>(bytes));
    mInputPos += static_cast<unsigned int>(bytes);
    return 1;
}

int ThreadRawMsg::take(void* out, unsigned long long bytes) {
    if (mResult == -1) {
        return 0;
    }
    if (out == nullptr || mMaxSize - mOutputPos < bytes) {
        return fail();
    }
    std::memcpy(out, mBuffer + mOutputPos, static_cast<size_t>(bytes));
    mOutputPos += static_cast<unsigned int>(bytes);
    return 1;
}

int ThreadRawMsg::set(bool value) {
    return put(&value, sizeof(value));
}
int ThreadRawMsg::set(unsigned char value) {
    return put(&value, sizeof(value));
}
int ThreadRawMsg::set(unsigned short value) {
    return put(&value, sizeof(value));
}
int ThreadRawMsg::set(unsigned int value) {
    return put(&value, sizeof(value));
}
int ThreadRawMsg::set(unsigned long long value) {
    return put(&value, sizeof(value));
}
int ThreadRawMsg::set(signed char value) {
    return put(&value, sizeof(value));
}
int ThreadRawMsg::set(short value) {
    return put(&value, sizeof(value));
}
int ThreadRawMsg::set(int value) {
    return put(&value, sizeof(value));
}
int ThreadRawMsg::set(long long value) {
    return put(&value, sizeof(value));
}
int ThreadRawMsg::set(float value) {
    return put(&value, sizeof(value));
}
int ThreadRawMsg::set(double value) {
    return put(&value, sizeof(value));
}
int ThreadRawMsg::set(void* value) {
    return put(&value, sizeof(value));
}

int ThreadRawMsg::set(char const* text) {
    return put(text, text == nullptr ? 0 : std::strlen(text) + 1ULL);
}

// The length is determined before any test: callers must never pass null here.
int ThreadRawMsg::set(wchar_t const* text) {
    return put(text, (std::wcslen(text) + 1ULL) * sizeof(wchar_t));
}

int ThreadRawMsg::set(unsigned char const* bytes, unsigned int count) {
    return put(bytes, count);
}

int ThreadRawMsg::get(bool* out) {
    unsigned char byte = 0;
    if (take(&byte, sizeof(byte)) == 0) {
        return 0;
    }
    *out = byte != 0;
    return 1;
}

int ThreadRawMsg::get(unsigned char* out) {
    return take(out, sizeof(*out));
}
int ThreadRawMsg::get(unsigned short* out) {
    return take(out, sizeof(*out));
}
int ThreadRawMsg::get(unsigned int* out) {
    return take(out, sizeof(*out));
}
int ThreadRawMsg::get(unsigned long long* out) {
    return take(out, sizeof(*out));
}
int ThreadRawMsg::get(signed char* out) {
    return take(out, sizeof(*out));
}
int ThreadRawMsg::get(short* out) {
    return take(out, sizeof(*out));
}
int ThreadRawMsg::get(int* out) {
    return take(out, sizeof(*out));
}
int ThreadRawMsg::get(long long* out) {
    return take(out, sizeof(*out));
}
int ThreadRawMsg::get(float* out) {
    return take(out, sizeof(*out));
}
int ThreadRawMsg::get(double* out) {
    return take(out, sizeof(*out));
}
int ThreadRawMsg::get(void** out) {
    return take(out, sizeof(*out));
}

int ThreadRawMsg::get(char* out, unsigned int maxLen) {
    return takeText(out, checkOutputStrLength(maxLen), sizeof(char));
}

int ThreadRawMsg::get(wchar_t* out, unsigned int maxLen) {
    return takeText(out, checkOutputWideStrLength(maxLen), sizeof(wchar_t));
}

int ThreadRawMsg::get(unsigned char* out, unsigned int count) {
    return take(out, count);
}

// A text that is too long for the caller is no failure of the broker: the caller may try again with a larger
// buffer.
int ThreadRawMsg::takeText(void* out, unsigned int length, unsigned int characterBytes) {
    if (length == INVALID_SIZE || mResult == -1) {
        return 0;
    }
    return take(out, 1ULL * length * characterBytes);
}

// The length of the text at the read position with its terminator, or INVALID_SIZE if no text ends within
// `maxLen` characters and within the buffer.
unsigned int ThreadRawMsg::checkOutputStrLength(unsigned int maxLen) const {
    unsigned int const remaining = mMaxSize - mOutputPos;
    unsigned int const limit = maxLen < remaining ? maxLen : remaining;
    if (limit == 0) {
        return INVALID_SIZE;
    }
    unsigned char const* const text = mBuffer + mOutputPos;
    void const* const end = std::memchr(text, 0, limit);
    return end == nullptr ? INVALID_SIZE
                          : static_cast<unsigned int>(static_cast<unsigned char const*>(end) - text) + 1;
}

// The same in characters of 4 bytes, read byte by byte: the position may be unaligned.
unsigned int ThreadRawMsg::checkOutputWideStrLength(unsigned int maxLen) const {
    unsigned int const remaining = (mMaxSize - mOutputPos) / static_cast<unsigned int>(sizeof(wchar_t));
    unsigned int const limit = maxLen < remaining ? maxLen : remaining;
    unsigned char const* character = mBuffer + mOutputPos;
    for (unsigned int i = 0; i < limit; ++i, character += sizeof(wchar_t)) {
        if ((character[0] | character[1] | character[2] | character[3]) == 0) {
            return i + 1;
        }
    }
    return INVALID_SIZE;
}

}  // namespace utl
