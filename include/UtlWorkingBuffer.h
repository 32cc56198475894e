#pragma once

#include "UtlPlatform.h"
#include "UtlSyncObject.h"

namespace utl {

template <typename T>
class UTL_API WorkingBuffer;

/// The process's scratch store, lent out slot by slot through `WorkingBuffer`; *internally locked*, because
/// every thread of the process shares the three slots.
///
/// The one instance is constructed on first use and never destroyed, so that threads which still run while
/// `main` returns can go on using it.
class UTL_API StaticBuffer {
  public:
    /// How many loans of one thread have a slot of their own.
    static constexpr unsigned int SLOT_COUNT = 3;

    /// Bytes of one slot, the terminator of its text included.
    static constexpr unsigned int SLOT_SIZE = 10240;

    /// The one instance.
    static StaticBuffer& get();

    StaticBuffer(StaticBuffer const&) = delete;
    StaticBuffer& operator=(StaticBuffer const&) = delete;

  protected:
    StaticBuffer() = default;
    ~StaticBuffer() = default;

    /// Lends the slot of the present depth to `borrower` and goes one deeper. From the third loan on it is
    /// always the last slot: deeper loans share it. A depth below 0 lends the first.
    void lendTo(void const* borrower) UTL_REQUIRES(mSyncObject);

    /// The slot that was lent to `borrower`.
    char* slotOf(void const* borrower) UTL_REQUIRES(mSyncObject) {
        if (borrower == mBorrowers[0]) {
            return mBuffers[0];
        }
        return mBuffers[borrower == mBorrowers[1] || borrower == mBorrowers[2] ? 1 : SLOT_COUNT - 1];
    }

    /// Ends the loan of `borrower`.
    void takeBackFrom(void const* borrower) UTL_REQUIRES(mSyncObject);

  private:
    friend class WorkingBuffer<char>;

    SyncObject mSyncObject;
    char mBuffers[SLOT_COUNT][SLOT_SIZE] UTL_GUARDED_BY(mSyncObject){};
    int mDepth UTL_GUARDED_BY(mSyncObject) = 0;

    // The first has the first slot, the others the second: they are two if a loan was taken between the ends
    // of an outer and an inner one. Whoever else has a loan has the last slot.
    void const* mBorrowers[3] UTL_GUARDED_BY(mSyncObject){};
};

/// Scratch space until the end of a scope: borrows a slot of the `StaticBuffer`; *one owner thread*, because
/// the loan holds a recursive lock that keeps every other thread out until the scope ends.
///
/// The holder must not wait for anything that may need a string operation on another thread. Loans nest:
/// three of one thread have slots of their own, the fourth and deeper ones share that of the third. A slot
/// holds whatever its last user left there.
template <typename T>
class [[nodiscard]] UTL_API WorkingBuffer {
  public:
    /// Blocks while another thread has a loan.
    WorkingBuffer();
    virtual ~WorkingBuffer();
    WorkingBuffer(WorkingBuffer const&) = delete;
    WorkingBuffer& operator=(WorkingBuffer const&) = delete;

    /// The slot, of `size()` bytes; valid as long as this object lives.
    [[nodiscard]] T* get() const UTL_NO_THREAD_SAFETY_ANALYSIS {
        return mStaticBuffer->slotOf(this);  // under the lock of the constructor
    }

    /// Bytes of the slot, for text with its terminator.
    [[nodiscard]] static constexpr unsigned int size() noexcept { return StaticBuffer::SLOT_SIZE; }

  private:
    StaticBuffer* mStaticBuffer;
};

extern template class WorkingBuffer<char>;

}  // namespace utl
