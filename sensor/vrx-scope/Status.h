// What can be seen of an agent, its sensor and its ports without a word to any of them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "AgentStatistics.h"
#include "AgentStatus.h"
#include "Ports.h"
#include "Record.h"

/// vrx-sn, by its figures.
struct ZTSCollectorStatus {
    using Time = ZTSAgentStatus::Time;

    pid_t mProcess = 0;  ///< 0: none runs
    std::optional<Time> mLastFetch;
    std::optional<Time> mLastWrite;    ///< when something came into the store
    std::optional<Time> mStandsSince;  ///< since when nothing can be written
    bool mHasAgent = false;            ///< one answers it
};

/// The host's ports, and who says so.
struct ZTSPortsStatus {
    using Time = ZTSAgentStatus::Time;

    const char* mpFrom = "";           ///< "store", "sysfs"
    std::vector<ZTSLocalPort> mPorts;  ///< at least one
    std::optional<Time> mSeen;         ///< when they were like that; nothing: now
};

struct ZTSScopeStatus {
    std::string mDirectory;
    ZTSAgentStatus mAgent;
    std::optional<ZTSStatistics> mStatistics;      ///< of the agent that runs; nothing: they cannot be read
    std::optional<ZTSStatistics> mLibrary;         ///< of the library in it that has some
    std::optional<ZTSCollectorStatus> mCollector;  ///< nothing: nobody lets us see
    std::optional<ZTSPortsStatus> mPorts;          ///< nothing: nobody tells
};

/// What cannot be read is not known. acrStore: the history's file, which may be missing. Throws what
/// readAgentStatus does.
ZTSScopeStatus readStatus(const std::string& acrDirectory, const std::string& acrStore);

/// What the agent that runs has lost, and the library in it, since they began.
std::vector<ZTSLoss> lossesOf(const ZTSScopeStatus& acrStatus);
/// Whether a collection runs. Nothing: the agent does not tell.
std::optional<bool> isCollecting(const ZTSScopeStatus& acrStatus);
