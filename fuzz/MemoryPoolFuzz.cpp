// Memory pools beside a set of free blocks, with addresses that are none of theirs.

#include <set>
#include <string>
#include <vector>

#include "Fuzz.h"
#include "UtlLog.h"
#include "UtlMemoryPool.h"
#include "UtlPlatform.h"

namespace {

using fuzz::Input;

std::string gLog;

// The message of the last log line, without stamp and end.
std::string lastMessage() {
    size_t const begin = gLog.rfind("utl::MemoryPool::");
    std::string const message = begin == std::string::npos ? "" : gLog.substr(begin, gLog.size() - begin - 2);
    gLog.clear();
    return message;
}

/// A pool, and which of its blocks are free and taken.
class Subject {
  public:
    Subject(unsigned int blockSize, unsigned int blockCount)
        : mPool(blockSize, blockCount, "p"), mBlockSize(blockSize) {
        char const* const refused = blockCount == 0
                                        ? "utl::MemoryPool::MemoryPool(): Number of memory is 0!! (p)"
                                    : blockSize == 0 ? "utl::MemoryPool::MemoryPool(): Memory size is 0!! (p)"
                                                     : "";
        FUZZ_EXPECT(lastMessage() == refused);
        for (unsigned int i = 0; blockSize != 0 && i < blockCount; ++i) {
            mFree.insert(i);
        }
    }

    // The lowest free block, which is written to its last byte.
    void create() {
        auto* const block = static_cast<unsigned char*>(mPool.create());
        FUZZ_EXPECT((block != nullptr) == !mFree.empty());
        if (block == nullptr) {
            return;
        }
        unsigned int const index = *mFree.begin();
        mFree.erase(mFree.begin());
        mpMemory = mpMemory != nullptr ? mpMemory : block;
        FUZZ_EXPECT(block == mpMemory + index * mBlockSize);
        expectContent();
        std::fill_n(block, mBlockSize, static_cast<unsigned char>(index + 1));
        mTaken.insert(index);
    }

    // Any place in the pool or near it.
    void release(Input* input) {
        auto const count = static_cast<int>(mFree.size() + mTaken.size());
        if (mpMemory == nullptr) {
            mPool.release(nullptr);
            return;
        }
        int const size = static_cast<int>(mBlockSize);
        bool const isBorder = input->upTo(3) != 0;
        int const offset = static_cast<int>(input->upTo(static_cast<unsigned int>(count) + 1)) * size +
                           (isBorder ? 0 : static_cast<int>(input->upTo(7)) - 4);
        mPool.release(reinterpret_cast<unsigned char*>(
            reinterpret_cast<uintptr_t>(mpMemory) + static_cast<uintptr_t>(static_cast<intptr_t>(offset))));
        FUZZ_EXPECT(lastMessage() == refusal(offset, size, count));
        if (offset >= 0 && offset % size == 0 &&
            mTaken.erase(static_cast<unsigned int>(offset / size)) != 0) {
            mFree.insert(static_cast<unsigned int>(offset / size));
        }
    }

    void expectContent() const {
        for (unsigned int const index : mTaken) {
            for (unsigned int i = 0; i < mBlockSize; ++i) {
                FUZZ_EXPECT(mpMemory[index * mBlockSize + i] == static_cast<unsigned char>(index + 1));
            }
        }
    }

    std::set<unsigned int> const& taken() const { return mTaken; }

  private:
    std::string refusal(int offset, int size, int count) const {
        std::string const what = offset < 0               ? "Memory is management outside (under)!! (p)"
                                 : offset % size != 0     ? "alignment error!! (p)"
                                 : offset / size >= count ? "Memory is management outside (over)!! (p)"
                                 : mTaken.count(static_cast<unsigned int>(offset / size)) == 0
                                     ? "Memory is not active!! (p)"
                                     : "";
        return what.empty() ? what : "utl::MemoryPool::release(): " + what;
    }

    utl::MemoryPool mPool;
    unsigned int mBlockSize;
    unsigned char* mpMemory = nullptr;
    std::set<unsigned int> mFree;
    std::set<unsigned int> mTaken;
};

void usePool(Input* input, std::set<unsigned int>* leaked) {
    unsigned int const blockSize = input->upTo(9);
    unsigned int const blockCount = input->upTo(70);
    Subject subject(blockSize, blockCount);
    while (!input->isAtEnd()) {
        if (input->upTo(2) != 0) {
            subject.create();
        } else {
            subject.release(input);
        }
    }
    subject.expectContent();
    *leaked = subject.taken();
    gLog.clear();
}

}  // namespace

extern "C" void BinaryLogWrite(int, void const* text, unsigned int bytes) {
    gLog.append(static_cast<char const*>(text), bytes);
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    Input input(data, size);
    std::set<unsigned int> leaked;
    usePool(&input, &leaked);
    for (unsigned int const index : leaked) {
        FUZZ_EXPECT(gLog.find("Memory leak!! (p) Slot=" + std::to_string(index) + "\r\n") !=
                    std::string::npos);
    }
    gLog.clear();
    return 0;
}
