#include "UtlWorkingBuffer.h"

#include "UtlProcessWide.h"

namespace utl {

StaticBuffer& StaticBuffer::get() {
    struct TheBuffer final : StaticBuffer {};
    static ProcessWide<TheBuffer> lTheBuffer;
    return *lTheBuffer;
}

char* StaticBuffer::takeSlot() {
    int const depth = mDepth++;
    int const lastSlot = static_cast<int>(SLOT_COUNT) - 1;
    return mBuffers[depth < 0 ? 0 : depth < lastSlot ? depth : lastSlot];
}

void StaticBuffer::giveSlotBack() {
    --mDepth;
}

template <typename T>
WorkingBuffer<T>::WorkingBuffer() : mStaticBuffer(&StaticBuffer::get()) {
    mStaticBuffer->mSyncObject.lock();
    mpSlot = mStaticBuffer->takeSlot();
}

template <typename T>
WorkingBuffer<T>::~WorkingBuffer() {
    mStaticBuffer->giveSlotBack();
    mStaticBuffer->mSyncObject.unlock();
}

template class WorkingBuffer<char>;

}  // namespace utl
