#pragma once

#include "UtlLog.h"
#include "UtlMap.h"

namespace utl {

/// The name and filter level of a type; *external lock needed*, because all lines share it.
struct LogTypeData {
    static constexpr unsigned int NAME_SIZE = LOG_NAME_LENGTH_MAX + 1;

    LogTypeData() = default;
    LogTypeData(int level, char const* typeName) : filterLevel(level) { copyName(name, typeName); }

    /// Copies a whole name. False, with `dst` untouched, if `src` is null or does not fit.
    static bool copyName(char (&dst)[NAME_SIZE], char const* src);

    int filterLevel = LOG_LEVEL_NONE;
    char name[NAME_SIZE] = {};
};

/// The log types in ascending order, at most `LOG_TYPE_MAX`; *external lock needed*, because it holds none.
///
/// An index beside the sorted table leads directly to an entry: every line of the process looks up its type,
/// while types are added only a few times.
class LogTypeTable {
  public:
    LogTypeTable();
    LogTypeTable(LogTypeTable const&) = delete;
    LogTypeTable& operator=(LogTypeTable const&) = delete;

    /// Adds a type or replaces its data. False, with nothing changed, if the table is full.
    bool insert(int type, LogTypeData const& data);

    /// Null for a type that is not registered. Valid until a type is added.
    LogTypeData* find(int type) {
        unsigned int slot = firstSlot(type);
        while (mSlots[slot] != nullptr && mSlots[slot]->mKey != type) {
            slot = (slot + 1) % SLOT_COUNT;
        }
        return mSlots[slot] != nullptr ? &mSlots[slot]->mValue : nullptr;
    }

    void setAllFilterLevel(int level);

  private:
    // A power of two, so large that most types are in their first slot and a search always reaches a free
    // one.
    static constexpr unsigned int SLOT_BITS = 8;
    static constexpr unsigned int SLOT_COUNT = 1U << SLOT_BITS;
    static_assert(LOG_TYPE_MAX < SLOT_COUNT);

    // Spreads consecutive types as well as types that differ only in their upper bits.
    static unsigned int firstSlot(int type) {
        return static_cast<unsigned int>(type) * 0x9E3779B9U >> (32 - SLOT_BITS);
    }

    void buildIndex();

    Map<int, LogTypeData> mTypes{LOG_TYPE_MAX, AUTO_RESIZE_OFF};
    Pair<int, LogTypeData>* mSlots[SLOT_COUNT] = {};
};

}  // namespace utl
