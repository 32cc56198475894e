#pragma once

#include <new>
#include <utility>

/// Before a variable: the compiler requires that it is initialised before any code runs.
#ifdef __clang__
#define UTL_CONSTINIT [[clang::require_constant_initialization]]
#else
#define UTL_CONSTINIT __constinit
#endif

namespace utl {

/// Holds a process-wide object that is constructed once and never destroyed. Threads of the library may still
/// run while the process leaves `main`; what they use must outlive every exit handler.
///
/// Use it for namespace-scope objects, and as a function-local static if another file's static initialiser
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

/// Holds a process-wide object that a constant expression initialises, and that is never destroyed, because a
/// union does not destroy its member. With `UTL_CONSTINIT` every static initialiser of every file may use it.
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
