#include <algorithm>
#include <cstring>

#include "UtlFile.h"
#include "internal/file/UtlReadAhead.h"
#include "internal/text/UtlCharDecoder.h"

namespace utl {

namespace {

/// Searches for a key in successive blocks of bytes; *one owner thread*, because it remembers how much of the
/// key has matched. It never goes back: a byte that ends a partial match begins none.
class KeySearch {
  public:
    KeySearch(unsigned char const* key, unsigned int keyLength) : mpKey(key), mLength(keyLength) {}

    /// Examines the next block. Returns how many of its bytes there are up to the end of the key, all if that
    /// is not found.
    unsigned int examine(unsigned char const* bytes, unsigned int count) {
        unsigned int i = 0;
        while (i < count && !isFound()) {
            if (mMatched == 0) {
                auto const* const first = std::memchr(bytes + i, *mpKey, count - i);
                if (first == nullptr) {
                    return count;
                }
                i = static_cast<unsigned int>(static_cast<unsigned char const*>(first) - bytes);
            }
            mMatched = bytes[i] == mpKey[mMatched] ? mMatched + 1 : 0;
            ++i;
        }
        return i;
    }

    bool isFound() const { return mMatched == mLength; }

  private:
    unsigned char const* const mpKey;
    unsigned int const mLength;
    unsigned int mMatched = 0;
};

/// The bytes up to the end of the key among the next `limit`, which `next` returns by blocks as `read` does;
/// `KEY_NOT_FOUND`, -1 on failure.
template <typename NEXT>
long long bytesToKeyEnd(KeySearch search, long long limit, NEXT next) {
    for (long long examined = 0; examined < limit;) {
        char* block = nullptr;
        int const count = next(&block);
        if (count <= 0) {
            return count == -1 ? -1 : File::KEY_NOT_FOUND;
        }
        auto const wanted = static_cast<unsigned int>(std::min<long long>(limit - examined, count));
        examined += search.examine(reinterpret_cast<unsigned char const*>(block), wanted);
        if (search.isFound()) {
            return examined;
        }
    }
    return File::KEY_NOT_FOUND;
}

}  // namespace

int File::nextEOLSize() {
    long long const start = position();
    if (start == -1) {
        return 0;
    }
    unsigned char bytes[2] = {};
    int const count = read(bytes, sizeof(bytes));
    mReadAhead->moveTo(start);
    if (count <= 0) {
        return count == -1 ? -1 : 0;
    }
    if (bytes[0] == '\r' && bytes[1] == '\n') {
        return 2;
    }
    return bytes[0] == '\r' || bytes[0] == '\n' ? 1 : -1;
}

long long File::seekKey(unsigned char const* key, unsigned int keyLength, unsigned long long start,
                        unsigned long long range, int mode) {
    long long const oldPosition = key != nullptr && keyLength != 0 ? position() : -1;
    if (oldPosition == -1) {
        return -1;
    }
    long long begin = oldPosition;
    if (start != KEY_FROM_POSITION) {
        // Only a start that no file has asks the system, which refuses it. The kernel's position, which
        // another process may share, stays.
        begin = static_cast<long long>(start);
        begin = begin >= 0 ? begin : seek(begin, FROM_START);
    }
    if (begin == -1) {
        return -1;
    }
    mReadAhead->moveTo(begin);
    ReadRoom const room(mReadAhead.get());
    long long const available = availableSize();
    auto const limit = static_cast<long long>(std::min(range, static_cast<unsigned long long>(available)));
    long long const bytes =
        available == -1 ? -1 : bytesToKeyEnd(KeySearch(key, keyLength), limit, [this](char** block) {
            return takeBytes(block);
        });
    long long const found = bytes < 0 ? bytes : begin + bytes - (mode == AFTER_KEY ? 0 : keyLength);
    mReadAhead->moveTo(found < 0 ? oldPosition : found);
    return found;
}

/// The next bytes that were read ahead, and the position after them. Reads on if there are none; results and
/// lines as those of `read`. Needs a `ReadRoom`.
int File::takeBytes(char** bytes) {
    if (mReadAhead->count() == 0) {
        long long const size = sizeToRead();
        if (size <= mReadAhead->position()) {
            return size == -1 ? -1 : END_OF_FILE;
        }
        if (readOn(size) == -1) {
            return -1;
        }
    }
    unsigned int const count = mReadAhead->count();
    *bytes = mReadAhead->bytes();
    mReadAhead->pass(count);
    return static_cast<int>(count);
}

long long File::seekKey(char const* key, unsigned long long start, unsigned long long range, int mode) {
    return seekKey(reinterpret_cast<unsigned char const*>(key), textLength(key), start, range, mode);
}

}  // namespace utl
