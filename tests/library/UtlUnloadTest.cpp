// A program that does not know the library loads a plug-in that uses its shared form, and unloads it.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

namespace {

/// How often the thread has gone to sleep by itself so far; -1 if there is no such thread.
long sleepsOf(int thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/status");
    std::string word;
    while (file >> word) {
        if (word == "voluntary_ctxt_switches:") {
            long count = -1;
            file >> count;
            return count;
        }
    }
    return -1;
}

/// Waits until the thread has worked a few times; false after half a minute.
bool worksOn(int thread) {
    long const before = sleepsOf(thread);
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (before != -1 && std::chrono::steady_clock::now() < end) {
        if (sleepsOf(thread) >= before + 5) {
            return true;
        }
        std::this_thread::yield();
    }
    return false;
}

/// Loads the plug-in, lets it use the library, unloads it. Returns the id of the watchdog's thread.
int useAndUnload() {
    void* const plugin = dlopen(UTL_PLUGIN, RTLD_NOW | RTLD_LOCAL);
    if (plugin == nullptr) {
        ADD_FAILURE() << dlerror();
        return 0;
    }
    auto* const useLibrary = reinterpret_cast<int (*)()>(dlsym(plugin, "useLibrary"));
    int const thread = useLibrary != nullptr ? useLibrary() : 0;
    EXPECT_EQ(dlclose(plugin), 0);
    EXPECT_EQ(dlopen(UTL_PLUGIN, RTLD_NOW | RTLD_NOLOAD), nullptr) << "nobody holds the plug-in";
    return thread;
}

TEST(SharedLibrary, StaysWhenItsLastUserIsUnloaded) {
    int const thread = useAndUnload();
    ASSERT_NE(thread, 0);
    EXPECT_TRUE(worksOn(thread));
}

TEST(SharedLibrary, IsTheSameWhenAUserIsLoadedAgain) {
    int const first = useAndUnload();
    ASSERT_NE(first, 0);
    EXPECT_EQ(useAndUnload(), first) << "one watchdog serves both";
    EXPECT_TRUE(worksOn(first));
}

TEST(SharedLibraryDeathTest, WhoseLastUserIsGone_LetsTheProcessEnd) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            bool const works = worksOn(useAndUnload());
            std::exit(works ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
