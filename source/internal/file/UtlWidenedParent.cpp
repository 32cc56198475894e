#include "internal/file/UtlWidenedParent.h"

#include "UtlFile.h"

namespace utl {

namespace {

constexpr int WIDE_MODE = 0777;

}  // namespace

WidenedParent::WidenedParent(char const* path)
    : mPath(path),
      mIsWidened(File::changeParentAccessMode(path, WIDE_MODE, &mMode) != 0),
      mMustRestore(mIsWidened) {}

void WidenedParent::restore() {
    if (mMustRestore) {
        File::changeParentAccessMode(mPath, mMode, nullptr);
    }
    mMustRestore = false;
}

}  // namespace utl
