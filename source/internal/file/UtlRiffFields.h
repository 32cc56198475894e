#pragma once

namespace utl {

class File;

/// Ids and the form type take 4 bytes in the file, padded with blanks; as texts they have a terminator and no
/// blanks at their end.
constexpr unsigned int RIFF_ID_BYTES = 4;
using RiffIdText = char[RIFF_ID_BYTES + 1];

/// Bytes of a size in the file, low byte first.
constexpr unsigned int RIFF_SIZE_BYTES = 4;

/// Bytes before the data of a sub-chunk: its id and the size of its data.
constexpr unsigned int RIFF_HEADER_BYTES = RIFF_ID_BYTES + RIFF_SIZE_BYTES;

/// True for the numbers of the modes, dispositions and accesses of containers.
constexpr bool isZeroOrOne(int value) {
    return value == 0 || value == 1;
}

/// Makes `padded` the form that `text` has in files. False for more than 4 bytes.
bool padRiffId(RiffIdText& padded, char const* text);

/// Makes `text` the copy of `id` without blanks at its end. False, and `text` is empty, if `id` is not UTF-8.
bool trimRiffId(RiffIdText& text, char const* id);

/// Makes `text` of the bytes of a file, blanks included. False if they cannot be the beginning of a text.
bool decodeRiffId(RiffIdText& text, char const* bytes);

/// Writes exactly `length` bytes at the file's position; false if only a part of them was written.
bool writeRiffBytes(File* file, void const* bytes, unsigned int length);

/// Writes a size at the file's position, as `writeRiffBytes`.
bool writeRiffSize(File* file, unsigned int size);

/// Reads exactly `length` bytes. Returns 0; `File::END_OF_FILE` at the end of the file, and -1 otherwise.
int readRiffBytes(File* file, void* bytes, unsigned int length);

/// Reads a size at the file's position, with the results of `readRiffBytes`.
int readRiffSize(File* file, unsigned int* size);

}  // namespace utl
