// Containers and sound in odd orders, at their limits, and on files that fail or lie.

#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <climits>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "TestFileCalls.h"
#include "TestFolder.h"
#include "TestHooks.h"
#include "TestLayout.h"
#include "TestRiff.h"
#include "TestStatements.h"
#include "UtlFile.h"
#include "UtlRiffFile.h"
#include "UtlSubChunk.h"
#include "UtlWaveFile.h"

namespace {

using utl::File;
using utl::RiffFile;
using utl::SubChunk;
using utl::SubChunkInfo;
using utl::WaveFile;
using utltest::contentOf;
using utltest::fieldAt;
using HookScope = utltest::OwnHookScope;
using utltest::liarChunk;
using utltest::littleEndian;
using utltest::offsetIn;
using utltest::openDescriptors;
using utltest::putFile;
using utltest::riff;
using utltest::subChunk;
namespace hooks = utltest::hooks;

constexpr int INVALID = RiffFile::INVALID_SUB_CHUNK;
constexpr unsigned long long GIB4 = 0x100000000ULL;

using Names = std::vector<std::string>;

class RiffOdd : public utltest::InLoggedFolder {};
using SubChunkOdd = RiffOdd;
using WaveOdd = RiffOdd;

/// "fmt " data as other programs write them.
std::string format(unsigned int rate, unsigned int channels, unsigned int bits, unsigned int id = 1) {
    return littleEndian(id, 2) + littleEndian(channels, 2) + littleEndian(rate) +
           littleEndian(rate * channels * bits / 8) + littleEndian(channels * bits / 8, 2) +
           littleEndian(bits, 2);
}

/// Three sub-chunks, the middle one of odd size.
std::string three() {
    return riff("TEST", subChunk("one ", "1234") + subChunk("two ", "12345") + subChunk("one ", "123456"));
}

/// A file of `size` bytes that holds `bytes` at its places and nothing else.
void putSparse(std::string const& path, unsigned long long size,
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

std::string partOf(std::string const& path, unsigned long long position, std::size_t length) {
    int const descriptor = ::open(path.c_str(), O_RDONLY);
    std::string bytes(length, '\0');
    ssize_t const count = pread(descriptor, bytes.data(), length, static_cast<off_t>(position));
    ::close(descriptor);
    bytes.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return bytes;
}

/// The fields as they are told, one behind the other.
struct SubChunkFields {
    void* table;
    File* file;
    char id[5];
    unsigned int dataSize;
    unsigned long long position;
    bool opened;
    utl::SyncObject lock;
};
struct RiffFields {
    void* table;
    File* file;
    utl::Array<SubChunkInfo, SubChunkInfo const&> infos{1, 0};
    SubChunk subChunk;
    int lastSubChunkId;
    utl::Map<int, unsigned long long> positions{1, 0};
    char formType[5];
    unsigned long long riffSize;
    int openedSubChunkId;
    utl::SyncObject lock;
};
struct WaveFields {
    void* table;
    RiffFile* riffFile;
    int fmtChunkId;
    int dataChunkId;
    unsigned int samplingRate;
    unsigned short channel;
    unsigned short bitsWidth;
    unsigned short formatId;
    utl::SyncObject lock;
};

template <typename FIELD, typename OBJECT>
void pokeAt(OBJECT& object, std::size_t offset, FIELD value) {
    std::memcpy(reinterpret_cast<char*>(&object) + offset, &value, sizeof(value));
}

// ---- layout

TEST_F(SubChunkOdd, FieldsStandInTheirOrder) {
    static_assert(sizeof(SubChunk) == sizeof(SubChunkFields));
    static_assert(std::has_virtual_destructor_v<SubChunk>);
    static_assert(std::has_virtual_destructor_v<SubChunk::AutoClose>);
    static_assert(!std::is_polymorphic_v<SubChunkInfo>);
    SubChunkInfo const info(1, "a", 2);
    EXPECT_TRUE(utltest::areRising(utltest::offsetsIn(info, info.mId, info.mName, info.mDataSize)));
    EXPECT_EQ(offsetIn(info, info.mId), 0U);

    SubChunkFields const fields{};
    putFile("f", "0123456" + liarChunk("ab  ", 0x11223344, "xyz"));
    File file("f", File::TEXT_UTF8);
    ASSERT_TRUE(file.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE));
    SubChunk chunk;
    ASSERT_TRUE(chunk.open(&file, 7, SubChunk::AT_START));
    EXPECT_EQ(fieldAt<File*>(chunk, offsetIn(fields, fields.file)), &file);
    EXPECT_STREQ((fieldAt<std::array<char, 5>>(chunk, offsetIn(fields, fields.id)).data()), "ab");
    EXPECT_EQ(fieldAt<unsigned int>(chunk, offsetIn(fields, fields.dataSize)), 0x11223344U);
    EXPECT_EQ(fieldAt<unsigned long long>(chunk, offsetIn(fields, fields.position)), 7U);
    EXPECT_TRUE(fieldAt<bool>(chunk, offsetIn(fields, fields.opened)));
    ASSERT_TRUE(chunk.close());
    EXPECT_EQ(fieldAt<File*>(chunk, offsetIn(fields, fields.file)), nullptr);
    EXPECT_EQ((fieldAt<std::array<char, 5>>(chunk, offsetIn(fields, fields.id))), (std::array<char, 5>{}));
    EXPECT_EQ(fieldAt<unsigned int>(chunk, offsetIn(fields, fields.dataSize)), 0U);
    EXPECT_EQ(fieldAt<unsigned long long>(chunk, offsetIn(fields, fields.position)), 0U);
    EXPECT_FALSE(fieldAt<bool>(chunk, offsetIn(fields, fields.opened)));
}

TEST_F(RiffOdd, FieldsStandInTheirOrder) {
    static_assert(sizeof(RiffFile) == sizeof(RiffFields));
    static_assert(std::has_virtual_destructor_v<RiffFile>);
    static_assert(std::has_virtual_destructor_v<RiffFile::AutoClose>);
    RiffFields const fields{};
    putFile("f", three());
    RiffFile file("f", 9);
    EXPECT_EQ(fieldAt<int>(file, offsetIn(fields, fields.lastSubChunkId)), -1);
    EXPECT_EQ(fieldAt<int>(file, offsetIn(fields, fields.openedSubChunkId)), -1);
    ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0);
    ASSERT_TRUE(file.openSubChunk(1, SubChunk::AT_START));
    EXPECT_EQ(fieldAt<int>(file, offsetIn(fields, fields.lastSubChunkId)), 2);
    EXPECT_STREQ((fieldAt<std::array<char, 5>>(file, offsetIn(fields, fields.formType)).data()), "TEST");
    EXPECT_EQ(fieldAt<unsigned long long>(file, offsetIn(fields, fields.riffSize)), three().size() - 8);
    EXPECT_EQ(fieldAt<int>(file, offsetIn(fields, fields.openedSubChunkId)), 1);
    ASSERT_TRUE(file.close());
    EXPECT_EQ(fieldAt<int>(file, offsetIn(fields, fields.lastSubChunkId)), -1);
    EXPECT_EQ(fieldAt<unsigned long long>(file, offsetIn(fields, fields.riffSize)), 0U);
    EXPECT_EQ(fieldAt<int>(file, offsetIn(fields, fields.openedSubChunkId)), -1);
}

