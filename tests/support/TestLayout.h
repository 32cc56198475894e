#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <vector>

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

/// Where `part`, a field of `object` or a field of its field, begins in it.
template <typename OBJECT, typename PART>
std::size_t offsetIn(OBJECT const& object, PART const& part) {
    return static_cast<std::size_t>(reinterpret_cast<char const*>(&part) -
                                    reinterpret_cast<char const*>(&object));
}

/// The same for many parts.
template <typename OBJECT, typename... PARTS>
std::vector<std::size_t> offsetsIn(OBJECT const& object, PARTS const&... parts) {
    return {offsetIn(object, parts)...};
}

/// The same for the fields that pointers to members name.
template <typename OBJECT, typename... MEMBERS>
std::vector<std::size_t> offsetsOf(OBJECT const& object, MEMBERS... members) {
    return offsetsIn(object, object.*members...);
}

/// True if each offset lies after the one before it.
inline bool areRising(std::vector<std::size_t> const& offsets) {
    return std::is_sorted(offsets.begin(), offsets.end(), std::less_equal<>());
}

/// The field of type `FIELD` at `offset` of `object`; for fields that only their class reaches.
template <typename FIELD, typename OBJECT>
FIELD fieldAt(OBJECT const& object, std::size_t offset) {
    FIELD field;
    std::memcpy(&field, reinterpret_cast<char const*>(&object) + offset, sizeof(field));
    return field;
}

/// True if two objects are the same byte by byte, virtual table included.
template <typename OBJECT>
bool haveSameBytes(OBJECT const& left, OBJECT const& right) {
    void const* const bytes = &left;
    void const* const others = &right;
    return std::memcmp(bytes, others, sizeof(OBJECT)) == 0;
}

/// As a derived class of these bases with one field of its own.
template <typename FIELD, typename... BASES>
struct Derived : BASES... {
    FIELD field;
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored \
    "-Winvalid-offsetof"  // the bases are not virtual: both compilers know the place

/// Where the first field of a class with these bases begins: after their fields, at its alignment. That may
/// be before the end of the last base, if this one ends with padding.
template <typename FIELD, typename... BASES>
constexpr std::size_t firstFieldBehind() {
    using Class = Derived<FIELD, BASES...>;
    return offsetof(Class, field);
}

#pragma GCC diagnostic pop

/// Where the fields begin in a class that has virtual operations and no base class.
constexpr std::size_t FIRST_FIELD = sizeof(void*);

/// Where the fields after a leading pointer begin.
constexpr std::size_t BEHIND_POINTER = FIRST_FIELD + sizeof(void*);

}  // namespace utltest
