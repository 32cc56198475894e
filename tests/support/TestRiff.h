#pragma once

// RIFF files as their bytes, the objects that work on them as their fields, and what these report.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "TestFolder.h"
#include "TestHooks.h"
#include "TestStatements.h"
#include "UtlArray.h"
#include "UtlFile.h"
#include "UtlMap.h"
#include "UtlRiffFile.h"
#include "UtlSubChunk.h"
#include "UtlSyncObject.h"

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

/// "fmt " data as other programs write them.
inline std::string formatOf(unsigned int rate, unsigned int channels, unsigned int bits,
                            unsigned int id = 1) {
    return littleEndian(id, 2) + littleEndian(channels, 2) + littleEndian(rate) +
           littleEndian(rate * channels * bits / 8) + littleEndian(channels * bits / 8, 2) +
           littleEndian(bits, 2);
}

/// Three sub-chunks, the middle one of odd size.
inline std::string three() {
    return riff("TEST", subChunk("one ", "1234") + subChunk("two ", "12345") + subChunk("one ", "123456"));
}

/// A file of `size` bytes that holds `bytes` at its places and nothing else.
inline void putSparse(std::string const& path, unsigned long long size,
                      std::initializer_list<std::pair<unsigned long long, std::string>> parts) {
    int const descriptor = ::open(path.c_str(), O_CREAT | O_RDWR | O_TRUNC, 0644);
    ASSERT_GE(descriptor, 0);
    EXPECT_EQ(ftruncate(descriptor, static_cast<off_t>(size)), 0);
    for (auto const& [position, bytes] : parts) {
        EXPECT_EQ(pwrite(descriptor, bytes.data(), bytes.size(), static_cast<off_t>(position)),
                  static_cast<ssize_t>(bytes.size()));
    }
    ::close(descriptor);
}

inline std::string partOf(std::string const& path, unsigned long long position, std::size_t length) {
    int const descriptor = ::open(path.c_str(), O_RDONLY);
    std::string bytes(length, '\0');
    ssize_t const count = pread(descriptor, bytes.data(), length, static_cast<off_t>(position));
    ::close(descriptor);
    bytes.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return bytes;
}

/// The fields in the order that they must have.
struct SubChunkFields {
    void* table;
    utl::File* file;
    char id[5];
    unsigned int dataSize;
    unsigned long long position;
    bool opened;
    utl::SyncObject lock;
};
struct RiffFields {
    void* table;
    utl::File* file;
    utl::Array<utl::SubChunkInfo, utl::SubChunkInfo const&> infos{1, 0};
    utl::SubChunk subChunk;
    int lastSubChunkId;
    utl::Map<int, unsigned long long> positions{1, 0};
    char formType[5];
    unsigned long long riffSize;
    int openedSubChunkId;
    utl::SyncObject lock;
};
struct WaveFields {
    void* table;
    utl::RiffFile* riffFile;
    int fmtChunkId;
    int dataChunkId;
    unsigned int samplingRate;
    unsigned short channel;
    unsigned short bitsWidth;
    unsigned short formatId;
    utl::SyncObject lock;
};

template <typename FIELD, typename OBJECT>
inline void pokeAt(OBJECT& object, std::size_t offset, FIELD value) {
    std::memcpy(reinterpret_cast<char*>(&object) + offset, &value, sizeof(value));
}

/// Those of one source alone, in their order.
inline std::vector<std::string> only(std::vector<std::string> const& statements, std::string const& source) {
    std::vector<std::string> found;
    for (std::string const& statement : statements) {
        if (statement.rfind("source/" + source + " ", 0) == 0) {
            found.push_back(statement.substr(source.size() + 8));
        }
    }
    return found;
}

class WithStatements : public InLoggedFolder {
  protected:
    using Work = std::function<void()>;

    /// The first two statements of `work` name `operation` of `source`, before all others.
    void expectBracket(std::string const& source, std::string const& operation, Work const& work) {
        std::vector<std::string> const all = mStatements.of(work);
        std::string const prefix = "source/" + source + " " + operation + " ";
        ASSERT_GE(all.size(), 2U) << operation;
        EXPECT_EQ(all[0], prefix + "1");
        EXPECT_EQ(all[1], prefix + "2");
    }

    Statements mStatements;
};

/// Lets the library's write number `number` take all but the last byte.
inline void writeShort(unsigned int number) {
    static unsigned int sNumber;
    sNumber = number;
    hooks::write.replace([](int descriptor, void const* bytes, size_t size) {
        return hooks::write.real(descriptor, bytes, hooks::write.calls() == sNumber ? size - 1 : size);
    });
}

}  // namespace utltest
