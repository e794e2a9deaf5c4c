// What can be seen of an agent without asking it: that it runs, and its figures.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "LossBook.h"

/// One run of an agent. One thread.
class ZTCAgentSight {
  public:
    /// Of the agent that shows figures there, or has left some when it was killed. Null:
    /// there are none. Throws ZTCNoPermissionError.
    static std::unique_ptr<ZTCAgentSight> ofFigures(const std::string& acrDirectory);
    /// Of one that runs and shows none, by its lock. Null: none runs.
    static std::unique_ptr<ZTCAgentSight> ofLock(const std::string& acrDirectory);

    ZTNanoseconds getStart() const { return mStart; }
    std::int64_t getProcess() const { return mProcess; }

    /// Also true when another one has taken its place.
    bool hasGone() const;
    /// As they are now. Null: there are none, or they cannot be read. Those of the library are read once a
    /// second.
    const ZTSBookFigures* look();
    /// What to wait for: before a fetch.
    void noteWake();
    /// Whether more has come since than is to be waited with.
    bool hasWoken() const { return mpAgent != nullptr && mpAgent->readWake() != mWake; }
    /// Until more has come than is to be waited with: true; or the time is over, or the end. Throws
    /// ZTCSensorError.
    bool waitUntil(ZTCWaitEnd::Clock::time_point aTime, const ZTCWaitEnd& acrEnd) const;

  private:
    explicit ZTCAgentSight(const std::string& acrDirectory) : mDirectory(acrDirectory) {}
    void lookAtLibrary();

    const std::string mDirectory;
    ZTNanoseconds mStart = 0;
    std::int64_t mProcess = 0;
    std::unique_ptr<ZTCAgentStatistics> mpAgent;  ///< null: it shows none
    std::unique_ptr<ZTCAgentStatistics> mpLibrary;
    std::optional<ZTCWaitEnd::Clock::time_point> mLookedAtLibrary;
    ZTCSensorDescriptor mLock;  ///< of one that shows none
    std::uint32_t mWake = 0;
    ZTSBookFigures mFigures;
};
