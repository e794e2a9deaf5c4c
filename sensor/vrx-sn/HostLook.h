// Looks at the host in threads of its own, because what is asked may take its time to answer.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "HostBook.h"

class ZTCFilesLook;
class ZTCLookThread;

/// Three of them: one asks drivers, for the ports and their counters (vrx-sn-ports); one reads what lies in
/// memory and hears the kernel, for LUNs, paths, disks and FPINs (vrx-sn-disks); one reads what may lie on a
/// disk that stands still, and asks multipathd (vrx-sn-files). Whichever is kept holds up nobody else: each
/// is watched, waited for a second at the start and at the end, and then left to itself.
class ZTCHostLook {
  public:
    using Clock = std::chrono::steady_clock;

    /// acrNames: the names file; empty: none. Reads names and ports once, then looks on in its threads.
    /// Throws std::system_error if there can be none.
    ZTCHostLook(const std::string& acrRoot, const std::string& acrNames, ZTCSnBuffer& arBuffer,
                ZTCServiceLog& arLog);
    ~ZTCHostLook();
    ZTCHostLook(const ZTCHostLook&) = delete;
    ZTCHostLook& operator=(const ZTCHostLook&) = delete;

    // ---- Any thread ----

    /// As they were seen last; never null.
    std::shared_ptr<const ZTSHostPorts> getPorts() const { return mpBook->getPorts(); }
    ZTSHostSummary getSummary() const { return mpBook->getSummary(); }
    /// Reads the names file anew, soon.
    void reload(const std::string& acrNames);
    void setWindows(std::vector<ZTSWindow> aWindows) { mpBook->setWindows(std::move(aWindows)); }
    /// The paths that these maps have now, by their names, are all that they are to have. Throws
    /// std::bad_alloc.
    void acceptPaths(const std::vector<std::string>& acrMaps);
    /// The ports that an answer of the agent lists; those that the host does not show are ports too. Throws
    /// std::bad_alloc.
    void seeAgent(ZTCPortBook::Names aPorts);
    /// Whether an agent answers.
    void seeAgentHere(bool aIsHere) { mpBook->seeAgentHere(aIsHere); }
    /// What is known of the host otherwise: for what it cannot see. Throws std::bad_alloc.
    void see(const std::function<void(ZTSSight&)>& acrChange) { mpBook->see(acrChange); }
    /// What the store had when it was opened: what has become of the host since is told. Throws
    /// std::bad_alloc: to be called again.
    void setStart(const ZTSStoreStart& acrStart) { mpBook->setStart(acrStart); }
    /// Tells of those who do not answer, once they have not for a minute.
    void tellTrouble(Clock::time_point aNow);
    /// Nothing more is looked at, and what was seen is in the buffer. Waits for a second at most, for one who
    /// asks nobody that may keep it.
    void settle();

  private:
    const std::shared_ptr<ZTCHostBook> mpBook;
    std::shared_ptr<ZTCFilesLook> mpFilesLook;
    std::shared_ptr<ZTCLookThread> mpFiles;
    std::unique_ptr<ZTCLookThread> mpPorts;
    std::unique_ptr<ZTCLookThread> mpDisks;
};
