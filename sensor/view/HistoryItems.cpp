#include "HistoryItems.h"

#include <algorithm>

#include "HostJson.h"
#include "HostText.h"
#include "PortText.h"
#include "RecordJson.h"

namespace {

// Most is in none, and to look below a name is a walk.
template <class Named>
const ZTSWindow* sWindowOf(const ZTSHistoryFrame& acrFrame, ZTNanoseconds aFirst, ZTNanoseconds aLast,
                           const Named& acrNamed) {
    const std::vector<ZTSWindow>& lrAll = acrFrame.mWindows;
    const bool lIsIn = std::any_of(lrAll.begin(), lrAll.end(), [&](const ZTSWindow& acrWindow) {
        return aLast >= acrWindow.mFirst && aFirst <= acrWindow.mLast;
    });
    return lIsIn ? findWindow(lrAll, acrFrame.mLabels, aFirst, aLast, acrFrame.mpBelow->listPaths(acrNamed))
                 : nullptr;
}

}  // namespace

std::uint64_t ZTSHistoryFrame::incidentOf(const ZTSRecord& acrRecord) const {
    return mIncident != 0 || !mpIncidents ? mIncident : mpIncidents->find(acrRecord);
}

const ZTSWindow* ZTSHistoryFrame::windowOf(const ZTSRecord& acrRecord) const {
    const ZTSSeries& lrSeries = acrRecord.mSeries;
    return findWindow(mWindows, mLabels, acrRecord.mFirst, acrRecord.mLast, lrSeries.mInitiator.mPort,
                      lrSeries.mRemote.value_or(ZTSWwn()), lrSeries.mFabric);
}

const ZTSWindow* ZTSHistoryFrame::windowOf(const ZTSFpin& acrFpin) const {
    return findWindow(mWindows, mLabels, acrFpin.mFirst, acrFpin.mLast, acrFpin.mInitiator,
                      portOf(acrFpin).value_or(ZTSWwn()), acrFpin.mFabric);
}

const ZTSWindow* ZTSHistoryFrame::windowOf(const ZTSStall& acrStall) const {
    return sWindowOf(*this, acrStall.mFirst, acrStall.mLast, acrStall.mName);
}

const ZTSWindow* ZTSHistoryFrame::windowOf(const ZTSChange& acrChange) const {
    return sWindowOf(*this, acrChange.mTime, acrChange.mTime, acrChange);
}

ZTSChange nameThePortsOf(const ZTPortLabels& acrLabels, ZTSChange aChange) {
    for (std::string* const lpText : {&aChange.mName, &aChange.mBefore, &aChange.mAfter}) {
        *lpText = nameThePortsIn(acrLabels, *lpText);
    }
    return aChange;
}

void putStored(ZTCJsonWriter& arJson, const ZTSStoredRecord& acrRecord, const ZTSHistoryFrame& acrFrame) {
    const ZTSRecord& lrRecord = acrRecord.mRecord;
    putRecord(arJson, viewOf(lrRecord));
    putPlace(arJson, {acrRecord.mId, acrFrame.mHost, lrRecord.mSeries, acrFrame.mLabels, acrRecord.mIsOpen,
                      acrFrame.incidentOf(lrRecord)});
    putWindow(arJson, acrFrame.windowOf(lrRecord));
}
void putStored(ZTCJsonWriter& arJson, const ZTSLoss& acrLoss, const ZTSHistoryFrame& acrFrame) {
    putLoss(arJson, acrLoss, acrFrame.mHost);
}
void putStored(ZTCJsonWriter& arJson, const ZTSChange& acrChange, const ZTSHistoryFrame& acrFrame) {
    putChange(arJson, acrChange, acrFrame.mLabels, acrFrame.mHost);
    putWindow(arJson, acrFrame.windowOf(acrChange));
}
void putStored(ZTCJsonWriter& arJson, const ZTSStoredFpin& acrFpin, const ZTSHistoryFrame& acrFrame) {
    putFpin(arJson, acrFpin.mId, acrFpin.mFpin, acrFrame.mLabels, acrFrame.mHost);
    putWindow(arJson, acrFrame.windowOf(acrFpin.mFpin));
}
void putStored(ZTCJsonWriter& arJson, const ZTSStoredStall& acrStall, const ZTSHistoryFrame& acrFrame) {
    putStall(arJson, acrStall.mId, acrStall.mStall, acrFrame.mHost);
    putWindow(arJson, acrFrame.windowOf(acrStall.mStall));
}
