#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include "Peers.h"

namespace utlpeers {

constexpr unsigned int LETTER_BYTES = 64;

/// A message. The first thing in it is its number, and the rest is carried along.
struct Letter {
    unsigned int number = 0;
    unsigned char rest[LETTER_BYTES - sizeof(unsigned int)] = {};
};
static_assert(sizeof(Letter) == LETTER_BYTES);

/// Where the thread of a mailbox delivers: counts the letters and adds up their numbers. Can be made to hold
/// up that thread at the next letter, so that a queue fills behind it.
class Inbox {
  public:
    void deliver(Letter const& letter) {
        if (mIsHolding) {
            waitWhileHeld();
        }
        mSum += letter.number;
        if (--mMissing == 0) {
            std::lock_guard<std::mutex> const lock(mMutex);
            mIsComplete = true;
            mChanged.notify_all();
        }
    }

    /// Call before the first of `count` letters is posted.
    void expect(std::size_t count, bool isHolding) {
        mMissing = count;
        mSum = 0;
        mIsComplete = false;
        mIsHolding = isHolding;
    }

    void release() {
        std::lock_guard<std::mutex> const lock(mMutex);
        mIsHeld = false;
        mChanged.notify_all();
    }

    /// Waits until all letters are delivered, and proves that they are those numbered from 1.
    void await(unsigned long long sum) {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait(lock, [this] { return mIsComplete; });
        mIsHeld = true;
        prove(mSum == sum, "other messages than those that were posted");
    }

  private:
    void waitWhileHeld() {
        mIsHolding = false;
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait(lock, [this] { return !mIsHeld; });
    }

    std::mutex mMutex;
    std::condition_variable mChanged;
    bool mIsComplete = false;
    bool mIsHeld = true;

    // Written before the letters are posted, and then used by the delivering thread alone.
    bool mIsHolding = false;
    std::size_t mMissing = 0;
    unsigned long long mSum = 0;
};

/// A thread with a queue.
class Mailbox {
  public:
    Mailbox() = default;
    Mailbox(Mailbox const&) = delete;
    Mailbox& operator=(Mailbox const&) = delete;
    virtual ~Mailbox() = default;

    /// Called by any thread; false if the queue is full.
    virtual bool post(Letter const& letter) = 0;

    Inbox inbox;
};

/// One thread of each kind, with the library's first. Those that have a limit get that for `places`.
struct NamedMailbox {
    char const* name;
    std::shared_ptr<Mailbox> mailbox;
};
std::vector<NamedMailbox> mailboxes(unsigned int places);

std::shared_ptr<Mailbox> makeQtMailbox();

}  // namespace utlpeers
