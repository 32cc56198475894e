#pragma once

/// Marks what the library exports; everything else stays inside it.
#define UTL_API [[gnu::visibility("default")]]

/// The same in front of the name in `extern template class`, where not every compiler takes the form above.
#define UTL_API_INSTANCE __attribute__((visibility("default")))

/// Code pages of the replaceable converter. The library itself only ever asks for UTF-8.
enum EN_KCP { EN_KCP_UTF8 = 32 };

extern "C" {

/// Sink for log lines of level 1 to 3. The library always passes channel 3 and the length of `text` without
/// its terminator. The built-in sink drops the text; a program replaces it by defining a function of
/// this name, another library does if it is linked in front of this one. It is called under the log's output
/// lock, so it must not log itself into a dead end: it may be entered from any thread, one thread at a time.
UTL_API void BinaryLogWrite(int channel, const void* text, unsigned int bytes);

/// Converts the `srcBytes` bytes of text at `src` to wide characters. `dstCount` counts wide characters.
/// Gives the number of wide characters written, and 0 on failure. A terminator counts only if `src` has it
/// among its bytes; the library terminates the text itself. Replaceable like `BinaryLogWrite`.
///
/// The built-in converter terminates the text as well if there is room behind it. It knows `EN_KCP_UTF8`
/// alone and takes it strictly: text that is malformed, holds a surrogate or goes beyond U+10FFFF fails, and
/// so do empty text, a null pointer and too little room; nothing is written then.
UTL_API int jk_mbtowc(wchar_t* dst, unsigned int dstCount, char const* src, unsigned int srcBytes,
                      EN_KCP codePage);

/// Converts the `srcCount` wide characters at `src` to text of the code page. `dstBytes` counts bytes. Gives
/// the number of bytes written, 0 on failure; all else is as for `jk_mbtowc`, also for a negative `srcCount`.
UTL_API int jk_wctomb(char* dst, unsigned int dstBytes, wchar_t const* src, int srcCount, EN_KCP codePage);
}

namespace utl {

/// A byte of text in the form that the library keeps it in, UTF-8.
using tchar = char;

/// All bits set: the failure result of every function that gives a size or an offset, and, as a length
/// argument, "to the end".
inline constexpr unsigned int INVALID_SIZE = ~0U;

}  // namespace utl
