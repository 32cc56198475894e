#pragma once

#include <cerrno>

namespace utl {

/// Saves `errno` at the construction and restores it at the end of the scope; *one owner thread*, because
/// `errno` is the thread's own.
class [[nodiscard]] SavedErrno {
  public:
    SavedErrno() : mError(errno) {}
    ~SavedErrno() { restore(); }
    SavedErrno(SavedErrno const&) = delete;
    SavedErrno& operator=(SavedErrno const&) = delete;

    /// Restores it before the end, for a callee that looks at it.
    void restore() const { errno = mError; }

  private:
    int const mError;
};

}  // namespace utl
