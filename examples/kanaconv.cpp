// Converts a text file line by line into UTF-8 or UTF-16, and its letters into another width or kana.
//
//     kanaconv [-f FROM] [-t TO] [CONVERSION...] INPUT OUTPUT
//
// FROM is sjis, which is the default, utf8, utf16be or utf16le; TO is utf8, the default, utf16be or utf16le.
// A CONVERSION is one of full, half, hiragana, katakana, upper and lower; several work one after the other.
// UTF-16 is written with a byte order mark and with CR LF at the line ends, UTF-8 with LF alone. Surrogate
// pairs are not supported: a character of four bytes in UTF-8 becomes a reference mark in UTF-16, and each
// unit of a pair becomes three bytes in UTF-8.
//
// Without arguments it shows the conversions of a text of its own.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Utl.h"

namespace {

struct NamedType {
    char const* name;
    int type;
};

constexpr NamedType TYPES[] = {{"sjis", utl::File::TEXT_SJIS},
                               {"utf8", utl::File::TEXT_UTF8},
                               {"utf16be", utl::File::TEXT_UTF16_BIG},
                               {"utf16le", utl::File::TEXT_UTF16_LITTLE}};

struct Conversion {
    char const* name;
    utl::PairAttrib const* table;
    int direction;
};

Conversion const CONVERSIONS[] = {
    {"full", utl::HANKAKU_ZENKAKU_PAIR, 0},      {"half", utl::HANKAKU_ZENKAKU_PAIR, 1},
    {"hiragana", utl::HANKATA_HIRAGANA_PAIR, 0}, {"hiragana", utl::ZENKATA_HIRAGANA_PAIR, 0},
    {"katakana", utl::ZENKATA_HIRAGANA_PAIR, 1}, {"upper", utl::LOWER_UPPER_PAIR, 0},
    {"lower", utl::LOWER_UPPER_PAIR, 1},
};

constexpr unsigned int LINE_SIZE = utl::File::TEXT_BYTES_MAX;
constexpr unsigned int CONVERTED_SIZE = 16384;  // a letter of one byte becomes one of three
constexpr unsigned int PIECE_BYTES = 2500;      // one call can write them in any encoding
constexpr unsigned int CONVERSION_MAX = 8;

struct Job {
    int fromType = utl::File::TEXT_SJIS;
    int toType = utl::File::TEXT_UTF8;
    char const* conversions[CONVERSION_MAX] = {};
    unsigned int conversionCount = 0;
    char const* input = nullptr;
    char const* output = nullptr;
};

enum class LineState { READ, END, UNREADABLE };

bool isUtf16(int type) {
    return type == utl::File::TEXT_UTF16_BIG || type == utl::File::TEXT_UTF16_LITTLE;
}

// The lines of the input.
class Input {
  public:
    explicit Input(Job const& job) : mType(job.fromType), mFile(job.input, job.fromType) {}

    bool open() { return mFile.open(utl::File::OPEN_KEEP, utl::File::ACCESS_READ) == 1 && skipMark(); }

    LineState readLine() {
        long long const start = mFile.position();
        unsigned int size = 0;
        int const result = mFile.readLine(mLine, LINE_SIZE, &size);
        if (result == utl::File::END_OF_FILE) {
            return LineState::END;
        }
        ++mNumber;
        return result == 0 || (result > 0 && isWhole(start, result, size)) ? LineState::READ
                                                                           : LineState::UNREADABLE;
    }

    char const* line() const { return mLine; }
    unsigned int number() const { return mNumber; }

  private:
    // Bytes that are no character of Shift-JIS end the text early, and then it is shorter than measured. A
    // zero in the file ends it, too.
    bool isWhole(long long start, int bytes, unsigned int size) {
        if (isUtf16(mType)) {
            return 2 * (utl::convertStrFromUtf8ToUtf16(nullptr, 0, mLine) - 1) ==
                   static_cast<unsigned int>(bytes);
        }
        unsigned char const zero = 0;
        return size == std::strlen(mLine) + 1 &&
               mFile.seekKey(&zero, 1, static_cast<unsigned long long>(start),
                             static_cast<unsigned long long>(bytes),
                             utl::File::AT_KEY) == utl::File::KEY_NOT_FOUND;
    }

