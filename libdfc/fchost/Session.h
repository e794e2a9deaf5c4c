// The library between init() and close(): one thread that listens, looks and calls back.
#pragma once

#include <atomic>
#include <thread>

#include "FcSettings.h"
#include "Journal.h"
#include "Netlink.h"
#include "Registrations.h"
#include "Watcher.h"

class ZTCFcSession {
  public:
    /// Looks at the hosts, opens the sockets, starts the thread. Throws ZTCFcError.
    explicit ZTCFcSession(const ZTSFcSettings& acrSettings);
    /// Waits for a callback that is inside.
    ~ZTCFcSession();
    ZTCFcSession(const ZTCFcSession&) = delete;
    ZTCFcSession& operator=(const ZTCFcSession&) = delete;

    // Any thread.
    std::uint32_t countBoards() const { return mBoards; }
    /// False: there is no such board.
    bool getNames(std::uint32_t aBoard, HBA_wwn& arNode, HBA_wwn& arPort);
    ZTCFcRegistrations& registrations() { return mRegistrations; }

  private:
    void run();
    void listen();
    void announce(const ZTSFcMessage& acrMessage);
    void look();
    void deliver(const ZTFcEvents& acrEvents);
    void deliver(const ZTSFcEvent& acrEvent);
    void deliverArrival(std::uint32_t aBoard);
    void report();
    void reportSums() const;
    void publish();

    const ZTSFcSettings mSettings;
    const ZTCFcJournal mJournal;
    ZTCFcSocket mTransport;
    ZTCFcSocket mUevents;
    ZTCFcRegistrations mRegistrations;

    // The thread's, once it runs.
    ZTCFcWatcher mWatcher;
    bool mIsLookDue = false;     // something came that a look is to settle
    bool mIsLookedFor = false;   // a host that was not known, since the last look by the clock
    bool mIsUnreadable = false;  // the list of hosts, when it was looked at last
    // Counts of all that was no event.
    std::uint64_t mLost = 0;
    std::uint64_t mForeign = 0;
    std::uint64_t mBad = 0;
    std::uint64_t mOfUnknownHosts = 0;
    std::map<std::uint32_t, std::uint64_t> mWithoutKind;

    const int mStop;  // behind what may throw: nobody else closes it

    struct Names {
        std::uint64_t mNode;
        std::uint64_t mPort;
    };
    std::mutex mNamesLock;
    std::vector<Names> mNames;  // guarded by mNamesLock
    std::atomic<std::uint32_t> mBoards{0};
    std::thread mThread;
};
