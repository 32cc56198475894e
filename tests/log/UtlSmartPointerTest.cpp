#include "UtlSmartPointer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "TestAllocations.h"
#include "TestHooks.h"
#include "TestLayout.h"
#include "TestLog.h"

namespace {

using Lines = std::vector<std::string>;
using utltest::allocationsOf;
using utltest::NoMemoryScope;

static_assert(noexcept(std::declval<utl::SmartPointer<int>&>().get()) && noexcept(
    std::declval<utl::SmartPointer<int>&>().
    operator->()) && noexcept(*std::declval<utl::SmartPointer<int>&>()));

// What the destructing objects were given, and what a test does meanwhile.
std::vector<int*> gDestroyedPointers;
std::vector<int> gDestroyedValues;
std::function<void()> gMeanwhile;

struct RecordPointer {
    void operator()(int* resource) const {
        gDestroyedPointers.push_back(resource);
        gMeanwhile();
    }
};

struct RecordValue {
    void operator()(int handle) const {
        gDestroyedValues.push_back(handle);
        gMeanwhile();
    }
};

// Two kinds of handle, one behaviour: `resource(n)` is the n-th of two resources, `none()` is no resource.
struct PointerKind {
    using Handle = utl::CountingPointer<int, RecordPointer>;
    static int* resource(unsigned int number) {
        static int things[2];
        return &things[number];
    }
    static int* none() { return nullptr; }
    static std::vector<int*>& destroyed() { return gDestroyedPointers; }
    static constexpr char const* NEGATIVE = "<UTIL> ERR: lRefCount(-1) < 0 in CountingPointer::release()";
};

struct ValueKind {
    using Handle = utl::Counting<int, RecordValue>;
    static int resource(unsigned int number) { return number == 0 ? 41 : -1; }
    static int none() { return 0; }
    static std::vector<int>& destroyed() { return gDestroyedValues; }
    static constexpr char const* NEGATIVE = "<UTIL> ERR: lRefCount(-1) < 0 in Counting::release()";
};

template <typename KIND>
class Handles : public testing::Test {
  protected:
    using AnyHandle = typename KIND::Handle;
    using Resource = decltype(KIND::none());

    Handles() {
        KIND::destroyed().clear();
        gMeanwhile = [] {};
    }

    static int count(AnyHandle const& handle) { return handle.actGetRefCounter()->getCount(); }
    static bool isEmpty(AnyHandle const& handle) {
        return handle.get() == KIND::none() && handle.actGetRefCounter() == nullptr;
    }
    static void expectDestroyed(std::vector<Resource> const& expected) {
        EXPECT_EQ(KIND::destroyed(), expected);
    }

