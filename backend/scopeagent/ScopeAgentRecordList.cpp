#include "ScopeAgentRecordList.h"

#include "EncodableStream.h"

namespace {

constexpr char sFile[] = "ScopeAgentRecordList";
constexpr std::size_t sAhead = 8;

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
    const std::size_t lCount = mRecords.size();
    for (std::size_t lAt = 0; lAt < lCount; ++lAt) {
        if (lAt + 2 * sAhead < lCount) {
            __builtin_prefetch(mRecords[lAt + 2 * sAhead].get());
        }
        if (lAt + sAhead < lCount) {
            __builtin_prefetch(mRecords[lAt + sAhead]->getScopeData().get());
        }
        mRecords[lAt]->encode(arStream);
    }
}
