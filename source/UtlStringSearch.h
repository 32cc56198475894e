#pragma once

#include "UtlPlatform.h"

namespace utl {

/// `t_strstr` from the first character that starts at or after `start`. `*next`, if given, becomes the offset
/// behind the match; `INVALID_SIZE` if there is none or `sub` is empty. A `start` beyond the end gives
/// `INVALID_SIZE` and leaves `*next` alone. Neither text may be null.
unsigned int findStr(char const* text, char const* sub, unsigned int start, unsigned int* next);

}  // namespace utl