    // In UTF-8 the mark is left out by the reading operations.
    bool skipMark() {
        unsigned char bytes[2] = {};
        unsigned int const high = mType == utl::File::TEXT_UTF16_BIG ? 0 : 1;
        bool const hasMark =
            isUtf16(mType) && mFile.read(bytes, 2) == 2 && bytes[high] == 0xFE && bytes[1 - high] == 0xFF;
        return mFile.seek(hasMark ? 2 : 0, utl::File::FROM_START) != -1;
    }

    int const mType;
    utl::File mFile;
    char mLine[LINE_SIZE] = {};
    unsigned int mNumber = 0;
};

// The lines of the output.
class Output {
  public:
    explicit Output(Job const& job) : mIsUtf16(isUtf16(job.toType)), mFile(job.output, job.toType) {}

    // Emptied after the lock is taken and not by the opening: the file may be the input.
    bool open() {
        return mFile.open(utl::File::OPEN_KEEP, utl::File::ACCESS_WRITE) == 1 && mFile.resize(0) == 1;
    }

    // Line end and mark are written with the text: in UTF-16 a single character is not written.
    bool writeLine(char const* text) {
        char const* const mark = mIsUtf16 && mIsFirst ? "\xEF\xBB\xBF" : "";
        char const* const lineEnd = mIsUtf16 ? "\r\n" : "\n";
        mIsFirst = false;
        if (utl::formatStr(mWhole, sizeof(mWhole), "%s%s%s", mark, text, lineEnd) == utl::INVALID_SIZE) {
            return false;
        }
        char* rest = mWhole;
        while (*rest != '\0') {
            auto const length = static_cast<unsigned int>(std::strlen(rest));
            // Half a piece, so that the last one is never a single character.
            unsigned int const bytes =
                length <= PIECE_BYTES ? length : utl::getNearCharIndex<char>(rest, PIECE_BYTES / 2, 1);
            if (bytes == utl::INVALID_SIZE || !writePiece(rest, bytes)) {
                return false;
            }
            rest += bytes;
        }
        return true;
    }

  private:
    bool writePiece(char const* text, unsigned int bytes) {
        char piece[PIECE_BYTES + 1];
        utl::t_strncpy<char>(piece, sizeof(piece), text, bytes);
        unsigned int const wanted =
            mIsUtf16 ? 2 * (utl::convertStrFromUtf8ToUtf16(nullptr, 0, piece) - 1) : bytes;
        return mFile.writeText(piece, LINE_SIZE, 0) == static_cast<int>(wanted);
    }

