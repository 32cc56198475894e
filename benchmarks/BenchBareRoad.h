#pragma once

#include <pthread.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "BenchMessages.h"

namespace utlbench {

/// The least that a message thread must do: a token of 8 bytes written and read for each message, its bytes
/// copied into a queue and out of it, and one plain lock, which sender and reader hold once for each message.
/// The sender writes the token while it holds the lock, so that tokens and messages have the same order.
class BareRoad {
  public:
    explicit BareRoad(unsigned int places = QUEUE_PLACES) : mPlaces(places), mFrames(places) {
        if (pipe(mPipe) != 0) {
            std::abort();
        }
        std::thread([this] { readForEver(); }).detach();
    }
    BareRoad(BareRoad const&) = delete;
    BareRoad& operator=(BareRoad const&) = delete;

    /// False if there is no place.
    bool post(unsigned char const* bytes) { return queue(bytes, POSTED); }

    /// Returns when the reader has had the message; for one sender at a time.
    void sendSync(unsigned char const* bytes) {
        while (!queue(bytes, AWAITED)) {
            pauseBeforeRetry();
        }
        std::unique_lock<std::mutex> guard(mBackLock);
        while (!mIsBack) {
            pthread_cond_wait(&mBack, guard.mutex()->native_handle());
        }
        mIsBack = false;
    }

  private:
    struct Frame {
        unsigned char mBytes[MSG_BYTES];
    };
    enum Kind { POSTED = 1, AWAITED = 2 };

    bool queue(unsigned char const* bytes, Kind kind) {
        std::lock_guard<std::mutex> const guard(mQueueLock);
        if (mUsed == mPlaces) {
            return false;
        }
        unsigned int const place = mFirst + mUsed;
        std::memcpy(mFrames[place < mPlaces ? place : place - mPlaces].mBytes, bytes, MSG_BYTES);
        ++mUsed;
        int const token[2] = {kind, -1};
        return write(mPipe[1], token, sizeof(token)) == sizeof(token);
    }

    void takeInto(Frame* frame) {
        std::lock_guard<std::mutex> const guard(mQueueLock);
        *frame = mFrames[mFirst];
        mFirst = mFirst + 1 < mPlaces ? mFirst + 1 : 0;
        --mUsed;
    }

    void readForEver() {
        int token[2];
        Frame frame;
        while (read(mPipe[0], token, sizeof(token)) == sizeof(token)) {
            takeInto(&frame);
            keep(frame.mBytes[0]);
            if (token[0] == AWAITED) {
                std::lock_guard<std::mutex> const guard(mBackLock);
                mIsBack = true;
                pthread_cond_signal(&mBack);
            }
        }
    }

    int mPipe[2];
    std::mutex mQueueLock;
    unsigned int const mPlaces;
    std::vector<Frame> mFrames;
    unsigned int mFirst = 0;
    unsigned int mUsed = 0;
    std::mutex mBackLock;
    pthread_cond_t mBack = PTHREAD_COND_INITIALIZER;
    bool mIsBack = false;
};

inline unsigned char const BARE_BYTES[MSG_BYTES] = {};

/// A road of that size, kept for the life of the process.
inline BareRoad& bareRoad() {
    static auto* const theRoad = new BareRoad;
    return *theRoad;
}

inline void bareRun(unsigned int producers) {
    postFromThreads(producers, [] { return bareRoad().post(BARE_BYTES); });
    bareRoad().sendSync(BARE_BYTES);
}

}  // namespace utlbench
