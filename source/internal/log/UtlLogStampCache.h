#pragma once

#include <atomic>
#include <cstddef>
#include <cstring>
#include <type_traits>

namespace utl {

/// Remembers one small value for all threads; *internally locked*, because any thread and any signal handler
/// may call at any time, though none ever waits: a load during a store fails, and a store during another does
/// nothing. Needs neither construction nor destruction at run time.
///
/// The version is odd during a store. Each word is released and acquired by itself: a load that has
/// seen a word of a store also sees the version of that store.
template <typename T>
class LogStampCache {
  public:
    /// False if there may be no whole value; `value` is of no use then. Before the first store it is all
    /// zeros.
    bool load(T& value) const {
        unsigned int const version = mVersion.load(std::memory_order_acquire);
        unsigned int words[WORD_COUNT];
        for (std::size_t i = 0; i < WORD_COUNT; ++i) {
            words[i] = mWords[i].load(std::memory_order_acquire);
        }
        std::memcpy(static_cast<void*>(&value), words, sizeof(words));
        return version % 2 == 0 && mVersion.load(std::memory_order_relaxed) == version;
    }

    void store(T const& value) {
        unsigned int version = mVersion.load(std::memory_order_relaxed);
        if (version % 2 != 0 ||
            !mVersion.compare_exchange_strong(version, version + 1, std::memory_order_acq_rel,
                                              std::memory_order_relaxed)) {
            return;
        }
        unsigned int words[WORD_COUNT];
        std::memcpy(words, &value, sizeof(words));
        for (std::size_t i = 0; i < WORD_COUNT; ++i) {
            mWords[i].store(words[i], std::memory_order_release);
        }
        mVersion.store(version + 2, std::memory_order_release);
    }

  private:
    static constexpr std::size_t WORD_COUNT = sizeof(T) / sizeof(unsigned int);
    static_assert(WORD_COUNT * sizeof(unsigned int) == sizeof(T));
    static_assert(std::is_trivially_copyable_v<T>);
    static_assert(std::atomic<unsigned int>::is_always_lock_free);

    std::atomic<unsigned int> mVersion{0};
    std::atomic<unsigned int> mWords[WORD_COUNT] = {};
};

}  // namespace utl
