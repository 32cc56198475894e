#include "UtlSmartPointer.h"

#include <unistd.h>

#include "UtlLog.h"

namespace utl {

template class Counting<int, DestructCloseFile>;
template class SmartHandle<DestructCloseFile>;

RefCounter::~RefCounter() = default;

int RefCounter::increment() {
    return add(1);
}

int RefCounter::decrement() {
    return add(-1);
}

int RefCounter::getCount() const {
    SyncGuard const guard(mSyncObject);
    return mCount;
}

int RefCounter::add(int difference) {
    SyncGuard const guard(mSyncObject);
    mCount += difference;
    return mCount;
}

GetRefCounterInterface::~GetRefCounterInterface() = default;

namespace detail {

RefCounter* newRefCounter() {
    return addShare(new RefCounter);
}

RefCounter* addShare(RefCounter* counter) {
    if (counter != nullptr) {
        counter->increment();
    }
    return counter;
}

bool removeShare(RefCounter* counter, char const* className) {
    if (counter == nullptr) {
        return false;
    }
    // The lock is released by now: only the thread that sees 0 may touch the counter again.
    int const lRefCount = counter->decrement();
    if (lRefCount < 0) {
        applog(LOG_TYPE_LIBRARY, LOG_LEVEL_ERROR, "lRefCount(%d) < 0 in %s::release()", lRefCount, className);
    }
    return lRefCount == 0;
}

}  // namespace detail

// Not in a keep-alive bracket: handles are released anywhere, also on threads that have no alive time, and
// users take the device into account where they close a file.
void DestructCloseFile::operator()(int handle) const {
    if (handle != 0 && handle != -1) {
        fsync(handle);
        close(handle);
    }
}

}  // namespace utl
