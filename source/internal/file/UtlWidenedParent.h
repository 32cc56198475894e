#pragma once

namespace utl {

/// Makes the mode of a path's folder 0777 and puts it back at the end of the scope; *one owner thread*. Where
/// the folder cannot be widened nothing is put back, and a line of level 5 tells at most that the folder was
/// not found: the call that needs it will fail.
class [[nodiscard]] WidenedParent {
  public:
    /// `path` must live as long as this.
    explicit WidenedParent(char const* path);
    ~WidenedParent() { restore(); }
    WidenedParent(WidenedParent const&) = delete;
    WidenedParent& operator=(WidenedParent const&) = delete;

    /// Puts the mode back now in place of at the end.
    void restore();

    /// Puts the mode back at the end even though `restore` has done so.
    void restoreAgainAtEnd() { mIsDue = mIsWidened; }

  private:
    char const* const mPath;
    int mMode = 0;
    bool const mIsWidened;
    bool mIsDue;
};

}  // namespace utl