    Resource const mFirst = KIND::resource(0);
    Resource const mSecond = KIND::resource(1);
    Resource const mNone = KIND::none();
    utltest::LogCapture mLog;
};

using Kinds = testing::Types<PointerKind, ValueKind>;
TYPED_TEST_SUITE(Handles, Kinds);

TYPED_TEST(Handles, ANewHandle_IsEmptyAndAllocatesNothing) {
    using Handle = typename TypeParam::Handle;
    EXPECT_EQ(allocationsOf([&] { EXPECT_TRUE(this->isEmpty(Handle())); }), 0U);
}

TYPED_TEST(Handles, Set_OnAnEmptyHandle_SharesTheResourceAlone) {
    using Handle = typename TypeParam::Handle;
    Handle handle;
    EXPECT_EQ(allocationsOf([&] { handle.set(this->mFirst); }), 1U);
    EXPECT_EQ(handle.get(), this->mFirst);
    EXPECT_EQ(this->count(handle), 1);
}

TYPED_TEST(Handles, ConstructionFromAResource_SharesItAlone) {
    using Handle = typename TypeParam::Handle;
    Handle const handle(this->mFirst);
    EXPECT_EQ(handle.get(), this->mFirst);
    EXPECT_EQ(this->count(handle), 1);
}

TYPED_TEST(Handles, ConstructionFromNoResource_IsEmpty) {
    using Handle = typename TypeParam::Handle;
    EXPECT_TRUE(this->isEmpty(Handle(this->mNone)));
}

TYPED_TEST(Handles, SetOfNoResource_OnAnEmptyHandle_AllocatesNothing) {
    using Handle = typename TypeParam::Handle;
    Handle handle;
    EXPECT_EQ(allocationsOf([&] { handle.set(this->mNone); }), 0U);
    EXPECT_TRUE(this->isEmpty(handle));
}

TYPED_TEST(Handles, Set_OfTheResourceAlreadyHeld_KeepsCounterAndCount) {
    using Handle = typename TypeParam::Handle;
    Handle handle(this->mFirst);
    Handle const other(handle);
    utl::RefCounter* const counter = handle.actGetRefCounter();
    EXPECT_EQ(allocationsOf([&] { handle.set(this->mFirst); }), 0U);
    EXPECT_EQ(handle.actGetRefCounter(), counter);
    EXPECT_EQ(this->count(handle), 2);
    this->expectDestroyed({});
}

TYPED_TEST(Handles, Set_OfAnotherResource_DestroysTheOldOne) {
    using Handle = typename TypeParam::Handle;
    Handle handle(this->mFirst);
    handle.set(this->mSecond);
    this->expectDestroyed({this->mFirst});
    EXPECT_EQ(handle.get(), this->mSecond);
    EXPECT_EQ(this->count(handle), 1);
}

TYPED_TEST(Handles, SetOfNoResource_DestroysTheOldOneAndLeavesTheHandleEmpty) {
    using Handle = typename TypeParam::Handle;
    Handle handle(this->mFirst);
    handle.set(this->mNone);
    this->expectDestroyed({this->mFirst});
    EXPECT_TRUE(this->isEmpty(handle));
}

TYPED_TEST(Handles, Set_WithoutMemoryForACounter_ThrowsWithTheOldShareIntact) {
    using Handle = typename TypeParam::Handle;
    Handle handle(this->mFirst);
    Handle const other(handle);
    {
        NoMemoryScope const noMemory;
        EXPECT_THROW(handle.set(this->mSecond), std::bad_alloc);
    }
    EXPECT_EQ(handle.get(), this->mFirst);
    EXPECT_EQ(this->count(handle), 2);
    this->expectDestroyed({});
}

TYPED_TEST(Handles, ACopy_SharesResourceAndCounter) {
    using Handle = typename TypeParam::Handle;
    Handle const handle(this->mFirst);
    EXPECT_EQ(allocationsOf([&] {
                  Handle const other(handle);
                  EXPECT_EQ(other.get(), this->mFirst);
                  EXPECT_EQ(other.actGetRefCounter(), handle.actGetRefCounter());
                  EXPECT_EQ(this->count(handle), 2);
              }),
              0U);
    EXPECT_EQ(this->count(handle), 1);
}

TYPED_TEST(Handles, ACopyOfAnEmptyHandle_IsEmpty) {
    using Handle = typename TypeParam::Handle;
    Handle const empty;
    EXPECT_TRUE(this->isEmpty(Handle(empty)));
}

TYPED_TEST(Handles, TheFirstOfTwoReleases_KeepsTheResourceAndTheSecondDestroysIt) {
    using Handle = typename TypeParam::Handle;
    Handle handle(this->mFirst);
    Handle other(handle);
    handle.release();
    EXPECT_TRUE(this->isEmpty(handle));
    EXPECT_EQ(this->count(other), 1);
    this->expectDestroyed({});
    other.release();
    EXPECT_TRUE(this->isEmpty(other));
    this->expectDestroyed({this->mFirst});
}

TYPED_TEST(Handles, Release_OnAnEmptyHandle_DoesNothing) {
    using Handle = typename TypeParam::Handle;
    Handle handle;
    handle.release();
    Handle once(this->mFirst);
    once.release();
    once.release();
    this->expectDestroyed({this->mFirst});
    EXPECT_EQ(this->mLog.lines(), Lines{});
}

TYPED_TEST(Handles, TheEndOfTheLastHandle_DestroysTheResource) {
    using Handle = typename TypeParam::Handle;
    {
        Handle const handle(this->mFirst);
        { Handle const other(handle); }
        this->expectDestroyed({});
    }
    this->expectDestroyed({this->mFirst});
}

TYPED_TEST(Handles, Assignment_SharesTheOtherAndGivesUpItsOwn) {
    using Handle = typename TypeParam::Handle;
    Handle handle(this->mFirst);
    Handle const other(this->mSecond);
    handle = other;
    this->expectDestroyed({this->mFirst});
    EXPECT_EQ(handle.get(), this->mSecond);
    EXPECT_EQ(handle.actGetRefCounter(), other.actGetRefCounter());
    EXPECT_EQ(this->count(other), 2);
}

TYPED_TEST(Handles, AssignmentOfAnEmptyHandle_GivesUpItsOwn) {
    using Handle = typename TypeParam::Handle;
    Handle handle(this->mFirst);
    handle = Handle();
    this->expectDestroyed({this->mFirst});
    EXPECT_TRUE(this->isEmpty(handle));
}

TYPED_TEST(Handles, AssignmentToItself_KeepsCountAndResource) {
    using Handle = typename TypeParam::Handle;
    Handle handle(this->mFirst);
    Handle const& same = handle;
    handle = same;
    EXPECT_EQ(handle.get(), this->mFirst);
    EXPECT_EQ(this->count(handle), 1);
    this->expectDestroyed({});
}

TYPED_TEST(Handles, AssignmentFromAHandleThatSharesTheSame_KeepsTheCount) {
    using Handle = typename TypeParam::Handle;
    Handle handle(this->mFirst);
    Handle const other(handle);
    handle = other;
    EXPECT_EQ(this->count(handle), 2);
    this->expectDestroyed({});
}

TYPED_TEST(Handles, WhileTheResourceIsDestroyed_TheHandleStillShowsItWithACounterThatReadsZero) {
    using Handle = typename TypeParam::Handle;
    Handle const second(this->mSecond);
    std::function<void(Handle&)> const ways[] = {
        [](Handle& handle) { handle.release(); }, [this](Handle& handle) { handle.set(this->mNone); },
        [this](Handle& handle) { handle.set(this->mSecond); }, [&](Handle& handle) { handle = second; },
        [](Handle& handle) { handle = Handle(); }};
    for (auto const& giveUp : ways) {
        Handle handle(this->mFirst);
        utl::RefCounter* const counter = handle.actGetRefCounter();
        int looks = 0;
        gMeanwhile = [&] {
            ++looks;
            EXPECT_EQ(handle.get(), this->mFirst);
            EXPECT_EQ(handle.actGetRefCounter(), counter);
            EXPECT_EQ(counter->getCount(), 0);
        };
        giveUp(handle);
        gMeanwhile = [] {};
        EXPECT_EQ(looks, 1);
    }
}

TYPED_TEST(Handles, ACountBelowZero_IsLoggedAndTheResourceIsLeftAlone) {
    using Handle = typename TypeParam::Handle;
    Handle handle(this->mFirst);
    utl::RefCounter* const counter = handle.actGetRefCounter();
    counter->decrement();
    handle.release();
    EXPECT_EQ(this->mLog.lines(), Lines{TypeParam::NEGATIVE});
    this->expectDestroyed({});
    EXPECT_TRUE(this->isEmpty(handle));
    EXPECT_EQ(counter->getCount(), -1);
    delete counter;
}

TYPED_TEST(Handles, TheInterface_ShowsTheCounterOfAHandleOfAnyKind) {
    using Handle = typename TypeParam::Handle;
    Handle const handle(this->mFirst);
    utl::SmartPointer<int> const asking;
    EXPECT_EQ(asking.getRefCounter(handle), handle.actGetRefCounter());
    EXPECT_EQ(handle.getRefCounter(asking), nullptr);
}

TYPED_TEST(Handles, OnManyThreads_TheResourceIsDestroyedOnceByTheLastOne) {
    using Handle = typename TypeParam::Handle;
    Handle* const root = new Handle(this->mFirst);
    std::vector<std::thread> threads;
    for (unsigned int number = 0; number < 4; ++number) {
        threads.emplace_back([mine = Handle(*root)]() mutable {
            for (unsigned int i = 0; i < 500; ++i) {
                Handle copy(mine);
                Handle assigned;
                assigned = copy;
                copy = copy.get() == TypeParam::none() ? assigned : mine;
                Handle const& same = copy;
                copy = same;
                assigned.release();
            }
            mine.release();
        });
    }
    delete root;
    for (std::thread& thread : threads) {
        thread.join();
    }
    threads.clear();
    this->expectDestroyed({this->mFirst});
    EXPECT_EQ(this->mLog.lines(), Lines{});
}

TEST(RefCounter, BeginsWithZeroAndGivesTheNewCount) {
    utl::RefCounter counter;
    EXPECT_EQ(counter.getCount(), 0);
    EXPECT_EQ(counter.increment(), 1);
    EXPECT_EQ(counter.increment(), 2);
    EXPECT_EQ(counter.decrement(), 1);
    EXPECT_EQ(counter.getCount(), 1);
}

TEST(GetRefCounterInterface, HasItsOperationBehindTheTwoSlotsOfItsDestructor) {
    EXPECT_EQ(utltest::slotOf(&utl::GetRefCounterInterface::actGetRefCounter), 2U);
}

// Shared objects.

struct Link {
    int mNumber = 0;
    utl::SmartPointer<Link> mNext;
};

TEST(SmartPointer, AssignmentFromAHandleInsideTheReleasedObject_SharesWhatThatHeld) {
    utl::SmartPointer<Link> head(new Link);
    head->mNext.set(new Link);
    head->mNext->mNumber = 2;
    Link* const second = head->mNext.get();
    head = head->mNext;
    ASSERT_EQ(head.get(), second);
    EXPECT_EQ(head->mNumber, 2);
    EXPECT_EQ(head.actGetRefCounter()->getCount(), 1);
}

struct Parent {
    virtual ~Parent() = default;
};

struct Child : Parent {
    explicit Child(bool& gone) : mGone(gone) {}
    ~Child() override { mGone = true; }
    int mValue = 3;
    bool& mGone;
};

TEST(SmartPointer, TheLastHandle_DeletesTheObjectWithItsOwnDestructor) {
    bool gone = false;
    {
        utl::SmartPointer<Parent> handle(new Child(gone));
        utl::SmartPointer<Parent> other;
        other = handle;
        handle.release();
        EXPECT_FALSE(gone);
    }
    EXPECT_TRUE(gone);
}

TEST(SmartPointer, GivesAccessAsAPointerDoes) {
    bool gone = false;
    auto* const child = new Child(gone);
    utl::SmartPointer<Child> const handle(child);
    EXPECT_EQ(handle.get(), child);
    EXPECT_EQ(handle->mValue, 3);
    EXPECT_EQ(&*handle, child);
}

// Shared descriptors.

using FileHandle = utl::SmartHandle<utl::DestructCloseFile>;

std::vector<std::string> gCalls;

class SharedDescriptor : public testing::Test {
  protected:
    SharedDescriptor() {
        gCalls.clear();
        utltest::hooks::fsync.replace([](int handle) {
            gCalls.push_back("fsync " + std::to_string(handle));
            return -1;
        });
        utltest::hooks::close.replace([](int handle) {
            gCalls.push_back("close " + std::to_string(handle));
            return -1;
        });
    }

