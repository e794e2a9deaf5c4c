// The gate between a library's threads and the agent: who is inside is counted, and once it is shut nobody
// comes in any more.
//
// A thread that passes counts itself and then looks whether the gate is open; who shuts it does so and then
// looks at the counts: one of the two has to see the other. Events come by the million and the gate is shut
// once, so who shuts it pays for the order of all: it has every thread pass a barrier. Threads count in slots
// of their own with plain stores; where there is no such barrier, or no slot left, with atomic additions
// in the one order of all such operations.
#pragma once

#include <atomic>
#include <chrono>

/// Any thread. Lives as long as any thread might try to pass.
class ZTCCallbackGate {
  public:
    /// One thread's way through the gate and out again.
    class Passage {
      public:
        explicit Passage(ZTCCallbackGate& arGate) {
            if (!arGate.mIsOpen.load(std::memory_order_relaxed)) {
                return;  // turned away without a trace: these may come in storms
            }
            const unsigned int lSlot = ownSlot();
            mIsPlain = arGate.mHasBarrier.load(std::memory_order_relaxed) && lSlot != SharedSlot;
            mpInside = &arGate.mSlots[lSlot].mInside;
            count(1);
            std::atomic_signal_fence(std::memory_order_seq_cst);
            if (!arGate.mIsOpen.load()) {
                count(-1U);
                mpInside = nullptr;
            }
        }
        ~Passage() {
            if (mpInside != nullptr) {
                count(-1U);
            }
        }
        Passage(const Passage&) = delete;
        Passage& operator=(const Passage&) = delete;

        bool isIn() const { return mpInside != nullptr; }

      private:
        void count(unsigned int aMore) {
            if (mIsPlain) {
                mpInside->store(mpInside->load(std::memory_order_relaxed) + aMore, std::memory_order_release);
            } else {
                mpInside->fetch_add(aMore);
            }
        }

        std::atomic<unsigned int>* mpInside = nullptr;
        bool mIsPlain = false;
    };

    void open();
    void shut();

    /// Waits, with the gate shut, until nobody is inside; at most so long. Returns how many still are.
    unsigned int waitUntilEmpty(std::chrono::milliseconds aTime) const;
    /// How many are inside now, or are just being turned away.
    unsigned int countInside() const;

  private:
    static constexpr unsigned int Slots = 64;
    static constexpr unsigned int SharedSlot = Slots - 1;  ///< of all threads that find the others taken
    static constexpr unsigned int CacheLine = 64;

    struct alignas(CacheLine) Slot {
        std::atomic<unsigned int> mInside{0};
    };

    /// The calling thread's, until it ends.
    static unsigned int ownSlot() { return tSlot != Slots ? tSlot : takeSlot(); }
    static unsigned int takeSlot();
    static void giveSlotBack(void* apIsTaken);

    static constinit thread_local unsigned int tSlot;  ///< Slots: none yet
    static constinit std::atomic<bool> sIsTaken[SharedSlot];

    Slot mSlots[Slots];
    alignas(CacheLine) std::atomic<bool> mIsOpen{false};
    std::atomic<bool> mHasBarrier{false};
};
