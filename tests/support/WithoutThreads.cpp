// Part of each test program whose file says that it starts no thread: whoever starts one ends the program.

#include <pthread.h>

#include <cstdio>
#include <cstdlib>

extern "C" int pthread_create(pthread_t*, pthread_attr_t const*, void* (*)(void*), void*) noexcept {
    std::fputs("A thread was started by a test whose file begins with \"Starts no thread.\"\n", stderr);
    std::abort();
}
