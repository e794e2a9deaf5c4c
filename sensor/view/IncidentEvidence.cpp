#include "IncidentEvidence.h"

#include <algorithm>
#include <set>

ZTCIncidentEvidence::ZTCIncidentEvidence(const ZTSIncident& acrIncident) {
    for (const ZTSIncidentEvidence& lrRow : acrIncident.mEvidence) {
        mSpans[{lrRow.mCategory, lrRow.mSubcategory, lrRow.mInitiator, lrRow.mRemote, lrRow.mFabric}]
            .push_back({lrRow.mFirst, lrRow.mLast});
    }
    for (auto& [lrKey, lrSpans] : mSpans) {
        std::ranges::sort(lrSpans, {}, &Span::mFirst);
        std::vector<Span> lJoined;
        for (const Span& lrSpan : lrSpans) {
            if (!lJoined.empty() && lrSpan.mFirst <= lJoined.back().mLast) {
                lJoined.back().mLast = std::max(lJoined.back().mLast, lrSpan.mLast);
            } else {
                lJoined.push_back(lrSpan);
            }
        }
        lrSpans = std::move(lJoined);
    }
}

bool ZTCIncidentEvidence::takes(const ZTSRecord& acrRecord) const {
    const ZTSSeries& lrSeries = acrRecord.mSeries;
    const auto lAt = mSpans.find({lrSeries.mCategory, lrSeries.mSubcategory, lrSeries.mInitiator.mPort,
                                  lrSeries.mRemote.value_or(ZTSWwn()), lrSeries.mFabric});
    if (lAt == mSpans.end()) {
        return false;
    }
    const auto lBehind = std::ranges::upper_bound(lAt->second, acrRecord.mFirst, {}, &Span::mFirst);
    return lBehind != lAt->second.begin() && acrRecord.mFirst <= std::prev(lBehind)->mLast;
}

void ZTCIncidentEvidence::narrow(ZTSHistoryFilter& arFilter) const {
    ZTNanoseconds lFirst = std::numeric_limits<ZTNanoseconds>::max();
    ZTNanoseconds lLast = std::numeric_limits<ZTNanoseconds>::min();
    std::set<std::pair<std::uint8_t, std::uint8_t>> lKinds(arFilter.mKinds.begin(), arFilter.mKinds.end());
    const bool lHasKinds = !lKinds.empty();
    for (const auto& [lrKey, lrSpans] : mSpans) {
        lFirst = std::min(lFirst, lrSpans.front().mFirst);
        lLast = std::max(lLast, lrSpans.back().mLast);
        if (!lHasKinds) {
            lKinds.emplace(std::get<0>(lrKey), std::get<1>(lrKey));
        }
    }
    arFilter.mSince = std::max(arFilter.mSince, lFirst);
    arFilter.mUntil = std::min(arFilter.mUntil, lLast);
    arFilter.mKinds.assign(lKinds.begin(), lKinds.end());
}
