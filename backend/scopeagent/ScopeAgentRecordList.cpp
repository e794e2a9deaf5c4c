#include "ScopeAgentRecordList.h"

#include <algorithm>
#include <iterator>

#include "EncodableStream.h"

namespace {

constexpr char sFile[] = "ScopeAgentRecordList";
constexpr std::ptrdiff_t sAhead = 8;

}  // namespace

unsigned int ZTCScopeAgentRecordList::getOccurrences() const {
    unsigned int lCount = 0;
    for (const auto& lrRecord : mRecords) {
        lCount += lrRecord->getOccurrences();
    }
    return lCount;
}

void ZTCScopeAgentRecordList::addRecord(ZTCPointer<ZTCScopeAgentRecord>&& arRecord) {
    const ZTCTraceScope lTrace(sFile);
    orNoMemory([&] { mRecords.push_back(std::move(arRecord)); });
}

void ZTCScopeAgentRecordList::encode(ZTCEncodableOutStream& arStream) const {
    arStream << getRecordCount();
    // A large collection is not in the cache: each record, and then its data, is called for some steps ahead.
    auto lData = std::next(mRecords.begin(), std::min<std::ptrdiff_t>(sAhead, getRecordCount()));
    auto lRecord = std::next(mRecords.begin(), std::min<std::ptrdiff_t>(2 * sAhead, getRecordCount()));
    for (const auto& lrRecord : mRecords) {
        if (lRecord != mRecords.end()) {
            __builtin_prefetch((lRecord++)->get());
        }
        if (lData != mRecords.end()) {
            __builtin_prefetch((*lData++)->getScopeData().get());
        }
        lrRecord->encode(arStream);
    }
}
