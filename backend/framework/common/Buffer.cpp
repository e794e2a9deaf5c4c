#include "Buffer.h"

#include <algorithm>

ZTCBuffer::ZTCBuffer(unsigned int aRoom)
    : mpBytes(static_cast<unsigned char*>(malloc(std::max(aRoom, 1U)))), mRoom(aRoom) {
    if (mpBytes == nullptr) {
        throwNoMemory();
    }
}

void ZTCBuffer::grow(unsigned int aLength) {
    const unsigned int lDouble = mRoom > MaxLength / 2 ? MaxLength : 2 * mRoom;
    const unsigned int lRoom = std::max(aLength, lDouble);
    auto* const lpBytes = static_cast<unsigned char*>(realloc(mpBytes, lRoom));
    if (lpBytes == nullptr) {
        throwNoMemory();
    }
    mpBytes = lpBytes;
    mRoom = lRoom;
}
