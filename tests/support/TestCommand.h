#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace utltest {

/// What a shell command prints; its failure fails the test.
inline std::string outputOf(std::string const& command) {
    std::FILE* const pipe = popen(command.c_str(), "re");
    EXPECT_NE(pipe, nullptr);
    std::string output;
    char bytes[4096];
    size_t count = 0;
    while (pipe != nullptr && (count = std::fread(bytes, 1, sizeof(bytes), pipe)) != 0) {
        output.append(bytes, count);
    }
    EXPECT_EQ(pipe != nullptr ? pclose(pipe) : -1, 0) << command;
    return output;
}

}  // namespace utltest
