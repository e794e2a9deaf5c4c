#include "ScsiReport.h"

#include <iterator>
#include <utility>

namespace {

// Figures that stand in a row, and what they are together.
struct Count {
    ZTEFcFigure mFirst;
    ZTEFcFigure mLast;
    const char* mpWhat;
};
constexpr Count sCounts[] = {
    {ZTFF_LostFull, ZTFF_LostFull, "SCSI errors were lost: they came faster than they were taken"},
    {ZTFF_LostUnknownHost, ZTFF_LostUnknownHost,
     "SCSI errors were lost: of hosts that are not there, or not yet"},
    {ZTFF_LostNoMemory, ZTFF_LostNoMemory, "SCSI errors were lost: no memory"},
    {ZTFF_BeyondQueueFull, ZTFF_BeyondFcpReadCheckError,
     "SCSI errors were more than are told a second: they are in the statistics alone"},
};

}  // namespace

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
    static_assert(std::size(sCounts) == Counts);
    for (unsigned int lAt = 0; lAt < Counts; ++lAt) {
        std::uint64_t lCount = 0;
        for (unsigned int lFigure = sCounts[lAt].mFirst; lFigure <= sCounts[lAt].mLast; ++lFigure) {
            lCount += mrStatistics.get(static_cast<ZTEFcFigure>(lFigure));
        }
        mCounts[lAt].set(lCount);
        mCounts[lAt].tell(mJournal, sCounts[lAt].mpWhat, aIsLast);
    }
}
