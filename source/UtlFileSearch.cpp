#include <algorithm>
#include <cstring>
#include <memory>

#include "UtlFile.h"
#include "internal/file/UtlFileCalls.h"
#include "internal/text/UtlCharDecoder.h"

namespace utl {

namespace {

constexpr unsigned long long FROM_THE_POSITION = 0xFFFFFFFFFFFFFFFEULL;
constexpr int BEHIND_THE_KEY = 1;
constexpr long long NOT_FOUND = -2;
constexpr unsigned int BLOCK_BYTES = 16384;

/// A search for a key in bytes as they come; *one owner thread*, because it remembers how much of the key
/// there was. It never goes back: a byte that is not the next one of the key begins no match either.
class KeySearch {
  public:
    KeySearch(unsigned char const* key, unsigned int keyLength) : mpKey(key), mLength(keyLength) {}

    /// Goes on with the next bytes; gives how many of them there are up to the end of the key, or all.
    unsigned int goOn(unsigned char const* bytes, unsigned int count) {
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

/// The bytes from the position to the end of the key, among the next `range`; `NOT_FOUND`, -1 on failure.
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
            return count == -1 ? -1 : NOT_FOUND;
        }
        examined += search.goOn(block.get(), static_cast<unsigned int>(count));
        if (search.isFound()) {
            return examined;
        }
    }
    return NOT_FOUND;
}

}  // namespace

int File::nextEOLSize() {
    long long const start = position();
    if (start == -1) {
        return 0;
    }
    unsigned char bytes[2] = {};
    int const count = read(bytes, sizeof(bytes));
    seek(start, START);
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
        start == FROM_THE_POSITION ? oldPosition : seek(static_cast<long long>(start), START);
    if (begin == -1) {
        return -1;
    }
    long long const bytes = bytesToKeyEnd(this, KeySearch(key, keyLength), range);
    long long const found =
        bytes < 0 ? bytes : seek(begin + bytes - (mode == BEHIND_THE_KEY ? 0 : keyLength), START);
    if (found < 0) {
        seek(oldPosition, START);
    }
    return found;
}

long long File::seekKey(char const* key, unsigned long long start, unsigned long long range, int mode) {
    return seekKey(reinterpret_cast<unsigned char const*>(key), textLength(key), start, range, mode);
}

}  // namespace utl
