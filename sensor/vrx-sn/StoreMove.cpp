#include "StoreMove.h"

#include <algorithm>

namespace {

template <class Value>
void sKeep(std::optional<Value>& arKept, const std::optional<Value>& acrNew) {
    if (acrNew) {
        arKept = acrNew;
    }
}
template <class Value>
void sComplete(std::optional<Value>& arValue, const std::optional<Value>& acrKept) {
    if (!arValue) {
        arValue = acrKept;
    }
}

}  // namespace

void ZTCStoreMove::begin(std::uint64_t aNextId) {
    mBorder = aNextId;
    mHas.clear();
    mLacksState = true;
}

void ZTCStoreMove::complete(ZTSStoreBatch& arBatch) const {
    for (ZTSStoreRow& lrRow : arBatch.mRows) {
        if (lrRow.mId < mBorder && !lrRow.mIsNew && mHas.count(lrRow.mId) == 0) {
            lrRow.mIsNew = true;
            lrRow.mAdded = lrRow.mRecord.mOccurrences;
        }
    }
    if (mLacksState) {
        if (arBatch.mAgents.empty() && mAgent) {
            arBatch.mAgents.push_back(*mAgent);
        }
        sComplete(arBatch.mPorts, mPorts);
        sComplete(arBatch.mLabels, mLabels);
        sComplete(arBatch.mFacts, mFacts);
        sComplete(arBatch.mHost.mStorage, mHost.mStorage);
        sComplete(arBatch.mHost.mBlindSpots, mHost.mBlindSpots);
        sComplete(arBatch.mHost.mWindows, mHost.mWindows);
        std::vector<ZTSIncident>& lrIncidents = arBatch.mIncidents.mIncidents;
        for (const auto& [lId, lrIncident] : mIncidents) {
            if (std::ranges::find(lrIncidents, lId, &ZTSIncident::mId) == lrIncidents.end()) {
                lrIncidents.push_back(lrIncident);
            }
        }
    }
}

void ZTCStoreMove::stored(const ZTSStoreBatch& acrBatch) {
    for (const ZTSStoreRow& lrRow : acrBatch.mRows) {
        if (lrRow.mId < mBorder) {
            mHas.insert(lrRow.mId);
        }
    }
    if (mBorder != 0 && acrBatch.mClosedTo + 1 >= mBorder) {
        mBorder = 0;
        mHas.clear();
    }
    mLacksState = false;
    if (!acrBatch.mAgents.empty()) {
        mAgent = acrBatch.mAgents.back();
    }
    sKeep(mPorts, acrBatch.mPorts);
    sKeep(mLabels, acrBatch.mLabels);
    sKeep(mFacts, acrBatch.mFacts);
    sKeep(mHost.mStorage, acrBatch.mHost.mStorage);
    sKeep(mHost.mBlindSpots, acrBatch.mHost.mBlindSpots);
    sKeep(mHost.mWindows, acrBatch.mHost.mWindows);
    for (const ZTSIncident& lrIncident : acrBatch.mIncidents.mIncidents) {
        if (lrIncident.mState == ZTEIncidentState::Closed) {
            mIncidents.erase(lrIncident.mId);
        } else {
            mIncidents[lrIncident.mId] = lrIncident;
        }
    }
}
