#pragma once

// Private members of the library's classes, for tests that must see or set what no operation shows. An
// explicit instantiation may name a private member, so no class has to know of its tests.

/// Declares in the present namespace, under the member's own name, the pointer to `CLASS::member`.
#define UTLTEST_REVEAL(CLASS, member)                                    \
    struct member##Tag {                                                 \
        friend constexpr auto pointerTo(member##Tag);                    \
    };                                                                   \
    template <auto POINTER>                                              \
    struct member##Revealed {                                            \
        friend constexpr auto pointerTo(member##Tag) { return POINTER; } \
    };                                                                   \
    template struct member##Revealed<&CLASS::member>;                    \
    inline constexpr auto member = pointerTo(member##Tag())
