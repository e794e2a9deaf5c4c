// From host, channel and target to the name of the remote port.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>

/// A target as the SCSI layer numbers it.
struct ZTSScsiTarget {
    std::uint32_t mHost;
    std::uint32_t mChannel;
    std::uint32_t mTarget;

    auto operator<=>(const ZTSScsiTarget&) const = default;
};

/// One thread. What sysfs said of a target last is remembered when it says it no longer, as it does some time
/// after the port has gone. Whatever is missing or garbled there is not known.
class ZTCScsiTargets {
  public:
    using Time = std::chrono::steady_clock::time_point;

    /// acrRoot: where sysfs is mounted.
    explicit ZTCScsiTargets(const std::string& acrRoot) : mClass(acrRoot + "/class/") {}

    /// The port's name, 0 if none is known. aIdentity: which host of that number it is; another one has
    /// other targets. Sysfs is asked at most once a second for a target that it has named, and ten
    /// times for another. Throws std::bad_alloc.
    std::uint64_t getPort(const ZTSScsiTarget& acrTarget, std::uint64_t aIdentity, Time aNow);

  private:
    struct Name {
        std::uint64_t mPort = 0;
        std::optional<Time> mRead;
    };
    // All targets of one host.
    struct Host {
        std::uint64_t mIdentity = 0;
        std::map<std::pair<std::uint32_t, std::uint32_t>, Name> mNames;  // by channel and target
    };

    Name& find(const ZTSScsiTarget& acrTarget, std::uint64_t aIdentity);
    std::optional<std::uint64_t> read(const ZTSScsiTarget& acrTarget, Time aNow);
    void readRemotePorts();

    const std::string mClass;
    std::map<std::uint32_t, Host> mHosts;
    std::size_t mCount = 0;  // of names
    std::map<ZTSScsiTarget, std::uint64_t> mRemotePorts;
    std::optional<Time> mRemotePortsRead;
};
