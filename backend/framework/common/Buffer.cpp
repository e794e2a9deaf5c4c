#include "Buffer.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>

namespace {

// Has the system map the whole pages of a large piece of memory that will be written anyway: page by page, as
// they are touched, that takes longer than writing them. A system that cannot does so page by page.
void sMapAtOnce(unsigned char* apBytes, std::size_t aCount) {
    constexpr std::size_t lLarge = 256 * 1024;
    static const auto sPage = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const std::uintptr_t lFrom = (reinterpret_cast<std::uintptr_t>(apBytes) + sPage - 1) & ~(sPage - 1);
    const std::uintptr_t lEnd = (reinterpret_cast<std::uintptr_t>(apBytes) + aCount) & ~(sPage - 1);
    if (aCount >= lLarge) {
        madvise(reinterpret_cast<void*>(lFrom), lEnd - lFrom, MADV_POPULATE_WRITE);
    }
}

}  // namespace

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
    sMapAtOnce(lpBytes + mLength, lRoom - mLength);
}
