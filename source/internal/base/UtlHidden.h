#pragma once

/// Keeps a nested type of a class that the shared library exports to the library itself.
#define UTL_HIDDEN [[gnu::visibility("hidden")]]
