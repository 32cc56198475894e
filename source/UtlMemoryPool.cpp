#include "UtlMemoryPool.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include "UtlLog.h"
#include "internal/thread/UtlKeepAlive.h"

namespace utl {

namespace {

constexpr char SOURCE[] = "source/UtlMemoryPool";

constexpr unsigned int BITS = 32;
constexpr unsigned int LEVELS_MAX = 7;  // 32 bits at each: enough for any count

// Finds the lowest free block in a few steps. One bit for each block says that it is free. Each higher level
// has one bit for each word below that is not 0, up to a level of one word.
class FreeTree {
  public:
    // `words` has the size that `wordCount` returns.
    FreeTree(unsigned int* words, unsigned int blockCount) : mLevelCount(0) {
        unsigned int bits = blockCount;
        unsigned int size = 0;
        do {
            size = wordsFor(bits);
            mLevels[mLevelCount++] = words;
            words += size;
            bits = size;
        } while (size > 1);
    }

    static unsigned long long wordCount(unsigned int blockCount) {
        unsigned long long count = 0;
        unsigned int size = blockCount;
        do {
            size = wordsFor(size);
            count += size;
        } while (size > 1);
        return count;
    }

    bool isEmpty() const { return *mLevels[mLevelCount - 1] == 0; }

    unsigned int lowest() const {
        unsigned int index = 0;
        for (unsigned int level = mLevelCount; level-- > 0;) {
            index = index * BITS + static_cast<unsigned int>(__builtin_ctz(mLevels[level][index]));
        }
        return index;
    }

    void insert(unsigned int index) {
        for (unsigned int level = 0; level < mLevelCount; ++level) {
            unsigned int& word = mLevels[level][index / BITS];
            bool const isKnownAbove = word != 0;
            word |= 1U << (index % BITS);
            if (isKnownAbove) {
                return;
            }
            index /= BITS;
        }
    }

    void remove(unsigned int index) {
        for (unsigned int level = 0; level < mLevelCount; ++level) {
            unsigned int& word = mLevels[level][index / BITS];
            word &= ~(1U << (index % BITS));
            if (word != 0) {
                return;
            }
            index /= BITS;
        }
    }

  private:
    static unsigned int wordsFor(unsigned int bits) { return bits / BITS + (bits % BITS != 0 ? 1 : 0); }

    unsigned int* mLevels[LEVELS_MAX];
    unsigned int mLevelCount;
};

// Throws what `new` throws for an impossible size, before anything is allocated and zeroed.
size_t allocatable(unsigned long long bytes) {
    if (bytes > PTRDIFF_MAX) {
        throw std::bad_alloc();
    }
    return static_cast<size_t>(bytes);
}

}  // namespace

// The sizes are stored last: without them every call does nothing.
MemoryPool::MemoryPool(unsigned int blockSize, unsigned int blockCount, char const* name)
    : mName(name, 0, 0), mBlockSize(0), mBlockCount(0), mActive(nullptr), mMemory(nullptr) {
    if (blockCount == 0) {
        logError("utl::MemoryPool::MemoryPool(): Number of memory is 0!! (%s)");
        return;
    }
    if (blockSize == 0) {
        logError("utl::MemoryPool::MemoryPool(): Memory size is 0!! (%s)");
        return;
    }
    size_t const flagCount =
        allocatable(sizeof(unsigned int) * (blockCount + FreeTree::wordCount(blockCount))) /
        sizeof(unsigned int);
    size_t const bytes = allocatable(1ULL * blockSize * blockCount);
    std::unique_ptr<unsigned char[]> memory(new unsigned char[bytes]());
    mActive = new unsigned int[flagCount]();
    mMemory = memory.release();
    FreeTree free(mActive + blockCount, blockCount);
    for (unsigned int i = 0; i < blockCount; ++i) {
        free.insert(i);
    }
    mBlockSize = blockSize;
    mBlockCount = blockCount;
}

MemoryPool::~MemoryPool() {
    for (unsigned int i = 0; i < mBlockCount; ++i) {
        if (mActive[i] == 1) {
            applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR,
                   "utl::MemoryPool::~MemoryPool(): Memory leak!! (%s) Slot=%lu", mName.buffer(),
                   static_cast<unsigned long>(i));
        }
    }
    delete[] mActive;
    delete[] mMemory;
}

void* MemoryPool::create() {
    if (mBlockSize == 0) {
        return nullptr;
    }
    WatchedGuard const guard(mSyncObject, SOURCE, "create", 76);
    FreeTree free(mActive + mBlockCount, mBlockCount);
    if (free.isEmpty()) {
        return nullptr;
    }
    unsigned int const index = free.lowest();
    free.remove(index);
    mActive[index] = 1;
    return mMemory + static_cast<size_t>(index) * mBlockSize;
}

void MemoryPool::release(void* block) {
    unsigned int index = 0;
    if (block == nullptr || mBlockSize == 0 || !isBlock(block, &index)) {
        return;
    }
    WatchedGuard const guard(mSyncObject, SOURCE, "release", 138);
    if (mActive[index] != 1) {
        logError("utl::MemoryPool::release(): Memory is not active!! (%s)");
        return;
    }
    mActive[index] = 0;
    FreeTree(mActive + mBlockCount, mBlockCount).insert(index);
}

// Reads only constants, so it needs no lock.
bool MemoryPool::isBlock(void const* block, unsigned int* index) const {
    auto const offset = static_cast<std::ptrdiff_t>(reinterpret_cast<std::uintptr_t>(block) -
                                                    reinterpret_cast<std::uintptr_t>(mMemory));
    if (offset < 0) {
        logError("utl::MemoryPool::release(): Memory is management outside (under)!! (%s)");
        return false;
    }
    auto const distance = static_cast<size_t>(offset);
    size_t const number = distance / mBlockSize;
    if (number * mBlockSize != distance) {
        logError("utl::MemoryPool::release(): alignment error!! (%s)");
        return false;
    }
    if (number >= mBlockCount) {
        logError("utl::MemoryPool::release(): Memory is management outside (over)!! (%s)");
        return false;
    }
    *index = static_cast<unsigned int>(number);
    return true;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
void MemoryPool::logError(char const* format) const {
    applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, format, mName.buffer());
}
#pragma GCC diagnostic pop

}  // namespace utl
