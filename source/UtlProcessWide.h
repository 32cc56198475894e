#pragma once

#include <new>
#include <utility>

namespace utl {

/// Holds a process-wide object that is built once and never destroyed. Threads of the library may still run
/// while the process leaves `main`; what they reach must outlive every exit handler.
///
/// Use it for namespace-scope objects, for static members, and as a function-local static where another
/// file's static initialiser may come first.
template <typename T>
class ProcessWide {
  public:
    template <typename... ARGS>
    explicit ProcessWide(ARGS&&... args) {
        new (mStorage) T(std::forward<ARGS>(args)...);
    }
    ProcessWide(ProcessWide const&) = delete;
    ProcessWide& operator=(ProcessWide const&) = delete;

    T& operator*() { return *std::launder(reinterpret_cast<T*>(mStorage)); }
    T* operator->() { return &**this; }

  private:
    alignas(T) unsigned char mStorage[sizeof(T)];
};

}  // namespace utl
