// Text files as other programs see them: what they make is read, and what is written is what they expect. The
// text is that of Japanese manual pages; the converter runs as a program, since that of a 32-bit C library
// may lack its tables.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "TestCommand.h"
#include "TestTextFile.h"

namespace {

using utl::File;
using utltest::outputOf;
using utltest::TextRead;
using Lines = std::vector<std::string>;

struct Encoding {
    int type;
    char const* iconvName;
    char const* fileName;  ///< null for what `file` does not know
};

constexpr Encoding ENCODINGS[] = {{File::TEXT_SJIS, "CP932", nullptr},
                                  {File::TEXT_UTF8, "UTF-8", "utf-8"},
                                  {File::TEXT_UTF16_BIG, "UTF-16BE", "utf-16be"},
                                  {File::TEXT_UTF16_LITTLE, "UTF-16LE", "utf-16le"}};

Lines linesOf(std::string const& text) {
    std::istringstream stream(text);
    Lines lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

class FileTextTools : public utltest::TextInFolder {
  protected:
    FileTextTools() {
        // What code page 932 lacks is left out once, so that all encodings hold the same.
        outputOf(
            "gzip -cd /usr/share/man/ja/man1/[a-d]*.gz | iconv -c -f UTF-8 -t CP932 | iconv -f CP932 -t "
            "UTF-8 "
            ">pages");
        mPages = linesOf(utltest::contentOf("pages"));
        EXPECT_GT(mPages.size(), 10000U);
    }

    static void makeFile(Encoding const& encoding, std::string const& filter = "cat") {
        outputOf("<pages " + filter + " | iconv -f UTF-8 -t " + encoding.iconvName + " >made");
    }

    static std::string read(File& file) {
        std::string const position = std::to_string(file.position());
        TextRead const line = readLine(file);
        return line.result >= 0 ? line.text : "result " + std::to_string(line.result) + " at " + position;
    }

    void expectThePages(int type) {
        File file("made", type);
        ASSERT_EQ(file.open(File::OPEN_KEEP, File::ACCESS_READ), 1);
        for (std::string const& expected : mPages) {
            ASSERT_EQ(read(file), expected);
        }
        EXPECT_EQ(readLine(file).result, File::END_OF_FILE);
    }

    Lines mPages;
};

TEST_F(FileTextTools, LinesOfTheirFiles_AreTheSameInEveryEncoding) {
    for (Encoding const& encoding : ENCODINGS) {
        SCOPED_TRACE(encoding.iconvName);
        makeFile(encoding);
        expectThePages(encoding.type);
    }
}

TEST_F(FileTextTools, LinesOfTheirFilesWithCarriageReturns_AreTheSameInEveryEncoding) {
    for (Encoding const& encoding : ENCODINGS) {
        SCOPED_TRACE(encoding.iconvName);
        makeFile(encoding, "sed 's/$/\r/'");
        expectThePages(encoding.type);
    }
}

TEST_F(FileTextTools, LinesOfTheirFilesWithoutALastLineEnd_AreTheSameInEveryEncoding) {
    for (Encoding const& encoding : ENCODINGS) {
        SCOPED_TRACE(encoding.iconvName);
        makeFile(encoding, "head -c -1");
        expectThePages(encoding.type);
    }
}

TEST_F(FileTextTools, LinesWrittenInUtf8_AreThePages) {
    File& file = writing("", File::TEXT_UTF8);
    for (std::string const& line : mPages) {
        ASSERT_EQ(file.writeLine(line.c_str()), static_cast<int>(line.size()) + 1);
    }
    written();
    EXPECT_EQ(outputOf("cmp text pages 2>&1"), "");
    EXPECT_EQ(outputOf("iconv -f UTF-8 -t UTF-8 text | cmp - pages 2>&1"), "");
    EXPECT_EQ(outputOf("head -c 100000 text | iconv -c -f UTF-8 -t UTF-8 | file -b --mime-encoding -"),
              "utf-8\n");
}

TEST_F(FileTextTools, TextWrittenInUtf16WithItsLineEnds_IsThePages) {
    for (Encoding const& encoding : {ENCODINGS[File::TEXT_UTF16_BIG], ENCODINGS[File::TEXT_UTF16_LITTLE]}) {
        File& file = writing("", encoding.type);
        for (std::string const& line : mPages) {
            ASSERT_GT(file.writeText((line + "\r\n").c_str(), 5119, 0), 0);
        }
        written();
        EXPECT_EQ(outputOf("iconv -f " + std::string(encoding.iconvName) +
                           " -t UTF-8 text | tr -d '\r' | cmp - pages 2>&1"),
                  "");
    }
}

TEST_F(FileTextTools, TextWrittenInUtf16WithAMarkOfItsOwn_IsKnownByIt) {
    for (Encoding const& encoding : {ENCODINGS[File::TEXT_UTF16_BIG], ENCODINGS[File::TEXT_UTF16_LITTLE]}) {
        File& file = writing("", encoding.type);
        ASSERT_EQ(file.writeText("\xEF\xBB\xBF\xE6\xBC\xA2\xE5\xAD\x97\r\nabc\r\n", 5119, 0), 20);
        written();
        EXPECT_EQ(outputOf("file -b --mime-encoding text"), std::string(encoding.fileName) + "\n");
        EXPECT_EQ(outputOf("iconv -f UTF-16 -t UTF-8 text"), "\xE6\xBC\xA2\xE5\xAD\x97\r\nabc\r\n");
    }
}

}  // namespace
