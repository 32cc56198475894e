#pragma once

#include "UtlPlatform.h"

namespace utl {
class File;
}

UTL_API void applog(int type, int level, char const* format, ...) __attribute__((format(printf, 3, 4)));
UTL_API void rawlog(int type, int level, char const* format, ...) __attribute__((format(printf, 3, 4)));
UTL_API int registerLogType(int type, char const* name, int filterLevel);
UTL_API void setAllFilterLevel(int level);
UTL_API void setFilterLevel(int type, int level);
UTL_API int getFilterLevel(int type);
UTL_API int setLogTag(char const* tag);
