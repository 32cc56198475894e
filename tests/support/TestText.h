#pragma once

// Texts with guarded surroundings: nobody may read or write next to them.

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

namespace utltest {

/// The text and its terminator in a heap block of exactly that size, so that AddressSanitizer sees every
/// access outside.
inline std::vector<char> exactly(std::string const& text) {
    return std::vector<char>(text.c_str(), text.c_str() + text.size() + 1);
}

/// Bytes, not terminated, that end where the process may not read: reading one byte more ends the test.
class GuardedBytes {
  public:
    explicit GuardedBytes(std::string const& bytes) : mPageSize(static_cast<std::size_t>(getpagesize())) {
        void* const pages =
            mmap(nullptr, 2 * mPageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        mpPages = static_cast<char*>(pages);
        mprotect(mpPages + mPageSize, mPageSize, PROT_NONE);
        mpBytes = mpPages + mPageSize - bytes.size();
        std::memcpy(mpBytes, bytes.data(), bytes.size());
    }
    ~GuardedBytes() { munmap(mpPages, 2 * mPageSize); }
    GuardedBytes(GuardedBytes const&) = delete;
    GuardedBytes& operator=(GuardedBytes const&) = delete;

    char* get() const { return mpBytes; }

  private:
    std::size_t mPageSize;
    char* mpPages;
    char* mpBytes;
};

}  // namespace utltest
