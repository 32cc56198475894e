#pragma once

#include "UtlBasicString.h"
#include "UtlPlatform.h"
#include "UtlSyncObject.h"

namespace utl {

/// Hands out blocks of one size from one area; *internally locked*, because any thread may take and return
/// them. The pool itself uses no heap after its construction; a call's keep-alive report, if it is the first
/// of the process, may still make the `ThreadManager`. A call takes the same time for any number of blocks.
///
/// Blocks are contiguous, without headers or gaps, so the block size determines their alignment: with a
/// multiple of 16 every block suits every type that is not over-aligned (`alignas` beyond
/// `std::max_align_t`). The lowest free block is handed out first.
class UTL_API MemoryPool {
  public:
    /// Makes `blockCount` blocks of `blockSize` bytes, zeroed. `name` appears in the pool's log lines; it is
    /// copied, and null counts as empty. A count or a size of 0 is logged and leaves a pool without blocks.
    /// What the allocator throws passes through.
    MemoryPool(unsigned int blockSize, unsigned int blockCount, char const* name);

    /// Logs each block that is still in use, and frees the memory of all blocks.
    virtual ~MemoryPool();
    MemoryPool(MemoryPool const&) = delete;
    MemoryPool& operator=(MemoryPool const&) = delete;

    /// The lowest free block, which belongs to the caller until `release`; null when all are in use. Its
    /// content is what its last user left there.
    [[nodiscard]] void* create();

    /// Takes a block back. Null is ignored. An address that is not the start of a block in use is logged and
    /// ignored.
    void release(void* block);

  private:
    bool isBlock(void const* block, unsigned int* index) const;
    void logError(char const* format) const;

    BasicString<char> mName;
    unsigned int mBlockSize;
    unsigned int mBlockCount;
    // A flag for each block, followed by the search tree over the free ones.
    unsigned int* mActive UTL_PT_GUARDED_BY(mSyncObject);
    unsigned char* mMemory;
    SyncObject mSyncObject;
};

}  // namespace utl
