// The command thread: reads one command, has it processed, writes its one response, and begins again.
#pragma once

#include "ThreadComponent.h"

class ZTCScopeAgentCommandHandler : public ZTCTimedWaitThreadComponent {
  public:
    /// aTimeout, in seconds, is how long the thread waits for a command before it looks whether it is to
    /// exit.
    ZTCScopeAgentCommandHandler(ZTCSystemInterface* apSystem, unsigned int aTimeout);
};

/// The thread's procedure; returns 0.
void* CommandHandlerThreadProcedure(void* lpArgs);