TEST_F(WaveOdd, FieldsStandInTheirOrder) {
    static_assert(sizeof(WaveFile) == sizeof(WaveFields));
    static_assert(std::has_virtual_destructor_v<WaveFile>);
    static_assert(std::has_virtual_destructor_v<WaveFile::AutoClose>);
    WaveFields const fields{};
    putFile("f", riff("WAVE", subChunk("junk", "") + subChunk("fmt ", format(0x12345678, 2, 8, 0x3456)) +
                                  subChunk("data", "12")));
    WaveFile wave("f");
    EXPECT_EQ(fieldAt<int>(wave, offsetIn(fields, fields.fmtChunkId)), -1);
    EXPECT_EQ(fieldAt<int>(wave, offsetIn(fields, fields.dataChunkId)), -1);
    ASSERT_EQ(wave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_EQ(fieldAt<int>(wave, offsetIn(fields, fields.fmtChunkId)), 1);
    EXPECT_EQ(fieldAt<int>(wave, offsetIn(fields, fields.dataChunkId)), 2);
    EXPECT_EQ(fieldAt<unsigned int>(wave, offsetIn(fields, fields.samplingRate)), 0x12345678U);
    EXPECT_EQ(fieldAt<unsigned short>(wave, offsetIn(fields, fields.channel)), 2U);
    EXPECT_EQ(fieldAt<unsigned short>(wave, offsetIn(fields, fields.bitsWidth)), 8U);
    EXPECT_EQ(fieldAt<unsigned short>(wave, offsetIn(fields, fields.formatId)), 0x3456U);
    EXPECT_TRUE(wave.close());
}

// ---- sub-chunks

TEST_F(SubChunkOdd, ReadHeader_AtEveryPlaceOfAFile_TellsEndFromPartAndPutsThePositionBack) {
    std::string const whole = "0123" + subChunk("ab  ", "xyz");
    putFile("f", whole);
    File file("f", File::TEXT_UTF8);
    ASSERT_TRUE(file.open(File::OPEN_KEEP, File::ACCESS_READ));
    ASSERT_EQ(file.seek(3, File::FROM_START), 3);
    for (unsigned long long place : {0ULL, 7ULL, 8ULL, 11ULL, 14ULL, 15ULL, 16ULL, GIB4, GIB4 * 4}) {
        int const expected = place + 8 <= whole.size() ? 0 : place < whole.size() ? -1 : -3;
        EXPECT_EQ(SubChunk::readHeader(&file, place, nullptr, 0, nullptr), expected) << place;
        EXPECT_EQ(file.position(), 3) << place;
    }
    // Where no file can have a place.
    EXPECT_EQ(SubChunk::readHeader(&file, ~0ULL, nullptr, 0, nullptr), File::END_OF_FILE);
    EXPECT_EQ(file.position(), 3);
    char id[6] = "kept";
    unsigned int size = 77;
    EXPECT_EQ(SubChunk::readHeader(&file, 4, id, 4, &size), -1);
    EXPECT_STREQ(id, "kept");
    EXPECT_EQ(SubChunk::readHeader(&file, 15, id, 0, &size), File::END_OF_FILE)
        << "the end comes before the small buffer";
    EXPECT_EQ(SubChunk::readHeader(&file, 4, id, 5, nullptr), 0);
    EXPECT_STREQ(id, "ab");
    EXPECT_EQ(SubChunk::readHeader(&file, 4, nullptr, 0, &size), 0);
    EXPECT_EQ(size, 3U);
    EXPECT_EQ(file.position(), 3);
    ASSERT_TRUE(file.close());
    EXPECT_EQ(SubChunk::readHeader(&file, 4, nullptr, 0, nullptr), -1);
    EXPECT_EQ(SubChunk::readHeader(nullptr, 4, nullptr, 0, nullptr), -1);
}

TEST_F(SubChunkOdd, ReadHeader_WhereAnyCallFails_IsMinusOneAndPutsBackWhatItCan) {
    putFile("f", "0123" + subChunk("ab  ", "xyz"));
    File file("f", File::TEXT_UTF8);
    ASSERT_TRUE(file.open(File::OPEN_KEEP, File::ACCESS_READ));
    for (unsigned int nth : {1U, 2U}) {
        ASSERT_EQ(file.seek(3, File::FROM_START), 3);
        HookScope const scope;
        hooks::pread.failFrom(nth, 1, -1, EIO);
        EXPECT_EQ(SubChunk::readHeader(&file, 4, nullptr, 0, nullptr), -1);
        EXPECT_EQ(file.position(), 3);
    }
    bool failed = true;
    unsigned int nth = 0;
    while (failed) {
        ASSERT_EQ(file.seek(3, File::FROM_START), 3);
        HookScope const scope;
        hooks::lseek.failFrom(++nth, 1, -1, EIO);
        int const result = SubChunk::readHeader(&file, 4, nullptr, 0, nullptr);
        failed = hooks::lseek.calls() >= nth;
        EXPECT_EQ(result, failed ? -1 : 0) << nth;
    }
    EXPECT_GT(nth, 3U);
}

TEST_F(SubChunkOdd, Ids_ThatAreMalformedHaveZerosOrJapanese_AreReadOrRefusedWhole) {
    struct Case {
        std::string bytes;
        bool opens;
        char const* text;
    };
    using namespace std::string_literals;
    for (Case const& each :
         {Case{"\xE3\x81\x82 "s, true, "\xE3\x81\x82"}, Case{"a\0b "s, true, "a"},
          Case{"\0\0\0\0"s, true, ""}, Case{"    "s, true, ""}, Case{" ab "s, true, " ab"},
          Case{"ab\t\n"s, true, "ab"}, Case{"\xFF\xFF\xFF\xFF"s, false, ""}, Case{"abc\xE3"s, false, ""}}) {
        putFile("f", riff("TEST", subChunk(each.bytes, "xyz")));
        File file("f", File::TEXT_UTF8);
        ASSERT_TRUE(file.open(File::OPEN_KEEP, File::ACCESS_READ));
        char id[5] = "kept";
        EXPECT_EQ(SubChunk::readHeader(&file, 12, id, 5, nullptr), each.opens ? 0 : -1) << each.bytes;
        SubChunk chunk;
        EXPECT_EQ(chunk.open(&file, 12, SubChunk::AT_START), each.opens) << each.bytes;
        EXPECT_EQ(chunk.isOpened(), each.opens);
        if (each.opens) {
            EXPECT_STREQ(id, each.text);
            EXPECT_STREQ(chunk.getSubChunkId(), each.text);
        } else {
            EXPECT_EQ(chunk.getSubChunkId(), nullptr);
        }
        EXPECT_TRUE(chunk.close());
        ASSERT_TRUE(file.close());
        RiffFile container("f", 1);
        EXPECT_EQ(container.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), each.opens ? 0 : 1)
            << each.bytes;
        EXPECT_EQ(container.isOpened(), each.opens);
        EXPECT_TRUE(container.close());
    }
}

TEST_F(SubChunkOdd, Add_FailsWithoutATraceWhereItIsRefused) {
    putFile("f", "0123456789");
    File file("f", File::TEXT_UTF8);
    SubChunk chunk;
    EXPECT_FALSE(chunk.add(&file, "fmt"));
    ASSERT_TRUE(file.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE));
    EXPECT_FALSE(chunk.add(nullptr, "fmt"));
    EXPECT_FALSE(chunk.add(&file, nullptr));
    EXPECT_FALSE(chunk.add(&file, "fmt12"));
    EXPECT_FALSE(chunk.isOpened());
    EXPECT_EQ(contentOf("f"), "0123456789");
    EXPECT_FALSE(SubChunk::writeSubChunKId("fmt12", &file));
    EXPECT_FALSE(SubChunk::writeSubChunKId(nullptr, &file));
    EXPECT_FALSE(SubChunk::writeSubChunKId("fmt", nullptr));
    EXPECT_EQ(contentOf("f"), "0123456789");
    ASSERT_TRUE(chunk.add(&file, ""));
    EXPECT_EQ(contentOf("f"), "0123456789" + subChunk("    ", ""));
    EXPECT_STREQ(chunk.getSubChunkId(), "");
    EXPECT_EQ(chunk.position(), 0);
    EXPECT_FALSE(chunk.add(&file, "more"));
    EXPECT_FALSE(chunk.open(&file, 10, SubChunk::AT_START));
    EXPECT_EQ(contentOf("f").size(), 18U);
    EXPECT_TRUE(chunk.close());
}

TEST_F(SubChunkOdd, Seek_ToTargetsNoNumberHolds_IsRefusedInPlace) {
    putFile("f", riff("TEST", subChunk("one ", "0123456789") + subChunk("two ", "xx")));
    File file("f", File::TEXT_UTF8);
    ASSERT_TRUE(file.open(File::OPEN_KEEP, File::ACCESS_READ));
    SubChunk chunk;
    ASSERT_TRUE(chunk.open(&file, 12, SubChunk::AT_START));
    ASSERT_EQ(chunk.seek(File::FROM_START, 4), 4);
    struct Target {
        int origin;
        long long offset;
    };
    for (Target const& target : {Target{0, LLONG_MAX},
                                 {0, LLONG_MIN},
                                 {0, -1},
                                 {0, 11},
                                 {1, LLONG_MIN},
                                 {1, LLONG_MAX},
                                 {1, 1},
                                 {1, -11},
                                 {2, LLONG_MAX},
                                 {2, LLONG_MIN},
                                 {2, 7},
                                 {2, -5},
                                 {3, 0},
                                 {-1, 0}}) {
        EXPECT_EQ(chunk.seek(target.origin, target.offset), -1) << target.origin << " " << target.offset;
        EXPECT_EQ(chunk.position(), 4);
    }
    EXPECT_EQ(chunk.seek(File::FROM_POSITION, 6), 10);
    EXPECT_EQ(chunk.seek(File::FROM_POSITION, 0), 10);
    EXPECT_EQ(chunk.seek(File::FROM_POSITION, -10), 0);
    EXPECT_EQ(chunk.seek(File::FROM_END, -10), 0);
    EXPECT_EQ(chunk.seek(File::FROM_END, 0), 10);
    // From outside the data, in front of them and behind.
    for (long long outside : {3LL, 33LL}) {
        ASSERT_EQ(file.seek(outside, File::FROM_START), outside);
        EXPECT_EQ(chunk.seek(File::FROM_POSITION, 0), -1);
        EXPECT_EQ(file.position(), outside);
        EXPECT_EQ(chunk.position(), outside == 33 ? 13 : -1);
        EXPECT_EQ(chunk.seek(File::FROM_START, 0), 0);
    }
    EXPECT_TRUE(chunk.close());
    EXPECT_EQ(chunk.seek(File::FROM_START, 0), -1);
}

TEST_F(SubChunkOdd, Read_JudgesItsArgumentsThenTheEndThenTheLength) {
    putFile("f", liarChunk("one ", 9, "01234"));
    File file("f", File::TEXT_UTF8);
    ASSERT_TRUE(file.open(File::OPEN_KEEP, File::ACCESS_READ));
    SubChunk chunk;
    char buffer[16] = {};
    EXPECT_EQ(chunk.read(buffer, 1), -1);
    ASSERT_TRUE(chunk.open(&file, 0, SubChunk::AT_START));
    EXPECT_EQ(chunk.read(nullptr, 1), -1);
    EXPECT_EQ(chunk.read(buffer, 0x80000000U), -1);
    EXPECT_EQ(chunk.read(buffer, 0), -1);
    EXPECT_EQ(chunk.read(buffer, 0x7FFFFFFF), 5);
    EXPECT_EQ(chunk.read(buffer, 1), SubChunk::END_OF_DATA) << "the file ends before the data do";
    EXPECT_EQ(chunk.seek(File::FROM_END, 0), 9);
    EXPECT_EQ(chunk.read(buffer, 0), SubChunk::END_OF_DATA);
    EXPECT_EQ(chunk.read(buffer, 0x80000000U), -1);
    EXPECT_EQ(chunk.read(nullptr, 1), -1);
    EXPECT_TRUE(chunk.close());
    EXPECT_EQ(contentOf("f"), liarChunk("one ", 9, "01234"));
}

