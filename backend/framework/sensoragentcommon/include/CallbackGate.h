// The gate between a library's threads and the agent: who is inside is counted, and once it is shut nobody
// comes in any more.
#pragma once

#include <atomic>

#include "Conditional.h"

/// Any thread. Passing costs two uncontended atomic operations: threads count in slots of their own. Lives as
/// long as any thread might try to pass.
class ZTCCallbackGate {
  public:
    /// One thread's way through the gate and out again.
    class Passage {
      public:
        explicit Passage(ZTCCallbackGate& arGate) : mrGate(arGate), mrInside(arGate.ownSlot()) {
            if (!mrGate.mIsOpen.load(std::memory_order_relaxed)) {
                return;  // turned away without a trace: these may come in storms
            }
            mrInside.fetch_add(1);
            mIsIn = mrGate.mIsOpen.load();
            if (!mIsIn) {
                leave();
            }
        }
        ~Passage() {
            if (mIsIn) {
                leave();
            }
        }
        Passage(const Passage&) = delete;
        Passage& operator=(const Passage&) = delete;

        bool isIn() const { return mIsIn; }

      private:
        void leave() {
            mrInside.fetch_sub(1);
            if (!mrGate.mIsOpen.load()) {
                mrGate.mHasLeft.signal();
            }
        }

        ZTCCallbackGate& mrGate;
        std::atomic<unsigned int>& mrInside;
        bool mIsIn = false;
    };

    void open() { mIsOpen.store(true); }
    void shut() { mIsOpen.store(false); }

    /// Waits, with the gate shut, until nobody is inside; at most so long. Returns how many still are.
    unsigned int waitUntilEmpty(std::chrono::milliseconds aTime);
    /// How many are inside now, or are just being turned away.
    unsigned int countInside() const;

  private:
    static constexpr unsigned int Slots = 16;
    static constexpr unsigned int CacheLine = 64;

    struct alignas(CacheLine) Slot {
        std::atomic<unsigned int> mInside{0};
    };

    std::atomic<unsigned int>& ownSlot();

    // A thread counts itself and then looks whether the gate is open; who shuts it does so and then looks at
    // the counts. Both in the one order of all such operations: one of the two sees the other.
    Slot mSlots[Slots];
    alignas(CacheLine) std::atomic<bool> mIsOpen{false};
    ZTCConditional mHasLeft;
};
