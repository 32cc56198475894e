#include "UtlSyncObject.h"

#include <mutex>

#include "BenchRatio.h"

namespace {

utl::SyncObject gLock;
std::recursive_mutex gStandardLock;

UTL_RATIO_CPU(
    "lock for a scope and unlock, to std::recursive_mutex", [] { utl::SyncGuard const guard(gLock); },
    [] { std::lock_guard<std::recursive_mutex> const guard(gStandardLock); }, 1.2);

}  // namespace
