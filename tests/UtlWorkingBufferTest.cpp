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
static_assert(!std::is_polymorphic_v<utl::StaticBuffer>);

// A store of its own, so that its state can be brought where the process's one never gets.
struct OwnStore : utl::StaticBuffer {
    using StaticBuffer::giveSlotBack;
    using StaticBuffer::takeSlot;
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
    for (int i = 0; i < 3; ++i) {
        char const* const slot = store->takeSlot();
        EXPECT_EQ(std::count(slot, slot + utl::StaticBuffer::SLOT_SIZE, '\0'), 10240);
    }
    store->~OwnStore();
}

TEST(StaticBuffer, Fields_StandInTheOrderLockSlotsDepth) {
    auto const store = std::make_unique<OwnStore>();
    utl::SyncObject const lock;
    EXPECT_EQ(utltest::fieldAt<void*>(*store, 0), utltest::fieldAt<void*>(lock, 0));
    for (std::size_t i = 0; i < 3; ++i) {
        char const* const slot = store->takeSlot();
        EXPECT_EQ(utltest::offsetIn(*store, *slot), sizeof(lock) + i * 10240);
    }
    EXPECT_EQ(utltest::fieldAt<int>(*store, sizeof(lock) + std::size_t{3} * 10240), 3);
}

TEST(WorkingBuffer, Fields_StandInTheOrderStoreSlot) {
    Scratch const scratch;
    EXPECT_EQ(utltest::fieldAt<utl::StaticBuffer*>(scratch, utltest::FIRST_FIELD), &utl::StaticBuffer::get());
    EXPECT_EQ(utltest::fieldAt<char*>(scratch, utltest::BEHIND_POINTER), scratch.get());
}

TEST(StaticBuffer, TakeSlot_BelowDepthZero_GivesTheFirstSlot) {
    auto const store = std::make_unique<OwnStore>();
    char* const first = store->takeSlot();
    store->giveSlotBack();
    store->giveSlotBack();
    store->giveSlotBack();
    EXPECT_EQ(store->takeSlot(), first);
    EXPECT_EQ(store->takeSlot(), first);
    EXPECT_EQ(store->takeSlot(), first);
    EXPECT_NE(store->takeSlot(), first);
}

// Runs behind the destructors of everything that came into being after its registration.
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