  private:
    utltest::HookScope mHooks;
};

TEST_F(SharedDescriptor, TheLastHandle_WritesThroughAndThenClosesWhateverTheResult) {
    {
        FileHandle handle(77);
        FileHandle const other(handle);
        handle.release();
        EXPECT_EQ(gCalls, Lines{});
    }
    EXPECT_EQ(gCalls, (Lines{"fsync 77", "close 77"}));
}

TEST_F(SharedDescriptor, OfMinusOne_HasACounterAndClosesNothing) {
    {
        FileHandle const handle(-1);
        EXPECT_EQ(handle.get(), -1);
        ASSERT_NE(handle.actGetRefCounter(), nullptr);
        EXPECT_EQ(handle.actGetRefCounter()->getCount(), 1);
    }
    EXPECT_EQ(gCalls, Lines{});
}

TEST_F(SharedDescriptor, OfZero_IsNoDescriptor) {
    {
        FileHandle handle(0);
        EXPECT_EQ(handle.actGetRefCounter(), nullptr);
        handle.set(78);
        handle.set(0);
        EXPECT_EQ(handle.get(), 0);
        EXPECT_EQ(handle.actGetRefCounter(), nullptr);
    }
    EXPECT_EQ(gCalls, (Lines{"fsync 78", "close 78"}));
}

TEST_F(SharedDescriptor, TheDestructingObject_LeavesZeroAndMinusOneAlone) {
    for (int handle : {0, -1, 1, -2}) {
        utl::DestructCloseFile()(handle);
    }
    EXPECT_EQ(gCalls, (Lines{"fsync 1", "close 1", "fsync -2", "close -2"}));
}

TEST(SmartHandle, TheLastHandle_ClosesTheRealDescriptor) {
    int const descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_GT(descriptor, 0);
    {
        FileHandle const handle(descriptor);
        FileHandle const other(handle);
    }
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
}

}  // namespace
