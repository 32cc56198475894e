#pragma once

#include <atomic>
#include <cstring>

#include "UtlLog.h"

namespace utl {

/// The log types, at most `LOG_TYPE_MAX`, with their filter levels and names; *external lock needed*, because
/// all lines share them. `isFilteredOut` and `isFilteredOutAtOnce` need none.
///
/// A constant expression initialises it without any type: a line that comes before `insertBuiltIn` is not
/// filtered out. A type never leaves the slot that a search for it meets first, so a search without the lock
/// always ends. The version is odd during a change. A reader that saw the same even version before and after
/// its look has seen what a holder of the lock would have.
class LogTypeTable {
  public:
    constexpr LogTypeTable() = default;
    LogTypeTable(LogTypeTable const&) = delete;
    LogTypeTable& operator=(LogTypeTable const&) = delete;

    /// Adds the default entry and the library's own type.
    void insertBuiltIn();

    /// Adds a type or replaces its data; the name must fit. False, with nothing changed, if the table is
    /// full.
    bool insert(int type, char const* name, int level);

    /// Without effect on a type that is not registered.
    void setFilterLevel(int type, int level);

    void setAllFilterLevel(int level);

    /// `LOG_LEVEL_UNREGISTERED` for a type that is not registered.
    int filterLevel(int type) const { return LOG_LEVEL_UNREGISTERED - rankOf(slotOf(type)); }

    /// The name by which lines of a type begin: that of the default entry for one that is not registered.
    /// Valid until a type is added or replaced.
    char const* lineName(int type) const { return lineSlotOf(type).name; }

    /// Whether a line is dropped by its type, or by the default entry if its type is not registered.
    bool drops(int type, int level) const {
        return level == LOG_LEVEL_NONE || level + rankOf(lineSlotOf(type)) > LOG_LEVEL_UNREGISTERED;
    }

    /// As `drops`, without a lock. False also if a change comes between: then ask under the lock.
    bool isFilteredOut(int type, int level) const {
        unsigned int const version = mVersion.load(std::memory_order_acquire);
        return drops(type, level) && changesSince(version) == 0;
    }

    /// As `isFilteredOut`, by one look without a branch. False also for a type that is not in the first slot
    /// of its search, which few are.
    bool isFilteredOutAtOnce(int type, int level) const {
        unsigned int const version = mVersion.load(std::memory_order_acquire);
        Slot const& slot = mSlots[firstSlot(type)];
        unsigned int const isOther =
            static_cast<unsigned int>(slot.type.load(std::memory_order_relaxed) ^ type);
        int const rank = rankOf(slot);
        return (isOther | changesSince(version)) == 0 && level + rank > LOG_LEVEL_UNREGISTERED;
    }

  private:
    // Zero in a free slot. The type is stored before the rank.
    struct Slot {
        std::atomic<int> type{0};
        std::atomic<int> rank{0};  // from `LOG_LEVEL_UNREGISTERED` down to the filter level
        char name[LOG_NAME_LENGTH_MAX + 1] = {};
    };

    static int rankOf(Slot const& slot) { return slot.rank.load(std::memory_order_acquire); }
    static bool isFree(Slot const& slot) { return rankOf(slot) == 0; }

    // A change of slots, during which readers without the lock see an odd version.
    class Change {
      public:
        explicit Change(LogTypeTable& table) : mVersion(table.mVersion) { count(); }
        ~Change() { count(); }
        Change(Change const&) = delete;
        Change& operator=(Change const&) = delete;

        // A reader that sees the level sees the odd version before it as well.
        static void setLevel(Slot& slot, int level) {
            slot.rank.store(LOG_LEVEL_UNREGISTERED - level, std::memory_order_release);
        }

      private:
        void count() {
            mVersion.store(mVersion.load(std::memory_order_relaxed) + 1, std::memory_order_release);
        }

        std::atomic<unsigned int>& mVersion;
    };

    // A power of two, so large that most types are in their first slot and a search always reaches a free
    // one.
    static constexpr unsigned int SLOT_BITS = 7;
    static constexpr unsigned int SLOT_COUNT = 1U << SLOT_BITS;
    static_assert(LOG_TYPE_MAX < SLOT_COUNT);

    // Spreads consecutive types as well as types that differ only in their upper bits.
    static unsigned int firstSlot(int type) {
        return static_cast<unsigned int>(type) * 0x9E3779B9U >> (32 - SLOT_BITS);
    }

    static bool isOf(Slot const& slot, int type) { return slot.type.load(std::memory_order_relaxed) == type; }

    // The slot of a type, or the free one in which it would be.
    Slot const& slotOf(int type) const {
        unsigned int slot = firstSlot(type);
        while (!isOf(mSlots[slot], type) && !isFree(mSlots[slot])) {
            slot = (slot + 1) % SLOT_COUNT;
        }
        return mSlots[slot];
    }
    Slot& slotOf(int type) { return const_cast<Slot&>(static_cast<LogTypeTable const*>(this)->slotOf(type)); }

    // 0 if no change was going on at `version`, and none has begun since.
    unsigned int changesSince(unsigned int version) const {
        return (mVersion.load(std::memory_order_relaxed) ^ version) | version % 2;
    }

    // The slot whose entry decides about the lines of a type.
    Slot const& lineSlotOf(int type) const {
        Slot const& slot = slotOf(type);
        return isFree(slot) ? slotOf(LOG_TYPE_DEFAULT) : slot;
    }

    std::atomic<unsigned int> mVersion{0};
    unsigned int mTypeCount = 0;
    Slot mSlots[SLOT_COUNT];
};

inline void LogTypeTable::insertBuiltIn() {
    insert(LOG_TYPE_DEFAULT, "", LOG_LEVEL_DETAIL);
    insert(LOG_TYPE_LIBRARY, "<UTIL> ", LOG_LEVEL_DETAIL);
}

inline bool LogTypeTable::insert(int type, char const* name, int level) {
    Slot& slot = slotOf(type);
    bool const isNew = isFree(slot);
    if (isNew && mTypeCount == LOG_TYPE_MAX) {
        return false;
    }
    mTypeCount += isNew ? 1 : 0;
    std::memcpy(slot.name, name, std::strlen(name) + 1);
    Change const change(*this);
    slot.type.store(type, std::memory_order_relaxed);
    Change::setLevel(slot, level);
    return true;
}

inline void LogTypeTable::setFilterLevel(int type, int level) {
    Slot& slot = slotOf(type);
    if (!isFree(slot)) {
        Change const change(*this);
        Change::setLevel(slot, level);
    }
}

inline void LogTypeTable::setAllFilterLevel(int level) {
    Change const change(*this);
    for (Slot& slot : mSlots) {
        if (!isFree(slot)) {
            Change::setLevel(slot, level);
        }
    }
}

}  // namespace utl
