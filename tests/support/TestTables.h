#pragma once

// The rows of code and pair tables as numbers: characters that look alike can be distinguished, and nobody
// needs a font to read a failure.

#include <dlfcn.h>
#include <link.h>

#include <cstddef>
#include <cstdio>
#include <string>

#include "TestLayout.h"
#include "UtlAttribConvert.h"
#include "UtlCharAttrib.h"

namespace utltest {

/// The UTF-8 form of a character of up to 16 bits.
inline std::string utf8Of(unsigned int code) {
    auto const byte = [](unsigned int value) { return static_cast<char>(value); };
    if (code < 0x80) {
        return {byte(code)};
    }
    if (code < 0x800) {
        return {byte(0xC0 | code >> 6), byte(0x80 | (code & 0x3F))};
    }
    return {byte(0xE0 | code >> 12), byte(0x80 | (code >> 6 & 0x3F)), byte(0x80 | (code & 0x3F))};
}

/// The characters as four hexadecimal digits each, with "+" between two.
inline std::string codesOf(wchar_t const* text) {
    std::string codes;
    for (; *text != L'\0'; ++text) {
        char code[16] = "";
        std::snprintf(code, sizeof(code), "%s%04X", codes.empty() ? "" : "+",
                      static_cast<unsigned int>(*text));
        codes += code;
    }
    return codes;
}

inline std::string codesOf(utl::CodeTableRow const& row) {
    return codesOf(row.mWide);
}

inline std::string codesOf(utl::PairAttrib const& row) {
    return codesOf(row.mFirst) + '=' + codesOf(row.mSecond);
}

/// All rows of an array except the last, which ends the table, with blanks between them.
template <typename ROW>
std::string codesOf(ROW const* table, std::size_t size) {
    std::string codes;
    for (std::size_t i = 0; i + 1 < size; ++i) {
        codes += (i == 0 ? "" : " ") + codesOf(table[i]);
    }
    return codes;
}

/// True if the narrow form has the characters of the wide one.
inline bool formsAgree(utl::CodeTableRow const& row) {
    std::string narrow;
    for (wchar_t const* character = row.mWide; *character != L'\0'; ++character) {
        narrow += utf8Of(static_cast<unsigned int>(*character));
    }
    return narrow == row.mNarrow;
}

/// A table by its name, with what `codesOf` should return for it.
template <typename ROW>
struct ExpectedTable {
    template <std::size_t SIZE>
    constexpr ExpectedTable(char const* itsName, ROW const (&itsRows)[SIZE], char const* itsCodes)
        : name(itsName), rows(itsRows), size(SIZE), codes(itsCodes) {}

    ROW const& end() const { return rows[size - 1]; }

    char const* name;
    ROW const* rows;
    std::size_t size;
    char const* codes;
};

/// What the dynamic linker knows at this address: the name of the variable and its size.
inline std::string variableAt(void const* address) {
    Dl_info info{};
    ElfW(Sym)* symbol = nullptr;
    bool const isKnown = dladdr1(address, &info, reinterpret_cast<void**>(&symbol), RTLD_DL_SYMENT) != 0;
    return isKnown && info.dli_saddr == address ? info.dli_sname + (' ' + std::to_string(symbol->st_size))
                                                : "nothing";
}

/// The same for an array of a table's name and size.
template <typename ROW>
std::string arrayOf(ExpectedTable<ROW> const& table) {
    std::string const name = table.name;
    return "_ZN3utl" + std::to_string(name.size()) + name + "E " + std::to_string(table.size * sizeof(ROW));
}

/// True if the rows are objects as their constructor makes them, virtual table included.
template <typename ROW>
bool hasConstructedRows(ExpectedTable<ROW> const& table) {
    for (std::size_t i = 0; i < table.size; ++i) {
        ROW const copy(table.rows[i]);
        if (!haveSameBytes(copy, table.rows[i])) {
            return false;
        }
    }
    return true;
}

}  // namespace utltest
