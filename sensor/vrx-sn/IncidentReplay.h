// Finds in the history, when vrx-sn starts, what incidents there were when it ended.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "IncidentWork.h"
#include "StoreBatch.h"
#include "StoreReader.h"

/// In a thread of its own, which may be kept by the disk: nobody waits for it, and at the end it is left to
/// itself.
class ZTCIncidentReplay {
  public:
    ZTCIncidentReplay();
    ~ZTCIncidentReplay();
    ZTCIncidentReplay(const ZTCIncidentReplay&) = delete;
    ZTCIncidentReplay& operator=(const ZTCIncidentReplay&) = delete;

    /// In the store's thread, before anything of this run is stored: what is there by then is read, and what
    /// comes later is not. Throws std::bad_alloc, std::system_error: nothing was begun.
    void begin(const std::string& acrPath, const ZTSStoreStart& acrStart, const ZTSIncidentRules& acrRules);
    /// Once, when it is done; null: not yet. arTrouble: what could not be read, in words; empty: nothing.
    std::unique_ptr<ZTCIncidentWork> take(std::string& arTrouble);

  private:
    struct Shared;
    const std::shared_ptr<Shared> mpShared;
};

/// What it may take.
struct ZTSReplayLimits {
    std::uint64_t mRecords = 500'000;       ///< the newest ones
    std::chrono::milliseconds mTime{4000};  ///< of reading
};
/// The work itself. Throws ZTCStoreError, std::bad_alloc. Returns what was left out, in words.
std::string replayIncidents(const std::string& acrPath, const ZTSStorePlace& acrPlace,
                            const ZTSStoreStart& acrStart, const ZTSReplayLimits& acrLimits,
                            const std::function<bool()>& acrIsOver, ZTCIncidentWork& arWork);
