#pragma once

#include <new>
#include <utility>

/// In front of a variable: it is filled before any code runs, or the compiler refuses it.
#ifdef __clang__
#define UTL_CONSTINIT [[clang::require_constant_initialization]]
#else
#define UTL_CONSTINIT __constinit
#endif

namespace utl {

/// Holds a process-wide object that is built once and never destroyed. Threads of the library may still run
/// while the process leaves `main`; what they reach must outlive every exit handler.
///
/// Use it for namespace-scope objects, and as a function-local static where another file's static initialiser
/// may come first.
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

/// Holds a process-wide object that a constant expression makes, and that is never destroyed: a union's
/// member is destroyed by nobody. Behind `UTL_CONSTINIT` every static initialiser of every file may use it.
template <typename T>
union ProcessWideConstant {
    template <typename... ARGS>
    explicit constexpr ProcessWideConstant(ARGS... args) : mValue(args...) {}
    ~ProcessWideConstant() {}
    ProcessWideConstant(ProcessWideConstant const&) = delete;
    ProcessWideConstant& operator=(ProcessWideConstant const&) = delete;

    T mValue;
};

}  // namespace utl
