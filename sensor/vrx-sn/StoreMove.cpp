#include "StoreMove.h"

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
        arBatch.mPorts = arBatch.mPorts ? arBatch.mPorts : mPorts;
        arBatch.mLabels = arBatch.mLabels ? arBatch.mLabels : mLabels;
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
    mPorts = acrBatch.mPorts ? acrBatch.mPorts : mPorts;
    mLabels = acrBatch.mLabels ? acrBatch.mLabels : mLabels;
}
