#include "internal/file/UtlWidenedParent.h"

#include "UtlFile.h"

namespace utl {

namespace {

constexpr int WIDE_MODE = 0777;

}  // namespace

WidenedParent::WidenedParent(char const* path)
    : mPath(path),
      mIsWidened(File::changeParentAccessMode(path, WIDE_MODE, &mMode) != 0),
      mIsDue(mIsWidened) {}

void WidenedParent::restore() {
    if (mIsDue) {
        File::changeParentAccessMode(mPath, mMode, nullptr);
    }
    mIsDue = false;
}

}  // namespace utl
