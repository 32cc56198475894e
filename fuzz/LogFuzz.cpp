// Log lines whose formats and arguments come from a stranger, beside the lines that they should give in each
// sink. A format has only conversions that its arguments fit.

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "Fuzz.h"
#include "UtlLog.h"
#include "UtlPlatform.h"

namespace {

using fuzz::Input;

constexpr int TYPE = 77;

std::string gBinary;

/// The arguments of every line, in the order in which each format takes them.
struct Arguments {
    int number;
    std::string text;
    long long big;
    double real;
};

// A conversion with flags, width and precision of the input, and the length that its argument has.
std::string conversion(Input* input, char const* length, char const* kinds) {
    static char const FLAGS[] = "-+ #0'";
    std::string result = "%";
    for (unsigned int i = input->upTo(2); i > 0; --i) {
        result += FLAGS[input->upTo(sizeof(FLAGS) - 2)];
    }
    unsigned int const width = input->upTo(3);
    result += width == 0 ? "" : std::to_string(width == 3 ? input->upTo(400) : width);
    result += input->flag() ? "." + std::to_string(input->upTo(300)) : "";
    return result + length + kinds[input->upTo(static_cast<unsigned int>(std::strlen(kinds)) - 1)];
}

// Literal text, in which percent signs are doubled or stand for the text of `errno`.
std::string literal(Input* input) {
    std::string result;
    for (char const c : fuzz::anyText(input, 200)) {
        result += c != '%' ? std::string(1, c) : input->flag() ? "%%" : "%m";
    }
    return result;
}

std::string formatFrom(Input* input) {
    std::string format = literal(input);
    format += conversion(input, "", "dixXuoc") + literal(input);
    format += conversion(input, "", "s") + literal(input);
    format += conversion(input, "ll", "dixXuo") + literal(input);
    return format + conversion(input, "", "feEgGaA") + literal(input);
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

std::string formatted(char const* format, Arguments const& arguments) {
    char text[8192] = "";
    int const length = std::snprintf(text, sizeof(text), format, arguments.number, arguments.text.c_str(),
                                     arguments.big, arguments.real);
    FUZZ_EXPECT(length >= 0 && length < static_cast<int>(sizeof(text)));
    return {text, static_cast<size_t>(length)};
}

void log(bool isRaw, int level, char const* format, Arguments const& arguments) {
    (isRaw ? static_cast<void (*)(int, int, char const*, ...)>(rawlog)
           : static_cast<void (*)(int, int, char const*, ...)>(applog))(
        TYPE, level, format, arguments.number, arguments.text.c_str(), arguments.big, arguments.real);
}

#pragma GCC diagnostic pop

// What reaches the sink of binary lines. A text that is cut, and one that ends at a zero, are no longer than
// these.
void expectRaw(std::string const& message) {
    std::string const expected = message.size() > 255 ? message.substr(0, 252) + "..." : message;
    FUZZ_EXPECT(gBinary == expected.c_str() ||
                (message.find('\0') != std::string::npos && message.size() > 255));
}

// A stamp, as "Nov 22 11:02:33.123 ", comes first.
void expectLine(std::string const& head, std::string const& message) {
    static constexpr size_t STAMP = 20;
    FUZZ_EXPECT(gBinary.size() >= STAMP + head.size() && gBinary.size() <= 255);
    FUZZ_EXPECT(gBinary.substr(gBinary.size() - 2) == "\r\n");
    size_t const room = utl::LOG_LINE_LENGTH_MAX - STAMP - head.size();
    std::string const expected =
        head + (message.size() > room ? message.substr(0, room - 3) + "..." : message.c_str());
    FUZZ_EXPECT(gBinary.substr(STAMP, gBinary.size() - STAMP - 2) == expected ||
                (message.find('\0') != std::string::npos && message.size() > room));
}

}  // namespace

extern "C" void BinaryLogWrite(int channel, void const* text, unsigned int bytes) {
    FUZZ_EXPECT(channel == 3 && bytes == std::strlen(static_cast<char const*>(text)));
    gBinary.assign(static_cast<char const*>(text), bytes);
}

// The system log gets a format without arguments, so that nothing but "%%" and "%m" may be in it.
extern "C" void syslog(int, char const* format, ...) {
    for (char const* at = std::strchr(format, '%'); at != nullptr; at = std::strchr(at + 2, '%')) {
        FUZZ_EXPECT(at[1] == '%' || at[1] == 'm');
    }
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    static char const* const PREFIXES[] = {"", "ERR: ", "WRN: ", "INF: "};
    Input input(data, size);
    std::string const name = input.text(40);
    bool const isNamed = registerLogType(TYPE, fuzz::exactly(name).get(), utl::LOG_LEVEL_DEBUG) == 1;
    FUZZ_EXPECT(isNamed == (name.size() <= utl::LOG_NAME_LENGTH_MAX));
    if (!isNamed) {
        registerLogType(TYPE, "", utl::LOG_LEVEL_DEBUG);
    }
    auto const level = static_cast<int>(input.upTo(2)) + 1;
    bool const isRaw = input.flag();
    auto const number = input.number<int>();
    auto const big = input.number<long long>();
    double const real = static_cast<double>(input.number<long long>()) / 1024;
    Arguments const arguments{number, fuzz::anyText(&input, 250), big, real};
    std::string const format = formatFrom(&input);
    gBinary.clear();
    errno = ENOENT;
    std::string const message = formatted(format.c_str(), arguments);
    errno = ENOENT;
    log(isRaw, level, fuzz::exactly(format).get(), arguments);
    FUZZ_EXPECT(errno == ENOENT);
    if (isRaw) {
        expectRaw(message);
    } else {
        expectLine((isNamed ? name : "") + PREFIXES[level], message);
    }
    return 0;
}
