// The path of a message, against the same system calls, copies and number of locks with nothing around them.

#include "UtlMsgDrivenThread.h"

#include <pthread.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "BenchMessages.h"
#include "BenchRatio.h"
#include "UtlLog.h"
#include "UtlThreadManager.h"

namespace {

using utlbench::BlockMsg;
using utlbench::Counter;
using utlbench::MSG_BYTES;
using utlbench::pauseBeforeRetry;
using utlbench::postFromThreads;
using utlbench::QUEUE_PLACES;

// Locks that one message takes besides that of its queues. The sender takes them for two looks at the
// thread's state, the life cycle and the control entry; the message thread for the watchdog, the head of the
// queue, the requests and the stop.
constexpr unsigned int SENDER_LOCKS = 12;
constexpr unsigned int SYNC_SENDER_LOCKS = 9;
constexpr unsigned int READER_LOCKS = 9;

// The library's path.

utl::MsgDrivenThread& road() {
    static utl::MsgDrivenThread* const theRoad = [] {
        setFilterLevel(utl::LOG_TYPE_LIBRARY,
                       utl::LOG_LEVEL_NONE);  // a full queue is a part of the measurement
        auto* const thread = new utl::MsgDrivenThread(MSG_BYTES, QUEUE_PLACES, "road");
        thread->start(new Counter);
        return thread;
    }();
    return *theRoad;
}

void roadRun(unsigned int producers) {
    postFromThreads(producers, [] { return road().postMsg(BlockMsg(1)) != 0; });
    road().sendMsgSync(2);
}

// The bare path.

class Mutex {
  public:
    Mutex() {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
        pthread_mutex_init(&mMutex, &attributes);
    }
    void lock() { pthread_mutex_lock(&mMutex); }
    void unlock() { pthread_mutex_unlock(&mMutex); }
    pthread_mutex_t* native() { return &mMutex; }

  private:
    pthread_mutex_t mMutex;
};

class BareRoad {
  public:
    BareRoad() {
        if (pipe(mPipe) != 0) {
            std::abort();
        }
        std::thread([this] { readForEver(); }).detach();
    }

    bool post(unsigned char const* bytes, bool isSync = false) {
        takeLocks(mSenderLocks, isSync ? SYNC_SENDER_LOCKS : SENDER_LOCKS);
        std::lock_guard<Mutex> const guard(mQueueLock);
        if (mUsed == QUEUE_PLACES) {
            return false;
        }
        std::memcpy(mFrames[(mFirst + mUsed) % QUEUE_PLACES], bytes, MSG_BYTES);
        ++mUsed;
        int const token[2] = {isSync ? 2 : 1, -1};
        return write(mPipe[1], token, sizeof(token)) == sizeof(token);
    }

    void sendSync(unsigned char const* bytes) {
        std::lock_guard<Mutex> const guard(mSyncLock);
        {
            std::lock_guard<Mutex> const waiting(mBackLock);
            mIsBack = false;
        }
        while (!post(bytes, true)) {
            pauseBeforeRetry();
        }
        std::lock_guard<Mutex> const waiting(mBackLock);
        while (!mIsBack) {
            pthread_cond_wait(&mBack, mBackLock.native());
        }
    }

  private:
    template <size_t COUNT>
    static void takeLocks(Mutex (&locks)[COUNT], unsigned int count) {
        for (unsigned int i = 0; i < count; ++i) {
            locks[i].lock();
            locks[i].unlock();
        }
    }

    void readForEver() {
        int token[2];
        unsigned char frame[MSG_BYTES];
        while (read(mPipe[0], token, sizeof(token)) == sizeof(token)) {
            takeLocks(mReaderLocks, READER_LOCKS);
            {
                std::lock_guard<Mutex> const guard(mQueueLock);
                std::memcpy(frame, mFrames[mFirst], MSG_BYTES);
                mFirst = (mFirst + 1) % QUEUE_PLACES;
                --mUsed;
            }
            utlbench::keep(frame[0]);
            if (token[0] == 2) {
                {
                    std::lock_guard<Mutex> const guard(mBackLock);
                    mIsBack = true;
                }
                pthread_cond_broadcast(&mBack);
            }
        }
    }

    int mPipe[2];
    Mutex mSenderLocks[SENDER_LOCKS];
    Mutex mReaderLocks[READER_LOCKS];
    Mutex mQueueLock;
    Mutex mSyncLock;
    Mutex mBackLock;
    pthread_cond_t mBack = PTHREAD_COND_INITIALIZER;
    bool mIsBack = false;
    unsigned char mFrames[QUEUE_PLACES][MSG_BYTES];
    unsigned int mFirst = 0;
    unsigned int mUsed = 0;
};

BareRoad& bare() {
    static auto* const theRoad = new BareRoad;
    return *theRoad;
}

unsigned char const BYTES[MSG_BYTES] = {};

void bareRun(unsigned int producers) {
    postFromThreads(producers, [] { return bare().post(BYTES); });
    bare().sendSync(BYTES);
}

UTL_RATIO(
    "post and deliver 20,000 messages of 64 bytes, one producer, against bare", [] { roadRun(1); },
    [] { bareRun(1); }, 1.25);
UTL_RATIO(
    "post and deliver 20,000 messages of 64 bytes, four producers, against bare", [] { roadRun(4); },
    [] { bareRun(4); }, 1.25);
UTL_RATIO(
    "sendMsgSync round trip, against bare", [] { road().sendMsgSync(BlockMsg(1)); },
    [] { bare().sendSync(BYTES); }, 1.25);

}  // namespace
