#include "LogRing.h"

#include <cstring>
#include <ctime>
#include <new>

std::uint64_t ztlog::now() {
    timespec lNow;
    clock_gettime(CLOCK_REALTIME, &lNow);
    return static_cast<std::uint64_t>(lNow.tv_sec) * 1000000000 + static_cast<std::uint64_t>(lNow.tv_nsec);
}

ZTCLogRecord& ZTCLogRing::begin(std::size_t aSize, std::uint32_t aThread) {
    std::uint64_t lHead = mHead.load(std::memory_order_relaxed);
    mHead.store(lHead | 1, std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);  // the mark is made before the clock is read
    const std::uint64_t lStamp = ztlog::now();
    if (const std::size_t lFiller = fillerBefore(lHead, aSize); lFiller != 0) [[unlikely]] {
        const std::uint32_t lStart[2] = {static_cast<std::uint32_t>(lFiller), 0};
        memcpy(mBytes + lHead % Capacity, lStart, sizeof lStart);
        lHead += lFiller;
    }
    mBegun = lHead + aSize;
    auto& lrRecord = *new (mBytes + lHead % Capacity) ZTCLogRecord;
    lrRecord.mSize = static_cast<std::uint32_t>(aSize);
    lrRecord.mThread = aThread;
    lrRecord.mStamp = lStamp;
    return lrRecord;
}

const ZTCLogRecord* ZTCLogRing::at(std::uint64_t& arPosition) const {
    std::uint32_t lStart[2];
    memcpy(lStart, mBytes + arPosition % Capacity, sizeof lStart);
    if (lStart[1] == 0) {
        arPosition += lStart[0];
    }
    return std::launder(reinterpret_cast<const ZTCLogRecord*>(mBytes + arPosition % Capacity));
}

void ZTCLogRing::setThread(std::uint32_t aThread) {
    for (std::uint64_t lAt = tail(); lAt != head();) {
        auto& lrRecord = const_cast<ZTCLogRecord&>(*at(lAt));
        lrRecord.mThread = aThread;
        lAt += lrRecord.mSize;
    }
}

void ZTCLogRing::clear() {
    mHead.store(head(), std::memory_order_relaxed);
    setTail(head());
    mSeen = head();
}
