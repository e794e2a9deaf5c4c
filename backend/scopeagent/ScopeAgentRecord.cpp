#include "ScopeAgentRecord.h"

#include "EncodableStream.h"

namespace {

constexpr char sFile[] = "ScopeAgentRecord";

// Nanoseconds. What is earlier than the last time by more is not another thread's: the clock was set back.
constexpr std::uint64_t sMostOutOfOrder = 1000000000;

}  // namespace

ZTCScopeAgentRecord::ZTCScopeAgentRecord(ZTCPointer<ZTCScopeData> aData, std::uint64_t aTime)
    : mFirstTime(aTime), mLastTime(aTime), mScopeData(std::move(aData)) {
    const ZTCTraceScope lTrace(sFile);
}

void ZTCScopeAgentRecord::incrementOccurrences(std::uint64_t aTime) {
    const ZTCTraceScope lTrace(sFile);
    ++mOccurrences;
    if (aTime > mLastTime || mLastTime - aTime >= sMostOutOfOrder) {
        mLastTime = aTime;
    }
}

void ZTCScopeAgentRecord::encode(ZTCEncodableOutStream& arStream) const {
    const ZTCTraceScope lTrace(sFile);
    const ZTCScopeData& lrData = *mScopeData;
    constexpr unsigned int lFixedSize = sizeof mOccurrences + 2 * ZTCDateTime::EncodedSize;
    unsigned char* lpAt = arStream.extend(lFixedSize + lrData.getSize());
    lpAt = ztwire::put(lpAt, mOccurrences);
    lpAt = ZTCDateTime(mFirstTime).encode(lpAt);
    lpAt = ZTCDateTime(mLastTime).encode(lpAt);
    lrData.encode(lpAt);
}
