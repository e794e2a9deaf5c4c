// Which ports an agent is to name in its records, and which of them it has been told.
#pragma once

#include <memory>
#include <set>
#include <span>
#include <utility>
#include <vector>

#include "Ports.h"
#include "SensorMessages.h"

/// Of one run of an agent: it keeps what it was told until it ends. One thread.
class ZTCAgentTargets {
  public:
    /// The host's ports; the same object again costs nothing.
    void see(const std::shared_ptr<const ZTSHostPorts>& acrPorts);
    /// What fits into one message.
    std::span<const ZTSSensorTarget> getNext() const;
    /// The first ones of those.
    void haveRegistered(std::size_t aCount);

  private:
    std::shared_ptr<const ZTSHostPorts> mpPorts;
    std::set<std::pair<std::uint32_t, ZTSPortNames>> mRegistered;
    std::vector<ZTSSensorTarget> mLeft;
};
