// One or more occurrences of the same event: how many, the first and the last time, and the event data.
#pragma once

#include "DateTime.h"
#include "Log.h"
#include "ScopeData.h"

/// No lock of its own: changed under the scope-data lock, and encoded when no other thread can reach it.
class ZTCScopeAgentRecord final {
  public:
    /// One occurrence, at aTime (nanoseconds since 1970). Shares the data.
    ZTCScopeAgentRecord(ZTCPointer<ZTCScopeData> aData, std::uint64_t aTime);
    virtual ~ZTCScopeAgentRecord() = default;
    virtual ZTCPointer<ZTCScopeData>& getScopeData() { return mScopeData; }
    virtual const ZTCPointer<ZTCScopeData>& getScopeData() const { return mScopeData; }

    /// Counts one more. Times of threads that come out of order, by less than a second, do not move the last
    /// one back; a clock that was set back does, also before the first one.
    void incrementOccurrences(std::uint64_t aTime);
    /// Wraps at 2^32.
    unsigned int getOccurrences() const { return mOccurrences; }

    /// Occurrences, first and last time, scope data.
    void encode(ZTCEncodableOutStream& arStream) const;

  private:
    unsigned int mOccurrences = 1;
    std::uint64_t mFirstTime;
    std::uint64_t mLastTime;
    ZTCPointer<ZTCScopeData> mScopeData;
};
