#include "IncidentWork.h"

#include <new>

void ZTCIncidentWork::takeStart(const ZTSIncidentStart& acrStart, const std::optional<ZTSHostPorts>& acrPorts,
                                const std::optional<ZTSHostStorage>& acrStorage, ZTNanoseconds aTime) {
    mFinder.setStart(acrStart);
    if (acrPorts) {
        mReader.takePorts(*acrPorts);
    }
    if (acrStorage) {
        mReader.takeStorage(*acrStorage);
        mFinder.takeStorage(*acrStorage, aTime);
    }
}

void ZTCIncidentWork::endStart(const ZTSIncidentStart& acrStart) {
    if (acrStart.mTo != 0) {
        mFinder.advance(acrStart.mTo + (mTimes.mSettle + mTimes.mSkew) * ZTSecond + 1);
    }
}

void ZTCIncidentWork::takeLabels(const ZTPortLabels& acrLabels) {
    mLabels = acrLabels;
    mFinder.takeLabels(acrLabels);
}

void ZTCIncidentWork::takeWhatStands(const ZTSIncidentInput& acrInput, ZTNanoseconds aNow) {
    if (acrInput.mLabels) {
        takeLabels(*acrInput.mLabels);
    }
    if (acrInput.mPorts) {
        mReader.takePorts(*acrInput.mPorts);
    }
    if (acrInput.mHost.mStorage) {
        mReader.takeStorage(*acrInput.mHost.mStorage);
        mFinder.takeStorage(*acrInput.mHost.mStorage, aNow);
    }
    if (acrInput.mHost.mWindows) {
        mFinder.takeWindows(*acrInput.mHost.mWindows);
    }
}

std::uint64_t ZTCIncidentWork::take(const ZTSIncidentInput& acrInput, ZTNanoseconds aNow) {
    std::uint64_t lLost = 0;
    const auto lTry = [&](const auto& acrTake) {
        try {
            acrTake();
        } catch (const std::bad_alloc&) {
            ++lLost;
        }
    };
    lTry([&] { takeWhatStands(acrInput, aNow); });
    for (const ZTSChange& lrChange : acrInput.mChanges) {
        lTry([&] {
            mFinder.takeChange(lrChange);
            read(lrChange);
        });
    }
    for (const ZTSFoldedRow& lrRow : acrInput.mRows) {
        lTry([&] { read(lrRow.mRecord); });
    }
    for (const ZTSFpin& lrFpin : acrInput.mHost.mFpins) {
        lTry([&] { read(lrFpin); });
    }
    for (const ZTSStall& lrStall : acrInput.mHost.mStalls) {
        lTry([&] { read(lrStall); });
    }
    for (const ZTSLoss& lrLoss : acrInput.mLosses) {
        lTry([&] { read(lrLoss); });
    }
    for (const auto& lrSum : acrInput.mHost.mMeasures.getValues()) {
        const ZTCMeasures::Key& lrKey = lrSum.first;
        lTry(
            [&] { read(lrKey.mTime * ZTSecond, lrKey.mWhose, std::string_view(lrKey.mName), lrSum.second); });
    }
    return lLost;
}
