#include "CallbackGate.h"

#include <pthread.h>

#include <ctime>

#include "Os.h"
#include "ThreadsBarrier.h"

constinit thread_local unsigned int ZTCCallbackGate::tSlot = Slots;
constinit std::atomic<bool> ZTCCallbackGate::sIsTaken[SharedSlot]{};

void ZTCCallbackGate::open() {
    static const bool sHasBarrier = OsInitThreadsBarrier();
    mHasBarrier.store(sHasBarrier);
    mIsOpen.store(true);
}

void ZTCCallbackGate::shut() {
    mIsOpen.store(false);
    if (mHasBarrier.load()) {
        OsThreadsBarrier();
    }
}

unsigned int ZTCCallbackGate::countInside() const {
    unsigned int lCount = 0;
    for (const Slot& lrSlot : mSlots) {
        lCount += lrSlot.mInside.load();
    }
    return lCount;
}

unsigned int ZTCCallbackGate::waitUntilEmpty(std::chrono::milliseconds aTime) const {
    constexpr timespec lTurn{0, 1000000};
    const timespec lDeadline = OsDeadlineIn(aTime);
    for (;;) {
        const unsigned int lInside = countInside();
        if (lInside == 0 || OsHasPassed(lDeadline)) {
            return lInside;
        }
        nanosleep(&lTurn, nullptr);  // who leaves tells nobody: that would be asked of every event
    }
}

unsigned int ZTCCallbackGate::takeSlot() {
    // A key, whose destructor gives the slot back when the thread ends: unlike a thread_local with one it can
    // say that there is no memory for it.
    static pthread_key_t sKey;
    static const bool sHasKey = pthread_key_create(&sKey, giveSlotBack) == 0;
    tSlot = SharedSlot;
    for (unsigned int lSlot = 0; sHasKey && lSlot < SharedSlot; ++lSlot) {
        if (!sIsTaken[lSlot].load(std::memory_order_relaxed) && !sIsTaken[lSlot].exchange(true)) {
            if (pthread_setspecific(sKey, &sIsTaken[lSlot]) == 0) {
                tSlot = lSlot;
            } else {
                sIsTaken[lSlot].store(false);
            }
            break;
        }
    }
    return tSlot;
}

void ZTCCallbackGate::giveSlotBack(void* apIsTaken) {
    tSlot = Slots;  // a library may call back even later in the thread's end
    static_cast<std::atomic<bool>*>(apIsTaken)->store(false);
}
