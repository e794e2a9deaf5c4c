// The library between init() and close(): one thread that listens to the kernel, looks at the hosts, and has
// called back whoever wants what has happened; and another one that does the same of SCSI errors.
#pragma once

#include "Boards.h"
#include "FcFpins.h"
#include "FcSettings.h"
#include "Netlink.h"
#include "Registrations.h"
#include "Report.h"
#include "Schedule.h"
#include "ScsiWatch.h"
#include "Thread.h"
#include "Watcher.h"

class ZTCFcSession {
  public:
    /// Looks at the hosts, opens the sockets, starts the threads. Throws ZTCFcError.
    explicit ZTCFcSession(const ZTSFcSettings& acrSettings);
    /// Waits for a callback that is inside.
    ~ZTCFcSession();
    ZTCFcSession(const ZTCFcSession&) = delete;
    ZTCFcSession& operator=(const ZTCFcSession&) = delete;

    // Any thread.
    const ZTCFcBoards& boards() const { return mBoards; }
    ZTCFcRegistrations& registrations() { return mRegistrations; }

  private:
    void run();
    void listen();
    void announce(const ZTSFcMessage& acrMessage);
    void look();
    void compare(const std::optional<ZTFcHosts>& acrHosts, ZTCFcWatcher::Time aRead);
    void deliver();

    const ZTSFcSettings mSettings;
    ZTCFcRegistrations mRegistrations;
    ZTCFcBoards mBoards;
    ZTCFcStatistics mStatistics;

    // The thread's, once it runs.
    ZTCFcSocket mTransport;  // open before the first look: what changes behind it is announced
    ZTCFcSocket mUevents;
    ZTCFcReport mReport;
    ZTCFcFpins mFpins;
    ZTCFcSysfs mSysfs;
    ZTCFcWatcher mWatcher;
    ZTFcEvents mEvents;  // that are still to be handed on
    ZTCFcSchedule mSchedule;

    ZTCFcThread mThread;

    ZTCFcSocket mScsiUevents;
    std::optional<ZTCScsiWatch> mScsiWatch;
};
