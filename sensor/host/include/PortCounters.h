// The error counters of the ports, and what has been added to them.
#pragma once

#include <memory>
#include <string>

#include "HostNews.h"
#include "Ports.h"

/// Of each local port all of `statistics` that counts errors, fpin_* too, each minute; of the remote ports
/// fpin_*, a part at each call. A driver may take its time for them. One thread. Throws std::bad_alloc alone.
class ZTCPortCounters {
  public:
    explicit ZTCPortCounters(std::string aRoot);
    ~ZTCPortCounters();
    ZTCPortCounters(const ZTCPortCounters&) = delete;
    ZTCPortCounters& operator=(const ZTCPortCounters&) = delete;

    /// A part of the round; each second. A counter that is seen first, or that is less than it was, has added
    /// nothing.
    void step(const ZTSHostPorts& acrPorts, ZTNanoseconds aTime, ZTCMeasures& arMeasures);
    /// What cannot be counted, by port, as far as it is known by now.
    std::vector<ZTSBlindSpot> listBlindSpots() const;

  private:
    class Impl;
    std::unique_ptr<Impl> mpImpl;
};
