#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <fstream>
#include <string>

// A thread of this process as the kernel sees it.

namespace utltest {

/// The id of the calling thread.
inline int kernelId() {
    return static_cast<int>(syscall(SYS_gettid));
}

/// True while thread `id` of this process sleeps.
inline bool isAsleep(int id) {
    std::ifstream file("/proc/self/task/" + std::to_string(id) + "/stat");
    std::string text;
    std::getline(file, text);
    std::size_t const nameEnd = text.rfind(')');
    return nameEnd != std::string::npos && text.compare(nameEnd, 3, ") S") == 0;
}

}  // namespace utltest