    bool const mIsUtf16;
    bool mIsFirst = true;
    utl::File mFile;
    char mWhole[CONVERTED_SIZE] = {};
};

// All conversions of the job, one after the other and in place.
bool convert(Job const& job, char* text) {
    for (unsigned int i = 0; i < job.conversionCount; ++i) {
        for (Conversion const& conversion : CONVERSIONS) {
            if (std::strcmp(conversion.name, job.conversions[i]) == 0 &&
                utl::convertAttrib<char>(text, CONVERTED_SIZE - 8, text, conversion.table,
                                         conversion.direction, 0) == utl::INVALID_SIZE) {
                return false;
            }
        }
    }
    return true;
}

int complain(char const* what, char const* path) {
    std::fprintf(stderr, "kanaconv: %s %s\n", what, path);
    return EXIT_FAILURE;
}

int complainOfLine(unsigned int number, char const* what, char const* path) {
    std::fprintf(stderr, "kanaconv: line %u of %s %s\n", number, path, what);
    return EXIT_FAILURE;
}

int run(Job const& job) {
    static char converted[CONVERTED_SIZE];
    Input input(job);
    if (!input.open()) {
        return complain("cannot open", job.input);
    }
    Output output(job);
    if (!output.open()) {
        return complain("cannot write", job.output);
    }
    for (;;) {
        LineState const state = input.readLine();
        if (state == LineState::END) {
            break;
        }
        if (state == LineState::UNREADABLE) {
            return complainOfLine(input.number(), "cannot be read", job.input);
        }
        utl::t_strncpy<char>(converted, CONVERTED_SIZE, input.line(), utl::INVALID_SIZE);
        if (!convert(job, converted)) {
            return complainOfLine(input.number(), "cannot be converted", job.input);
        }
        if (!output.writeLine(converted)) {
            return complainOfLine(input.number(), "cannot be written", job.output);
        }
    }
    std::printf("%u lines\n", input.number());
    return EXIT_SUCCESS;
}

// A text type by its name, -1 for none.
int typeOf(char const* name) {
    for (NamedType const& named : TYPES) {
        if (std::strcmp(named.name, name) == 0) {
            return named.type;
        }
    }
    return -1;
}

bool isConversion(char const* name) {
    for (Conversion const& conversion : CONVERSIONS) {
        if (std::strcmp(conversion.name, name) == 0) {
            return true;
        }
    }
    return false;
}

bool parse(int argc, char** argv, Job* job) {
    for (int option = getopt(argc, argv, "f:t:"); option != -1; option = getopt(argc, argv, "f:t:")) {
        if (option != 'f' && option != 't') {
            return false;
        }
        (option == 'f' ? job->fromType : job->toType) = typeOf(optarg);
    }
    for (; optind < argc - 2 && isConversion(argv[optind]) && job->conversionCount < CONVERSION_MAX;
         ++optind) {
        job->conversions[job->conversionCount++] = argv[optind];
    }
    if (optind != argc - 2 || job->fromType < 0 || job->toType < utl::File::TEXT_UTF8) {
        return false;
    }
    job->input = argv[optind];
    job->output = argv[optind + 1];
    return true;
}

// A temporary folder for the converted text, removed at the end.
class DemoFolder {
  public:
    DemoFolder() : mIsThere(mkdtemp(mPath) != nullptr && chdir(mPath) == 0) {}
    ~DemoFolder() {
        if (!mIsThere) {
            return;  // the working folder is another one
        }
        unlink(OUTPUT);
        if (chdir("/") == 0) {
            rmdir(mPath);
        }
    }
    DemoFolder(DemoFolder const&) = delete;
    DemoFolder& operator=(DemoFolder const&) = delete;

    bool isThere() const { return mIsThere; }

    static constexpr char const* OUTPUT = "converted";

  private:
    char mPath[32] = "/tmp/kanaconv-XXXXXX";
    bool mIsThere;
};

void show(char const* path) {
    utl::File file(path, utl::File::TEXT_UTF8);
    char line[LINE_SIZE];
    if (file.open(utl::File::OPEN_KEEP, utl::File::ACCESS_READ) == 1) {
        while (file.readLine(line, LINE_SIZE, nullptr) >= 0) {
            std::printf("    %s\n", line);
        }
    }
}

int demo() {
    DemoFolder const folder;
    if (!folder.isThere()) {
        return complain("cannot make", "a folder");
    }
    for (char const* const conversion : {"", "full", "half", "hiragana"}) {
        Job job;
        job.conversions[0] = conversion;
        job.conversionCount = *conversion != '\0' ? 1 : 0;
        job.input = EXAMPLE_SJIS_TEXT;
        job.output = DemoFolder::OUTPUT;
        std::printf("Shift-JIS to UTF-8%s%s: ", *conversion != '\0' ? ", " : "", conversion);
        if (run(job) != EXIT_SUCCESS) {
            return EXIT_FAILURE;
        }
        show(job.output);
    }
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 1) {
        return demo();
    }
    Job job;
    if (!parse(argc, argv, &job)) {
        std::fprintf(stderr,
                     "usage: kanaconv [-f sjis|utf8|utf16be|utf16le] [-t utf8|utf16be|utf16le]\n"
                     "                [full|half|hiragana|katakana|upper|lower]... INPUT OUTPUT\n");
        return 2;
    }
    return run(job);
}
