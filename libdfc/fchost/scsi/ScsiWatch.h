// The thread that learns of SCSI errors and has called back whoever wants them.
#pragma once

#include <optional>

#include "Netlink.h"
#include "ScsiReport.h"
#include "ScsiTeller.h"
#include "ScsiWays.h"
#include "Thread.h"

/// What it is given lives longer. It needs rights for as long as it opens something, and no more.
class ZTCScsiWatch {
  public:
    /// arUevents: its own, and nobody else's. Throws ZTCFcError.
    ZTCScsiWatch(const ZTSFcSettings& acrSettings, const ZTCFcBoards& acrBoards,
                 ZTCFcRegistrations& arRegistrations, ZTCFcStatistics& arStatistics, ZTCFcSocket& arUevents,
                 ZTScsiWays aWays);
    /// Tells what there still is, and waits for a callback that is inside.
    ~ZTCScsiWatch();
    ZTCScsiWatch(const ZTCScsiWatch&) = delete;
    ZTCScsiWatch& operator=(const ZTCScsiWatch&) = delete;

  private:
    using Time = std::chrono::steady_clock::time_point;

    void run();
    bool waitForWork();
    void work();
    void listen();
    void keepOpen();
    bool open();
    bool take(void (ZTCScsiSource::*apTake)(ZTScsiFailures&));
    void takeFirsts();
    void drain();
    void countLost();
    void look();
    void finish();
    Time getNext() const;
    bool isTime(const std::optional<Time>& acrTime) const { return acrTime && *acrTime <= mNow; }

    const std::chrono::milliseconds mPeriod;
    const ZTScsiWays mWays;
    ZTCFcStatistics& mrStatistics;
    ZTCFcSocket& mrUevents;

    // The thread's, once it runs.
    ZTCScsiTeller mTeller;
    ZTCScsiReport mReport;
    ZTCScsiDepths mDepths;
    std::unique_ptr<ZTCScsiSource> mpSource;
    std::string mWhyNot;  // the ways before that one, or all
    ZTScsiFailures mFailures;
    std::vector<ZTSScsiDepthChange> mChanges;
    bool mHasUevents = false;  // poll() says so
    bool mHasFailures = false;
    unsigned int mSoon = 0;  // times that opening is tried again at once
    Time mNow;
    Time mLook;                  // when the next look at the queues' depths is due
    Time mOpen;                  // and the next try to open the source, or what of it is not open
    std::optional<Time> mDrain;  // and what the kernel has counted
    std::optional<Time> mRest;   // until when the source is not asked

    ZTCFcThread mThread;
};