TEST_F(SubChunkOdd, Write_OverTheEndAndShort_GrowsTheDataByWhatWentBeyond) {
    putFile("f", subChunk("one ", "0123456789"));
    File file("f", File::TEXT_UTF8);
    ASSERT_TRUE(file.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE));
    SubChunk chunk;
    ASSERT_TRUE(chunk.open(&file, 0, SubChunk::AT_START));
    EXPECT_EQ(chunk.write("ab", 2), 2);
    EXPECT_EQ(chunk.getDataSize(), 10U);
    EXPECT_EQ(chunk.seek(File::FROM_END, -1), 9);
    EXPECT_EQ(chunk.write("xyz", 3), 3);
    EXPECT_EQ(chunk.getDataSize(), 12U);
    {
        HookScope const scope;
        hooks::write.replace([](int descriptor, void const* bytes, size_t length) {
            return hooks::write.real(descriptor, bytes, length / 2);
        });
        EXPECT_EQ(chunk.write("01234567", 8), 4);
    }
    EXPECT_EQ(chunk.getDataSize(), 16U);
    EXPECT_EQ(chunk.write(nullptr, 1), -1);
    EXPECT_EQ(chunk.write("x", 0), -1);
    EXPECT_EQ(chunk.write("x", 0x80000000U), -1);
    EXPECT_EQ(chunk.getDataSize(), 16U);
    EXPECT_EQ(contentOf("f").substr(4, 4), littleEndian(10)) << "before the close";
    EXPECT_TRUE(chunk.close());
    EXPECT_EQ(contentOf("f"), subChunk("one ", "ab2345678xyz0123"));
}

TEST_F(SubChunkOdd, Close_WhoseAnyCallFails_StaysOpenAndCanBeTriedAgain) {
    using Hooked = std::function<void(unsigned int)>;
    std::vector<Hooked> const faults{[](unsigned int nth) { hooks::lseek.failFrom(nth, 1, -1, EIO); },
                                     [](unsigned int nth) { hooks::pread.failFrom(nth, 1, -1, EIO); },
                                     [](unsigned int nth) { hooks::write.failFrom(nth, 1, -1, EIO); }};
    for (std::size_t fault = 0; fault < faults.size(); ++fault) {
        putFile("f", subChunk("one ", "0123"));
        File file("f", File::TEXT_UTF8);
        ASSERT_TRUE(file.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE));
        unsigned int failures = 0;
        for (bool failed = true; failed;) {
            SubChunk chunk;
            ASSERT_TRUE(chunk.open(&file, 0, SubChunk::AT_END));
            ASSERT_EQ(chunk.write("+", 1), 1);
            unsigned int const size = chunk.getDataSize();
            {
                HookScope const scope;
                faults[fault](failures + 1);
                failed = !chunk.close();
            }
            EXPECT_EQ(chunk.isOpened(), failed);
            failures += failed;
            if (failed) {
                EXPECT_EQ(chunk.getDataSize(), size);
                EXPECT_STREQ(chunk.getSubChunkId(), "one");
                EXPECT_TRUE(chunk.close());
            }
            EXPECT_EQ(contentOf("f").substr(4, 4), littleEndian(size));
        }
        EXPECT_GE(failures, 1U) << fault;
    }
}

TEST_F(SubChunkOdd, Close_ComparesWithTheFileAndWritesOnlyADifference) {
    putFile("f", subChunk("one ", "0123"));
    File file("f", File::TEXT_UTF8);
    ASSERT_TRUE(file.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE));
    HookScope const scope;
    SubChunk chunk;
    ASSERT_TRUE(chunk.open(&file, 0, SubChunk::AT_START));
    ASSERT_EQ(chunk.write("abcd", 4), 4);
    hooks::write.reset();
    EXPECT_TRUE(chunk.close());
    EXPECT_EQ(hooks::write.calls(), 0U);
    // Another has changed the field meanwhile: it is the file's value that counts.
    ASSERT_TRUE(chunk.open(&file, 0, SubChunk::AT_START));
    ASSERT_EQ(file.seek(4, File::FROM_START), 4);
    ASSERT_EQ(file.write("\x63\0\0\0", 4), 4);
    EXPECT_TRUE(chunk.close());
    EXPECT_EQ(contentOf("f"), subChunk("one ", "abcd"));
    EXPECT_EQ(file.position(), 8);
    // The file is closed under it.
    ASSERT_TRUE(chunk.open(&file, 0, SubChunk::AT_START));
    ASSERT_TRUE(file.close());
    char buffer[1];
    EXPECT_FALSE(chunk.close());
    EXPECT_TRUE(chunk.isOpened());
    EXPECT_EQ(chunk.read(buffer, 1), -1);
    EXPECT_EQ(chunk.write(buffer, 1), -1);
    EXPECT_EQ(chunk.seek(File::FROM_START, 0), -1);
    EXPECT_EQ(chunk.position(), -1);
    ASSERT_TRUE(file.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE));
    EXPECT_TRUE(chunk.close());
}

TEST_F(SubChunkOdd, DataOf4GiB_GrowToTheLastNumberAndNoFurther) {
    constexpr unsigned long long NEARLY = 0xFFFFFFF0ULL;
    putSparse("f", 12 + 8 + NEARLY, {{0, "RIFF    TESTbig " + littleEndian(0xFFFFFFF0U)}});
    RiffFile file("f", 4);
    ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0);
    SubChunkInfo info;
    ASSERT_TRUE(file.getSubChunkInfo(0, &info));
    EXPECT_EQ(info.mDataSize, 0xFFFFFFF0U);
    ASSERT_TRUE(file.openSubChunk(0, SubChunk::AT_END));
    EXPECT_EQ(file.position(), static_cast<long long>(NEARLY));
    EXPECT_EQ(file.write("0123456789ABCDE", 15), 15);
    EXPECT_EQ(file.position(), 0xFFFFFFFFLL);
    EXPECT_EQ(file.seek(File::FROM_START, 0xFFFFFFFFLL), 0xFFFFFFFFLL);
    EXPECT_EQ(file.seek(File::FROM_START, 0x100000000LL), -1);
    EXPECT_EQ(file.write("F", 1), -1);
    EXPECT_EQ(file.seek(File::FROM_END, 0), 0xFFFFFFFFLL);
    EXPECT_EQ(file.seek(File::FROM_END, -0xFFFFFFFFLL), 0);
    EXPECT_TRUE(file.closeSubChunk());
    EXPECT_EQ(partOf("f", 16, 4), littleEndian(0xFFFFFFFFU));
    // 12 bytes too long for the size at the front: nothing is closed.
    unsigned int const descriptors = openDescriptors();
    EXPECT_FALSE(file.close());
    EXPECT_TRUE(file.isOpened());
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(file.getSubChunkNumber(), 1U);
    EXPECT_TRUE(file.openSubChunk(0, SubChunk::AT_START));
    EXPECT_FALSE(file.close());
    EXPECT_TRUE(file.isOpenedSubChunk(0));
}

TEST_F(RiffOdd, Close_PatchesSizesToTheLastNumberThatFits) {
    for (unsigned long long size : {GIB4 + 6, GIB4 + 7, GIB4 + 8}) {
        putSparse("f", size - 8,
                  {{0, "RIFF    TESTbig " + littleEndian(static_cast<unsigned int>(size - 28))}});
        RiffFile file("f", 4);
        ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0);
        ASSERT_EQ(file.addSubChunk("end"), 1);
        bool const fits = size - 8 < GIB4;
        EXPECT_EQ(file.close(), fits) << size;
        EXPECT_EQ(file.isOpened(), !fits);
        EXPECT_EQ(partOf("f", 4, 4), fits ? littleEndian(static_cast<unsigned int>(size - 8)) : "    ");
    }
}

TEST_F(RiffOdd, Open_WalksOverSizesBeyond32Bits) {
    unsigned long long const second = 12 + 8 + 0xFFFFFFFFULL;
    putSparse("f", second + 11,
              {{0, "RIFF    TESTbig " + littleEndian(0xFFFFFFFFU)}, {second, subChunk("two ", "xyz")}});
    RiffFile file("f", 9);
    ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_EQ(file.getSubChunkNumber(), 2U);
    ASSERT_TRUE(file.openSubChunk(1, SubChunk::AT_START));
    char buffer[8] = {};
    EXPECT_EQ(file.read(buffer, 8), 3);
    EXPECT_STREQ(buffer, "xyz");
    EXPECT_EQ(file.read(buffer, 8), SubChunk::END_OF_DATA);
    EXPECT_EQ(file.size(), static_cast<long long>(second + 11));
    EXPECT_TRUE(file.closeSubChunk());
    EXPECT_TRUE(file.close()) << "nothing changed, so nothing has to fit";
}

// ---- containers

// Seeks of a file system whose files end at 4 GiB.
off_t seekBelow4GiB(int descriptor, off_t offset, int whence) {
    if (whence == SEEK_SET && offset >= static_cast<off_t>(GIB4)) {
        errno = EINVAL;
        return -1;
    }
    return hooks::lseek.real(descriptor, offset, whence);
}

