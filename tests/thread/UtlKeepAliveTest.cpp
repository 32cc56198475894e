#include "internal/thread/UtlKeepAlive.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <thread>

#include "TestHooks.h"
#include "TestLog.h"
#include "TestThreads.h"

// Those of the library are its own: the brackets of this program ask it each time.
UTL_CONSTINIT std::atomic<unsigned int> utl::gWatchdogTableVersion{1};
UTL_CONSTINIT thread_local unsigned int utl::tUnregisteredAt = 0;

namespace {

using utl::keepAliveAround;
using utl::StatementInfo;
using utltest::HookScope;
using utltest::kernelId;
using utltest::LogCapture;
namespace hooks = utltest::hooks;

static_assert(StatementInfo::BEFORE_CALL == 1 && StatementInfo::AFTER_CALL == 2);

class KeepAliveBracket : public utltest::WithManager {
  protected:
    KeepAliveBracket() {
        restingWatchdog();
        EXPECT_TRUE(manager().entryWatchdog(60000, nullptr));
        EXPECT_TRUE(manager().startWatchdog());
    }

    static StatementInfo lastStatement() {
        return utltest::ThreadManagerAccess::watchdog().findWatchdogInfo(kernelId())->lastStatement;
    }

    LogCapture mLog;
};

TEST_F(KeepAliveBracket, ReportsPosition1BeforeTheCallAndPosition2Behind) {
    keepAliveAround("source/File", "function", 12, [] {
        EXPECT_EQ(lastStatement(), StatementInfo("source/File", "function", 12, StatementInfo::BEFORE_CALL));
    });
    EXPECT_EQ(lastStatement(), StatementInfo("source/File", "function", 12, StatementInfo::AFTER_CALL));
}

TEST_F(KeepAliveBracket, GivesWhatTheCallGave) {
    EXPECT_EQ(keepAliveAround("f", "f", 1, [] { return 7; }), 7);
    EXPECT_EQ(*keepAliveAround("f", "f", 1, [] { return std::make_unique<int>(8); }), 8);
    int variable = 9;
    EXPECT_EQ(&keepAliveAround("f", "f", 1, [&]() -> int& { return variable; }), &variable);
}

TEST_F(KeepAliveBracket, LeavesErrnoAsTheCallSetIt) {
    HookScope const scope;
    hooks::clockGetTime.failFrom(1, 0, -1, EINVAL);
    errno = 0;
    keepAliveAround("f", "f", 1, [] { errno = ENOSPC; });
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(hooks::clockGetTime.calls(), 2U);
}

TEST_F(KeepAliveBracket, DoesNotChangeErrnoInFrontOfTheCall) {
    HookScope const scope;
    hooks::clockGetTime.failFrom(1, 0, -1, EINVAL);
    errno = 0;
    keepAliveAround("f", "f", 1, [] { EXPECT_EQ(errno, 0); });
    EXPECT_EQ(errno, 0);
}

TEST_F(KeepAliveBracket, CanStandInsideAnother) {
    keepAliveAround("outer", "outer", 1, [] {
        keepAliveAround("inner", "inner", 2,
                        [] { EXPECT_EQ(lastStatement(), StatementInfo("inner", "inner", 2, 1)); });
        EXPECT_EQ(lastStatement(), StatementInfo("inner", "inner", 2, 2));
    });
    EXPECT_EQ(lastStatement(), StatementInfo("outer", "outer", 1, 2));
}

TEST(KeepAliveBracketWithoutManager, CreatesTheManager) {
    utl::ThreadManager::destroy();
    EXPECT_EQ(keepAliveAround("f", "f", 1, [] { return 7; }), 7);
    EXPECT_NE(utl::ThreadManager::getIfCreated(), nullptr);
    utl::ThreadManager::destroy();
}

TEST(KeepAliveWithoutRegistration, CreatesTheManagerAnewBehindItsEnd) {
    StatementInfo const place("f", "f", 1, 1);
    utl::Thread::keepAliveWatchdog(place);
    utl::Thread::keepAliveWatchdog(place);
    utl::ThreadManager::destroy();
    EXPECT_EQ(utl::ThreadManager::getIfCreated(), nullptr);
    utl::Thread::keepAliveWatchdog(place);
    EXPECT_NE(utl::ThreadManager::getIfCreated(), nullptr);
    utl::ThreadManager::destroy();
}

class KeepAliveOfAThread : public utltest::WithManager {};

TEST_F(KeepAliveOfAThread, ThatAnotherOneRegisters_CountsFromThenOn) {
    restingWatchdog();
    StatementInfo const place("f", "f", 1, 1);
    for (int round = 0; round < 3; ++round) {
        utl::Thread::keepAliveWatchdog(place);
        utl::Thread::keepAliveWatchdog(place);
        int const id = kernelId();
        std::thread([id] {
            EXPECT_TRUE(manager().entryWatchdog(60000, nullptr, id));
            EXPECT_TRUE(manager().startWatchdog(id));
        }).join();
        utl::Thread::keepAliveWatchdog(place);
        EXPECT_EQ(utltest::ThreadManagerAccess::watchdog().findWatchdogInfo(id)->lastStatement, place);
        std::thread([id] { EXPECT_TRUE(manager().unregisterWatchdog(id)); }).join();
    }
}

}  // namespace
