#pragma once

namespace utl {

/// Sets the mode of a path's folder to 0777 and restores it at the end of the scope; *one owner thread*. If
/// the folder cannot be widened nothing is restored, and at most a line of level 5 says that the folder was
/// not found: the call that needs it will fail.
class [[nodiscard]] WidenedParent {
  public:
    /// `path` must live as long as this.
    explicit WidenedParent(char const* path);
    ~WidenedParent() { restore(); }
    WidenedParent(WidenedParent const&) = delete;
    WidenedParent& operator=(WidenedParent const&) = delete;

    /// Restores the mode now instead of at the end.
    void restore();

    /// Restores the mode at the end even if `restore` has done so.
    void restoreAgainAtEnd() { mMustRestore = mIsWidened; }

  private:
    char const* const mPath;
    int mMode = 0;
    bool const mIsWidened;
    bool mMustRestore;
};

}  // namespace utl
