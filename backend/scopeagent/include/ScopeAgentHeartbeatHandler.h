// The heartbeat thread: once a period it touches the agent's own pid file and looks at the sensor's; when the
// sensor has gone, the agent ends.
#pragma once

#include "CommonHeartbeat.h"
#include "ThreadComponent.h"

class ZTCScopeAgentHeartbeatHandler : public ZTCConditionTimedWaitThreadComponent {
  public:
    /// aTimeout is the period, in seconds. Throws ZTCNoMemoryEx.
    ZTCScopeAgentHeartbeatHandler(ZTCSystemInterface* apSystem, unsigned int aTimeout);

    ZTCCheckHeartbeat& getCheckHeartbeat() { return *mCheckHeartbeat; }
    ZTCSetHeartbeat& getSetHeartbeat() { return *mSetHeartbeat; }

  private:
    ZTCPointer<ZTCCheckHeartbeat> mCheckHeartbeat;
    ZTCPointer<ZTCSetHeartbeat> mSetHeartbeat;
};

/// The thread's procedure; returns 0.
void* ScopeAgentHeartbeatThread(void* lpArgs);
