// Looks at the host's ports in a thread of its own, because a driver may take its time to answer.
#pragma once

#include <memory>
#include <string>

#include "Ports.h"

class ZTCSnBuffer;
class ZTCSnLog;

class ZTCHostLook {
  public:
    /// acrNames: the names file; empty: none. Reads both once, then looks on in its thread.
    ZTCHostLook(const std::string& acrRoot, const std::string& acrNames, ZTCSnBuffer& arBuffer,
                ZTCSnLog& arLog);
    ~ZTCHostLook();
    ZTCHostLook(const ZTCHostLook&) = delete;
    ZTCHostLook& operator=(const ZTCHostLook&) = delete;

    /// As they were seen last. Any thread.
    std::shared_ptr<const ZTSHostPorts> getPorts() const;
    /// Reads the names file anew, soon. Any thread.
    void reload(const std::string& acrNames);

  private:
    class Impl;
    std::unique_ptr<Impl> mpImpl;
};
