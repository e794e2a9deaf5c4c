// Finds incidents as rows come, whatever the disk does, and tells of them.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "IncidentRules.h"
#include "StoreBatch.h"
#include "StoreRequest.h"

class ZTCIncidentFeed;
class ZTCSnBuffer;
class ZTCSnFigures;
class ZTCServiceLog;

struct ZTSIncidentOptions {
    std::string mHost;  ///< whose history it is
    ZTSIncidentRules mRules = getDefaultRules();
    std::string mCommand{};  ///< of --on-incident; empty: none
    std::string mJournal{};  ///< where it listens; empty: there is none
    /// So long the history is waited for. Then incidents are found and told without what it knows, until it
    /// is there; only then they have their lasting ids, and are stored.
    std::chrono::milliseconds mPatience{10000};
};

/// Its thread takes what the feed has, and gives what it finds to the buffer. It never waits for the disk,
/// nor for the command, and sleeps when nothing comes and nothing is due.
class ZTCIncidentThread {
  public:
    /// The paths that are left of these maps are all that there are, by their names. In its thread.
    using Accepted = std::function<void(const std::vector<std::string>&)>;

    ZTCIncidentThread(ZTSIncidentOptions aOptions, ZTCIncidentFeed& arFeed, ZTCSnBuffer& arBuffer,
                      ZTCSnFigures& arFigures, ZTCServiceLog& arLog, Accepted aAccepted);
    ~ZTCIncidentThread();
    ZTCIncidentThread(const ZTCIncidentThread&) = delete;
    ZTCIncidentThread& operator=(const ZTCIncidentThread&) = delete;

    // ---- Any thread ----

    void setOptions(const ZTSIncidentRules& acrRules, const std::string& acrCommand);
    /// What the store had when it was opened, in the store's thread, before anything is stored; once. Throws
    /// std::bad_alloc: to be called again.
    void setStart(const std::string& acrPath, const ZTSStoreStart& acrStart);
    /// What somebody asks for of an incident, soon. aIsMarked: the history has done its part. False: it is
    /// nothing of the kind.
    bool ask(const ZTSStoreRequest& acrRequest, bool aIsMarked);
    /// All that came is looked at, and what it says is in the buffer. False: not in that time.
    bool settle(std::chrono::milliseconds aTime);
    /// Ends. False: a command cannot be killed; the process is to be left at once then.
    bool finish(std::chrono::milliseconds aTime);

  private:
    class Impl;
    std::unique_ptr<Impl> mpImpl;
};
