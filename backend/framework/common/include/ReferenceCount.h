// The counter of a ZTCPointer.
#pragma once

#include <atomic>

/// Counts the owners of one object. Safe from any thread: who takes the count to 0 sees all that the other
/// owners did with the object before they let go.
class ZTCReferenceCount {
  public:
    explicit ZTCReferenceCount(unsigned int aInitial) : mCount(aInitial) {}
    ZTCReferenceCount(const ZTCReferenceCount&) = delete;
    ZTCReferenceCount& operator=(const ZTCReferenceCount&) = delete;

    void increment() { mCount.fetch_add(1, std::memory_order_relaxed); }

    /// Returns the count after it; 0: the last owner has gone.
    unsigned int decrement() { return mCount.fetch_sub(1, std::memory_order_acq_rel) - 1; }

    /// Whether one owner is left; what the others did is then visible here.
    bool isOne() const { return mCount.load(std::memory_order_acquire) == 1; }

  private:
    std::atomic<unsigned int> mCount;
};
