// Looks at the host's ports in a thread of its own, because a driver may take its time to answer.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "PortBook.h"

class ZTCSnBuffer;
class ZTCSnLog;
struct ZTSStoreStart;

/// A look each second. The buffer gets the ports when something of them has changed, and what has changed;
/// the names when the file was read. A local port's fabric is the one that the names file gives it, else its
/// world wide name.
///
/// Another thread reads the names file, since it may lie on a disk that stands still. Whichever of the two is
/// kept holds up nobody else: it is waited for a second at the start and at the end, and then left to itself.
class ZTCHostLook {
  public:
    /// acrNames: the names file; empty: none. Reads both once, then looks on in its thread. Throws
    /// std::system_error if there can be no thread.
    ZTCHostLook(const std::string& acrRoot, const std::string& acrNames, ZTCSnBuffer& arBuffer,
                ZTCSnLog& arLog);
    ~ZTCHostLook();
    ZTCHostLook(const ZTCHostLook&) = delete;
    ZTCHostLook& operator=(const ZTCHostLook&) = delete;

    /// As they were seen last; never null. Any thread.
    std::shared_ptr<const ZTSHostPorts> getPorts() const;
    /// Reads the names file anew, soon. Any thread.
    void reload(const std::string& acrNames);
    /// The ports that an answer of the agent lists; those that the host does not show are ports too. Any
    /// thread. Throws std::bad_alloc.
    void seeAgent(ZTCPortBook::Names aPorts);
    /// What the store had when it was opened: what has become of its ports since is told. Any thread, once.
    /// Throws std::bad_alloc.
    void setStart(const ZTSStoreStart& acrStart);
    /// Tells of a driver that does not answer, once it has not for a minute. Any thread.
    void tellTrouble(std::chrono::steady_clock::time_point aNow);

  private:
    class Shared;
    std::shared_ptr<Shared> mpShared;
};
