#include "UtlWorkingBuffer.h"

#include <algorithm>
#include <iterator>

#include "internal/base/UtlProcessWide.h"

namespace utl {

StaticBuffer& StaticBuffer::get() {
    struct TheBuffer final : StaticBuffer {};
    static ProcessWide<TheBuffer> lTheBuffer;
    return *lTheBuffer;
}

void StaticBuffer::lendTo(void const* borrower) {
    int const depth = mDepth++;
    if (depth <= 0) {
        mBorrowers[0] = borrower;
    } else if (depth == 1) {
        mBorrowers[mBorrowers[1] == nullptr ? 1 : 2] = borrower;
    }
}

void StaticBuffer::takeBackFrom(void const* borrower) {
    std::replace(std::begin(mBorrowers), std::end(mBorrowers), borrower, static_cast<void const*>(nullptr));
    --mDepth;
}

template <typename T>
WorkingBuffer<T>::WorkingBuffer() : mStaticBuffer(&StaticBuffer::get()) {
    mStaticBuffer->mSyncObject.lock();
    mStaticBuffer->lendTo(this);
}

template <typename T>
WorkingBuffer<T>::~WorkingBuffer() {
    mStaticBuffer->takeBackFrom(this);
    mStaticBuffer->mSyncObject.unlock();
}

template class WorkingBuffer<char>;

}  // namespace utl