TEST_F(WaveOdd, AStreamedFile_WhoseDataSizeIsNotKnown_OpensWhereNoFileCanBeThatLong) {
    putFile("f",
            riff("WAVE", subChunk("fmt ", format(8000, 1, 16)) + liarChunk("data", 0xFFFFFFFFU, "0123")));
    for (int const access : {0, 1}) {
        WaveFile wave("f");
        HookScope const scope;
        hooks::lseek.replace(seekBelow4GiB);
        ASSERT_EQ(wave.open(0, access), 0);
        EXPECT_EQ(wave.getSamplingRate(), 8000U);
        EXPECT_EQ(wave.getChunkDataSize(WaveFile::CHUNK_DATA), 0xFFFFFFFFLL);
        ASSERT_TRUE(wave.openSubChunk(SubChunk::AT_START, WaveFile::CHUNK_DATA));
        char buffer[8] = {};
        EXPECT_EQ(wave.read(buffer, 8), 4);
        EXPECT_STREQ(buffer, "0123");
        EXPECT_EQ(wave.read(buffer, 8), SubChunk::END_OF_DATA);
        EXPECT_TRUE(wave.close());
    }
    EXPECT_EQ(mLog.lines(), Names());
}

TEST_F(RiffOdd, ASubChunkThatIsAppendedBehindALyingSize_IsNotFoundByTheNextOpen) {
    putFile("f", riff("TEST", liarChunk("one ", 1000, "0123")));
    RiffFile file("f", 8);
    ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0);
    EXPECT_EQ(file.addSubChunk("two"), 1);
    EXPECT_EQ(file.write("data", 4), 4);
    EXPECT_TRUE(file.close());
    ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_EQ(file.getSubChunkNumber(), 1U);
    ASSERT_TRUE(file.openSubChunk(0, SubChunk::AT_START));
    char buffer[32] = {};
    EXPECT_EQ(file.read(buffer, 32), 16) << "the other sub-chunk is data of the first";
    EXPECT_TRUE(file.close());
}

TEST_F(SubChunkOdd, ReadHeader_AtTheEndOfAFile_SeeksNothing) {
    putFile("f", three());
    File file("f", File::TEXT_UTF8);
    ASSERT_TRUE(file.open(File::OPEN_KEEP, File::ACCESS_READ));
    HookScope const scope;
    for (unsigned long long const place : {0ULL, 1ULL, GIB4, ~0ULL}) {
        unsigned long long const end = three().size();
        EXPECT_EQ(SubChunk::readHeader(&file, std::max(end, end + place), nullptr, 0, nullptr),
                  File::END_OF_FILE);
    }
    EXPECT_EQ(hooks::lseek.calls(), 0U);
    hooks::fstat.failFrom(1, 1, -1, EIO);
    EXPECT_EQ(SubChunk::readHeader(&file, 12, nullptr, 0, nullptr), -1);
    EXPECT_EQ(mLog.lines(), (Names{error("fstat Failed. errno[5]"), error("fileSize Failed. Path:f")}));
}

TEST_F(RiffOdd, Open_OfAFileCutAtEveryByte_GivesTheToldResultAndLeavesIt) {
    std::string const whole = three();
    std::vector<std::size_t> const ends{12, 24, 37};
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        std::string const content = whole.substr(0, length);
        putFile("f", content);
        RiffFile file("f", 8);
        // In front of the first header nothing can be wrong but the magic.
        unsigned int known = 0;
        bool isPart = false;
        for (std::size_t end : ends) {
            known += length >= end + 8;
            isPart = isPart || (length > end && length < end + 8);
        }
        int const expected = length < 4 ? 2 : isPart ? 1 : 0;
        for (int access : {0, 1}) {
            EXPECT_EQ(file.open(0, access), expected) << length;
            EXPECT_EQ(file.isOpened(), expected == 0) << length;
            EXPECT_EQ(file.getSubChunkNumber(), expected == 0 ? known : ~0U) << length;
            if (expected == 0) {
                EXPECT_EQ(file.getFormType(), length < 8 ? "" : content.substr(8, 4)) << length;
            }
            EXPECT_TRUE(file.close());
            EXPECT_EQ(contentOf("f"), content);
        }
    }
}

TEST_F(RiffOdd, Open_WhoseAnyCallFails_IsClosedForgetsAllAndCanBeTriedAgain) {
    putFile("f", three());
    using Hooked = std::function<unsigned int(unsigned int)>;
    std::vector<std::pair<char const*, Hooked>> const faults{
        {"read", [](unsigned int n) { return hooks::pread.failFrom(n, 1, -1, EIO), 0U; }},
        {"lseek", [](unsigned int n) { return hooks::lseek.failFrom(n, 1, -1, EIO), 0U; }},
        {"flock", [](unsigned int n) { return hooks::flock.failFrom(n, 1, -1, EWOULDBLOCK), 0U; }},
        {"open", [](unsigned int n) { return hooks::open.failFrom(n, 1, -1, EMFILE), 0U; }}};
    for (auto const& [name, fault] : faults) {
        RiffFile file("f", 8);
        unsigned int nth = 0;
        for (int result = 1; result != 0;) {
            unsigned int const descriptors = openDescriptors();
            {
                HookScope const scope;
                fault(++nth);
                result = file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ);
            }
            ASSERT_LE(nth, 100U);
            if (result != 0) {
                bool const isFirstRead = std::string(name) == "read" && nth == 1;
                EXPECT_TRUE(result == (isFirstRead ? 2 : 1) || std::string(name) == "lseek") << name << nth;
                EXPECT_FALSE(file.isOpened());
                EXPECT_EQ(openDescriptors(), descriptors);
                EXPECT_EQ(file.getSubChunkNumber(), ~0U);
                ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0) << name << nth;
            }
            EXPECT_EQ(file.getSubChunkNumber(), 3U);
            SubChunkInfo info;
            EXPECT_TRUE(file.getSubChunkInfo(2, &info));
            EXPECT_FALSE(file.getSubChunkInfo(3, &info));
            EXPECT_TRUE(file.close());
        }
        EXPECT_GT(nth, 1U) << name;
        EXPECT_EQ(contentOf("f"), three());
    }
}

/// Lets the library's write number `number` take all but the last byte.
void writeShort(unsigned int number) {
    static unsigned int sNumber;
    sNumber = number;
    hooks::write.replace([](int descriptor, void const* bytes, size_t size) {
        return hooks::write.real(descriptor, bytes, hooks::write.calls() == sNumber ? size - 1 : size);
    });
}

/// Writes a container, each operation up to the end, and gives the name of the first that failed.
std::string writeAll(RiffFile& file) {
    std::string failed;
    auto const check = [&failed](bool ok, char const* name) {
        if (!ok && failed.empty()) {
            failed = name;
        }
    };
    check(file.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE) == 0, "open");
    check(file.setFormType("TEST"), "setFormType");
    check(file.addSubChunk("one") == 0, "addSubChunk");
    check(file.write("0123456789", 10) == 10, "write");
    check(file.closeSubChunk(), "closeSubChunk");
    check(file.close(), "close");
    return failed;
}

TEST_F(RiffOdd, AWriterWhoseNthWriteComesShort_SaysSoInTheOperationThatMadeIt) {
    Names writers;
    for (unsigned int nth = 1; writers.empty() || !writers.back().empty(); ++nth) {
        ASSERT_LT(nth, 20U);
        RiffFile file("f", 4);
        HookScope const scope;
        writeShort(nth);
        writers.push_back(writeAll(file));
        hooks::write.reset();
        file.closeSubChunk();
        file.close();
    }
    EXPECT_EQ(writers, (Names{"open", "open", "setFormType", "addSubChunk", "addSubChunk", "write",
                              "closeSubChunk", "close", ""}));
    EXPECT_EQ(mLog.lines(), Names());
}

TEST_F(RiffOdd, AWriterWhoseNthCallFails_SaysSoInTheOperationThatMadeIt) {
    Names const order{"open", "setFormType", "addSubChunk", "write", "closeSubChunk", "close"};
    Names writers;
    for (unsigned int nth = 1;; ++nth) {
        RiffFile file("f", 4);
        HookScope const scope;
        hooks::write.failFrom(nth, 1, -1, ENOSPC);
        std::string const failed = writeAll(file);
        if (failed.empty()) {
            break;
        }
        if (writers.empty() || writers.back() != failed) {
            writers.push_back(failed);
        }
        if (failed == "open") {
            EXPECT_FALSE(File::exists("f")) << "erased again";
        }
        hooks::write.reset();
        EXPECT_TRUE(file.closeSubChunk());
        EXPECT_TRUE(file.close());
    }
    EXPECT_EQ(writers, order);
    EXPECT_EQ(contentOf("f"), riff("TEST", subChunk("one ", "0123456789")));

    std::size_t last = 0;
    for (unsigned int nth = 1;; ++nth) {
        RiffFile file("f", 4);
        HookScope const scope;
        hooks::lseek.failFrom(nth, 1, -1, EIO);
        std::string const failed = writeAll(file);
        if (hooks::lseek.calls() < nth) {
            EXPECT_EQ(failed, "");
            break;
        }
        auto const at =
            static_cast<std::size_t>(std::find(order.begin(), order.end(), failed) - order.begin());
        EXPECT_GE(at, last) << nth << failed;
        EXPECT_LT(at, order.size()) << nth;
        last = at;
        hooks::lseek.reset();
        file.close();
    }
}

