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
    void compare(const std::optional<ZTFcHosts>& acrHosts, ZTCFcWatcher::Time aRead);
    void deliver();
    void deliver(const ZTSFcEvent& acrEvent);
    void deliverArrival(std::uint32_t aBoard);
    void publish();

    // Of something that is no event. Its journal line comes with the first, the tenth, the hundredth and so
    // on, and at the end.
    struct Sum {
        std::uint64_t mCount = 0;
        std::uint64_t mNext = 1;
    };
    void addUp();
    void tellSums(bool aIsLast);

    // What wakes the thread for its end.
    class Stop {
      public:
        Stop();  ///< throws ZTCFcError
        ~Stop();
        Stop(const Stop&) = delete;
        Stop& operator=(const Stop&) = delete;
        int get() const { return mFile; }
        void set() const;

      private:
        const int mFile;
    };

    const ZTSFcSettings mSettings;
    const ZTCFcJournal mJournal;
    ZTCFcSocket mTransport;
    ZTCFcSocket mUevents;
    ZTCFcRegistrations mRegistrations;

    // The thread's, once it runs.
    ZTCFcWatcher mWatcher;
    ZTFcEvents mEvents;           // that are still to be handed on
    bool mIsLookDue = false;      // something came that a look is to settle
    bool mIsPutOff = false;       // the last look, for what was told meanwhile
    bool mIsLookedFor = false;    // a host that was not known, since the last look by the clock
    bool mIsUnreadable = false;   // the list of hosts, when it was looked at last
    bool mIsOutOfMemory = false;  // since the last look that was not
    bool mHasOverrun = false;     // the kernel's queue for us, since the last report
    Sum mLost;
    Sum mForeign;
    Sum mBad;
    Sum mOfUnknownHosts;
    std::map<std::uint32_t, Sum> mWithoutKind;  // by code
    Sum mOfOtherCodes;

    const Stop mStop;

    struct Names {
        std::uint64_t mNode;
        std::uint64_t mPort;
    };
    std::mutex mNamesLock;
    std::vector<Names> mNames;  // guarded by mNamesLock
    std::atomic<std::uint32_t> mBoards{0};
    std::thread mThread;
};
