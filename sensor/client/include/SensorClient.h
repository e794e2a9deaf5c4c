// A sensor's dealings with the agent: one function a command.
#pragma once

#include <memory>

#include "DirectoryClaim.h"
#include "SensorPipes.h"

struct ZTSSensorOptions {
    std::string mDirectory;                     ///< the agent's runtime directory
    std::chrono::milliseconds mTimeout{10000};  ///< how long an answer may take
    std::chrono::milliseconds mWait{0};         ///< how long to wait while another client has the pipes
};

/// One thread, and one client a directory at a time. Every function throws a ZTCSensorError of the kind that
/// fits (SensorError.h); after one other than ZTCRefusedError the next call opens the pipes anew, so that a
/// client lives on while agents come and go; but for a fetch that is not answered in time.
class ZTCSensorClient {
  public:
    /// Claims the directory. Throws ZTCPipesTakenError, ZTCNoAgentError (no directory), ZTCNoPermissionError.
    explicit ZTCSensorClient(ZTSSensorOptions aOptions);

    /// aCeiling: up to so many bytes a record's data grows when events repeat. A collection that is under way
    /// is not ended first: each of its events would be told twice.
    void startScope(std::uint32_t aCeiling);
    void stop();
    /// In as many commands as it takes. Throws ZTCRefusedError for none at all.
    void registerTargets(std::span<const ZTSSensorTarget> aTargets);
    /// aSeconds: not 0.
    void setCollectionPeriod(std::uint32_t aSeconds);
    void shutDown();
    /// What the agent has collected, and no longer has: the whole message as it came (decodeScopeData reads
    /// the part behind its header). After ZTCTimedOutError the answer is still to come, and the next fetch is
    /// for it.
    ZTSensorBytes fetch();
    /// Whether such an answer has not come yet. It is lost with this client.
    bool isFetchOpen() const { return mOpenFetch.has_value(); }
    /// How many answers to fetches are lost already: they were asked for, and will not come. What they had
    /// the agent counts as fetched.
    unsigned int getLostAnswers() const { return mLostAnswers; }

    /// Lets the pipes go: the next call opens those of the agent that serves them then.
    void close();
    /// From the next call on.
    void setTimeout(std::chrono::milliseconds aTimeout) { mOptions.mTimeout = aTimeout; }
    /// False: the directory has been replaced by another one, on which this client has no claim.
    bool hasDirectory() const { return mClaim.isInItsPlace(); }

  private:
    using Clock = ZTCSensorPipes::Clock;

    void open(Clock::time_point aDeadline);
    template <class Work>
    auto guarded(const Work& acrWork);
    void finishFetch(Clock::time_point aDeadline);
    void order(const ZTSensorBytes& acrCommand);

    ZTSSensorOptions mOptions;
    const ZTCDirectoryClaim mClaim;
    std::unique_ptr<ZTCSensorPipes> mPipes;
    std::uint32_t mTag;                       ///< of the next command
    std::optional<std::uint32_t> mOpenFetch;  ///< the tag of a fetch whose answer has not come in time
    unsigned int mLostAnswers = 0;
    ZTSensorBytes mLateFetch;  ///< its answer, when it came before something else's
};
