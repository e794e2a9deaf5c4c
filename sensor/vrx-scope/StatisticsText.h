// What the figures of the agent and of a library in it say, for people.
#pragma once

#include "AgentStatistics.h"

/// Figures, and how fast they have grown.
struct ZTSStatisticsTaken {
    std::chrono::steady_clock::time_point mTime;
    pid_t mProcess;
    ZTCAgentStatistics::Time mStart;
    ZTSStatistics mNow;
    std::optional<double> mSeconds;  ///< since those before, of the same file
    ZTSStatistics mBefore;

    /// Per second. Nothing for what is no counter, or has fallen, and as long as there is nothing to compare
    /// with.
    std::optional<double> rateOf(std::size_t aRow) const;
};

/// A table of all, and one of the library's if there are any.
std::string statisticsText(const ZTSStatisticsTaken& acrTaken,
                           const std::optional<ZTSStatisticsTaken>& acrOfLibrary);

/// A row of a group: what its name has between quotes, and its value.
struct ZTSLabelled {
    std::string mLabel;
    std::uint64_t mValue;
};
/// The rows whose name has a label.
std::vector<ZTSLabelled> labelledIn(const ZTSStatistics& acrStatistics, const std::string& acrName);

/// "3 events, 12 of 256 KiB"
std::string heldText(const ZTSStatistics& acrStatistics);

/// The call of the vendor's library that has been under way for longest: its function, and when it began in
/// nanoseconds since 1970.
std::optional<ZTSLabelled> findLibraryCall(const ZTSStatistics& acrStatistics);
/// "inside the vendor library's ztapi_reg_event for 75 s"; empty if there is no call that takes long.
std::string libraryText(const ZTSStatistics& acrStatistics);
