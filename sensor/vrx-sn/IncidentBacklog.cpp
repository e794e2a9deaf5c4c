#include "IncidentBacklog.h"

#include <algorithm>
#include <new>
#include <utility>

namespace {

constexpr std::size_t sNode = 4 * sizeof(void*);

// About: most of it is what its finder has to know, and its symptoms and evidence.
std::size_t sBytesOf(const ZTSIncident& acrIncident) {
    return sNode + 2 * sizeof acrIncident + acrIncident.mMemory.size() +
           acrIncident.mSymptoms.size() * sizeof(ZTSIncidentSymptom) +
           acrIncident.mEvidence.size() * sizeof(ZTSIncidentEvidence) +
           acrIncident.mChanges.size() * 2 * sizeof(ZTSChange) +
           acrIncident.mHits.mLuns.size() * 2 * sizeof(std::string);
}

std::size_t sBytesOf(const ZTSBaseline& /*acrBaseline*/) {
    return sNode + 2 * sizeof(ZTSBaseline);
}

}  // namespace

template <class Rows, class Key, class Row>
void ZTCIncidentBacklog::put(Rows& arRows, const Key& acrKey, Row&& arRow) noexcept {
    const auto lAt = arRows.find(acrKey);  // compares, and makes no key
    const std::size_t lBefore = lAt != arRows.end() ? sBytesOf(lAt->second) : 0;
    const std::size_t lBytes = mBytes - lBefore + sBytesOf(arRow);
    try {
        if (lBytes > mLimit) {
            throw std::bad_alloc();
        }
        if (lAt != arRows.end()) {
            lAt->second = std::forward<Row>(arRow);
        } else {
            arRows.emplace(acrKey, std::forward<Row>(arRow));
        }
        mBytes = lBytes;
    } catch (const std::bad_alloc&) {
        ++mLost;
        mMissesSome = true;
    }
}

bool ZTCIncidentBacklog::take(ZTSIncidentNews aNews) noexcept {
    for (ZTSIncident& lrIncident : aNews.mIncidents) {
        put(mIncidents, lrIncident.mId, std::move(lrIncident));
    }
    for (ZTSBaseline& lrBaseline : aNews.mBaselines) {
        put(mBaselines, std::tie(lrBaseline.mDay, lrBaseline.mKind, lrBaseline.mPort), std::move(lrBaseline));
    }
    mTo = mMissesSome ? 0 : std::max(mTo, aNews.mTo);
    return !aNews.mIncidents.empty() || !aNews.mBaselines.empty();
}

ZTSIncidentNews ZTCIncidentBacklog::detach() {
    ZTSIncidentNews lNews;
    lNews.mIncidents.reserve(mIncidents.size());
    lNews.mBaselines.reserve(mBaselines.size());
    for (auto& [lId, lrIncident] : mIncidents) {
        lNews.mIncidents.push_back(std::move(lrIncident));
    }
    for (auto& [lrKey, lrBaseline] : mBaselines) {
        lNews.mBaselines.push_back(std::move(lrBaseline));
    }
    lNews.mTo = std::exchange(mTo, 0);
    mIncidents.clear();
    mBaselines.clear();
    mBytes = 0;
    mLost = 0;
    return lNews;
}
