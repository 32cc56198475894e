#pragma once

/// Marks what the library exports; everything else stays inside it.
#define UTL_API [[gnu::visibility("default")]]

/// The same before the name in `extern template class`, where not every compiler takes the form above.
#define UTL_API_INSTANCE __attribute__((visibility("default")))

/// Code pages of the replaceable converter. The library asks for UTF-8 only.
enum EN_KCP { EN_KCP_UTF8 = 32 };

extern "C" {

/// Sink for log lines of level 1 to 3. The library always passes channel 3 and the length of `text` without
/// its terminator. The built-in sink drops the text. A program replaces it by defining a function of this
/// name; so does another library that is linked before this one. It is called on any thread, but under the
/// log's output lock, so on one thread at a time: it must not wait for a thread that logs, and must not log
/// without end.
UTL_API void BinaryLogWrite(int channel, const void* text, unsigned int bytes);

/// Converts the `srcBytes` bytes of text at `src` to wide characters. `dstCount` counts wide characters.
/// Returns the number of wide characters written, and 0 on failure. A terminator counts only if it is among
/// the bytes of `src`; the library terminates the text itself. Replaceable like `BinaryLogWrite`.
///
/// The built-in converter terminates the text as well if there is room after it. It knows `EN_KCP_UTF8` only,
/// and is strict: it fails for text that is malformed or holds a surrogate or a value above U+10FFFF, for
/// empty text, a null pointer and too little room. It writes nothing then.
UTL_API int jk_mbtowc(wchar_t* dst, unsigned int dstCount, char const* src, unsigned int srcBytes,
                      EN_KCP codePage);

/// Converts the `srcCount` wide characters at `src` to text of the code page. `dstBytes` counts bytes.
/// Returns the number of bytes written, 0 on failure, as for a negative `srcCount`. All else is as for
/// `jk_mbtowc`.
UTL_API int jk_wctomb(char* dst, unsigned int dstBytes, wchar_t const* src, int srcCount, EN_KCP codePage);
}

namespace utl {

/// A byte of text as the library keeps it: in UTF-8.
using tchar = char;

/// All bits set: the failure result of every function that returns a size or an offset. As a length argument
/// it is "to the end".
inline constexpr unsigned int INVALID_SIZE = ~0U;

}  // namespace utl
