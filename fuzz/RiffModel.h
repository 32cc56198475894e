#pragma once

// RIFF files as a stranger may leave them, and what should be found in them.

#include <string>
#include <vector>

#include "Fuzz.h"
#include "TestStringModel.h"

namespace fuzz {

inline std::string littleEndian(unsigned int value, unsigned int bytes = 4) {
    std::string text;
    for (unsigned int i = 0; i < bytes; ++i) {
        text += static_cast<char>(value >> (8 * i) & 0xFFU);
    }
    return text;
}

inline unsigned int numberAt(std::string const& bytes, size_t at, unsigned int count = 4) {
    unsigned int value = 0;
    for (unsigned int i = 0; i < count; ++i) {
        value |= static_cast<unsigned int>(static_cast<unsigned char>(bytes[at + i])) << 8 * i;
    }
    return value;
}

struct Chunk {
    std::string id;
    unsigned int size;
    unsigned long long position;

    unsigned long long begin() const { return position + 8; }
    unsigned long long end() const { return begin() + size; }

    /// The data as far as the file has it.
    std::string dataIn(std::string const& content) const {
        return begin() < content.size() ? content.substr(static_cast<size_t>(begin()), size) : "";
    }
};

/// What opening a file tells: 0 for a container, 1 for one with a broken header, 2 for no container.
struct Container {
    int result = 2;
    std::string formType;
    std::vector<Chunk> chunks;

    Container(std::string const& content, unsigned int most) {
        if (content.compare(0, 4, "RIFF") != 0) {
            return;
        }
        result = 0;
        std::string const form = content.size() > 8 ? content.substr(8, 4) : "";
        formType = form.c_str();
        unsigned long long at = 8 + form.size();
        while (result == 0 && chunks.size() < most && at < content.size()) {
            add(content, static_cast<size_t>(at));
            at = result == 0 ? chunks.back().end() : at;
        }
        if (result != 0) {
            chunks.clear();
        }
    }

  private:
    void add(std::string const& content, size_t at) {
        static std::string const BLANKS = " \t\v\r\n\f\xE3\x80\x80";
        std::string const id = content.substr(at, 4).c_str();
        if (content.size() - at < 8 || !utltest::model::isWellFormed(id)) {
            result = 1;
            return;
        }
        chunks.push_back(
            {id.substr(0, utltest::model::trimmedLength(id, BLANKS)), numberAt(content, at + 4), at});
    }
};

/// Chunks whose sizes mostly tell the truth; the last bytes may be missing.
inline std::string containerFrom(Input* input, std::string const& formType) {
    static char const* const IDS[] = {"fmt ", "data", "LIST", "a   ", "  b ", "\xE3\x80\x80 ", "\xFF\xFF  "};
    if (input->upTo(9) == 0) {
        return input->bytes(200);
    }
    std::string content = "RIFF" + littleEndian(input->upTo(99)) + formType;
    for (unsigned int i = input->upTo(5); i > 0; --i) {
        unsigned int const kind = input->upTo(20);
        std::string const data = input->bytes(40);
        bool const isTrue = input->upTo(7) != 0;
        content += kind < std::size(IDS) ? IDS[kind] : IDS[kind % 2];
        content +=
            littleEndian(isTrue ? static_cast<unsigned int>(data.size()) : input->number<unsigned int>());
        content += data;
    }
    return content.substr(0, input->upTo(5) != 0 ? content.size() : input->upTo(60));
}

}  // namespace fuzz
