#include "internal/log/UtlLogTypes.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace utl {

bool LogTypeData::copyName(char (&dst)[NAME_SIZE], char const* src) {
    std::size_t const length = src != nullptr ? strnlen(src, NAME_SIZE) : NAME_SIZE;
    if (length == NAME_SIZE) {
        return false;
    }
    std::memcpy(dst, src, length + 1);
    return true;
}

LogTypeTable::LogTypeTable() {
    insert(LOG_TYPE_DEFAULT, LogTypeData(LOG_LEVEL_DETAIL, ""));
    insert(LOG_TYPE_LIBRARY, LogTypeData(LOG_LEVEL_DETAIL, "<UTIL> "));
}

bool LogTypeTable::insert(int type, LogTypeData const& data) {
    bool const isInserted = mTypes.insert(type, data);
    buildIndex();
    return isInserted;
}

void LogTypeTable::setAllFilterLevel(int level) {
    for (unsigned int i = 0; i < mTypes.size(); ++i) {
        mTypes.getAt(i)->mValue.filterLevel = level;
    }
}

void LogTypeTable::buildIndex() {
    std::fill(std::begin(mSlots), std::end(mSlots), nullptr);
    for (unsigned int i = 0; i < mTypes.size(); ++i) {
        Pair<int, LogTypeData>* const entry = mTypes.getAt(i);
        unsigned int slot = firstSlot(entry->mKey);
        while (mSlots[slot] != nullptr) {
            slot = (slot + 1) % SLOT_COUNT;
        }
        mSlots[slot] = entry;
    }
}

}  // namespace utl