TEST_F(RiffOdd, Close_WhoseSubChunkDoesNotClose_ClosesTheFileAndKeepsTheSubChunk) {
    putFile("f", riff("TEST", subChunk("one ", "0123")));
    RiffFile file("f", 4);
    ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0);
    ASSERT_TRUE(file.openSubChunk(0, SubChunk::AT_END));
    ASSERT_EQ(file.write("tail\0\0\0\0", 8), 8);
    {
        HookScope const scope;
        hooks::pread.failFrom(1, 1, -1, EIO);
        EXPECT_FALSE(file.close());
    }
    EXPECT_FALSE(file.isOpened());
    EXPECT_EQ(file.getSubChunkNumber(), ~0U);
    EXPECT_FALSE(file.isOpenedSubChunk(0));
    EXPECT_TRUE(file.close());
    EXPECT_EQ(contentOf("f").substr(4, 4), littleEndian(24)) << "patched before";
    EXPECT_EQ(contentOf("f").substr(16, 4), littleEndian(4)) << "not patched";
    // It is still there, and goes when it can be closed.
    ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0);
    EXPECT_EQ(file.getSubChunkNumber(), 2U) << "what was added is taken for a header";
    EXPECT_EQ(file.addSubChunk("two"), INVALID);
    EXPECT_FALSE(file.openSubChunk(0, SubChunk::AT_START));
    EXPECT_TRUE(file.closeSubChunk());
    EXPECT_EQ(contentOf("f").substr(16, 4), littleEndian(12));
    EXPECT_TRUE(file.openSubChunk(0, SubChunk::AT_START));
    EXPECT_TRUE(file.close());
}

