#pragma once

#include "UtlBasicString.h"
#include "UtlPlatform.h"
#include "UtlSyncObject.h"

namespace utl {

/// Hands out blocks of one size from one area; *internally locked*, because any thread may take and give
/// back. The pool itself uses no heap after its construction; the first sign of life of a process, which a
/// call gives, may still make the `ThreadManager`. A call takes the same time whatever the number of blocks.
///
/// Blocks lie one behind the other without headers or gaps, so their alignment is what the block size gives:
/// with a multiple of 16 every block suits every type that is not over-aligned (`alignas` beyond
/// `std::max_align_t`). The lowest free block is handed out first.
class UTL_API MemoryPool {
  public:
    /// Makes `blockCount` blocks of `blockSize` bytes, zeroed. `name` stands in the pool's log lines; it is
    /// copied, and null is an empty one. A count or a size of 0 is logged and leaves a pool without blocks.
    /// What the allocator throws passes through.
    MemoryPool(unsigned int blockSize, unsigned int blockCount, char const* name);

    /// Logs each block that is still in use. The blocks' memory goes all the same.
    virtual ~MemoryPool();
    MemoryPool(MemoryPool const&) = delete;
    MemoryPool& operator=(MemoryPool const&) = delete;

    /// The lowest free block, which is the caller's until `release`; null when all are in use. It holds what
    /// its last user left there.
    void* create();

    /// Takes a block back. Null is ignored. An address that is not the start of a block in use is logged and
    /// ignored.
    void release(void* block);

  private:
    bool isBlock(void const* block, unsigned int* index) const;
    void logError(char const* format) const;

    BasicString<char> mName;
    unsigned int mBlockSize;
    unsigned int mBlockCount;
    // A flag for each block, and behind the flags the search tree over the free ones.
    unsigned int* mActive UTL_PT_GUARDED_BY(mSyncObject);
    unsigned char* mMemory;
    SyncObject mSyncObject;
};

}  // namespace utl
