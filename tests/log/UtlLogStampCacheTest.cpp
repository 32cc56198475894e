#include "internal/log/UtlLogStampCache.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

namespace {

struct Remembered {
    unsigned int words[9];
};

Remembered allOf(unsigned int word) {
    Remembered value;
    for (unsigned int& one : value.words) {
        one = word;
    }
    return value;
}

bool isWhole(Remembered const& value) {
    return std::memcmp(&value, allOf(value.words[0]).words, sizeof(value)) == 0;
}

TEST(LogStampCache, GivesWhatWasStoredLast) {
    utl::LogStampCache<Remembered> cache;
    Remembered value = allOf(7);
    EXPECT_TRUE(cache.load(value));
    EXPECT_EQ(value.words[0], 0U);
    cache.store(allOf(8));
    cache.store(allOf(9));
    EXPECT_TRUE(cache.load(value));
    EXPECT_EQ(value.words[0], 9U);
    EXPECT_TRUE(isWhole(value));
}

TEST(LogStampCache, OnManyThreads_NeverGivesAMixture) {
    static utl::LogStampCache<Remembered> cache;
    std::atomic<unsigned int> mixtures{0};
    std::atomic<unsigned int> hits{0};
    std::vector<std::thread> threads;
    for (unsigned int number = 0; number < 4; ++number) {
        threads.emplace_back([&, number] {
            for (unsigned int i = 0; i < 20000; ++i) {
                Remembered value;
                if (number < 2) {
                    cache.store(allOf(2 * i + number));
                }
                if (cache.load(value)) {
                    ++hits;
                    mixtures += isWhole(value) ? 0U : 1U;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(mixtures, 0U);
    EXPECT_GT(hits, 0U);
}

TEST(LogStampCache, ASignalHandler_MayComeInAtAnyPoint) {
    static utl::LogStampCache<Remembered> cache;
    static std::atomic<unsigned int> handled{0};
    static std::atomic<unsigned int> mixtures{0};
    auto const storeAndLoad = [](unsigned int word) {
        cache.store(allOf(word));
        Remembered value;
        mixtures += cache.load(value) && !isWhole(value) ? 1U : 0U;
    };
    static auto const theWork = storeAndLoad;
    struct sigaction action = {};
    struct sigaction kept = {};
    action.sa_handler = [](int) { theWork(++handled); };
    sigaction(SIGALRM, &action, &kept);
    itimerval interval = {{0, 100}, {0, 100}};
    setitimer(ITIMER_REAL, &interval, nullptr);
    for (unsigned int i = 0x80000000U; handled < 200; ++i) {
        theWork(i);
    }
    interval = {};
    setitimer(ITIMER_REAL, &interval, nullptr);
    sigaction(SIGALRM, &kept, nullptr);
    EXPECT_EQ(mixtures, 0U);
    cache.store(allOf(5));
    Remembered value;
    EXPECT_TRUE(cache.load(value));
    EXPECT_EQ(value.words[0], 5U);
}

}  // namespace
