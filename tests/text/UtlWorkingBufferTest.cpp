#include "UtlWorkingBuffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "TestLayout.h"
#include "TestScratch.h"
#include "UtlSyncObject.h"

namespace {

using Scratch = utl::WorkingBuffer<char>;

static_assert(std::has_virtual_destructor_v<Scratch>);
static_assert(noexcept(Scratch::size()));
static_assert(!std::is_polymorphic_v<utl::StaticBuffer>);

// A store of its own, so that its state can be brought where the process's one never gets.
struct OwnStore : utl::StaticBuffer {
    using StaticBuffer::lendTo;
    using StaticBuffer::slotOf;
    using StaticBuffer::takeBackFrom;

    char* slotLentTo(void const* borrower) {
        lendTo(borrower);
        return slotOf(borrower);
    }
};

TEST(WorkingBuffer, Nested_ThreeDeep_HaveSlotsOfTheirOwn) {
    Scratch const first;
    Scratch const second;
    Scratch const third;
    std::memset(first.get(), '1', first.size());
    std::memset(second.get(), '2', second.size());
    std::memset(third.get(), '3', third.size());
    EXPECT_EQ(std::string(first.get(), first.size()), std::string(10240, '1'));
    EXPECT_EQ(std::string(second.get(), second.size()), std::string(10240, '2'));
    EXPECT_EQ(std::string(third.get(), third.size()), std::string(10240, '3'));
}

TEST(WorkingBuffer, Nested_FourDeepAndDeeper_ShareTheThirdSlot) {
    Scratch const first;
    Scratch const second;
    Scratch const third;
    Scratch const fourth;
    Scratch const fifth;
    EXPECT_EQ(fourth.get(), third.get());
    EXPECT_EQ(fifth.get(), third.get());
    EXPECT_EQ(std::set<char*>({first.get(), second.get(), third.get()}).size(), 3U);
}

TEST(WorkingBuffer, Get_OfAnOuterOne_StaysTheSameWhileInnerOnesComeAndGo) {
    Scratch const outer;
    char* const slot = outer.get();
    {
        Scratch const inner;
        EXPECT_EQ(outer.get(), slot);
    }
    EXPECT_EQ(outer.get(), slot);
}

TEST(WorkingBuffer, Destructor_GivesTheSlotBackForTheNextOne) {
    char* outer = nullptr;
    char* inner = nullptr;
    {
        Scratch const first;
        outer = first.get();
        Scratch const second;
        inner = second.get();
    }
    for (int i = 0; i < 5; ++i) {
        Scratch const first;
        EXPECT_EQ(first.get(), outer);
        Scratch const second;
        EXPECT_EQ(second.get(), inner);
    }
}

TEST(WorkingBuffer, EndedInAnyOrder_LeavesTheSlotsOfTheOthersWhereTheyAre) {
    for (std::size_t ended = 0; ended < 5; ++ended) {
        std::vector<std::unique_ptr<Scratch>> loans;
        std::vector<char*> slots;
        for (int i = 0; i < 5; ++i) {
            loans.push_back(std::make_unique<Scratch>());
            slots.push_back(loans.back()->get());
        }
        for (std::size_t i = 0; i < 5; ++i) {
            loans[(ended + 2 * i) % 5].reset();
            for (std::size_t left = 0; left < 5; ++left) {
                EXPECT_TRUE(loans[left] == nullptr || loans[left]->get() == slots[left]);
            }
        }
    }
}

TEST(WorkingBuffer, TakenBehindTheEndOfAnOuterOne_HasTheSlotOfItsDepth) {
    auto outer = std::make_unique<Scratch>();
    auto inner = std::make_unique<Scratch>();
    char* const firstSlot = outer->get();
    char* const secondSlot = inner->get();
    outer.reset();
    for (int i = 0; i < 3; ++i) {
        outer = std::make_unique<Scratch>();
        EXPECT_EQ(outer->get(), secondSlot);
        EXPECT_EQ(inner->get(), secondSlot);
        std::swap(outer, inner);
        outer.reset();
    }
    inner.reset();
    Scratch const next;
    EXPECT_EQ(next.get(), firstSlot);
}

TEST(WorkingBuffer, TakenWhereAnotherOneStood_HasTheSlotOfItsOwnDepth) {
    alignas(Scratch) unsigned char place[sizeof(Scratch)];
    auto* loan = new (place) Scratch;
    char* const firstSlot = loan->get();
    loan->~Scratch();
    Scratch const first;
    Scratch const second;
    loan = new (place) Scratch;
    EXPECT_EQ(first.get(), firstSlot);
    EXPECT_NE(loan->get(), first.get());
    EXPECT_NE(loan->get(), second.get());
    loan->~Scratch();
}

TEST(WorkingBuffer, Size_Is10240Bytes) {
    EXPECT_EQ(Scratch::size(), 10240U);
}

TEST(WorkingBuffer, HoldsEveryOtherThreadBackUntilTheOutermostOneEnds) {
    std::atomic<int> id{0};
    std::atomic<bool> isInside{false};
    std::thread other;
    {
        Scratch const outer;
        { Scratch const inner; }
        other = std::thread([&] {
            id = utltest::kernelId();
            Scratch const mine;
            isInside = true;
        });
        while (!isInside && (id == 0 || !utltest::isAsleep(id))) {
            std::this_thread::yield();
        }
        EXPECT_FALSE(isInside);
    }
    other.join();
    EXPECT_TRUE(isInside);
}

TEST(WorkingBuffer, SlotsOfManyThreads_AreNeverInUseTogether) {
    constexpr int THREADS = 4;
    constexpr int ROUNDS = 500;
    std::atomic<bool> wasDisturbed{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < THREADS; ++i) {
        threads.emplace_back([&wasDisturbed, mark = static_cast<char>('a' + i)] {
            for (int round = 0; round < ROUNDS; ++round) {
                Scratch const mine;
                std::memset(mine.get(), mark, 100);
                if (std::count(mine.get(), mine.get() + 100, mark) != 100) {
                    wasDisturbed = true;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(wasDisturbed);
}

TEST(StaticBuffer, Get_GivesEveryThreadTheSameInstance) {
    utl::StaticBuffer* const mine = &utl::StaticBuffer::get();
    utl::StaticBuffer* theirs = nullptr;
    std::thread([&theirs] { theirs = &utl::StaticBuffer::get(); }).join();
    EXPECT_EQ(theirs, mine);
}

TEST(StaticBuffer, Construction_ZeroesAllSlots) {
    std::vector<unsigned char> memory(sizeof(OwnStore) + alignof(OwnStore), 0xFF);
    void* place = memory.data();
    std::size_t room = memory.size();
    std::align(alignof(OwnStore), sizeof(OwnStore), place, room);
    auto* const store = new (place) OwnStore;
    char const borrowers[3]{};
    for (char const& borrower : borrowers) {
        char const* const slot = store->slotLentTo(&borrower);
        EXPECT_EQ(std::count(slot, slot + utl::StaticBuffer::SLOT_SIZE, '\0'), 10240);
    }
    store->~OwnStore();
}

TEST(StaticBuffer, Fields_StandInTheOrderLockSlotsDepth) {
    auto const store = std::make_unique<OwnStore>();
    utl::SyncObject const lock;
    char const borrowers[3]{};
    EXPECT_EQ(utltest::fieldAt<void*>(*store, 0), utltest::fieldAt<void*>(lock, 0));
    for (std::size_t i = 0; i < 3; ++i) {
        char const* const slot = store->slotLentTo(borrowers + i);
        EXPECT_EQ(utltest::offsetIn(*store, *slot), sizeof(lock) + i * 10240);
    }
    EXPECT_EQ(utltest::fieldAt<int>(*store, sizeof(lock) + std::size_t{3} * 10240), 3);
}

TEST(WorkingBuffer, HasTheStoreAsItsOnlyField) {
    Scratch const scratch;
    EXPECT_EQ(utltest::fieldAt<utl::StaticBuffer*>(scratch, utltest::FIRST_FIELD), &utl::StaticBuffer::get());
    EXPECT_EQ(sizeof(scratch), utltest::BEHIND_POINTER);
}

TEST(StaticBuffer, LendTo_BelowDepthZero_LendsTheFirstSlot) {
    auto const store = std::make_unique<OwnStore>();
    char const borrowers[4]{};
    char* const first = store->slotLentTo(borrowers);
    for (int i = 0; i < 3; ++i) {
        store->takeBackFrom(borrowers);
    }
    EXPECT_EQ(store->slotLentTo(borrowers), first);
    EXPECT_EQ(store->slotLentTo(borrowers + 1), first);
    EXPECT_EQ(store->slotLentTo(borrowers + 2), first);
    EXPECT_NE(store->slotLentTo(borrowers + 3), first);
}

// Runs after the destructors of everything that came into being after its registration.
void useScratchFromTwoThreads() {
    std::_Exit(utltest::waitsForScratch([] { Scratch const theirs; }) ? 42 : 1);
}

TEST(StaticBuffer, Instance_ServesThreadsThatStillRunWhileTheProcessExits) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            std::atexit(useScratchFromTwoThreads);
            { Scratch const first; }
            std::exit(0);
        },
        testing::ExitedWithCode(42), "");
}

}  // namespace
