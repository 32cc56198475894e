#pragma once

// Buffers of exactly their size, seen bit by bit, for the tests of bit streams.

#include <memory>
#include <random>
#include <vector>

#include "TestLayout.h"
#include "UtlBitStream.h"

namespace utltest {

using Bytes = std::vector<unsigned char>;
using Bits = std::vector<bool>;

/// A heap block of exactly `size` bytes, so that AddressSanitizer sees each step outside. It holds zeros, or
/// random numbers from the seed.
inline std::unique_ptr<unsigned char[]> blockOf(unsigned int size, unsigned int seed = 0) {
    auto block = std::make_unique<unsigned char[]>(size);
    std::mt19937 random(seed);
    for (unsigned int i = 0; seed != 0 && i < size; ++i) {
        block[i] = static_cast<unsigned char>(random());
    }
    return block;
}

inline Bits bitsOf(unsigned char const* bytes, unsigned int count) {
    Bits bits;
    for (unsigned int i = 0; i < count; ++i) {
        bits.push_back((bytes[i / 8] >> (7 - i % 8) & 1) != 0);
    }
    return bits;
}

/// The stream's error, which no operation shows.
inline bool errorOf(utl::BitStream const& stream) {
    return fieldAt<bool>(stream, sizeof(void*) + 3 * sizeof(unsigned int));
}

}  // namespace utltest
