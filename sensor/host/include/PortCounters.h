// The error counters of the ports, and what has been added to them.
#pragma once

#include <array>
#include <map>
#include <string>
#include <vector>

#include "HostNews.h"
#include "Ports.h"

/// Of each local port all of `statistics` that counts errors, fpin_* too; of the remote ports fpin_*: each
/// port once in a round of a minute of calls, a part of them at each. A driver may take its time for them.
/// One thread. Throws std::bad_alloc alone: the ports of that call have their turn in the next round.
class ZTCPortCounters {
  public:
    static constexpr unsigned int CallsARound = 60;
    /// What there is beyond is left out.
    static constexpr std::size_t MostPorts = 4352;

    /// acrRoot: where `sys` is looked for.
    explicit ZTCPortCounters(const std::string& acrRoot);
    ZTCPortCounters(const ZTCPortCounters&) = delete;
    ZTCPortCounters& operator=(const ZTCPortCounters&) = delete;

    /// A part of the round; each second. A counter that is seen first, or that is less than it was, because
    /// it was reset or has wrapped, or that is more by what no port could count, has added nothing.
    void step(const ZTSHostPorts& acrPorts, ZTNanoseconds aTime, ZTCMeasures& arMeasures);
    /// What cannot be counted, by port, as far as it is known by now.
    std::vector<ZTSBlindSpot> listBlindSpots() const;

  private:
    static constexpr std::size_t Counters = 30;
    static constexpr std::uint64_t NoValue = UINT64_MAX;  // as the kernel says it

    struct Port {
        ZTSMeasured mWhose{};
        bool mIsRead = false;
        std::uint64_t mRound = 0;  // the last one that found it
        std::array<std::uint64_t, Counters> mValues{};
    };
    using Ports = std::map<std::string, Port>;  // by their folders below the classes

    void begin(const ZTSHostPorts& acrPorts);
    void add(const std::string& acrFolder);
    void read(Ports::value_type& arPort, const ZTSHostPorts& acrPorts, ZTNanoseconds aTime,
              ZTCMeasures& arMeasures) const;

    const std::string mClasses;
    Ports mPorts;
    std::vector<Ports::value_type*> mDue;  // in this round
    std::size_t mPart = 0;                 // of them, at each call
    unsigned int mCall = 0;                // of the round
    std::uint64_t mRound = 0;
};
