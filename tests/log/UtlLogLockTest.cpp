// The two locks of the log: which call takes which of them, and for how long.

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "TestHooks.h"
#include "TestLog.h"
#include "UtlLog.h"

namespace {

constexpr int LIBRARY = -2;

/// What the library does on the calling thread while the object lives: "+1" and "-1" for taking and giving
/// back the first mutex that it touched, "+2" and "-2" for the next one, a letter for each sink, 't' for the
/// clock.
class LockTrace {
  public:
    LockTrace() { tCurrent = this; }
    ~LockTrace() { tCurrent = nullptr; }
    LockTrace(LockTrace const&) = delete;
    LockTrace& operator=(LockTrace const&) = delete;

    std::string const& text() const { return mText; }

    static void note(char letter) {
        if (tCurrent != nullptr) {
            tCurrent->mText += letter;
        }
    }

    static void noteLock(pthread_mutex_t* mutex) {
        if (tCurrent != nullptr) {
            if (!tCurrent->takenBefore(mutex)) {
                tCurrent->mMutexes.push_back(mutex);
            }
            tCurrent->add('+', mutex);
        }
    }

    static void noteUnlock(pthread_mutex_t* mutex) {
        if (tCurrent != nullptr) {
            tCurrent->add('-', mutex);
        }
    }

  private:
    bool takenBefore(void const* mutex) const {
        return std::find(mMutexes.begin(), mMutexes.end(), mutex) != mMutexes.end();
    }

    void add(char sign, void const* mutex) {
        auto const place = std::find(mMutexes.begin(), mMutexes.end(), mutex);
        mText += sign + std::to_string(place - mMutexes.begin() + 1);
    }

    static thread_local LockTrace* tCurrent;

    std::string mText;
    std::vector<void const*> mMutexes;
};

thread_local LockTrace* LockTrace::tCurrent = nullptr;

class LogLocks : public testing::Test {
  protected:
    LogLocks() {
        mLog.atEachSink(LockTrace::note);
        utltest::hooks::mutexLock.watch(LockTrace::noteLock);
        utltest::hooks::mutexUnlock.watch(LockTrace::noteUnlock);
        utltest::hooks::getTimeOfDay.replace([](timeval* now, void* zone) {
            LockTrace::note('t');
            return utltest::hooks::getTimeOfDay.real(now, zone);
        });
    }

    /// The trace of `work`, in which 1 is the lock of the table and 2 that of the output.
    template <typename WORK>
    static std::string traceOf(WORK work) {
        LockTrace const trace;
        applog(LIBRARY, 4, "first");
        std::string const first = "+1-1t+2c-2";
        EXPECT_EQ(trace.text(), first);
        work();
        return trace.text().substr(first.size());
    }

    utltest::LogCapture mLog;

  private:
    utltest::HookScope mHooks;
};

TEST_F(LogLocks, OfALine_AreTakenOneByOne_ThatOfTheOutputForEachSinkAnew) {
    EXPECT_EQ(traceOf([] { applog(LIBRARY, 1, "x"); }), "+1-1t+2s-2+2c-2+2b-2");
    EXPECT_EQ(traceOf([] { rawlog(LIBRARY, 1, "x"); }), "+1-1+2s-2+2c-2+2b-2");
}

TEST_F(LogLocks, OfALineThatIsFilteredOut_AreNotTaken) {
    EXPECT_EQ(traceOf([] { applog(LIBRARY, 5, "x"); }), "");
    EXPECT_EQ(traceOf([] { rawlog(LIBRARY, 5, "x"); }), "");
    EXPECT_EQ(traceOf([] { applog(12345, 5, "x"); }), "");
}

TEST_F(LogLocks, OfALineThatIsFilteredOut_AreNotTakenForAnyTypeOfAFullTable) {
    for (int type = 1000; registerLogType(type, "x", 4) == 1; ++type) {
    }
    EXPECT_EQ(traceOf([] {
                  for (int type = 900; type < 1100; ++type) {
                      applog(type, 5, "x");
                  }
              }),
              "");
}

TEST_F(LogLocks, OfEveryCallOnTypes_AreThatOfTheTable) {
    EXPECT_EQ(traceOf([] { registerLogType(31, "x", 4); }), "+1-1");
    EXPECT_EQ(traceOf([] { setFilterLevel(31, 4); }), "+1-1");
    EXPECT_EQ(traceOf([] { setAllFilterLevel(4); }), "+1-1");
    EXPECT_EQ(traceOf([] { getFilterLevel(31); }), "+1-1");
}

TEST_F(LogLocks, OfTheTag_IsThatOfTheOutput) {
    EXPECT_EQ(traceOf([] { setLogTag("tag"); }), "+2-2");
}

// How many threads are inside a sink at the moment, and how often one met another there.
std::atomic<unsigned int> gInside{0};
std::atomic<unsigned int> gMeetings{0};

TEST_F(LogLocks, LetOneThreadIntoTheSinksAtATime) {
    mLog.atEachSink([](char) {
        gMeetings += ++gInside > 1 ? 1U : 0U;
        std::this_thread::yield();  // which may take long where others want the processor
        --gInside;
    });
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([] {
            for (int i = 0; i < 20; ++i) {
                applog(LIBRARY, 1, "x");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(gMeetings, 0U);
}

TEST_F(LogLocks, LetASinkLogItself) {
    struct {
        char sink;
        char const* order;
    } const cases[] = {{'s', "scbscb"}, {'c', "sscbcb"}, {'b', "scscbb"}};
    for (auto const& one : cases) {
        static char theSink;
        theSink = one.sink;
        mLog.clear();
        mLog.atEachSink([](char sink) {
            if (sink == theSink) {
                theSink = '\0';
                applog(LIBRARY, 1, "inside");
            }
        });
        applog(LIBRARY, 1, "outside");
        EXPECT_EQ(mLog.sinkOrder(), one.order);
    }
}

}  // namespace
