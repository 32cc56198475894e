#pragma once

// RIFF files as their bytes.

#include <string>

namespace utltest {

/// A number of the file, low byte first.
inline std::string littleEndian(unsigned int value, unsigned int bytes = 4) {
    std::string text;
    for (unsigned int i = 0; i < bytes; ++i) {
        text += static_cast<char>(value >> (8 * i) & 0xFFU);
    }
    return text;
}

/// A sub-chunk whose header says `size`, whatever the data.
inline std::string liarChunk(std::string const& id, unsigned int size, std::string const& data) {
    return id + littleEndian(size) + data;
}

inline std::string subChunk(std::string const& id, std::string const& data) {
    return liarChunk(id, static_cast<unsigned int>(data.size()), data);
}

/// A whole file; `formType` and ids have 4 bytes.
inline std::string riff(std::string const& formType, std::string const& subChunks) {
    std::string const rest = formType + subChunks;
    return "RIFF" + littleEndian(static_cast<unsigned int>(rest.size())) + rest;
}

}  // namespace utltest
