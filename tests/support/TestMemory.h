#pragma once

// What the tests of the heap accounting share, whatever the library was built with.

#include <cstdio>
#include <cstring>
#include <string>

#include "TestHooks.h"
#include "TestPrivate.h"
#include "UtlMemory.h"

namespace utl {

inline bool operator==(Memory::DetailHeapInfo const& a, Memory::DetailHeapInfo const& b) {
    return a.mSerial == b.mSerial && a.mAddress == b.mAddress && a.mUseBytes == b.mUseBytes &&
           a.mThreadId == b.mThreadId && a.mFileId == b.mFileId && a.mLine == b.mLine;
}

inline bool operator==(Memory::ProcessHeapInfo const& a, Memory::ProcessHeapInfo const& b) {
    return a.mUseBytes == b.mUseBytes && a.mUseCount == b.mUseCount && a.mMaxBytes == b.mMaxBytes &&
           a.mMaxCount == b.mMaxCount;
}

}  // namespace utl

namespace utltest {

namespace in_memory {
UTLTEST_REVEAL(utl::Memory, mProcessHeapInfo);
UTLTEST_REVEAL(utl::Memory, mDetailHeapInfoCount);
UTLTEST_REVEAL(utl::Memory, mDetailHeapInfo);
UTLTEST_REVEAL(utl::Memory, mNextSerial);
UTLTEST_REVEAL(utl::Memory, mMarkedSerial);
UTLTEST_REVEAL(utl::Memory, mThreadNameInfoCount);
UTLTEST_REVEAL(utl::Memory, mSyncObject);
}  // namespace in_memory

struct MemoryAccess {
    static utl::Memory::ProcessHeapInfo totals() { return utl::Memory::get()->*in_memory::mProcessHeapInfo; }
    static unsigned int count() { return utl::Memory::get()->*in_memory::mDetailHeapInfoCount; }
    static utl::Memory::DetailHeapInfo row(unsigned int index) {
        return (utl::Memory::get()->*in_memory::mDetailHeapInfo)[index];
    }
    static unsigned long long nextSerial() { return utl::Memory::get()->*in_memory::mNextSerial; }
    static unsigned long long markedSerial() { return utl::Memory::get()->*in_memory::mMarkedSerial; }
    static unsigned int threadNameCount() { return utl::Memory::get()->*in_memory::mThreadNameInfoCount; }
    static utl::SyncObject const& lock() { return utl::Memory::get()->*in_memory::mSyncObject; }
};

/// An address that nobody dereferences; the addresses ascend with `number`.
inline void* someAddress(unsigned int number) {
    static char theBlock[4096];
    return theBlock + number;
}

inline void allocate(void* address, unsigned int size, unsigned int fileId = ~0U, int line = 0) {
    utl::Memory::get()->updateManagement(utl::Memory::RECORD_ALLOCATION, address, size, fileId, line);
}

inline void release(void* address, unsigned int fileId = ~0U, int line = 0) {
    utl::Memory::get()->updateManagement(utl::Memory::RECORD_RELEASE, address, 0, fileId, line);
}

/// An address as the messages show it, "0x0804a000": its lower 32 bits.
inline std::string shown(void const* address) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08x", static_cast<unsigned int>(reinterpret_cast<size_t>(address)));
    return text;
}

inline std::string padded(long long number, int width) {
    char text[32];
    std::snprintf(text, sizeof text, "%*lld", width, number);
    return text;
}

/// Catches what the library writes to descriptor 0. One at a time; needs the thread of the test.
class [[nodiscard]] MessageCapture {
  public:
    MessageCapture() {
        sText.clear();
        hooks::write.replace([](int fd, void const* data, size_t bytes) -> ssize_t {
            if (fd != 0) {
                return hooks::write.real(fd, data, bytes);
            }
            sText.append(static_cast<char const*>(data), bytes);
            return static_cast<ssize_t>(bytes);
        });
    }

    std::string const& text() const { return sText; }

  private:
    HookScope const mHooks;
    inline static std::string sText;
};

}  // namespace utltest
