#include "IncidentLookup.h"

#include <algorithm>
#include <optional>

#include "IncidentRows.h"

namespace {

// Into which incidents others have gone, in the end.
std::map<std::uint64_t, std::uint64_t> sReadMerged(ZTCStoreReader& arReader) {
    std::map<std::uint64_t, std::uint64_t> lMerged;
    for (const auto& [lFrom, lInto] : readAll<std::pair<std::uint64_t, std::uint64_t>>(
             arReader, "SELECT id, merged FROM incidents WHERE merged IS NOT NULL",
             [](SQLite::Statement& arRow) { return std::pair(numberAt(arRow, 0), numberAt(arRow, 1)); })) {
        lMerged.emplace(lFrom, lInto);
    }
    return lMerged;
}

// Those that have evidence of a time, by the index of times: who follows a history asks with all that comes.
std::vector<std::int64_t> sReadIds(ZTCStoreReader& arReader, ZTNanoseconds aSince, ZTNanoseconds aUntil) {
    const ZTCStoreSlice lSlice(arReader);
    SQLite::Statement lRow(arReader.getDatabase(),
                           "SELECT DISTINCT incident FROM incident_evidence INDEXED BY "
                           "incident_evidence_by_time WHERE last >= ? AND first <= ? ORDER BY incident");
    lRow.bind(1, aSince);
    lRow.bind(2, aUntil);
    std::vector<std::int64_t> lIds;
    while (lRow.executeStep()) {
        lIds.push_back(lRow.getColumn(0).getInt64());
    }
    return lIds;
}

// acrTake(row, incident) for each that overlaps a time.
template <class Take>
void sReadEvidence(ZTCStoreReader& arReader, ZTNanoseconds aSince, ZTNanoseconds aUntil,
                   const Take& acrTake) {
    storeCall(arReader.getPath(), [&] {
        SQLite::Statement lRow(
            arReader.getDatabase(),
            std::string(ZTEvidenceColumns) + " WHERE incident = ?3 AND last >= ?1 AND first <= ?2");
        lRow.bind(1, aSince);
        lRow.bind(2, aUntil);
        std::optional<ZTCStoreSlice> lSlice;
        for (const std::int64_t lId : sReadIds(arReader, aSince, aUntil)) {
            lSlice ? void() : void(lSlice.emplace(arReader));
            lRow.bind(3, lId);
            bool lIsEnough = false;
            while (lRow.executeStep()) {
                acrTake(readStoredEvidence(lRow), static_cast<std::uint64_t>(lId));
                lIsEnough |= lSlice->isEnough();
            }
            lRow.reset();
            lIsEnough ? lSlice.reset() : void();
        }
    });
}

}  // namespace

void ZTCIncidentLookup::read(ZTCStoreReader& arReader, ZTNanoseconds aSince, ZTNanoseconds aUntil) {
    mSpans.clear();
    const std::map<std::uint64_t, std::uint64_t> lMerged = sReadMerged(arReader);
    const auto lEndOf = [&](std::uint64_t aId) {
        auto lAt = lMerged.find(aId);
        for (std::size_t lStep = 0; lAt != lMerged.end() && lStep < lMerged.size(); ++lStep) {
            aId = lAt->second;
            lAt = lMerged.find(aId);
        }
        return aId;
    };
    sReadEvidence(arReader, aSince, aUntil, [&](const ZTSIncidentEvidence& acrRow, std::uint64_t aId) {
        mSpans[{acrRow.mCategory, acrRow.mSubcategory, acrRow.mInitiator, acrRow.mRemote, acrRow.mFabric}]
            .push_back({acrRow.mFirst, acrRow.mLast, lEndOf(aId), 0});
    });
    for (auto& [lrKey, lrSpans] : mSpans) {
        std::ranges::sort(lrSpans, {}, &Span::mFirst);
        ZTNanoseconds lLast = std::numeric_limits<ZTNanoseconds>::min();
        for (Span& lrSpan : lrSpans) {
            lrSpan.mLastSoFar = lLast = std::max(lLast, lrSpan.mLast);
        }
    }
}

std::uint64_t ZTCIncidentLookup::find(const ZTSRecord& acrRecord) const {
    const ZTSSeries& lrSeries = acrRecord.mSeries;
    const auto lAt = mSpans.find({lrSeries.mCategory, lrSeries.mSubcategory, lrSeries.mInitiator.mPort,
                                  lrSeries.mRemote.value_or(ZTSWwn{}), lrSeries.mFabric});
    if (lAt == mSpans.end()) {
        return 0;
    }
    std::uint64_t lFound = 0;
    auto lSpan = std::ranges::upper_bound(lAt->second, acrRecord.mFirst, {}, &Span::mFirst);
    while (lSpan != lAt->second.begin() && (--lSpan)->mLastSoFar >= acrRecord.mFirst) {
        if (lSpan->mLast >= acrRecord.mFirst && (lFound == 0 || lSpan->mIncident < lFound)) {
            lFound = lSpan->mIncident;
        }
    }
    return lFound;
}
