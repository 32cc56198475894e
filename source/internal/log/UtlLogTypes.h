#pragma once

#include "UtlLog.h"
#include "UtlMap.h"

namespace utl {

/// What the log knows of a type; *external lock needed*, as it is shared by all lines.
struct LogTypeData {
    static constexpr unsigned int NAME_SIZE = LOG_NAME_LENGTH_MAX + 1;

    LogTypeData() = default;
    LogTypeData(int level, char const* typeName) : filterLevel(level) { copyName(name, typeName); }

    /// Copies a name whole. False, with `dst` untouched, if `src` is null or does not fit.
    static bool copyName(char (&dst)[NAME_SIZE], char const* src);

    int filterLevel = LOG_LEVEL_NONE;
    char name[NAME_SIZE] = {};
};

/// The log types in ascending order, at most `LOG_TYPE_MAX`; *external lock needed*, because it holds none.
///
/// Beside the sorted table stands an index that leads straight to an entry: every line of the process is
/// searched for here, while a type is added a few times in its life.
class LogTypeTable {
  public:
    LogTypeTable();

    /// Adds a type or replaces what is known of it. False, with nothing changed, if the table is full.
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
    // A power of two, so large that most types stand in their first slot and a search always meets a free
    // one.
    static constexpr unsigned int SLOT_BITS = 8;
    static constexpr unsigned int SLOT_COUNT = 1U << SLOT_BITS;
    static_assert(LOG_TYPE_MAX < SLOT_COUNT);

    // Spreads types that follow each other as well as types that differ in their upper bits alone.
    static unsigned int firstSlot(int type) {
        return static_cast<unsigned int>(type) * 0x9E3779B9U >> (32 - SLOT_BITS);
    }

    void buildIndex();

    Map<int, LogTypeData> mTypes{LOG_TYPE_MAX, 0};
    Pair<int, LogTypeData>* mSlots[SLOT_COUNT] = {};
};

}  // namespace utl
