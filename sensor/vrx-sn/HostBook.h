// What is known of the host, where those who look at it and those who ask for it meet.
#pragma once

#include <functional>
#include <mutex>

#include "BlindSpots.h"
#include "HostNews.h"
#include "PortBook.h"
#include "ServiceLog.h"
#include "StorageBook.h"
#include "StoreBatch.h"

class ZTCSnBuffer;

/// What figures and the state line say of it.
struct ZTSHostSummary {
    std::size_t mPorts = 0, mLuns = 0, mMaps = 0, mWholeMaps = 0, mPaths = 0, mUsablePaths = 0;
    std::size_t mStalled = 0;
    std::uint64_t mFpins = 0, mStalls = 0, mLostMessages = 0;
    std::chrono::nanoseconds mLongestSlice{0};
};

/// Any thread; its lock is held for moments. What is new goes to the buffer, in its order. Behind close()
/// nothing is told to anybody: a thread that comes back late from what kept it does no harm. Throws
/// std::bad_alloc: what was told is to be told again, unless it says otherwise.
class ZTCHostBook {
  public:
    using Clock = std::chrono::steady_clock;

    ZTCHostBook(ZTCSnBuffer& arBuffer, ZTCServiceLog& arLog);

    void close();
    /// Calls it with the log, unless closed.
    void say(const std::function<void(ZTCServiceLog&)>& acrSay) const;
    /// What the store had when it was opened.
    void setStart(const ZTSStoreStart& acrStart);
    /// Once, when that is known.
    std::optional<std::vector<ZTSStall>> takeStartStalls();

    // ---- Ports ----

    /// Never null.
    std::shared_ptr<const ZTSHostPorts> getPorts() const;
    bool hasSeenPorts() const;
    /// Nothing: they are as they were. What cannot be told for want of memory is told behind the next look.
    void seePorts(const ZTSHostPorts* apPorts, ZTNanoseconds aTime);
    void seeAgent(ZTCPortBook::Names aPorts, ZTNanoseconds aTime);
    bool areLabels(const ZTPortLabels& acrLabels) const;
    void setLabels(ZTPortLabels aLabels, ZTNanoseconds aTime);

    // ---- Everything else ----

    /// All of it has been looked at. What is not known of facts stays.
    void seeStorage(ZTSHostStorage aStorage, ZTNanoseconds aTime);
    /// The paths that these maps have now are all that they are to have.
    void accept(const std::vector<std::string>& acrMaps, ZTNanoseconds aTime);
    void seeFacts(const ZTSHostFacts& acrFacts, ZTNanoseconds aTime);
    /// They are gone from there then.
    void takeFpins(std::vector<ZTSFpin>& arFpins);
    /// Those that have begun or are over, and how many disks stand still now. What cannot be told is counted.
    void takeStalls(std::vector<ZTSStall> aStalls, std::size_t aStalled);
    /// Messages of the kernel's that never came.
    void loseMessages(std::uint64_t aCount, ZTNanoseconds aTime);
    /// Gathered, and told once a minute, for many of them are of one minute. Nothing of them is left behind.
    void addMeasures(ZTCMeasures& arMeasures, Clock::time_point aNow);
    /// What a slice of a look at the storage took of the processor.
    void noteSlice(std::chrono::nanoseconds aTime);
    void setWindows(std::vector<ZTSWindow> aWindows);
    /// Tells what waits for its minute.
    void settle();

    /// What can be seen of the host has changed, or may have.
    void see(const std::function<void(ZTSSight&)>& acrChange);
    void seeAgentHere(bool aIsHere);
    /// Works out what cannot be seen, and tells it if it is another: first when all is known that will soon
    /// be, or when it is late.
    void tellBlindSpots(bool aIsLate);

    ZTSHostSummary getSummary() const;

  private:
    void tell(ZTSHostNews aNews);
    void tellPorts();
    void tellStorage();
    void tellFacts();
    void tellChanges(std::vector<ZTSChange> aChanges);
    void tellMeasures();

    mutable std::mutex mLock;
    bool mIsClosed = false;
    ZTCSnBuffer& mrBuffer;
    ZTCServiceLog& mrLog;

    ZTCPortBook mPorts;
    ZTCStorageBook mStorage;
    ZTSHostFacts mFacts;
    ZTNanoseconds mFactsTime = 0;  // 0: none were seen
    std::optional<ZTSHostFacts> mStartFacts;
    bool mAreFactsCompared = false;
    std::optional<std::vector<ZTSStall>> mStartStalls;
    ZTCMeasures mMeasures;
    Clock::time_point mMeasuresDue;
    ZTSSight mSight;
    bool mIsAgentKnown = false;                            // whether there is one
    std::optional<std::vector<ZTSBlindSpot>> mBlindSpots;  // as they were told
    ZTSHostSummary mSummary;
};
