#include "internal/file/UtlReadAhead.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace utl {

void ReadAhead::moveTo(long long position) {
    if (mKnowsPosition && position >= mStart && position <= end()) {
        mUsed = static_cast<unsigned int>(position - mStart);
    } else {
        dropBytesAt(position);
    }
    mKnowsPosition = true;
}

void ReadAhead::forgetPosition() {
    dropBytesAt(0);
    mKnowsPosition = false;
}

int ReadAhead::readOn(int descriptor, long long size) {
    std::memmove(mpRoom, bytes(), count());
    mStart += mUsed;
    mFilled -= mUsed;
    mUsed = 0;
    long long const wanted = std::min<long long>(size - end(), mRoomBytes - mFilled);
    if (wanted <= 0) {
        return 0;
    }
    auto const result =
        static_cast<int>(::pread(descriptor, mpRoom + mFilled, static_cast<std::size_t>(wanted), end()));
    mFilled += result > 0 ? static_cast<unsigned int>(result) : 0;
    return result;
}

void ReadAhead::dropBytesAt(long long position) {
    mStart = position;
    mUsed = 0;
    mFilled = 0;
}

void ReadRoom::makeRoom(ReadAhead* ahead, unsigned int neededBytes) {
    ahead->mOwnRoom.reset(new (std::nothrow) char[ReadAhead::BLOCK_BYTES + TEXT_UNIT_BYTES_MAX]);
    if (ahead->mOwnRoom != nullptr) {
        ahead->mpRoom = ahead->mOwnRoom.get();
        ahead->mRoomBytes = ReadAhead::BLOCK_BYTES;
        return;
    }
    if (neededBytes > SPARE_BYTES) {
        mNeeded.reset(new char[neededBytes + TEXT_UNIT_BYTES_MAX]);
    }
    mpAhead = ahead;
    ahead->mpRoom = mNeeded != nullptr ? mNeeded.get() : mSpare;
    ahead->mRoomBytes = std::max(neededBytes, SPARE_BYTES);
}

void ReadRoom::removeRoom() {
    mpAhead->dropBytes();
    mpAhead->mpRoom = nullptr;
    mpAhead->mRoomBytes = 0;
}

}  // namespace utl
