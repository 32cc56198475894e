#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "TestFileCalls.h"
#include "UtlFile.h"

namespace {

using utl::BasicString;
using utl::File;

constexpr char UNTOUCHED[] = "untouched";

// What a dissection returned: the text, or that it failed and left the output alone.
constexpr char FAILED[] = "(failed)";

template <typename EXTRACT>
std::string resultOf(EXTRACT extract) {
    char output[300] = {};
    std::strcpy(output, UNTOUCHED);
    if (extract(output, sizeof(output)) == 0) {
        EXPECT_STREQ(output, UNTOUCHED);
        return FAILED;
    }
    return output;
}

std::string fileName(char const* path, int withoutExtension = 0) {
    return resultOf([=](char* output, unsigned int size) {
        return File::extractFileName(output, size, path, withoutExtension);
    });
}

std::string folder(char const* path) {
    return resultOf(
        [=](char* output, unsigned int size) { return File::extractDirectoryPath(output, size, path); });
}

std::string extension(char const* path) {
    return resultOf(
        [=](char* output, unsigned int size) { return File::extractExtension(output, size, path); });
}

std::string volume(char const* path) {
    return resultOf(
        [=](char* output, unsigned int size) { return File::extractVolumeName(output, size, path); });
}

std::vector<std::string> allOf(char const* path) {
    return {fileName(path, 0), fileName(path, 1), folder(path), extension(path), volume(path)};
}

using Parts = std::vector<std::string>;

TEST(FilePath, ExtractFileName_GivesTheLastComponent) {
    EXPECT_EQ(fileName("/a/b.txt"), "b.txt");
    EXPECT_EQ(fileName("b.txt"), "b.txt");
    EXPECT_EQ(fileName("a/b/c"), "c");
    EXPECT_EQ(fileName("."), ".");
    EXPECT_EQ(fileName("a/.."), "..");
}

TEST(FilePath, ExtractFileName_LeavesTrailingSeparatorsOut) {
    EXPECT_EQ(fileName("/a/b/"), "b");
    EXPECT_EQ(fileName("b/"), "b");
    EXPECT_EQ(fileName("a\\b\\"), "b");
}

TEST(FilePath, ExtractFileName_WithoutExtension_EndsBeforeTheLastDot) {
    EXPECT_EQ(fileName("/a/b.txt", 1), "b");
    EXPECT_EQ(fileName("a.tar.gz", 1), "a.tar");
    EXPECT_EQ(fileName("a.b/c", 1), "c");
    EXPECT_EQ(fileName("a.", 1), "a");
    EXPECT_EQ(fileName(".profile", 1), "");
    EXPECT_EQ(fileName("..", 1), ".");
}

TEST(FilePath, ExtractFileName_WithAnyOtherFlag_KeepsTheExtension) {
    for (int const flag : {0, 2, -1}) {
        EXPECT_EQ(fileName("b.txt", flag), "b.txt");
    }
}

TEST(FilePath, ExtractFileName_TakesABackslashForASeparator) {
    EXPECT_EQ(fileName("a\\b"), "b");
    EXPECT_EQ(folder("a\\b\\c"), "a/b");
}

TEST(FilePath, Extract_LeavesTheCallersPathAlone) {
    char path[] = "a\\b.txt\\";
    EXPECT_EQ(allOf(path), (Parts{"b.txt", "b", "a", "txt", "a"}));
    EXPECT_STREQ(path, "a\\b.txt\\");
}

TEST(FilePath, ExtractDirectoryPath_GivesAllBeforeTheLastComponent) {
    EXPECT_EQ(folder("/a/b.txt"), "/a");
    EXPECT_EQ(folder("a/b/c/"), "a/b");
    EXPECT_EQ(folder("a/b"), "a");
}

TEST(FilePath, ExtractDirectoryPath_OfAFileInTheRootOrInNoFolder_IsEmptyAndTrue) {
    EXPECT_EQ(folder("a"), "");
    EXPECT_EQ(folder("file.txt"), "");
    EXPECT_EQ(folder("/file.txt"), "");
    EXPECT_EQ(folder("/a/"), "");
}

TEST(FilePath, ExtractExtension_GivesWhatFollowsTheLastDotInItsOwnCase) {
    EXPECT_EQ(extension("a.TXT"), "TXT");
    EXPECT_EQ(extension("a.tar.gz"), "gz");
    EXPECT_EQ(extension("/x.y/a.txt/"), "txt");
    EXPECT_EQ(extension(".profile"), "profile");
}

TEST(FilePath, ExtractExtension_WithoutADotOrBehindTheLastOne_IsEmptyAndTrue) {
    EXPECT_EQ(extension("a"), "");
    EXPECT_EQ(extension("a.b/c"), "");
    EXPECT_EQ(extension("a."), "");
    EXPECT_EQ(extension("."), "");
}

TEST(FilePath, ExtractVolumeName_GivesTheFirstComponentWhetherRootedOrNot) {
    EXPECT_EQ(volume("/mnt/sd/a.txt"), "mnt");
    EXPECT_EQ(volume("mnt/sd"), "mnt");
    EXPECT_EQ(volume("a.txt"), "a.txt");
    EXPECT_EQ(volume("\\mnt\\sd"), "mnt");
    EXPECT_EQ(volume("/mnt/"), "mnt");
}

TEST(FilePath, Extract_OfAPathWithoutAComponent_Fails) {
    for (char const* const path : {"", "/", "\\"}) {
        EXPECT_EQ(allOf(path), Parts(5, FAILED)) << path;
    }
}

TEST(FilePath, Extract_OfANullPath_Fails) {
    EXPECT_EQ(allOf(nullptr), Parts(5, FAILED));
}

TEST(FilePath, Extract_OfADoubledSeparator_Fails) {
    for (char const* const path : {"a//b", "a\\\\b", "a\\/b", "a/\\b", "//a", "a//", "a/b//", "//"}) {
        EXPECT_EQ(allOf(path), Parts(5, FAILED)) << path;
    }
}

TEST(FilePath, Extract_OfAPathThatIsNotUtf8_Fails) {
    for (char const* const path : {"a/\xFF", "\xFF/a", "a/b.\xE3\x81", "a\xC0\x80/b", "\x80"}) {
        EXPECT_EQ(allOf(path), Parts(5, FAILED)) << path;
    }
}

TEST(FilePath, Extract_LooksForSeparatorsAndDotsBetweenCharacters) {
    EXPECT_EQ(allOf("/データ/表示.文.テキスト"),
              (Parts{"表示.文.テキスト", "表示.文", "/データ", "テキスト", "データ"}));
}

TEST(FilePath, Extract_TakesAPathOf259BytesAndRefusesOneOf260) {
    for (unsigned int const length : {258U, 259U, 260U, 300U, 20000U}) {
        std::string const name(length - 2, 'n');
        Parts const expected = length < 260 ? Parts{name, name, "d", "", "d"} : Parts(5, FAILED);
        EXPECT_EQ(allOf(("d/" + name).c_str()), expected) << length;
    }
}

// Each of the operations with an output of `size` bytes for the path "abc/def.ghi".
std::vector<int> resultsInto(char* output, unsigned int size) {
    constexpr char PATH[] = "abc/def.ghi";
    File const file(PATH, File::TEXT_UTF8);
    return {File::extractFileName(output, size, PATH, File::WITHOUT_EXTENSION),
            File::extractDirectoryPath(output, size, PATH),
            File::extractExtension(output, size, PATH),
            File::extractVolumeName(output, size, PATH),
            file.getFileName(output, size, File::WITHOUT_EXTENSION),
            file.getDirectoryPath(output, size),
            file.getExtension(output, size),
            file.getVolumeName(output, size)};
}

TEST(FilePath, Extract_IntoTooSmallABuffer_FailsAndLeavesItAlone) {
    char output[] = "xxxxxxx";
    for (unsigned int const size : {0U, 1U, 3U}) {
        EXPECT_EQ(resultsInto(output, size), std::vector<int>(8, 0));
        EXPECT_STREQ(output, "xxxxxxx");
    }
    EXPECT_EQ(resultsInto(output, 4), std::vector<int>(8, 1));
    EXPECT_EQ(std::memcmp(output, "abc\0xxx", 8), 0);
}

TEST(FilePath, Extract_IntoANullOutput_Fails) {
    for (unsigned int const size : {0U, 300U}) {
        EXPECT_EQ(resultsInto(nullptr, size), std::vector<int>(8, 0));
        EXPECT_EQ(File("a", File::TEXT_UTF8).getPath(nullptr, size), 0);
    }
    BasicString<char>* const none = nullptr;
    File const file("abc/def.ghi", File::TEXT_UTF8);
    EXPECT_EQ(file.getFileName(none, File::WITH_EXTENSION), 0);
    EXPECT_EQ(file.getDirectoryPath(none), 0);
    EXPECT_EQ(file.getExtension(none), 0);
    EXPECT_EQ(file.getVolumeName(none), 0);
    EXPECT_EQ(file.getPath(none), 0);
}

TEST(FilePath, Get_DissectsTheObjectsPath) {
    File const file("\\mnt\\sd\\a.tar.gz", File::TEXT_UTF8);
    char output[300] = {};
    EXPECT_EQ(file.getFileName(output, sizeof(output), 0), 1);
    EXPECT_STREQ(output, "a.tar.gz");
    EXPECT_EQ(file.getFileName(output, sizeof(output), 1), 1);
    EXPECT_STREQ(output, "a.tar");
    EXPECT_EQ(file.getDirectoryPath(output, sizeof(output)), 1);
    EXPECT_STREQ(output, "/mnt/sd");
    EXPECT_EQ(file.getExtension(output, sizeof(output)), 1);
    EXPECT_STREQ(output, "gz");
    EXPECT_EQ(file.getVolumeName(output, sizeof(output)), 1);
    EXPECT_STREQ(output, "mnt");
    EXPECT_EQ(file.getPath(output, sizeof(output)), 1);
    EXPECT_STREQ(output, "/mnt/sd/a.tar.gz");
}

TEST(FilePath, Get_IntoAString_GrowsItIfItMayGrow) {
    File const file("/mnt/sd/a.tar.gz", File::TEXT_UTF8);
    BasicString<char> output(1, 1);
    EXPECT_EQ(file.getFileName(&output, File::WITH_EXTENSION), 1);
    EXPECT_EQ(output, "a.tar.gz");
    EXPECT_EQ(file.getFileName(&output, File::WITHOUT_EXTENSION), 1);
    EXPECT_EQ(output, "a.tar");
    EXPECT_EQ(file.getDirectoryPath(&output), 1);
    EXPECT_EQ(output, "/mnt/sd");
    EXPECT_EQ(file.getExtension(&output), 1);
    EXPECT_EQ(output, "gz");
    EXPECT_EQ(file.getVolumeName(&output), 1);
    EXPECT_EQ(output, "mnt");
    EXPECT_EQ(file.getPath(&output), 1);
    EXPECT_EQ(output, "/mnt/sd/a.tar.gz");
}

TEST(FilePath, Get_IntoAStringOfFixedCapacity_FailsWhereItDoesNotFitAndKeepsTheOldText) {
    File const file("abc/def.ghi", File::TEXT_UTF8);
    for (unsigned int const capacity : {3U, 4U}) {
        BasicString<char> output("xx", capacity, 0);
        int const expected = capacity == 4 ? 1 : 0;
        EXPECT_EQ(file.getDirectoryPath(&output), expected);
        EXPECT_EQ(file.getExtension(&output), expected);
        EXPECT_EQ(file.getVolumeName(&output), expected);
        EXPECT_EQ(file.getFileName(&output, File::WITHOUT_EXTENSION), expected);
        EXPECT_EQ(output, expected == 1 ? "def" : "xx");
        EXPECT_EQ(file.getPath(&output), 0);
        EXPECT_EQ(output.maxSize(), capacity);
    }
}

TEST(FilePath, Get_OfAnEmptyPart_EmptiesTheOutput) {
    File const file("a", File::TEXT_UTF8);
    char output[] = "xxx";
    EXPECT_EQ(file.getDirectoryPath(output, sizeof(output)), 1);
    EXPECT_STREQ(output, "");
    BasicString<char> text("xxx", 0, 0);
    EXPECT_EQ(file.getExtension(&text), 1);
    EXPECT_EQ(text, "");
    File const none("", File::TEXT_UTF8);
    text = "xxx";
    EXPECT_EQ(none.getPath(&text), 1);
    EXPECT_EQ(text, "");
}

TEST(FilePath, GetPath_IntoTheObjectsOwnString_IsTrueAndChangesNothing) {
    File file("abc", File::TEXT_UTF8);
    // The first field, which no operation exposes.
    auto* const own = reinterpret_cast<BasicString<char>*>(reinterpret_cast<char*>(&file) + sizeof(void*));
    char const* const buffer = file.getPath();
    ASSERT_EQ(own->buffer(), buffer);
    EXPECT_EQ(file.getPath(own), 1);
    EXPECT_EQ(file.getPath(), buffer);
    EXPECT_STREQ(file.getPath(), "abc");
}

TEST(FilePath, GetPath_KnowsNoLimit) {
    std::string const path(1000, 'p');
    File const file(path.c_str(), File::TEXT_UTF8);
    BasicString<char> output(1, 1);
    EXPECT_EQ(file.getPath(&output), 1);
    EXPECT_EQ(output, path.c_str());
    std::vector<char> buffer(1001);
    EXPECT_EQ(file.getPath(buffer.data(), 1000), 0);
    EXPECT_EQ(file.getPath(buffer.data(), 1001), 1);
    EXPECT_EQ(path, buffer.data());
    EXPECT_EQ(file.getFileName(&output, File::WITH_EXTENSION), 0);
}

TEST(FilePath, Dissection_TouchesNoFile) {
    utltest::FileCalls calls;
    File const file("/", File::TEXT_UTF8);
    EXPECT_EQ(allOf("/a/b.txt"), (Parts{"b.txt", "b", "/a", "txt", "a"}));
    char output[300] = {};
    EXPECT_EQ(file.getPath(output, sizeof(output)), 1);
    EXPECT_EQ(calls.take(), std::vector<std::string>());
}

/// The parts of a path; no parts for one that has no name or fails the check.
struct PartsByRule {
    explicit PartsByRule(std::string path) {
        std::replace(path.begin(), path.end(), '\\', '/');
        std::size_t const last = path.find_last_not_of('/');
        areThere = last != std::string::npos && path.find("//") == std::string::npos;
        if (!areThere) {
            return;
        }
        path.erase(last + 1);
        std::size_t const start = path.rfind('/') + 1;  // 0 where there is none
        name = path.substr(start);
        stem = name.substr(0, name.rfind('.'));
        extension = name.find('.') == std::string::npos ? "" : name.substr(name.rfind('.') + 1);
        folder = path.substr(0, start == 0 ? 0 : start - 1);
        std::size_t const first = path.find_first_not_of('/');
        volume = path.substr(first, path.find('/', first) - first);
    }

