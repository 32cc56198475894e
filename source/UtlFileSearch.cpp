#include <algorithm>
#include <cstring>
#include <memory>

#include "UtlFile.h"
#include "internal/file/UtlFileCalls.h"
#include "internal/text/UtlCharDecoder.h"

namespace utl {

namespace {

constexpr unsigned int BLOCK_BYTES = 16384;

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

/// The bytes from the position to the end of the key, among the next `range`; `KEY_NOT_FOUND`, -1 on failure.
long long bytesToKeyEnd(File* file, KeySearch search, unsigned long long range) {
    long long const available = file->availableSize();
    if (available == -1) {
        return -1;
    }
    auto const limit = static_cast<long long>(std::min(range, static_cast<unsigned long long>(available)));
    auto const blockBytes = static_cast<unsigned int>(std::min<long long>(limit, BLOCK_BYTES));
    std::unique_ptr<unsigned char[]> const block(new unsigned char[blockBytes]);
    for (long long examined = 0; examined < limit;) {
        auto const wanted = static_cast<unsigned int>(std::min<long long>(limit - examined, blockBytes));
        int const count = file->read(block.get(), wanted);
        if (count <= 0) {
            return count == -1 ? -1 : File::KEY_NOT_FOUND;
        }
        examined += search.examine(block.get(), static_cast<unsigned int>(count));
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
    seek(start, FROM_START);
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
    long long const begin =
        start == KEY_FROM_POSITION ? oldPosition : seek(static_cast<long long>(start), FROM_START);
    if (begin == -1) {
        return -1;
    }
    long long const bytes = bytesToKeyEnd(this, KeySearch(key, keyLength), range);
    long long const found =
        bytes < 0 ? bytes : seek(begin + bytes - (mode == AFTER_KEY ? 0 : keyLength), FROM_START);
    if (found < 0) {
        seek(oldPosition, FROM_START);
    }
    return found;
}

long long File::seekKey(char const* key, unsigned long long start, unsigned long long range, int mode) {
    return seekKey(reinterpret_cast<unsigned char const*>(key), textLength(key), start, range, mode);
}

}  // namespace utl
