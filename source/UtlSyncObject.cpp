#include "UtlSyncObject.h"

#include "internal/base/UtlRecursiveMutex.h"

namespace utl {

SyncObject::SyncObject() {
    initializeRecursiveMutex(mMutex);
}

SyncObject::~SyncObject() {
    pthread_mutex_destroy(&mMutex);
}

}  // namespace utl
