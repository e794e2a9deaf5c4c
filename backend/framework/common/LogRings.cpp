#include "LogRings.h"

ZTCLogRing* ZTCLogRings::takeFree() {
    for (std::size_t lAt = 1; lAt < Count; ++lAt) {
        auto lState = ZTCLogRing::State::Free;
        if (mRings[lAt].mState.compare_exchange_strong(lState, ZTCLogRing::State::Owned,
                                                       std::memory_order_acquire)) {
            std::size_t lTaken = mTaken.load(std::memory_order_relaxed);
            while (lTaken < lAt && !mTaken.compare_exchange_weak(lTaken, lAt, std::memory_order_release)) {
            }
            return &mRings[lAt];
        }
    }
    return nullptr;
}

void ZTCLogRings::keepOnly(const ZTCLogRing* apMine, bool aWithRecords) {
    for (ZTCLogRing& lrRing : mRings) {
        const bool lIsMine = &lrRing == apMine;
        if (!lIsMine || !aWithRecords) {
            lrRing.clear();
        }
        lrRing.mState.store(lIsMine ? ZTCLogRing::State::Owned : ZTCLogRing::State::Free,
                            std::memory_order_relaxed);
    }
}
