#pragma once

#include <algorithm>
#include <type_traits>

#include "UtlRingArray.h"

namespace utl {

/// Where a walk from the head of a queue to its end stands, which takes some of the entries out. What it has
/// taken is a gap there until the walk closes it; so each of the others moves once, however many go.
/// *External lock needed*: that of the queue.
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

    /// The next entry, or null behind the last one.
    T const* next() const { return mQueue.elementAt(place()); }

    /// Takes the next `count` entries out, as many of them as are there. False if there is none.
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
