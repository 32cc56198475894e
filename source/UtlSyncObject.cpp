#include "UtlSyncObject.h"

namespace utl {

SyncObject::SyncObject() {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&mMutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

SyncObject::~SyncObject() {
    pthread_mutex_destroy(&mMutex);
}

}  // namespace utl
