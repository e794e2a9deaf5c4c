// One thread's ring of log records, from the thread that logs to whoever drains. See Log.h.
//
// The producer owns mHead, the drainer (under the log's drain lock) owns mTail; both count bytes since the
// ring was made, so their difference is what is pending. Records are multiples of 8 bytes, never wrap (a
// filler takes the rest of the ring) and so leave the lowest bit of mHead free: it is set while a record is
// between its clock reading and its publication. By that bit the drainer knows that a record with an earlier
// time is about to come, and waits for it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "Log.h"

/// A record as it stands in a ring; its arguments follow (8 bytes an integer or address; text as a 32-bit
/// length and the bytes, filled up to a multiple of 8).
struct ZTCLogRecord {
    std::uint32_t mSize;    ///< bytes with the arguments, a multiple of 8
    std::uint32_t mThread;  ///< 0 marks a filler, of which only these two members exist
    std::uint64_t mStamp;   ///< nanoseconds since 1970
    ztlog::Site mSite;
    unsigned char mKinds[ztlog::MaxArguments];  ///< ztlog::ArgumentKind, 0 behind the last

    const unsigned char* arguments() const { return reinterpret_cast<const unsigned char*>(this + 1); }
};
static_assert(sizeof(ZTCLogRecord) == 64, "a record's fixed part is one cache line");

class ZTCLogRing {
  public:
    static constexpr std::size_t Capacity = 256 * 1024;
    static constexpr std::uint32_t MaxText = 4096;  ///< bytes kept of one text argument

    enum class State : unsigned int {
        Free,      ///< nobody's, and empty
        Owned,     ///< a thread logs through it
        Orphaned,  ///< its thread has ended; becomes Free when drained
    };

    /// Bytes that the record takes, without filler.
    static std::size_t sizeOf(const ztlog::Argument* apArguments, unsigned int aCount);

    // The producer.

    /// Whether a record of aSize bytes can be put now.
    bool hasRoom(std::size_t aSize);

    /// Puts a record; hasRoom(aSize) was true. Reads the clock.
    void put(std::size_t aSize, std::uint32_t aThread, const ztlog::Site& acrSite,
             const ztlog::Argument* apArguments, unsigned int aCount);

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

    std::atomic<State> mState{State::Free};
    std::uint64_t mSeen = 0;  ///< drainer only: the head at its last look

  private:
    alignas(64) std::atomic<std::uint64_t> mHead{0};
    std::uint64_t mKnownTail = 0;  ///< producer only: the tail at its last look
    alignas(64) std::atomic<std::uint64_t> mTail{0};
    alignas(64) unsigned char mBytes[Capacity]{};
};

namespace ztlog {
/// Nanoseconds since 1970 by CLOCK_REALTIME.
std::uint64_t now();
}  // namespace ztlog
