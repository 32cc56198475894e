#pragma once

#include <stdio.h>
#include <unistd.h>

#include <cstdlib>

#include "TestHooks.h"

namespace utltest {

/// Exits with 3 if `work` could still use the library and the library had destroyed no mutex by then, with 1
/// otherwise. `work` runs after every exit handler and every destructor: the last step of a process is to
/// flush its streams, and one of them calls `work`.
[[noreturn]] inline void exitAndCheckLast(bool (*work)()) {
    static bool (*theWork)();
    theWork = work;
    hooks::mutexDestroy.reset();
    cookie_io_functions_t functions = {};
    functions.write = [](void*, char const*, size_t) -> ssize_t {
        _exit(theWork() && hooks::mutexDestroy.calls() == 0 ? 3 : 1);
    };
    std::fputc('x', fopencookie(nullptr, "w", functions));
    std::exit(2);
}

}  // namespace utltest
