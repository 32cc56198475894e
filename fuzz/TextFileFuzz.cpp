// Text in files of the four types: lines, searches and plain reading in any order beside plain accounts of
// the bytes, and the same calls on a second object that reads everything anew.

#include <string>
#include <vector>

#include "Fuzz.h"
#include "Scratch.h"
#include "TestLineModel.h"
#include "UtlFile.h"

namespace {

using fuzz::Input;
using utl::File;

/// What a call that reads text returned, and where the position is then.
struct Read {
    int result;
    unsigned int length;
    std::string text;
    long long position;

    bool operator==(Read const& other) const {
        return result == other.result && length == other.length && text == other.text &&
               position == other.position;
    }
};

class Subject {
  public:
    Subject(std::string const& content, int textType)
        : mContent(content), mTextType(textType), mFile("file", textType) {
        FUZZ_EXPECT(mFile.open(File::OPEN_KEEP, File::ACCESS_READ) == 1);
    }

    // On both objects; the second one stands at the same place and has nothing read ahead.
    void readLine(Input* input) {
        unsigned int const size = sizeFrom(input);
        Read const read = lineOf(&mFile, size);
        FUZZ_EXPECT(read == anew([size](File* file) { return lineOf(file, size); }));
        utltest::LineEnd const end = utltest::walked(mContent, mFrom, mTextType);
        if (mFrom >= mContent.size()) {
            FUZZ_EXPECT(read.result == File::END_OF_FILE);
        } else if (read.result >= 0) {
            FUZZ_EXPECT(static_cast<unsigned int>(read.result) == end.lineSize);
            FUZZ_EXPECT(read.position == (size == 0 ? mFrom : end.position));
        } else {
            // A line that cannot be read is passed over.
            FUZZ_EXPECT(read.result == -1);
            mFile.seek(end.position, File::FROM_START);
        }
    }

    void readText(Input* input) {
        unsigned int const size = sizeFrom(input);
        unsigned int const length = input->sizeAround(80);
        unsigned int const offset = input->upTo(4);
        auto const readOf = [=](File* file) {
            auto const buffer = fuzz::blockOf<char>(size);
            unsigned int outputLength = 0xABCD;
            int const result = file->readText(buffer.get(), size, length, offset, &outputLength);
            return Read{result, outputLength, {buffer.get(), size}, file->position()};
        };
        Read const read = readOf(&mFile);
        FUZZ_EXPECT(read == anew(readOf));
        FUZZ_EXPECT(read.result < 0 || read.position == static_cast<long long>(mFrom) + read.result);
    }

    void findEnd(Input*) {
        unsigned int lineSize = 0xABCD;
        unsigned int eolSize = 0xABCD;
        int const result = mFile.findNextLineSize(0, &lineSize, &eolSize);
        utltest::LineEnd const expected = utltest::walked(mContent, mFrom, mTextType);
        FUZZ_EXPECT((utltest::LineEnd{result, lineSize, eolSize, mFile.position()} == expected));
    }

    void nextEnd(Input*) {
        std::string const next = mFrom < mContent.size() ? mContent.substr(mFrom, 2) : "";
        int const expected = next.empty()                         ? 0
                             : next == "\r\n"                     ? 2
                             : next[0] == '\r' || next[0] == '\n' ? 1
                                                                  : -1;
        FUZZ_EXPECT(mFile.nextEOLSize() == expected && mFile.position() == mFrom);
    }

    // The search never goes back inside a partial match.
    void seekKey(Input* input) {
        std::string const key = input->bytes(4);
        unsigned int const start = input->upTo(100);
        unsigned int const range = input->sizeAround(100);
        int const mode = static_cast<int>(input->upTo(1));
        bool const isHere = input->flag();
        size_t const begin = isHere ? mFrom : start;
        size_t matched = 0;
        long long expected = key.empty() ? -1 : File::KEY_NOT_FOUND;
        for (size_t i = begin; !key.empty() && expected < 0 && i < mContent.size() && i - begin < range;
             ++i) {
            matched = mContent[i] == key[matched] ? matched + 1 : 0;
            if (matched == key.size()) {
                expected = static_cast<long long>(i + 1 - (mode == File::AFTER_KEY ? 0 : key.size()));
            }
        }
        auto const exact = fuzz::blockOf<unsigned char>(key.size());
        std::copy(key.begin(), key.end(), exact.get());
        FUZZ_EXPECT(mFile.seekKey(exact.get(), static_cast<unsigned int>(key.size()),
                                  isHere ? File::KEY_FROM_POSITION : start, range, mode) == expected);
        FUZZ_EXPECT(mFile.position() == (expected < 0 ? mFrom : expected));
    }

