#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace utlbench {

/// Ends a program that cannot measure.
[[noreturn]] inline void giveUp(char const* why) {
    std::fprintf(stderr, "%s\n", why);
    std::exit(1);
}

/// Real Japanese text: about `bytes` bytes of the manual pages, as UTF-8, perhaps cut inside a character, and
/// without control characters other than line ends and tabs.
inline std::string manualPages(std::size_t bytes) {
    std::FILE* const pages = popen("gzip -cd /usr/share/man/ja/man?/*.gz 2>/dev/null", "re");
    if (pages == nullptr) {
        giveUp("cannot run gzip");
    }
    std::string text;
    char block[4096];
    for (std::size_t size = 1; text.size() < bytes && size != 0;) {
        size = std::fread(block, 1, sizeof(block), pages);
        text.append(block, size);
    }
    pclose(pages);
    auto const isControl = [](char byte) {
        return (byte >= 0 && byte < ' ' && byte != '\n' && byte != '\t') || byte == 0x7F;
    };
    text.erase(std::remove_if(text.begin(), text.end(), isControl), text.end());
    if (text.size() < bytes / 2) {
        giveUp("too little text in /usr/share/man/ja; it comes with the Debian package manpages-ja");
    }
    return text;
}

}  // namespace utlbench
