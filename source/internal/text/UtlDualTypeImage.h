#pragma once

#include "UtlBasicString.h"

namespace utl {

// The destructor of a static object must be registered when the program starts, if it is virtual. So an
// object that exists before any code runs, and is never destroyed, is defined as the plain image that it has
// in memory, virtual table included, and the image has the object's name. It needs no code at the start and
// none at the end, and threads may use it while the process runs its exit handlers.

/// A virtual table of a class whose destructor is its only virtual operation: two entries before the
/// place that objects point to, and the destructor's two.
using DestructorTable = void const* const[4];
constexpr unsigned int DESTRUCTOR_ENTRIES = 2;  // where the destructor's begin

/// The virtual table of the `DualType` of texts.
UTL_API extern DestructorTable DUAL_TYPE_TABLE asm("_ZTVN3utl8DualTypeIPKcPKwEE");

/// What a `DualType` of texts is in memory.
struct DualTypeImage {
    void const* const* table = DUAL_TYPE_TABLE + DESTRUCTOR_ENTRIES;
    char const* narrow = nullptr;
    wchar_t const* wide = nullptr;
};

static_assert(sizeof(DualTypeImage) == sizeof(DualType<char const*, wchar_t const*>));

}  // namespace utl
