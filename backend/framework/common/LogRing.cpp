#include "LogRing.h"

#include <cstring>
#include <ctime>
#include <new>

namespace {

constexpr std::size_t paddedToWord(std::size_t aSize) {
    return (aSize + 7) & ~std::size_t{7};
}

}  // namespace

std::uint64_t ztlog::now() {
    timespec lNow;
    clock_gettime(CLOCK_REALTIME, &lNow);
    return static_cast<std::uint64_t>(lNow.tv_sec) * 1000000000 + static_cast<std::uint64_t>(lNow.tv_nsec);
}

std::uint32_t ztlog::textLength(const char* apText) {
    return static_cast<std::uint32_t>(strnlen(apText, ZTCLogRing::MaxText + 1));
}

std::size_t ZTCLogRing::sizeOf(const ztlog::Argument* apArguments, unsigned int aCount) {
    std::size_t lSize = sizeof(ZTCLogRecord) + std::size_t{8} * aCount;
    for (unsigned int lAt = 0; lAt < aCount; ++lAt) {
        if (apArguments[lAt].mKind == ztlog::ArgumentKind::Text) {
            lSize += paddedToWord(sizeof(std::uint32_t) + apArguments[lAt].mLength) - 8;
        }
    }
    return lSize;
}

bool ZTCLogRing::hasRoom(std::size_t aSize) {
    const std::uint64_t lHead = mHead.load(std::memory_order_relaxed);
    const std::size_t lToEnd = Capacity - lHead % Capacity;
    const std::size_t lNeeded = aSize <= lToEnd ? aSize : lToEnd + aSize;
    if (lHead + lNeeded - mKnownTail <= Capacity) {
        return true;
    }
    mKnownTail = mTail.load(std::memory_order_acquire);
    return lHead + lNeeded - mKnownTail <= Capacity;
}

void ZTCLogRing::put(std::size_t aSize, std::uint32_t aThread, const ztlog::Site& acrSite,
                     const ztlog::Argument* apArguments, unsigned int aCount) {
    std::uint64_t lHead = mHead.load(std::memory_order_relaxed);
    mHead.store(lHead | 1, std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);  // the mark is made before the clock is read
    const std::uint64_t lStamp = ztlog::now();

    const std::size_t lToEnd = Capacity - lHead % Capacity;
    if (aSize > lToEnd) {
        const std::uint32_t lFiller[2] = {static_cast<std::uint32_t>(lToEnd), 0};
        memcpy(mBytes + lHead % Capacity, lFiller, sizeof lFiller);
        lHead += lToEnd;
    }
    unsigned char* const lpBytes = mBytes + lHead % Capacity;
    auto* const lpRecord =
        new (lpBytes) ZTCLogRecord{static_cast<std::uint32_t>(aSize), aThread, lStamp, acrSite, {}};
    unsigned char* lpAt = lpBytes + sizeof(ZTCLogRecord);
    for (unsigned int lAt = 0; lAt < aCount; ++lAt) {
        const ztlog::Argument& lrArgument = apArguments[lAt];
        lpRecord->mKinds[lAt] = static_cast<unsigned char>(lrArgument.mKind);
        if (lrArgument.mKind == ztlog::ArgumentKind::Text) {
            memcpy(lpAt, &lrArgument.mLength, sizeof lrArgument.mLength);
            memcpy(lpAt + sizeof lrArgument.mLength, lrArgument.mpText, lrArgument.mLength);
            lpAt += paddedToWord(sizeof lrArgument.mLength + lrArgument.mLength);
        } else {
            memcpy(lpAt, &lrArgument.mNumber, sizeof lrArgument.mNumber);
            lpAt += sizeof lrArgument.mNumber;
        }
    }
    mHead.store(lHead + aSize, std::memory_order_release);
}

const ZTCLogRecord* ZTCLogRing::at(std::uint64_t& arPosition) const {
    std::uint32_t lStart[2];
    memcpy(lStart, mBytes + arPosition % Capacity, sizeof lStart);
    if (lStart[1] == 0) {
        arPosition += lStart[0];
    }
    return std::launder(reinterpret_cast<const ZTCLogRecord*>(mBytes + arPosition % Capacity));
}

void ZTCLogRing::clear() {
    mHead.store(head(), std::memory_order_relaxed);
    setTail(head());
    mSeen = head();
    mState.store(State::Free, std::memory_order_relaxed);
}
