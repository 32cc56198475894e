#pragma once

#include "UtlPlatform.h"

// The process-wide log; *internally locked*, because all threads share it. It can be called under any lock,
// in a static initialiser and while the process ends. Its two locks are the innermost of the library.
//
// A line passes if the filter level of its type is at least its own level. A type that is not registered
// passes by the entry of `utl::LOG_TYPE_DEFAULT` and has no name. A line that passes goes to these sinks, in
// this order:
//
// | Level | Prefix  | System log    | Standard output | `BinaryLogWrite` |
// |-------|---------|---------------|-----------------|------------------|
// | 0     | "NO : " | never         | never           | never            |
// | 1     | "ERR: " | `LOG_ERR`     | yes             | yes              |
// | 2     | "WRN: " | `LOG_WARNING` | yes             | yes              |
// | 3     | "INF: " | `LOG_INFO`    | yes             | yes              |
// | 4     | "DTL: " | no            | yes             | no               |
// | 5     | "DBG: " | no            | yes             | no               |

namespace utl {

class File;

/// Types that exist once the library is loaded: the entry for all types that are not registered, without a
/// name, and the library's own, "<UTIL> ". Both begin with the filter level `LOG_LEVEL_DETAIL`.
inline constexpr int LOG_TYPE_DEFAULT = -1;
inline constexpr int LOG_TYPE_LIBRARY = -2;

/// Levels of a line. As a filter level, `LOG_LEVEL_NONE` silences a type and `LOG_LEVEL_DEBUG` passes all
/// lines.
inline constexpr int LOG_LEVEL_NONE = 0;
inline constexpr int LOG_LEVEL_ERROR = 1;
inline constexpr int LOG_LEVEL_WARNING = 2;
inline constexpr int LOG_LEVEL_INFO = 3;
inline constexpr int LOG_LEVEL_DETAIL = 4;
inline constexpr int LOG_LEVEL_DEBUG = 5;

/// What `getFilterLevel` returns for a type that is not registered.
inline constexpr int LOG_LEVEL_UNREGISTERED = 6;

/// Most types that can be registered, the two built-in ones included.
inline constexpr unsigned int LOG_TYPE_MAX = 64;

/// Most bytes of a type's name or of the tag, without the terminator.
inline constexpr unsigned int LOG_NAME_LENGTH_MAX = 31;

/// Most bytes of a line of `applog` before its CR LF, and of a text of `rawlog`.
inline constexpr unsigned int LOG_LINE_LENGTH_MAX = 253;
inline constexpr unsigned int LOG_RAW_LENGTH_MAX = 255;

}  // namespace utl

/// Writes one line: "Nov 20 23:25:41.123 ", the type's name, the prefix of the level, the message, CR LF. The
/// system log gets name, prefix and message alone. A level outside 0 to 5 counts as 5. Nothing happens for a
/// line that is filtered out or has a null `format`.
///
/// A line that is longer than `utl::LOG_LINE_LENGTH_MAX` is cut there, between any two bytes, and ends in
/// "..."; a message that cannot be formatted ends in "..." after what could be. The system log and standard
/// output format the finished text once more: "%%" becomes "%" and "%m" the text of the caller's `errno`;
/// every other percent sign stays. `errno` is preserved.
///
/// Uses no memory from the heap, but about 1.2 KiB of stack besides what the C library needs. Blocks while
/// another thread is at a sink. In a signal handler it is no safer than `printf`.
UTL_API void applog(int type, int level, char const* format, ...) __attribute__((format(printf, 3, 4)));

/// As `applog`, with the message alone: no stamp, name, prefix or line end. A text that is longer than
/// `utl::LOG_RAW_LENGTH_MAX` is cut there and ends in "...".
UTL_API void rawlog(int type, int level, char const* format, ...) __attribute__((format(printf, 3, 4)));

///@{
/// With a file as one more sink, between the system log and standard output and at every level that passes.
/// `File::writeText` writes to it, in its own encoding, the text of standard output before that is formatted
/// once more. No lock is held meanwhile: the file must be the caller's own. The result of `writeText` is
/// ignored; lines about a failure come before this one on standard output and do not reach the file. The
/// write uses more stack, and for UTF-16 memory from the heap. A null `file` is none.
UTL_API void applog(int type, int level, utl::File* file, char const* format, ...)
    __attribute__((format(printf, 4, 5)));
UTL_API void rawlog(int type, int level, utl::File* file, char const* format, ...)
    __attribute__((format(printf, 4, 5)));
///@}

/// Adds a type, or changes the name and filter level of a registered one. The name is written before the
/// prefix exactly as given, so it includes its own blank. A level outside 0 to 4 counts as 5. Returns 1; 0
/// with nothing changed if `name` is null or longer than `utl::LOG_NAME_LENGTH_MAX`, or if
/// `utl::LOG_TYPE_MAX` other types are registered. A type stays registered permanently.
UTL_API int registerLogType(int type, char const* name, int filterLevel);

/// Sets the filter level of every type, the built-in ones included. A level outside 0 to 4 counts as 5.
UTL_API void setAllFilterLevel(int level);

/// Sets the filter level of a registered type; no effect on one that is not. A level outside 0 to 4 counts
/// as 5.
UTL_API void setFilterLevel(int type, int level);

/// The filter level of a registered type, else `utl::LOG_LEVEL_UNREGISTERED`: the default entry does not
/// count.
UTL_API int getFilterLevel(int type);

/// Stores the tag of the process. Returns 1; 0 with the tag unchanged if `tag` is null or longer than
/// `utl::LOG_NAME_LENGTH_MAX`. No line shows it.
UTL_API int setLogTag(char const* tag);
