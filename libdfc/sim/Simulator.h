// The simulated adapters, the registrations for their events, and the delivery of events to them.
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>

#include "SimEvent.h"

class ZTCSimulator {
  public:
    using Clock = std::chrono::steady_clock;
    using Duration = std::chrono::nanoseconds;
    using Registration = std::shared_ptr<ZTSSimRegistration>;
    using Registrations = std::vector<Registration>;

    static constexpr uint32_t DefaultAdapters = 2;
    static constexpr uint32_t BadArgument = 1;  // the status of a call that cannot be carried out

    /// Where an event goes, for as long as the generation is the same.
    struct Route {
        uint64_t mGeneration = 0;
        Registrations mTargets;
    };

    /// What a thread that calls back has counted, and the registration whose callback it is inside.
    struct alignas(64) CallerState {
        std::atomic<const ZTSSimRegistration*> mpInside{nullptr};
        std::atomic<uint64_t> mSent{0};
        std::atomic<uint64_t> mDelivered{0};
        std::atomic<uint64_t> mUnregistered{0};
    };

    /// The number of adapters lies with the caller: it is asked for whatever else goes on.
    explicit ZTCSimulator(std::atomic<uint32_t>& arAdapters);

    void setAdapters(const ZTSSimStatement& acrStatement);
    bool isDriverOld();
    /// Whether `fail` of the adapters names this.
    bool isFailing(ZTESimFailingCall aWhat);
    uint64_t getPort(uint32_t aBoard);
    uint64_t getNode(uint32_t aBoard);

    /// The status and the registration's handle, 0 if it was not made.
    struct Outcome {
        uint32_t mStatus;
        uint32_t mHandle;
    };
    Outcome add(const Registration& acrRegistration);
    /// Returns when no callback of it is inside.
    uint32_t remove(uint32_t aBoard, uint32_t aHandle, bool aIsByMask);
    /// What later calls return. acrStatement: on-register or on-unregister.
    void addRule(const ZTSSimStatement& acrStatement);

    void setFault(ZTESimFault aFault, Duration aDuration);
    std::optional<Duration> getFault(ZTESimFault aFault);
    /// The first that is held for the mask, null if none is.
    Registration findByMask(uint32_t aMask);
    /// One of each board: a held one, else, if wanted, the last that ended.
    Registrations getOneOfEach(bool aWithEnded);

    uint64_t getGeneration() const { return mGeneration; }
    Route findRoute(const ZTCSimEvent& acrEvent);
    std::shared_ptr<CallerState> addCaller();
    void removeCaller(const std::shared_ptr<CallerState>& acrCaller);

    void countStorms(int aChange);
    std::string report();

    // Waits, all of which stop() ends.
    void stop();
    bool isStopped() const { return mIsStopped; }
    void sleepUntil(Clock::time_point aTime);
    void waitForStorms();
    /// 0: every kind of every adapter.
    void waitForRegistrations(uint64_t aCount);

  private:
    struct Rule {
        ZTESimVerb mVerb;
        std::optional<ZTSSimEventId> mId;
        std::optional<uint32_t> mBoard;
        uint32_t mStatus;
        uint64_t mTimes;
    };

    uint32_t applyRule(ZTESimVerb aVerb, const ZTSSimRegistration& acrRegistration);
    bool isEveryKindRegistered() const;
    uint64_t countHeld() const;
    void noteChange();

    std::atomic<uint32_t>& mrAdapters;
    std::atomic<uint64_t> mGeneration{1};
    std::atomic<bool> mIsStopped{false};

    std::mutex mMutex;  // guards what follows; no callback is made under it
    std::condition_variable mChanged;
    uint64_t mNode = 0x20000025b5010000;
    uint64_t mPort = 0x10000025b5010000;
    std::optional<uint64_t> mFail;
    bool mIsDriverOld = false;
    Registrations mRegistrations;  // in the order in which they were made
    std::map<uint32_t, Registration> mLastEnded;
    uint32_t mLastHandle = 0;
    std::vector<Rule> mRules;
    std::array<std::optional<Duration>, ZTSF_Count> mFaults;
    std::vector<std::shared_ptr<CallerState>> mCallers;
    CallerState mPast;  // the counts of the callers that have gone
    int mStorms = 0;
};

/// A thread that calls back.
class ZTCSimCaller {
  public:
    explicit ZTCSimCaller(ZTCSimulator& arSimulator)
        : mrSimulator(arSimulator), mpState(arSimulator.addCaller()) {}
    ~ZTCSimCaller() { mrSimulator.removeCaller(mpState); }
    ZTCSimCaller(const ZTCSimCaller&) = delete;
    ZTCSimCaller& operator=(const ZTCSimCaller&) = delete;

    /// arRoute: of this event, kept from one delivery to the next.
    void deliver(const ZTCSimEvent& acrEvent, ZTCSimulator::Route& arRoute);

  private:
    ZTCSimulator& mrSimulator;
    std::shared_ptr<ZTCSimulator::CallerState> mpState;
};