    void readBytes(Input* input) {
        unsigned int const count = 1 + input->upTo(40);
        auto const bytes = fuzz::blockOf<char>(count);
        std::string const expected = mFrom < mContent.size() ? mContent.substr(mFrom, count) : "";
        int const result = mFile.read(bytes.get(), count);
        FUZZ_EXPECT(result == (expected.empty() ? File::END_OF_FILE : static_cast<int>(expected.size())));
        FUZZ_EXPECT(std::equal(expected.begin(), expected.end(), bytes.get()));
    }

    void seek(Input* input) {
        long long const target = input->upTo(static_cast<unsigned int>(mContent.size()) + 2);
        FUZZ_EXPECT(mFile.seek(target, File::FROM_START) == target);
    }

    void note() { mFrom = static_cast<unsigned int>(mFile.position()); }

  private:
    static unsigned int sizeFrom(Input* input) {
        unsigned int const kind = input->upTo(3);
        return kind == 0 ? 0 : kind == 1 ? input->upTo(40) : kind == 2 ? 5119 : 5000;
    }

    static Read lineOf(File* file, unsigned int size) {
        auto const buffer = fuzz::blockOf<char>(size);
        unsigned int outputLength = 0xABCD;
        int const result = file->readLine(buffer.get(), size, &outputLength);
        return {result, outputLength, {buffer.get(), size}, file->position()};
    }

    template <typename CALL>
    Read anew(CALL call) const {
        File other("file", mTextType);
        FUZZ_EXPECT(other.open(File::OPEN_KEEP, File::ACCESS_READ) == 1);
        other.seek(mFrom, File::FROM_START);
        return call(&other);
    }

    std::string mContent;
    int mTextType;
    File mFile;
    unsigned int mFrom = 0;
};

// Short content as it is, and some that crosses the border of a block.
std::string contentFrom(Input* input) {
    std::string const filler(input->upTo(9) == 0 ? 8150 + 2 * input->upTo(30) : 0, 'x');
    std::string content = filler + input->bytes(120);
    return input->flag() ? fuzz::japanese(content) : content;
}

// What is written must be there; a second object reads it as lines.
void write(Input* input, int textType) {
    std::string expected;
    {
        File file("other", textType);
        FUZZ_EXPECT(file.open(File::OPEN_EMPTY, File::ACCESS_READ_WRITE) == 1);
        for (unsigned int i = input->upTo(3); i > 0; --i) {
            std::string const text = fuzz::anyText(input, 40);
            unsigned int const length = input->sizeAround(40);
            auto const exact = fuzz::exactly(text);
            int const result = file.writeText(exact.get(), length, 0);
            bool const isWritten =
                textType == File::TEXT_UTF8 && length < 5120 && (text.empty() || length != 0);
            if (textType == File::TEXT_UTF8) {
                std::string const part = text.substr(0, length);
                FUZZ_EXPECT(result == (isWritten ? static_cast<int>(part.size()) : -1));
                expected += isWritten ? part : "";
            }
            FUZZ_EXPECT(textType != File::TEXT_SJIS || result == -1);
        }
    }
    FUZZ_EXPECT(textType != File::TEXT_UTF8 || fuzz::Scratch::contentOf("other") == expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    fuzz::Scratch::enter();
    Input input(data, size);
    int const textType = static_cast<int>(input.upTo(3));
    if (input.upTo(15) == 0) {
        write(&input, textType);
        return 0;
    }
    std::string const content = contentFrom(&input);
    fuzz::Scratch::put("file", content);
    Subject subject(content, textType);
    static constexpr void (Subject::*STEPS[])(Input*) = {
        &Subject::readLine, &Subject::readText,  &Subject::findEnd, &Subject::nextEnd,
        &Subject::seekKey,  &Subject::readBytes, &Subject::seek};
    while (!input.isAtEnd()) {
        (subject.*STEPS[input.upTo(std::size(STEPS) - 1)])(&input);
        subject.note();
    }
    return 0;
}
