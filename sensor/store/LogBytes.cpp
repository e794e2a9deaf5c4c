#include "LogBytes.h"

#include <functional>
#include <set>

namespace {

// What a host tells: rows of about this size, with their indexes; of measures a page has dozens.
std::uint64_t sEstimate(const ZTSHostNews& acrNews) {
    constexpr std::uint64_t lRow = 600;
    constexpr std::uint64_t lPath = 100;
    std::uint64_t lRows = acrNews.mFpins.size() + acrNews.mStalls.size();
    std::uint64_t lSmall = 3 * acrNews.mMeasures.getValues().size();
    if (acrNews.mStorage) {
        lRows += acrNews.mStorage->mLuns.size() + acrNews.mStorage->mMaps.size();
        lSmall += acrNews.mStorage->mLuns.size();
        lSmall += 3 * acrNews.mStorage->mVolumes.size() + acrNews.mStorage->mMounts.size();
    }
    return lRows * lRow + lSmall * lPath;
}

// Of an incident's evidence rows that are not what they were, which are some; its text stands in pages of its
// own.
std::uint64_t sEstimate(const ZTSIncidentNews& acrNews) {
    constexpr std::uint64_t lIncident = 16384;
    constexpr std::uint64_t lRow = 300;
    std::uint64_t lBytes = acrNews.mBaselines.size() * lRow;
    for (const ZTSIncident& lrIncident : acrNews.mIncidents) {
        lBytes += lIncident + lrIncident.mMemory.size() + lrIncident.mEvidence.size() * lRow;
    }
    return lBytes;
}

}  // namespace

// A batch's rows in the table and in its time's index stand together, but a large one fills pages of its own;
// in the other index those of a series do, as do those that go for them.
std::uint64_t estimateLogBytes(const ZTSStoreBatch& acrBatch) {
    constexpr std::uint64_t lRow = 100;
    constexpr std::uint64_t lLargeRow = 1000;
    constexpr std::uint64_t lPage = 4120;
    constexpr std::uint64_t lSeriesPages = 4;
    constexpr std::uint64_t lChange = 400;
    std::uint64_t lBytes =
        acrBatch.mChanges.size() * lChange + sEstimate(acrBatch.mHost) + sEstimate(acrBatch.mIncidents);
    std::set<std::reference_wrapper<const ZTSSeries>, std::less<ZTSSeries>> lSeries;
    for (const ZTSStoreRow& lrRow : acrBatch.mRows) {
        const std::uint64_t lSize = lRow + lrRow.mRecord.mData.size();
        lBytes += lSize > lLargeRow ? (lSize / lPage + 1) * lPage : lSize * 3 / 2;
        lSeries.insert(lrRow.mRecord.mSeries);
    }
    for (const ZTSChange& lrChange : acrBatch.mChanges) {
        lBytes += 2 * (lrChange.mName.size() + lrChange.mBefore.size() + lrChange.mAfter.size());
    }
    return lBytes + lSeries.size() * lSeriesPages * lPage;
}
