// What the library says in its journal about SCSI errors: how they are seen, and which are only counted.
#pragma once

#include <string>

#include "FcSettings.h"
#include "FcStatistics.h"
#include "Sum.h"

/// One thread.
class ZTCScsiReport {
  public:
    ZTCScsiReport(const ZTSFcSettings& acrSettings, ZTCFcStatistics& arStatistics)
        : mJournal(acrSettings.mLog), mrStatistics(arStatistics) {}

    /// By what SCSI errors are seen, or why they are not. Told unless it is what was told last. Throws
    /// std::bad_alloc.
    void tellWay(bool aAreSeen, const std::string& acrText);
    /// Told once, until setMemoryThere.
    void setMemoryGone();
    void setMemoryThere() { mIsMemoryGone = false; }
    /// The counts, as they have reached one, ten, a hundred and so on; or at the end, whatever they are.
    void tellCounts(bool aIsLast);

  private:
    const ZTCFcJournal mJournal;
    ZTCFcStatistics& mrStatistics;
    std::string mWay;
    bool mIsMemoryGone = false;
    ZTCFcSum mFull;
    ZTCFcSum mUnknownHost;
    ZTCFcSum mNoMemory;
    ZTCFcSum mBusy;
    ZTCFcSum mBeyond;
};
