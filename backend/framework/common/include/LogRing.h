// One thread's ring of log records, from the thread that logs to whoever drains. See Log.h.
//
// The producer owns mHead, the drainer (one at a time) owns mTail; both count bytes since the ring was made,
// so their difference is what is pending. Records are multiples of 8 bytes, never wrap (a filler takes the
// rest of the ring) and so leave the lowest bit of mHead free: it is set while a record is between its clock
// reading and its publication. By that bit the drainer knows that a record with an earlier time is about to
// come, and waits for it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "LogRecord.h"

class ZTCLogRing {
  public:
    static constexpr std::size_t Capacity = 256 * 1024;
    static constexpr std::size_t Urgent = Capacity / 8;

    enum class State : unsigned int {
        Free,      ///< nobody's, and empty
        Owned,     ///< a thread logs through it
        Orphaned,  ///< its thread has ended; becomes Free when drained
    };

    // The producer.

    /// Whether a record of aSize bytes can be put now.
    bool hasRoom(std::size_t aSize) {
        const std::uint64_t lHead = mHead.load(std::memory_order_relaxed);
        const std::uint64_t lEnd = lHead + aSize + fillerBefore(lHead, aSize);
        if (lEnd - mKnownTail > Urgent) {
            mKnownTail = mTail.load(std::memory_order_acquire);
        }
        return lEnd - mKnownTail <= Capacity;
    }

    /// Whether so much is pending that the writer should not rest any longer.
    bool isFilling() const { return mBegun - mKnownTail > Urgent; }

    /// Begins a record, for which there is room: reads the clock. The site and the arguments are to be set.
    ZTCLogRecord& begin(std::size_t aSize, std::uint32_t aThread);

    /// Publishes the record that was begun.
    void publish() { mHead.store(mBegun, std::memory_order_release); }

    // The drainer.

    std::uint64_t head() const { return mHead.load(std::memory_order_acquire) & ~std::uint64_t{1}; }
    bool isBeingWritten() const { return (mHead.load(std::memory_order_acquire) & 1) != 0; }
    std::uint64_t tail() const { return mTail.load(std::memory_order_relaxed); }
    void setTail(std::uint64_t aTail) { mTail.store(aTail, std::memory_order_release); }
    bool isEmpty() const { return tail() == head(); }

    /// The record at a position; skips a filler, moving arPosition.
    const ZTCLogRecord* at(std::uint64_t& arPosition) const;

    /// Forgets what is pending, also a record half written: after a fork, for threads that are not there.
    void clear();

    /// Makes what is pending the records of this thread: after a fork, of the one that goes on.
    void setThread(std::uint32_t aThread);

    std::atomic<State> mState{State::Free};
    std::uint64_t mSeen = 0;  ///< drainer only: the head at its last look

  private:
    /// Bytes between the head and the next record: a record does not go over the ring's end.
    static std::size_t fillerBefore(std::uint64_t aHead, std::size_t aSize) {
        const std::size_t lToEnd = Capacity - aHead % Capacity;
        return aSize <= lToEnd ? 0 : lToEnd;
    }

    alignas(64) std::atomic<std::uint64_t> mHead{0};
    std::uint64_t mBegun = 0;      ///< producer only: the head once the record is published
    std::uint64_t mKnownTail = 0;  ///< producer only: the tail at its last look
    alignas(64) std::atomic<std::uint64_t> mTail{0};
    alignas(64) unsigned char mBytes[Capacity]{};
};
