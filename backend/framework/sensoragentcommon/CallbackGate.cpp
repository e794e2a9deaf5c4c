#include "CallbackGate.h"

namespace {

constinit std::atomic<unsigned int> sNextSlot{0};

}  // namespace

std::atomic<unsigned int>& ZTCCallbackGate::ownSlot() {
    constinit static thread_local unsigned int sSlot = Slots;
    if (sSlot == Slots) {
        sSlot = sNextSlot.fetch_add(1, std::memory_order_relaxed) % Slots;
    }
    return mSlots[sSlot].mInside;
}

unsigned int ZTCCallbackGate::countInside() const {
    unsigned int lCount = 0;
    for (const Slot& lrSlot : mSlots) {
        lCount += lrSlot.mInside.load();
    }
    return lCount;
}

unsigned int ZTCCallbackGate::waitUntilEmpty(std::chrono::milliseconds aTime) {
    const timespec lDeadline = OsDeadlineIn(aTime);
    const ZTCScopedLock lLock(mHasLeft.getMutex());
    for (;;) {
        const unsigned int lInside = countInside();
        if (lInside == 0) {
            return 0;
        }
        try {
            mHasLeft.waitUntil(lDeadline);
        } catch (const ZTCTimeOutEx&) {
            return lInside;
        }
    }
}
