#pragma once

#include <pthread.h>

namespace utl {

/// Initialises a mutex that its holder may take again; the library uses no other kind.
inline void initializeRecursiveMutex(pthread_mutex_t& mutex) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

}  // namespace utl
