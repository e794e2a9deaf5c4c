// An agent in this process, without its threads and pipes: what the benchmarks feed and empty. What they know
// of the agent's inside is in BenchAgent.cpp.
#pragma once

#include <cstdint>
#include <cstring>

#include "Buffer.h"
#include "libdfc_provider.h"

/// An event as the vendor library delivers it.
class ZTCBenchEvent {
  public:
    static constexpr unsigned int MaxPayload = 32;

    ZTCBenchEvent(unsigned int aCategory, unsigned int aSubcategory, unsigned int aPayload)
        : mCategory(aCategory),
          mSubcategory(aSubcategory),
          mLength(aPayload),
          mEvent{1, ZT_EVENT_HEADER + aPayload, aPayload == 0 ? nullptr : &mDescriptor} {}
    ZTCBenchEvent(const ZTCBenchEvent&) = delete;
    ZTCBenchEvent& operator=(const ZTCBenchEvent&) = delete;

    /// Makes the first name in the payload another one.
    void setName(std::uint64_t aName) { memcpy(mPayload + 4, &aName, sizeof aName); }
    /// From the vendor library's call to its return.
    void deliver(unsigned int aBoard = 0) const;
    /// Has it taken in although the collection has reached its limit: as the event of one more thread that
    /// was under way then.
    void deliverAboveLimit() const;

  private:
    unsigned int mCategory;
    unsigned int mSubcategory;
    unsigned int mLength;
    unsigned char mPayload[MaxPayload]{};
    ZT_event_descriptor mDescriptor{0, mPayload};
    ZT_event mEvent;
};

namespace ztbench {

/// Allocations of this thread so far, through new, malloc and realloc.
std::uint64_t allocations();

/// Makes the one agent, over the simulated library with its two adapters, and opens its log. Any number of
/// times.
void useAgent();
/// Opens the agent's log in a directory that is gone at the end. Any number of times.
void useLog();
/// The file of the log, which is in that directory, or another one there.
std::string logFile(const char* apName = "agent.log");
/// Writes what has been logged, and leaves the log's writer resting: the next records do not wake it, unless
/// they fill an eighth of a ring.
void restLog();

/// Empties the collection, and then logs by this mask.
void empty(unsigned int aMask);
/// The smallest records, so many of them.
void addSmallest(unsigned int aRecords);

// What a fetch is made of.

/// What it takes out of the collection, for which alone it holds the lock; and gives back.
void detach();
void giveBack();
/// The whole of it, up to the response.
ZTCPointer<ZTCBuffer> respond();
/// Frees what the response was made of.
void release();

}  // namespace ztbench
