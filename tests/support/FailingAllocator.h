// The allocators of the test program, which can be told to fail.
#pragma once

#include <cstddef>

/// While it stands, counts what this thread allocates and gives back through new, malloc and realloc, and
/// lets one allocation fail. One at a time in a thread.
class FailingAllocator {
  public:
    enum class Kind : unsigned char { New, NewArray, Malloc };

    /// The aFailing-th allocation from now fails; 0: none does.
    explicit FailingAllocator(unsigned int aFailing);
    /// Gives back, undestroyed, what was not given back.
    ~FailingAllocator();
    FailingAllocator(const FailingAllocator&) = delete;
    FailingAllocator& operator=(const FailingAllocator&) = delete;

    /// Counts and fails no longer. The results are read after it.
    void stop();

    bool hasFailed() const { return mHasFailed; }
    /// Blocks that were not given back.
    unsigned int getLiveBlocks() const { return mBlockCount; }
    /// Blocks that were given back by another means than they were made with.
    unsigned int getWronglyFreed() const { return mWronglyFreed; }

    // For the allocators.
    static bool mayAllocate();
    static void add(void* apBlock, Kind aKind);
    /// Whether the block had been counted.
    static bool remove(void* apBlock, Kind aKind);

  private:
    struct Block {
        void* mpBlock;
        Kind mKind;
    };
    static constexpr unsigned int MaxBlocks = 256;

    unsigned int mUntilFailure;
    bool mHasFailed = false;
    unsigned int mWronglyFreed = 0;
    unsigned int mBlockCount = 0;
    Block mBlocks[MaxBlocks];
};
