// A program with the static form of the library in it loads a plug-in that holds a second copy. Both copies
// ask the system for the same signals.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>

#include "TickingCopy.h"

namespace {

using utltest::Ticking;
using utltest::TickingCopy;

constexpr unsigned int MORE = 25;

/// Waits for so many more expiries of both kinds; false after half a minute.
bool ticksOn(Ticking const& copy) {
    unsigned int const shared = copy.sharedTicks() + MORE;
    unsigned int const msg = copy.msgTicks() + MORE;
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (copy.sharedTicks() < shared || copy.msgTicks() < msg) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

class TwoCopies : public ::testing::Test {
  protected:
    void* mPlugin = dlopen(UTL_PLUGIN, RTLD_NOW | RTLD_LOCAL);

    std::unique_ptr<Ticking> makeTheirs() {
        auto* const make = reinterpret_cast<utltest::MakeTicking*>(dlsym(mPlugin, utltest::MAKE_TICKING));
        return std::unique_ptr<Ticking>(make != nullptr ? make() : nullptr);
    }
};

TEST_F(TwoCopies, OfOneProgram_EachHaveTheirExpiries_IfThePluginComesLast) {
    TickingCopy ours;
    ASSERT_TRUE(ours.start());
    EXPECT_TRUE(ticksOn(ours));
    std::unique_ptr<Ticking> const theirs = makeTheirs();
    ASSERT_NE(theirs, nullptr);
    ASSERT_TRUE(theirs->start());
    EXPECT_NE(theirs->manager(), ours.manager()) << "they are two";
    EXPECT_TRUE(ticksOn(ours)) << ours.sharedTicks() << " and " << ours.msgTicks();
    EXPECT_TRUE(ticksOn(*theirs));
    theirs->stop();
    EXPECT_TRUE(ticksOn(ours));
    ours.stop();
}

TEST_F(TwoCopies, OfOneProgram_EachHaveTheirExpiries_IfTheProgramComesLast) {
    std::unique_ptr<Ticking> const theirs = makeTheirs();
    ASSERT_NE(theirs, nullptr);
    ASSERT_TRUE(theirs->start());
    TickingCopy ours;
    ASSERT_TRUE(ours.start());
    EXPECT_TRUE(ticksOn(ours));
    EXPECT_TRUE(ticksOn(*theirs)) << theirs->sharedTicks() << " and " << theirs->msgTicks();
    ours.stop();
    EXPECT_TRUE(ticksOn(*theirs));
    theirs->stop();
}

// Its threads and its signal handler run on.
TEST_F(TwoCopies, APluginThatIsClosed_StaysAndHandsTheSignalsOn) {
    TickingCopy ours;
    ASSERT_TRUE(ours.start());
    {
        std::unique_ptr<Ticking> const theirs = makeTheirs();
        ASSERT_NE(theirs, nullptr);
        ASSERT_TRUE(theirs->start());
        theirs->stop();
    }
    EXPECT_EQ(dlclose(mPlugin), 0);
    EXPECT_NE(dlopen(UTL_PLUGIN, RTLD_NOW | RTLD_NOLOAD), nullptr);
    EXPECT_TRUE(ticksOn(ours));
    ours.stop();
}

}  // namespace
