// Starts no thread.

#include "internal/message/UtlQueueGap.h"

#include <gtest/gtest.h>

#include <vector>

#include "internal/message/UtlTimerSteps.h"

namespace {

using utl::Queue;
using utl::QueueGap;

template <typename T>
std::vector<int> content(Queue<T>& queue) {
    std::vector<int> values;
    for (unsigned int i = 0; i < queue.size(); ++i) {
        values.push_back(static_cast<int>(*queue.elementAt(i)));
    }
    return values;
}

// 0 to 7 in 8 places, of which the storage ends after 4.
template <typename T>
void fillAcrossTheEnd(Queue<T>& queue) {
    for (int i = 0; i < 3; ++i) {
        queue.pushBack(T(0));
        queue.popFront();
    }
    for (int i = 0; i < 8; ++i) {
        queue.pushBack(T(i));
    }
}

TEST(QueueGap, AWalk_SeesEveryEntryOnceAndLeavesWhatItPassed) {
    Queue<int> queue(8);
    fillAcrossTheEnd(queue);
    std::vector<int> seen;
    {
        QueueGap<int> gap(queue);
        while (gap.next() != nullptr) {
            seen.push_back(*gap.next());
            if (seen.back() % 3 == 1) {
                EXPECT_TRUE(gap.take(1));
            } else {
                gap.pass(1);
            }
        }
    }
    EXPECT_EQ(seen, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(content(queue), (std::vector<int>{0, 2, 3, 5, 6}));
}

TEST(QueueGap, AWalkThatEndsEarly_LeavesTheRestBehindIt) {
    Queue<int> queue(8);
    fillAcrossTheEnd(queue);
    {
        QueueGap<int> gap(queue);
        gap.pass(1);
        EXPECT_TRUE(gap.take(2));
        gap.pass(2);
    }
    EXPECT_EQ(content(queue), (std::vector<int>{0, 3, 4, 5, 6, 7}));
}

TEST(QueueGap, Close_MakesTheQueueWholeAndTheWalkGoesOnAtTheSameEntry) {
    Queue<int> queue(8);
    fillAcrossTheEnd(queue);
    QueueGap<int> gap(queue);
    gap.pass(1);
    EXPECT_TRUE(gap.take(2));
    EXPECT_EQ(gap.place(), 3U);
    gap.close();
    EXPECT_EQ(content(queue), (std::vector<int>{0, 3, 4, 5, 6, 7}));
    EXPECT_EQ(gap.place(), 1U);
    EXPECT_EQ(*gap.next(), 3);
    gap.pass(1);
    EXPECT_TRUE(gap.take(1));
    gap.close();
    EXPECT_EQ(content(queue), (std::vector<int>{0, 3, 5, 6, 7}));
}

TEST(QueueGap, Take_OfMoreThanThereIs_TakesTheRestAndThenNothing) {
    Queue<int> queue(8);
    fillAcrossTheEnd(queue);
    QueueGap<int> gap(queue);
    gap.pass(6);
    EXPECT_TRUE(gap.take(3));
    EXPECT_EQ(gap.next(), nullptr);
    EXPECT_FALSE(gap.take(1));
    gap.close();
    EXPECT_EQ(content(queue), (std::vector<int>{0, 1, 2, 3, 4, 5}));
}

TEST(QueueGap, Pass_BeyondTheEnd_MovesWhatIsThereAndStandsBehindIt) {
    Queue<int> queue(8);
    fillAcrossTheEnd(queue);
    QueueGap<int> gap(queue);
    EXPECT_TRUE(gap.take(6));
    gap.pass(4);
    EXPECT_EQ(content(queue), (std::vector<int>{6, 7}));
    EXPECT_EQ(gap.place(), 4U);
    EXPECT_EQ(gap.next(), nullptr);
    EXPECT_FALSE(gap.take(1));
    gap.pass(1);
    EXPECT_EQ(content(queue), (std::vector<int>{6, 7}));
}

TEST(QueueGap, AWalkOverAQueueThatHasBecomeShorter_FindsNothingMoreAndChangesNothing) {
    Queue<int> queue(8);
    fillAcrossTheEnd(queue);
    {
        QueueGap<int> gap(queue);
        gap.pass(5);
        queue.removeLast(6);
        EXPECT_EQ(gap.next(), nullptr);
        EXPECT_FALSE(gap.take(1));
        gap.pass(1);
    }
    EXPECT_EQ(content(queue), (std::vector<int>{0, 1}));
}

// Counts how often one of its kind is moved.
struct Tracked {
    Tracked() = default;
    explicit Tracked(int v) : value(v) {}
    Tracked(Tracked const&) = default;
    Tracked& operator=(Tracked const& other) noexcept {
        value = other.value;
        ++moves;
        return *this;
    }
    explicit operator int() const { return value; }

    int value = 0;
    static inline unsigned int moves = 0;
};

constexpr unsigned int MANY = 1000;

void fill(Queue<Tracked>& queue) {
    for (unsigned int i = 0; i < MANY; ++i) {
        queue.pushBack(Tracked(static_cast<int>(i)));
    }
    Tracked::moves = 0;
}

TEST(QueueGap, EveryEntryThatStays_MovesOnceHoweverManyGo) {
    Queue<Tracked> queue(MANY);
    fill(queue);
    {
        QueueGap<Tracked> gap(queue);
        for (unsigned int i = 0; i < MANY / 4; ++i) {
            EXPECT_TRUE(gap.take(1));
            gap.pass(1);
        }
    }
    EXPECT_EQ(queue.size(), MANY - MANY / 4);
    EXPECT_EQ(Tracked::moves, MANY - MANY / 4) << "those behind the walk as well";
}

TEST(QueueGap, EntriesInFrontOfTheFirstThatGoes_DoNotMove) {
    Queue<Tracked> queue(MANY);
    fill(queue);
    {
        QueueGap<Tracked> gap(queue);
        gap.pass(MANY - 2);
        EXPECT_TRUE(gap.take(1));
    }
    EXPECT_EQ(Tracked::moves, 1U);
}

TEST(EraseCtlEntries, TakesOutTheObsoleteOnesAndMovesEachOfTheOthersOnce) {
    Queue<Tracked> queue(MANY);
    fill(queue);
    utl::eraseCtlEntries(queue, [](Tracked const& entry) { return entry.value % 2 == 0; });
    EXPECT_EQ(Tracked::moves, MANY / 2);
    ASSERT_EQ(queue.size(), MANY / 2);
    for (unsigned int i = 0; i < MANY / 2; ++i) {
        EXPECT_EQ(queue.elementAt(i)->value, static_cast<int>(2 * i + 1));
    }
    utl::eraseCtlEntries(queue, [](Tracked const&) { return true; });
    EXPECT_EQ(queue.size(), 0U);
    utl::eraseCtlEntries(queue, [](Tracked const&) { return true; });
}

}  // namespace
