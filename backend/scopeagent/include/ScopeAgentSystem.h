// The agent's system object: what it sets up, in which order.
#pragma once

#include "System.h"

/// Made by the entry point, driven by SystemMain. Lifecycle operations: main thread.
class ZTCScopeAgentSystem : public ZTCSystem {
  public:
    explicit ZTCScopeAgentSystem(const ZTCString& acrName);

    /// Global defaults, the runtime directory (ZT_VRX_SENSOR_DIR, without which the process ends with status
    /// 1), the pid file, the version.
    void preInit() override;
    void setCmdLineArgDescs() override;
    /// Not provided: throws ZTCNotImplementedEx.
    void processConfigFile() override;
    void displayHelp() override;
};
