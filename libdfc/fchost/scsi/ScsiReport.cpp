#include "ScsiReport.h"

#include <utility>

void ZTCScsiReport::tellWay(bool aAreSeen, const std::string& acrText) {
    if (acrText != mWay) {
        mWay = acrText;
        mJournal.note(aAreSeen ? "SCSI errors are seen by %s" : "SCSI errors are not seen (%s)",
                      acrText.c_str());
    }
}

void ZTCScsiReport::setMemoryGone() {
    if (!std::exchange(mIsMemoryGone, true)) {
        mJournal.note("no memory: SCSI errors come later, or are counted as lost");
    }
}

void ZTCScsiReport::tellCounts(bool aIsLast) {
    const auto lTell = [&](ZTCFcSum& arSum, ZTEFcFigure aFirst, ZTEFcFigure aLast, const char* apWhat) {
        std::uint64_t lCount = 0;
        for (unsigned int lFigure = aFirst; lFigure <= aLast; ++lFigure) {
            lCount += mrStatistics.get(static_cast<ZTEFcFigure>(lFigure));
        }
        arSum.set(lCount);
        arSum.tell(mJournal, apWhat, aIsLast);
    };
    lTell(mFull, ZTFF_LostFull, ZTFF_LostFull,
          "SCSI errors were lost: they came faster than they were taken");
    lTell(mUnknownHost, ZTFF_LostUnknownHost, ZTFF_LostUnknownHost,
          "SCSI errors were lost: of hosts that are not there, or not yet");
    lTell(mNoMemory, ZTFF_LostNoMemory, ZTFF_LostNoMemory, "SCSI errors were lost: no memory");
    lTell(mBusy, ZTFF_LostBusy, ZTFF_LostBusy,
          "SCSI commands ended unseen, failed or not: another was looked at on their processor");
    lTell(mBeyond, ZTFF_BeyondQueueFull, ZTFF_BeyondFcpReadCheckError,
          "SCSI errors were more than are told a second: they are in the statistics alone");
}
