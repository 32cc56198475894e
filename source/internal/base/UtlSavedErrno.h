#pragma once

#include <cerrno>

namespace utl {

/// Keeps `errno` as it is at the construction: the end of the scope puts it back; *one owner thread*, because
/// `errno` is the thread's own.
class [[nodiscard]] SavedErrno {
  public:
    SavedErrno() : mError(errno) {}
    ~SavedErrno() { restore(); }
    SavedErrno(SavedErrno const&) = delete;
    SavedErrno& operator=(SavedErrno const&) = delete;

    /// Puts it back before the end, for a callee that looks at it.
    void restore() const { errno = mError; }

  private:
    int const mError;
};

}  // namespace utl
