#pragma once

#include <memory>
#include <utility>

#include "UtlEvent.h"
#include "UtlSmartPointer.h"

namespace utl {

/// Makes `handle`, a counted one, the first owner of `object`. If there is no memory for the counter, it
/// throws, and `object` is deleted.
template <typename HANDLE, typename T>
void adopt(HANDLE* handle, std::unique_ptr<T> object) {
    handle->set(object.get());
    static_cast<void>(object.release());
}

/// The first handle on `event`, as by `adopt`.
inline SmartPointer<Event> share(std::unique_ptr<Event> event) {
    SmartPointer<Event> handle;
    adopt(&handle, std::move(event));
    return handle;
}

}  // namespace utl