    bool areThere;
    std::string name, stem, extension, folder, volume;
};

template <typename EXTRACT>
void expectPart(std::string const& path, bool isThere, std::string const& part, EXTRACT extract) {
    unsigned int const size = static_cast<unsigned int>(part.size()) + 1;
    auto const output = std::make_unique<char[]>(size);
    output[0] = '~';
    EXPECT_EQ(extract(output.get(), size - 1), 0) << path;
    EXPECT_EQ(output[0], '~') << path;
    EXPECT_EQ(extract(output.get(), size), isThere ? 1 : 0) << path;
    EXPECT_EQ(std::string(output.get(), size), isThere ? part + '\0' : "~") << path;
}

TEST(FilePath, EveryShortPathComesApartAtItsSeparatorsAndItsLastDot) {
    char const* const pieces[] = {"a", ".", "/", "\\", "\xE8\xA1\xA8"};
    std::vector<std::string> paths = {""};
    for (std::size_t from = 0, to = 1, size = 1; size <= 5; ++size, from = to, to = paths.size()) {
        for (std::size_t i = from; i < to; ++i) {
            for (char const* const piece : pieces) {
                paths.push_back(paths[i] + piece);
            }
        }
        to = paths.size();
    }
    for (std::string const& path : paths) {
        PartsByRule const parts(path);
        char const* const text = path.c_str();
        expectPart(path, parts.areThere, parts.name, [text](char* output, unsigned int size) {
            return utl::File::extractFileName(output, size, text, 2);
        });
        expectPart(path, parts.areThere, parts.stem, [text](char* output, unsigned int size) {
            return utl::File::extractFileName(output, size, text, utl::File::WITHOUT_EXTENSION);
        });
        expectPart(path, parts.areThere, parts.extension, [text](char* output, unsigned int size) {
            return utl::File::extractExtension(output, size, text);
        });
        expectPart(path, parts.areThere, parts.folder, [text](char* output, unsigned int size) {
            return utl::File::extractDirectoryPath(output, size, text);
        });
        expectPart(path, parts.areThere, parts.volume, [text](char* output, unsigned int size) {
            return utl::File::extractVolumeName(output, size, text);
        });
    }
}

}  // namespace
