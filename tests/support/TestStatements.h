#pragma once

// The statements at which the library reports a thread alive, one by one.

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "TestHooks.h"
#include "TestThreads.h"
#include "UtlThreadManager.h"

namespace utltest {

/// Puts the calling thread under the watchdog, which never looks at its table, and records every statement
/// that the thread reports while the object lives. It is an `OwnHookScope` itself. One at a time.
class [[nodiscard]] Statements {
  public:
    Statements() {
        utl::ThreadManager& manager = *utl::ThreadManager::get();
        EXPECT_TRUE(manager.setWatchdogWatchInterval(0));
        EXPECT_TRUE(manager.entryWatchdog(60000, nullptr));
        EXPECT_TRUE(manager.startWatchdog());
        sSeen.clear();
        hooks::clockGetTime.watch(note);
    }
    ~Statements() {
        hooks::clockGetTime.watch(nullptr);
        utl::ThreadManager::get()->unregisterWatchdog();
    }
    Statements(Statements const&) = delete;
    Statements& operator=(Statements const&) = delete;

    /// What `work` reports, as "source/UtlFile open 1".
    template <typename WORK>
    std::vector<std::string> of(WORK work) {
        sSeen.clear();
        work();
        return std::exchange(sSeen, {});
    }

  private:
    // A report first stores its statement and then reads the clock.
    static void note(clockid_t, timespec*) {
        utl::StatementInfo const last =
            utltest::ThreadWatchdogAccess::copyInfo(utltest::ThreadManagerAccess::watchdog(), kernelId())
                .lastStatement;
        sSeen.push_back(std::string(last.file) + " " + last.function + " " + std::to_string(last.sub));
    }

    OwnHookScope const mHooks;
    inline static std::vector<std::string> sSeen;
};

}  // namespace utltest
