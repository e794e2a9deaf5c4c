// The allocators of the test program, which can be told to fail.
#pragma once

/// While it stands, lets one of this thread's allocations through new, malloc and realloc fail. One at a time
/// in a thread.
class FailingAllocator {
  public:
    /// The aFailing-th allocation from now fails.
    explicit FailingAllocator(unsigned int aFailing);
    ~FailingAllocator() { stop(); }
    FailingAllocator(const FailingAllocator&) = delete;
    FailingAllocator& operator=(const FailingAllocator&) = delete;

    /// Fails no longer.
    void stop();

    bool hasFailed() const { return mHasFailed; }

    // For the allocators.
    static bool mayAllocate();

  private:
    unsigned int mUntilFailure;
    bool mHasFailed = false;
};
