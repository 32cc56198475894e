#pragma once

namespace utl {

/// Returns what `(object->*operation)(args...)` returns; false, with nothing called, for a null `object`.
template <typename T, typename OPERATION, typename... ARGS>
bool callIfPresent(T* object, OPERATION operation, ARGS const&... args) {
    return object != nullptr && (object->*operation)(args...);
}

}  // namespace utl
