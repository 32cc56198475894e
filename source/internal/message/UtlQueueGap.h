#pragma once

#include <algorithm>
#include <type_traits>

#include "UtlRingArray.h"

namespace utl {

/// A pass over a queue, from its head to its end, that removes some of the entries. The removed entries are a
/// gap in the queue until it is closed, so each of the others moves once, however many are removed. *External
/// lock needed*: that of the queue.
///
/// The queue is whole while the gap is closed, and only then may anybody else look at it or change it.
template <typename T>
class [[nodiscard]] QueueGap {
    static_assert(std::is_nothrow_copy_assignable_v<T>, "the destructor moves entries");

  public:
    explicit QueueGap(Queue<T>& queue) : mQueue(queue) {}
    ~QueueGap() { close(); }
    QueueGap(QueueGap const&) = delete;
    QueueGap& operator=(QueueGap const&) = delete;

    /// The place of the next entry among those that the queue holds, the gap included.
    unsigned int place() const { return mKept + mTaken; }

    /// The next entry, or null after the last one.
    T const* next() const { return mQueue.elementAt(place()); }

    /// Removes the next `count` entries, or as many as there are. False if there is none.
    bool take(unsigned int count) {
        if (next() == nullptr) {
            return false;
        }
        mTaken += std::min(count, mQueue.size() - place());
        return true;
    }

    /// Steps over the next `count` entries, which stay. The queue may end before that.
    void pass(unsigned int count) {
        if (!mQueue.copyDown(mKept, place(), count)) {
            close();
        }
        mKept += count;
    }

    /// Makes the queue whole.
    void close() {
        mQueue.removeAt(mKept, mTaken);
        mTaken = 0;
    }

  private:
    Queue<T>& mQueue;
    unsigned int mKept = 0;
    unsigned int mTaken = 0;
};

}  // namespace utl
