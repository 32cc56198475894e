// Starts no thread.

#include "UtlThreadPriority.h"

#include <gtest/gtest.h>

#include <climits>
#include <utility>

namespace {

using utl::ThreadPriority;

struct Row {
    int label;
    int osValue;
    char const* name;
};

constexpr Row ROWS[] = {
    {ThreadPriority::TIME_CRITICAL, -4, "TIME_CRITICAL"},
    {ThreadPriority::HIGH, -2, "HIGH"},
    {ThreadPriority::ABOVE_NORMAL, -1, "ABOVE_NORMAL"},
    {ThreadPriority::NORMAL, 0, "NORMAL"},
    {ThreadPriority::BELOW_NORMAL, 1, "BELOW_NORMAL"},
    {ThreadPriority::LOW, 2, "LOW"},
    {ThreadPriority::IDLE, 3, "IDLE"},
};

static_assert(noexcept(ThreadPriority(ThreadPriority::LOW)));
static_assert(noexcept(std::declval<ThreadPriority&>() = ThreadPriority::LOW));
static_assert(noexcept(std::declval<ThreadPriority&>().value(ThreadPriority::LOW)));
static_assert(noexcept(std::declval<ThreadPriority&>().value()));
static_assert(noexcept(std::declval<ThreadPriority&>().label()));
static_assert(noexcept(std::declval<ThreadPriority&>().OsValue(0)));
static_assert(noexcept(std::declval<ThreadPriority&>().OsValue()));
static_assert(noexcept(std::declval<ThreadPriority&>() == std::declval<ThreadPriority&>()));
static_assert(noexcept(std::declval<ThreadPriority&>() != std::declval<ThreadPriority&>()));

ThreadPriority withOsValue(int osValue) {
    ThreadPriority priority;
    priority.OsValue(osValue);
    return priority;
}

TEST(ThreadPriority, TheLabelsAreNumberedFromTheMostToTheLeastUrgent) {
    int label = 0;
    for (Row const& row : ROWS) {
        EXPECT_EQ(row.label, label++);
    }
}

TEST(ThreadPriority, Default_IsNormal) {
    EXPECT_EQ(ThreadPriority().value(), ThreadPriority::NORMAL);
    EXPECT_EQ(ThreadPriority().OsValue(), 0);
}

TEST(ThreadPriority, Construction_FromALabel_SetsItsOsValueAndReadsBack) {
    for (Row const& row : ROWS) {
        ThreadPriority const priority(row.label);
        EXPECT_EQ(priority.OsValue(), row.osValue);
        EXPECT_EQ(priority.value(), row.label);
        EXPECT_STREQ(priority.label(), row.name);
    }
}

TEST(ThreadPriority, Value_OfALabel_SetsItsOsValue) {
    for (Row const& row : ROWS) {
        ThreadPriority priority(ThreadPriority::INVALID);
        priority.value(row.label);
        EXPECT_EQ(priority.OsValue(), row.osValue);
    }
}

TEST(ThreadPriority, Assignment_OfALabel_SetsItsOsValue) {
    ThreadPriority priority;
    priority = ThreadPriority::LOW;
    EXPECT_EQ(priority.OsValue(), 2);
    priority = ThreadPriority::INVALID;
    EXPECT_EQ(priority.OsValue(), 100);
}

TEST(ThreadPriority, ALabelOutsideTheTable_IsInvalid) {
    for (int label : {-1, 7, 100, INT_MIN, INT_MAX}) {
        EXPECT_EQ(ThreadPriority(label).OsValue(), 100) << label;
        EXPECT_EQ(ThreadPriority(label).value(), -1) << label;
        EXPECT_STREQ(ThreadPriority(label).label(), "INVALID") << label;
    }
}

TEST(ThreadPriority, Value_OfAnOsValueWithoutALabelOfItsOwn_GoesByRange) {
    EXPECT_EQ(withOsValue(INT_MIN).value(), ThreadPriority::TIME_CRITICAL);
    EXPECT_EQ(withOsValue(-20).value(), ThreadPriority::TIME_CRITICAL);
    EXPECT_EQ(withOsValue(-4).value(), ThreadPriority::TIME_CRITICAL);
    EXPECT_EQ(withOsValue(-3).value(), ThreadPriority::HIGH);
    EXPECT_EQ(withOsValue(-2).value(), ThreadPriority::HIGH);
    EXPECT_EQ(withOsValue(4).value(), ThreadPriority::INVALID);
    EXPECT_EQ(withOsValue(INT_MAX).value(), ThreadPriority::INVALID);
}

TEST(ThreadPriority, OsValue_IsKeptUnchecked) {
    for (int osValue : {INT_MIN, -21, -3, 4, 100, INT_MAX}) {
        EXPECT_EQ(withOsValue(osValue).OsValue(), osValue);
    }
}

TEST(ThreadPriority, Equality_ComparesTheOsValuesAndNotTheLabels) {
    EXPECT_TRUE(ThreadPriority(ThreadPriority::HIGH) == withOsValue(-2));
    EXPECT_FALSE(ThreadPriority(ThreadPriority::HIGH) != withOsValue(-2));
    EXPECT_TRUE(ThreadPriority(ThreadPriority::HIGH) != withOsValue(-3));
    EXPECT_FALSE(ThreadPriority(ThreadPriority::HIGH) == withOsValue(-3));
}

TEST(ThreadPriority, Copies_ShareTheOsValue) {
    ThreadPriority const original = withOsValue(-7);
    ThreadPriority copy(original);
    EXPECT_TRUE(copy == original);
    copy = ThreadPriority(ThreadPriority::IDLE);
    EXPECT_EQ(copy.OsValue(), 3);
}

}  // namespace
