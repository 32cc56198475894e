#pragma once

#include <cstddef>
#include <cstring>

namespace utltest {

/// The slot of a virtual operation in its class's table. A pointer to a virtual member begins with the
/// distance of its slot in bytes, plus 1 where the ABI marks it there.
template <typename MEMBER>
std::size_t slotOf(MEMBER member) {
    std::size_t distance = 0;
    static_assert(sizeof(member) >= sizeof(distance));
    std::memcpy(&distance, &member, sizeof(distance));
    return distance / sizeof(void*);
}

}  // namespace utltest