TEST_F(RiffOdd, ADestructorWithoutClose_TouchesNoSizeAndNoFile) {
    {
        RiffFile file("f", 4);
        ASSERT_EQ(file.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
        ASSERT_TRUE(file.setFormType("TEST"));
        ASSERT_EQ(file.addSubChunk("one"), 0);
        ASSERT_EQ(file.write("0123", 4), 4);
    }
    EXPECT_EQ(contentOf("f"), "RIFF" + littleEndian(0) + "TEST" + liarChunk("one ", 0, "0123"));
    {
        RiffFile file("f", 4);
        ASSERT_EQ(file.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
        ASSERT_TRUE(file.setFormType("TEST"));
        RiffFile::AutoClose const closer(file);
        ASSERT_EQ(file.addSubChunk("one"), 0);
        ASSERT_EQ(file.write("0123", 4), 4);
    }
    EXPECT_EQ(contentOf("f"), riff("TEST", subChunk("one ", "0123")));
}

TEST_F(RiffOdd, TwoObjectsOnOneFile_ExcludeEachOtherAsFilesDo) {
    putFile("f", three());
    RiffFile first("f", 4);
    RiffFile second("f", 4);
    ASSERT_EQ(first.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_EQ(second.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_TRUE(first.openSubChunk(0, SubChunk::AT_START));
    EXPECT_TRUE(second.openSubChunk(2, SubChunk::AT_START));
    char a[8] = {};
    char b[8] = {};
    EXPECT_EQ(first.read(a, 2), 2);
    EXPECT_EQ(second.read(b, 8), 6);
    EXPECT_EQ(first.read(a + 2, 6), 2);
    EXPECT_STREQ(a, "1234");
    EXPECT_STREQ(b, "123456");
    EXPECT_TRUE(second.close());
    EXPECT_EQ(second.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 1);
    EXPECT_FALSE(second.isOpened());
    EXPECT_TRUE(first.close());
    ASSERT_EQ(second.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0);
    EXPECT_EQ(first.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 1);
    EXPECT_TRUE(second.close());
    EXPECT_EQ(contentOf("f"), three());
    // A new file is emptied before its lock is asked for, but what another holds is never erased.
    ASSERT_EQ(first.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_EQ(second.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 1);
    EXPECT_TRUE(File::exists("f"));
    EXPECT_FALSE(first.openSubChunk(0, SubChunk::AT_START));
    EXPECT_FALSE(first.close()) << "8 less than nothing does not fit";
    EXPECT_TRUE(first.isOpened());
}

TEST_F(RiffOdd, ASecondOpen_IsRefusedAndChangesNothing) {
    putFile("f", three());
    RiffFile file("f", 4);
    ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0);
    ASSERT_TRUE(file.openSubChunk(1, SubChunk::AT_START));
    for (int disposition : {0, 1, 2, -1}) {
        for (int access : {0, 1, 2, -1}) {
            EXPECT_EQ(file.open(disposition, access), 1);
        }
    }
    EXPECT_TRUE(file.isOpened());
    EXPECT_TRUE(file.isOpenedSubChunk(1));
    EXPECT_EQ(file.getSubChunkNumber(), 3U);
    EXPECT_EQ(file.position(), 0);
    EXPECT_TRUE(file.close());
    EXPECT_EQ(contentOf("f"), three());
}

TEST_F(RiffOdd, ACapacityOfNothing_KnowsNothingButCanStillBeWritten) {
    RiffFile file("f", 0);
    ASSERT_EQ(file.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    ASSERT_TRUE(file.setFormType("TEST"));
    EXPECT_EQ(file.addSubChunk("one"), INVALID);
    EXPECT_EQ(file.getSubChunkNumber(), 0U);
    EXPECT_TRUE(file.isOpenedSubChunk(-1));
    // No number is the last one, and no number is open.
    EXPECT_EQ(file.write("xyz", 3), 3);
    EXPECT_EQ(file.addSubChunk("two"), INVALID);
    EXPECT_TRUE(file.closeSubChunk());
    EXPECT_TRUE(file.close());
    EXPECT_EQ(contentOf("f"), riff("TEST", subChunk("one ", "xyz")));
    EXPECT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_EQ(file.getSubChunkNumber(), 0U);
    EXPECT_TRUE(file.close());
}

TEST_F(RiffOdd, ASubChunkThatWasNotTakenDown_IsOverwrittenByTheLastThatWas) {
    RiffFile file("f", 1);
    ASSERT_EQ(file.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    ASSERT_TRUE(file.setFormType("TEST"));
    ASSERT_EQ(file.addSubChunk("one"), 0);
    ASSERT_TRUE(file.closeSubChunk());
    EXPECT_EQ(file.addSubChunk("two"), INVALID);
    EXPECT_FALSE(file.isOpenedSubChunk(0));
    EXPECT_EQ(file.write("x", 1), -1);
    EXPECT_FALSE(file.openSubChunk(0, SubChunk::AT_START)) << "one is open still";
    EXPECT_TRUE(file.closeSubChunk());
    EXPECT_EQ(file.getSubChunkNumber(), 1U);
    ASSERT_TRUE(file.openSubChunk(0, SubChunk::AT_END));
    EXPECT_EQ(file.write("ABCDEFGH", 8), 8);
    EXPECT_TRUE(file.close());
    EXPECT_EQ(contentOf("f"), riff("TEST", subChunk("one ", "ABCDEFGH")));
}

TEST_F(RiffOdd, Numbers_StartAgainBehindTheLastAndARepeatedOneFails) {
    RiffFields const fields{};
    std::size_t const last = offsetIn(fields, fields.lastSubChunkId);
    RiffFile file("f", 8);
    ASSERT_EQ(file.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    ASSERT_TRUE(file.setFormType("TEST"));
    pokeAt(file, last, 0x7FFFFFFD);
    EXPECT_EQ(file.addSubChunk("a"), 0x7FFFFFFE);
    ASSERT_TRUE(file.closeSubChunk());
    EXPECT_EQ(file.addSubChunk("b"), 0);
    EXPECT_EQ(file.write("b", 1), 1) << "the last in the file, though not the largest number";
    ASSERT_TRUE(file.closeSubChunk());
    ASSERT_TRUE(file.openSubChunk(0x7FFFFFFE, SubChunk::AT_END));
    EXPECT_EQ(file.write("a", 1), -1);
    ASSERT_TRUE(file.closeSubChunk());
    pokeAt(file, last, 0x7FFFFFFE);
    EXPECT_EQ(file.addSubChunk("c"), INVALID);
    EXPECT_EQ(file.addSubChunk("d"), INVALID);
    EXPECT_TRUE(file.close());
    EXPECT_EQ(contentOf("f"),
              riff("TEST", subChunk("a   ", "") + subChunk("b   ", "b") + subChunk("c   ", "")));
}

TEST_F(RiffOdd, SetFormType_StandsAsideOfTheOpenSubChunkAndKeepsTheOldTextOnFailure) {
    RiffFile file("f", 4);
    EXPECT_FALSE(file.setFormType("TEST"));
    ASSERT_EQ(file.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    ASSERT_TRUE(file.setFormType("AB  "));
    EXPECT_STREQ(file.getFormType(), "AB");
    ASSERT_EQ(file.addSubChunk("one"), 0);
    EXPECT_EQ(file.write("01", 2), 2);
    EXPECT_TRUE(file.setFormType("\xE3\x81\x82"));
    EXPECT_EQ(file.write("23", 2), 2);
    for (unsigned int nth : {1U, 2U, 3U}) {
        HookScope const scope;
        hooks::lseek.failFrom(nth, 1, -1, EIO);
        EXPECT_FALSE(file.setFormType("CD"));
        EXPECT_STREQ(file.getFormType(), "\xE3\x81\x82");
    }
    EXPECT_EQ(file.seek(File::FROM_END, 0), 4);
    {
        HookScope const scope;
        hooks::write.failFrom(1, 1, -1, ENOSPC);
        EXPECT_FALSE(file.setFormType("CD"));
    }
    EXPECT_STREQ(file.getFormType(), "\xE3\x81\x82");
    EXPECT_EQ(file.position(), 4);
    EXPECT_FALSE(file.setFormType("\xFF"));
    EXPECT_STREQ(file.getFormType(), "");
    EXPECT_FALSE(file.setFormType(nullptr));
    EXPECT_FALSE(file.setFormType("ABCDE"));
    EXPECT_TRUE(file.setFormType(""));
    EXPECT_EQ(file.position(), 4);
    EXPECT_TRUE(file.close());
    EXPECT_EQ(contentOf("f"), riff("    ", subChunk("one ", "0123")));
    // Read back it keeps its blanks, and stays when the object closes, until a file says otherwise.
    ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_STREQ(file.getFormType(), "    ");
    EXPECT_FALSE(file.setFormType("NEW"));
    EXPECT_STREQ(file.getFormType(), "    ");
    EXPECT_TRUE(file.close());
    EXPECT_STREQ(file.getFormType(), "    ");
    ASSERT_EQ(file.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    EXPECT_STREQ(file.getFormType(), "    ") << "the new file has none yet";
    EXPECT_TRUE(file.close());
    EXPECT_EQ(contentOf("f"), "RIFF" + littleEndian(0));
    ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_STREQ(file.getFormType(), "");
    EXPECT_TRUE(file.close());
}

TEST_F(RiffOdd, Lists_LookAtTheFirstOnesOnlyAndAtWholeIds) {
    putFile("f", three());
    RiffFile file("f", 8);
    std::array<SubChunkInfo, 4> list;
    EXPECT_EQ(file.getSubChunkInfoList(list.data(), 4), -1);
    EXPECT_EQ(file.getSubChunkNumber("one"), -1);
    ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    for (unsigned int count : {0U, 1U, 2U, 3U, 4U}) {
        EXPECT_EQ(file.getSubChunkInfoList(list.data(), count), static_cast<int>(std::min(count, 3U)));
        EXPECT_EQ(file.getSubChunkInfoList("one", list.data(), count), count < 1 ? 0 : count < 3 ? 1 : 2);
    }
    EXPECT_EQ(list[1].mId, 2U);
    EXPECT_EQ(list[1].mDataSize, 6U);
    EXPECT_EQ(file.getSubChunkInfoList("two", list.data(), 1), 0);
    for (char const* id : {"one ", "on", "ONE", ""}) {
        EXPECT_EQ(file.getSubChunkNumber(id), 0) << id;
        EXPECT_EQ(file.getSubChunkInfoList(id, list.data(), 4), 0) << id;
    }
    EXPECT_EQ(file.getSubChunkNumber("one"), 2);
    EXPECT_EQ(file.getSubChunkNumber(nullptr), -1);
    EXPECT_EQ(file.getSubChunkInfoList(nullptr, list.data(), 4), -1);
    EXPECT_EQ(file.getSubChunkInfoList("one", nullptr, 4), -1);
    EXPECT_EQ(file.getSubChunkInfoList(nullptr, 4), -1);
    EXPECT_FALSE(file.getSubChunkInfo(0, nullptr));
    EXPECT_FALSE(file.getSubChunkInfo(3, list.data()));
    EXPECT_FALSE(file.getSubChunkInfo(~0U, list.data()));
    EXPECT_TRUE(file.close());
    EXPECT_FALSE(file.getSubChunkInfo(0, list.data()));
}

TEST_F(RiffOdd, AnIdOfBlanks_IsFoundAsTheEmptyText) {
    putFile("f", riff("TEST", subChunk("    ", "1") + subChunk("one ", "2") + subChunk("    ", "3")));
    RiffFile file("f", 8);
    ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    std::array<SubChunkInfo, 4> list;
    EXPECT_EQ(file.getSubChunkNumber(""), 2);
    EXPECT_EQ(file.getSubChunkInfoList("", list.data(), 4), 2);
    EXPECT_EQ(list[1].mId, 2U);
    EXPECT_TRUE(list[1].mName == "");
    EXPECT_TRUE(SubChunkInfo(1, nullptr, 2).mName == "");
    EXPECT_TRUE(file.close());
}

TEST_F(RiffOdd, DataWithoutTheirSize_AreTakenForHeaders) {
    std::string const front = subChunk("one ", "1234");
    struct Case {
        std::string data;
        int result;
        unsigned int known;
    };
    // Silence is a row of empty headers; the end of the data can be a part of one; bytes that are no text, or
    // look like a size, end the walk.
    for (Case const& each : {Case{"", 0, 2},
                             {std::string(16, '\0'), 0, 4},
                             {std::string(17, '\0'), 1, 0},
                             {std::string(16, '\xFF'), 1, 0},
                             {"datadata", 0, 3},
                             {std::string(4000, '\0'), 0, 64}}) {
        std::string const content = riff("TEST", front + liarChunk("two ", 0, each.data));
        putFile("f", content);
        RiffFile file("f", 64);
        EXPECT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), each.result)
            << each.data.size();
        EXPECT_EQ(file.getSubChunkNumber(), each.result == 0 ? each.known : ~0U) << each.data.size();
        EXPECT_TRUE(file.close());
        EXPECT_EQ(contentOf("f"), content);
    }
}

TEST_F(RiffOdd, OnAClosedObject_EverythingHasItsFailureResult) {
    RiffFile file(nullptr, 4);
    char buffer[4] = {};
    EXPECT_STREQ(file.getPath(), "");
    EXPECT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 1);
    EXPECT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 1);
    EXPECT_EQ(file.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ), 1);
    EXPECT_EQ(file.addSubChunk("one"), INVALID);
    EXPECT_FALSE(file.openSubChunk(0, SubChunk::AT_START));
    EXPECT_TRUE(file.closeSubChunk());
    EXPECT_EQ(file.read(buffer, 4), -1);
    EXPECT_EQ(file.write(buffer, 4), -1);
    EXPECT_EQ(file.seek(File::FROM_START, 0), -1);
    EXPECT_EQ(file.position(), -1);
    EXPECT_EQ(file.size(), -1);
    EXPECT_STREQ(file.getFormType(), "");
    EXPECT_FALSE(file.isOpened());
    EXPECT_TRUE(file.close());
    putFile("f", "0123");
    RiffFile other("f", 4);
    EXPECT_EQ(other.size(), 4) << "the file's, open or not";
    EXPECT_EQ(other.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ), 1);
    EXPECT_EQ(contentOf("f"), "0123");
}

// ---- sound

std::string waveOf(unsigned int before) {
    std::string chunks = subChunk("fmt ", format(8000, 1, 16));
    for (unsigned int i = 1; i < before; ++i) {
        chunks += subChunk("junk", "j");
    }
    return riff("WAVE", chunks + subChunk("data", "0123456789"));
}

TEST_F(WaveOdd, DataBehind64SubChunks_AreNotFound) {
    for (unsigned int before : {62U, 63U, 64U, 65U}) {
        putFile("f", waveOf(before));
        WaveFile wave("f");
        EXPECT_EQ(wave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), before < 64 ? 0 : 4) << before;
        EXPECT_TRUE(wave.isOpened());
        EXPECT_EQ(wave.getChunkDataSize(WaveFile::CHUNK_DATA), before < 64 ? 10 : -1);
        EXPECT_EQ(wave.openSubChunk(SubChunk::AT_START, WaveFile::CHUNK_DATA), before < 64);
        EXPECT_TRUE(wave.close());
        EXPECT_EQ(contentOf("f"), waveOf(before));
    }
}

TEST_F(WaveOdd, AFormatOfEveryLength_LoadsFrom16BytesOn) {
    for (unsigned int length = 0; length <= 18; ++length) {
        std::string const data = (format(44100, 2, 16) + "xx").substr(0, length);
        putFile("f", riff("WAVE", subChunk("fmt ", data) + subChunk("data", "0123")));
        WaveFile wave("f");
        EXPECT_EQ(wave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), length < 16 ? 1 : 0) << length;
        EXPECT_TRUE(wave.isOpened());
        EXPECT_EQ(wave.isOpenedSubChunk(WaveFile::CHUNK_FMT), length < 16) << length;
        EXPECT_EQ(wave.getSamplingRate(), length < 16 ? 0U : 44100U);
        EXPECT_EQ(wave.getChannel(), length < 16 ? 0U : 2U);
        EXPECT_EQ(wave.getChunkDataSize(WaveFile::CHUNK_FMT), static_cast<long long>(length));
        EXPECT_TRUE(wave.close());
    }
}

TEST_F(WaveOdd, TheLargestFormatValues_WrapInTheirWidths) {
    {
        WaveFile wave("f");
        ASSERT_EQ(wave.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
        ASSERT_TRUE(wave.setFmtChunkData(~0U, 0xFFFF, 0xFFFF, 0xFFFF));
        EXPECT_EQ(wave.getBlockAlign(), 1U);
        EXPECT_EQ(wave.getBytePerSec(), 0x0001FFFFU);
        EXPECT_TRUE(wave.close());
    }
    EXPECT_EQ(contentOf("f").substr(20), "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF" + littleEndian(0x0001FFFFU) +
                                             littleEndian(1, 2) + "\xFF\xFF");
}

TEST_F(WaveOdd, AFormatOfWhichOnlyAPartWasWritten_IsAFailureThatKeepsTheOldValues) {
    WaveFile wave("f");
    ASSERT_EQ(wave.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    ASSERT_TRUE(wave.setFmtChunkData(8000, 1, 16, 1));
    HookScope const scope;
    writeShort(1);
    EXPECT_FALSE(wave.setFmtChunkData(48000, 2, 24, 1));
    EXPECT_EQ(hooks::write.calls(), 1U);
    EXPECT_EQ(wave.getSamplingRate(), 8000U);
    EXPECT_TRUE(wave.setFmtChunkData(48000, 2, 24, 1));
    EXPECT_EQ(wave.getSamplingRate(), 48000U);
    EXPECT_TRUE(wave.close());
}

TEST_F(WaveOdd, AWriterWhoseNthWriteFails_KeepsOldValuesAndCanGoOn) {
    for (unsigned int nth = 1;; ++nth) {
        WaveFile wave("f");
        HookScope const scope;
        hooks::write.failFrom(nth, 1, -1, ENOSPC);
        if (wave.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE) != 0) {
            EXPECT_FALSE(wave.isOpened()) << nth;
            continue;
        }
        if (wave.setFmtChunkData(8000, 1, 16, 1)) {
            EXPECT_LT(hooks::write.calls(), nth);
            hooks::write.reset();
            EXPECT_TRUE(wave.close());
            break;
        }
        hooks::write.reset();
        EXPECT_EQ(wave.getSamplingRate(), 0U);
        EXPECT_EQ(wave.getFormatId(), 0U);
        // The format's sub-chunk is not left open, whatever was written of it, except where its size was
        // what failed.
        wave.closeSubChunk();
        EXPECT_TRUE(wave.setFmtChunkData(8000, 1, 16, 1)) << nth;
        EXPECT_EQ(wave.getSamplingRate(), 8000U);
        EXPECT_TRUE(wave.close());
    }
}

TEST_F(WaveOdd, FormatData_AreReplacedUntilDataStandBehindThem) {
    WaveFile wave("f");
    ASSERT_EQ(wave.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    EXPECT_EQ(wave.write("x", 1), -1);
    EXPECT_FALSE(wave.openSubChunk(SubChunk::AT_START, WaveFile::CHUNK_DATA));
    ASSERT_TRUE(wave.setFmtChunkData(8000, 1, 16, 1));
    ASSERT_TRUE(wave.setFmtChunkData(16000, 2, 8, 2));
    EXPECT_EQ(wave.getChunkDataSize(WaveFile::CHUNK_FMT), 0) << "as it was added";
    EXPECT_EQ(wave.getChunkDataSize(WaveFile::CHUNK_DATA), -1);
    ASSERT_TRUE(wave.openSubChunk(SubChunk::AT_END, WaveFile::CHUNK_DATA));
    EXPECT_TRUE(wave.isOpenedSubChunk(WaveFile::CHUNK_DATA));
    EXPECT_FALSE(wave.isOpenedSubChunk(WaveFile::CHUNK_FMT));
    EXPECT_FALSE(wave.isOpenedSubChunk(2));
    EXPECT_FALSE(wave.setFmtChunkData(1, 1, 1, 1)) << "while data are open";
    EXPECT_EQ(wave.write("0123", 4), 4);
    ASSERT_TRUE(wave.closeSubChunk());
    EXPECT_FALSE(wave.setFmtChunkData(1, 1, 1, 1));
    EXPECT_FALSE(wave.isOpenedSubChunk(WaveFile::CHUNK_FMT));
    EXPECT_EQ(wave.getSamplingRate(), 16000U);
    EXPECT_FALSE(wave.openSubChunk(2, WaveFile::CHUNK_DATA));
    EXPECT_FALSE(wave.openSubChunk(SubChunk::AT_START, 2));
    ASSERT_TRUE(wave.openSubChunk(SubChunk::AT_END, WaveFile::CHUNK_DATA));
    EXPECT_EQ(wave.position(), 4);
    EXPECT_EQ(wave.write("45", 2), 2);
    EXPECT_TRUE(wave.close());
    std::string const bytes = contentOf("f");
    EXPECT_EQ(bytes.substr(36), subChunk("data", "012345"));
    EXPECT_EQ(bytes.substr(4, 4), littleEndian(static_cast<unsigned int>(bytes.size() - 8)));
    EXPECT_EQ(bytes.substr(12, 8), "fmt " + littleEndian(16));
}

TEST_F(WaveOdd, OneObjectForManyFiles_KeepsItsNumbersAsTold) {
    putFile("f", waveOf(5));
    WaveFile wave("f");
    ASSERT_EQ(wave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_EQ(wave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 1) << "and closed";
    EXPECT_FALSE(wave.isOpened());
    ASSERT_EQ(wave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    EXPECT_EQ(wave.open(0, 2), 1);
    EXPECT_TRUE(wave.isOpened()) << "wrong arguments touch nothing";
    EXPECT_TRUE(wave.close());
    EXPECT_TRUE(wave.close());
    EXPECT_EQ(wave.getSamplingRate(), 8000U);
    EXPECT_EQ(wave.getChunkDataSize(WaveFile::CHUNK_DATA), -1);
    EXPECT_FALSE(wave.openSubChunk(SubChunk::AT_START, WaveFile::CHUNK_DATA));
    // A new file does not have the number that "data" had.
    ASSERT_EQ(wave.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    EXPECT_FALSE(wave.setFmtChunkData(8000, 1, 16, 1));
    EXPECT_FALSE(wave.openSubChunk(SubChunk::AT_START, WaveFile::CHUNK_FMT));
    EXPECT_FALSE(wave.openSubChunk(SubChunk::AT_START, WaveFile::CHUNK_DATA));
    EXPECT_TRUE(wave.close());
    EXPECT_EQ(contentOf("f"), riff("WAVE", ""));
    EXPECT_EQ(wave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 3);
    EXPECT_TRUE(wave.isOpened());
    EXPECT_TRUE(wave.close());
    putFile("f", riff("WAVe", ""));
    EXPECT_EQ(wave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 2);
    EXPECT_FALSE(wave.isOpened());
    putFile("f", "RIFF" + littleEndian(0));
    EXPECT_EQ(wave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 2) << "there, and so not new";
    EXPECT_FALSE(wave.isOpened());
    EXPECT_EQ(contentOf("f"), "RIFF" + littleEndian(0));
}

// ---- threads

TEST_F(RiffOdd, ManyThreadsOnOneObject_SeeWholeOperations) {
    RiffFile file("f", 200);
    ASSERT_EQ(file.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    ASSERT_TRUE(file.setFormType("TEST"));
    std::atomic<unsigned int> added{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 40; ++round) {
                if (file.addSubChunk("one") != INVALID) {
                    ++added;
                    file.write("0123", 4);
                    file.closeSubChunk();
                }
                static_cast<void>(file.isOpenedSubChunk(round));
                file.seek(File::FROM_START, 0);
                static_cast<void>(file.position());
                SubChunkInfo info;
                file.getSubChunkInfo(file.getSubChunkNumber() - 1, &info);
                file.setFormType("TEST");
                EXPECT_GE(file.size(), 12);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(file.getSubChunkNumber(), added.load());
    EXPECT_EQ(file.getSubChunkNumber("one"), static_cast<int>(added.load()));
    EXPECT_TRUE(file.close());
    EXPECT_EQ(contentOf("f").substr(4, 4),
              littleEndian(static_cast<unsigned int>(contentOf("f").size() - 8)));
}

TEST_F(WaveOdd, ValuesAreReadWhileAnotherThreadSetsThem) {
    WaveFile wave("f");
    ASSERT_EQ(wave.open(RiffFile::OPEN_NEW, RiffFile::ACCESS_READ_WRITE), 0);
    std::atomic<bool> done{false};
    std::thread reader([&] {
        while (!done) {
            unsigned int const rate = wave.getSamplingRate();
            EXPECT_TRUE(rate == 0 || rate == 1000 || rate == 2000);
            static_cast<void>(wave.getBytePerSec());
            static_cast<void>(wave.getBlockAlign());
            static_cast<void>(wave.getChannel());
            static_cast<void>(wave.getBitsWidth());
            static_cast<void>(wave.getFormatId());
            static_cast<void>(wave.isOpenedSubChunk(WaveFile::CHUNK_FMT));
            static_cast<void>(wave.getChunkDataSize(WaveFile::CHUNK_FMT));
        }
    });
    for (unsigned int i = 0; i < 50; ++i) {
        EXPECT_TRUE(wave.setFmtChunkData(1000 + i % 2 * 1000, 1, 16, 1));
    }
    done = true;
    reader.join();
    EXPECT_TRUE(wave.close());
}

// ---- keep-alive statements

/// Those of one source alone, in their order.
Names only(Names const& statements, std::string const& source) {
    Names found;
    for (std::string const& statement : statements) {
        if (statement.rfind("source/" + source + " ", 0) == 0) {
            found.push_back(statement.substr(source.size() + 8));
        }
    }
    return found;
}

Names const NONE;

class WithStatements : public utltest::InLoggedFolder {
  protected:
    using Work = std::function<void()>;

    /// The first two statements of `work` name `operation` of `source`, in front of all others.
    void expectBracket(std::string const& source, std::string const& operation, Work const& work) {
        Names const all = mStatements.of(work);
        std::string const prefix = "source/" + source + " " + operation + " ";
        ASSERT_GE(all.size(), 2U) << operation;
        EXPECT_EQ(all[0], prefix + "1");
        EXPECT_EQ(all[1], prefix + "2");
    }

    utltest::Statements mStatements;
};

using RiffStatements = WithStatements;
using SubChunkStatements = WithStatements;
using WaveStatements = WithStatements;

TEST_F(SubChunkStatements, EveryOperation_ReportsItsWaitForTheLock) {
    char const* const source = "UtlSubChunk";
    putFile("f", subChunk("one ", "0123"));
    File file("f", File::TEXT_UTF8);
    ASSERT_TRUE(file.open(File::OPEN_KEEP, File::ACCESS_READ_WRITE));
    SubChunk chunk;
    char byte = 'x';
    expectBracket(source, "open", [&] { EXPECT_TRUE(chunk.open(&file, 0, SubChunk::AT_START)); });
    expectBracket(source, "read", [&] { chunk.read(&byte, 1); });
    expectBracket(source, "write", [&] { chunk.write(&byte, 1); });
    expectBracket(source, "seek", [&] { chunk.seek(File::FROM_START, 0); });
    expectBracket(source, "position", [&] { return chunk.position(); });
    expectBracket(source, "getSubChunkId", [&] { return chunk.getSubChunkId(); });
    expectBracket(source, "getDataSize", [&] { return chunk.getDataSize(); });
    EXPECT_EQ(mStatements.of([&] { return chunk.isOpened(); }), NONE);
    expectBracket(source, "close", [&] { chunk.close(); });
    expectBracket(source, "close", [&] { chunk.close(); });
    expectBracket(source, "add", [&] { chunk.add(&file, "two"); });
    EXPECT_EQ(only(mStatements.of([&] { SubChunk::readHeader(&file, 0, nullptr, 0, nullptr); }), source),
              NONE);
    EXPECT_EQ(only(mStatements.of([&] { SubChunk::writeSubChunKId("abcde", &file); }), source), NONE);
    expectBracket(source, "close", [&] { SubChunk::AutoClose const closer(chunk); });
    EXPECT_FALSE(chunk.isOpened());
    auto owned = std::make_unique<SubChunk>();
    expectBracket(source, "close", [&] { owned.reset(); });
    // Judged before the lock.
    EXPECT_EQ(mStatements.of([&] { chunk.add(nullptr, "two"); }), NONE);
    EXPECT_EQ(mStatements.of([&] { chunk.add(&file, nullptr); }), NONE);
    EXPECT_EQ(mStatements.of([&] { chunk.open(nullptr, 0, 0); }), NONE);
    EXPECT_EQ(mStatements.of([&] { chunk.read(nullptr, 1); }), NONE);
    EXPECT_EQ(mStatements.of([&] { chunk.write(&byte, 0x80000000U); }), NONE);
}

TEST_F(RiffStatements, EveryOperation_ReportsItsWaitForTheLock) {
    char const* const source = "UtlRiffFile";
    putFile("f", three());
    RiffFile file("f", 4);
    char byte = 'x';
    std::array<SubChunkInfo, 4> list;
    expectBracket(source, "isOpened", [&] { return file.isOpened(); });
    expectBracket(source, "open",
                  [&] { EXPECT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0); });
    expectBracket(source, "openSubChunk", [&] { EXPECT_TRUE(file.openSubChunk(2, SubChunk::AT_START)); });
    expectBracket(source, "read", [&] { file.read(&byte, 1); });
    expectBracket(source, "write", [&] { file.write(&byte, 1); });
    expectBracket(source, "seek", [&] { file.seek(File::FROM_START, 0); });
    expectBracket(source, "position", [&] { return file.position(); });
    expectBracket(source, "size", [&] { return file.size(); });
    expectBracket(source, "getPath", [&] { return file.getPath(); });
    expectBracket(source, "setFormType", [&] { file.setFormType("TEST"); });
    expectBracket(source, "getFormType", [&] { return file.getFormType(); });
    expectBracket(source, "getSubChunkNumber", [&] { return file.getSubChunkNumber(); });
    expectBracket(source, "getSubChunkNumber", [&] { return file.getSubChunkNumber("one"); });
    expectBracket(source, "getSubChunkInfo", [&] { file.getSubChunkInfo(0, list.data()); });
    expectBracket(source, "getSubChunkInfoList", [&] { file.getSubChunkInfoList(list.data(), 4); });
    expectBracket(source, "getSubChunkInfoList", [&] { file.getSubChunkInfoList("one", list.data(), 4); });
    expectBracket(source, "closeSubChunk", [&] { file.closeSubChunk(); });
    expectBracket(source, "addSubChunk", [&] { file.addSubChunk("two"); });
    expectBracket(source, "close", [&] { RiffFile::AutoClose const closer(file); });
    EXPECT_FALSE(file.isOpened());
    EXPECT_EQ(mStatements.of([&] { return file.isOpenedSubChunk(0); }), NONE);
    EXPECT_EQ(mStatements.of([&] { EXPECT_EQ(file.open(2, 0), 1); }), NONE);
    EXPECT_EQ(mStatements.of([&] { EXPECT_FALSE(file.setFormType(nullptr)); }), NONE);
}

TEST_F(RiffStatements, TheNumberOfSubChunks_AsksWhetherTheFileIsOpenWhileItHoldsTheLock) {
    RiffFile file("f", 4);
    EXPECT_EQ(only(mStatements.of([&] { return file.getSubChunkNumber(); }), "UtlRiffFile"),
              (Names{"getSubChunkNumber 1", "getSubChunkNumber 2", "isOpened 1", "isOpened 2"}));
}

std::atomic<bool> gIsHeld{false};
std::atomic<bool> gMayGo{false};

// Keeps its caller, and the locks that this one holds, until it may go.
int heldFstat(int descriptor, struct stat* status) {
    gIsHeld = true;
    while (!gMayGo) {
        std::this_thread::yield();
    }
    return hooks::fstat.real(descriptor, status);
}

utl::StatementInfo lastStatementOf(int thread) {
    return utltest::ThreadWatchdogAccess::copyInfo(utltest::ThreadManagerAccess::watchdog(), thread)
        .lastStatement;
}

TEST_F(RiffOdd, AThreadThatWaitsForTheLock_StandsInFrontOfIt) {
    putFile("f", three());
    RiffFile file("f", 4);
    ASSERT_EQ(file.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    utltest::HookScope const scope;
    hooks::fstat.replace(heldFstat);
    std::thread holder([&] { EXPECT_EQ(file.size(), static_cast<long long>(three().size())); });
    while (!gIsHeld) {
        std::this_thread::yield();
    }
    EXPECT_FALSE(file.isOpenedSubChunk(0)) << "waits for nobody";
    std::atomic<int> id{0};
    std::thread waiter([&] {
        EXPECT_TRUE(utl::ThreadManager::get()->entryWatchdog(60000, nullptr));
        EXPECT_TRUE(utl::ThreadManager::get()->startWatchdog());
        id = utltest::kernelId();
        EXPECT_TRUE(file.isOpened());
        EXPECT_EQ(lastStatementOf(id).sub, 2U);
        EXPECT_TRUE(utl::ThreadManager::get()->unregisterWatchdog());
    });
    while (id == 0 || lastStatementOf(id).sub != 1U) {
        std::this_thread::yield();
    }
    utl::StatementInfo const waiting = lastStatementOf(id);
    EXPECT_STREQ(waiting.file, "source/UtlRiffFile");
    EXPECT_STREQ(waiting.function, "isOpened");
    gMayGo = true;
    waiter.join();
    holder.join();
    EXPECT_TRUE(file.close());
}

TEST_F(WaveStatements, EveryOperation_ReportsItsWaitForTheLock) {
    char const* const source = "UtlWaveFile";
    putFile("f", riff("WAVE", subChunk("fmt ", format(8000, 1, 16)) + subChunk("data", "0123")));
    WaveFile wave("f");
    char byte = 'x';
    expectBracket(source, "open",
                  [&] { EXPECT_EQ(wave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ_WRITE), 0); });
    expectBracket(source, "isOpened", [&] { return wave.isOpened(); });
    expectBracket(source, "openSubChunk",
                  [&] { EXPECT_TRUE(wave.openSubChunk(SubChunk::AT_START, WaveFile::CHUNK_DATA)); });
    expectBracket(source, "isOpenedSubChunk", [&] { return wave.isOpenedSubChunk(WaveFile::CHUNK_FMT); });
    expectBracket(source, "getChunkDataSize", [&] { return wave.getChunkDataSize(WaveFile::CHUNK_FMT); });
    expectBracket(source, "read", [&] { wave.read(&byte, 1); });
    expectBracket(source, "write", [&] { wave.write(&byte, 1); });
    expectBracket(source, "seek", [&] { wave.seek(File::FROM_START, 0); });
    expectBracket(source, "position", [&] { return wave.position(); });
    expectBracket(source, "size", [&] { return wave.size(); });
    expectBracket(source, "getPath", [&] { return wave.getPath(); });
    expectBracket(source, "closeSubChunk", [&] { wave.closeSubChunk(); });
    expectBracket(source, "setFmtChunkData", [&] { wave.setFmtChunkData(1, 1, 1, 1); });
    EXPECT_EQ(mStatements.of([&] {
        static_cast<void>(wave.getSamplingRate());
        static_cast<void>(wave.getChannel());
        static_cast<void>(wave.getBitsWidth());
        static_cast<void>(wave.getFormatId());
        static_cast<void>(wave.getBytePerSec());
        static_cast<void>(wave.getBlockAlign());
    }),
              NONE);
    EXPECT_EQ(mStatements.of([&] { EXPECT_FALSE(wave.openSubChunk(2, WaveFile::CHUNK_FMT)); }), NONE);
    EXPECT_EQ(mStatements.of([&] { EXPECT_EQ(wave.open(2, 0), 1); }), NONE);
    expectBracket(source, "close", [&] { WaveFile::AutoClose const closer(wave); });
    EXPECT_FALSE(wave.isOpened());
}

TEST_F(WaveStatements, ARead_TakesTheLocksFromTheOutsideIn) {
    putFile("f", riff("WAVE", subChunk("fmt ", format(8000, 1, 16)) + subChunk("data", "0123")));
    WaveFile wave("f");
    ASSERT_EQ(wave.open(RiffFile::OPEN_KEEP, RiffFile::ACCESS_READ), 0);
    ASSERT_TRUE(wave.openSubChunk(SubChunk::AT_START, WaveFile::CHUNK_DATA));
    char byte = 'x';
    Names found = mStatements.of([&] { wave.read(&byte, 1); });
    ASSERT_GE(found.size(), 6U);
    found.resize(6);
    EXPECT_EQ(found,
              (Names{"source/UtlWaveFile read 1", "source/UtlWaveFile read 2", "source/UtlRiffFile read 1",
                     "source/UtlRiffFile read 2", "source/UtlSubChunk read 1", "source/UtlSubChunk read 2"}));
    EXPECT_TRUE(wave.close());
}

}  // namespace
