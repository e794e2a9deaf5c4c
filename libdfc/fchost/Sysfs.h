// What sysfs says of Fibre Channel hosts and remote ports. Whatever is missing, empty, unreadable or garbled
// is told as not known; nothing here throws but for want of memory.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

/// The error counters of a port that are looked at.
inline constexpr const char* ZTFcCounters[] = {
    "link_failure_count",    "loss_of_sync_count", "loss_of_signal_count", "prim_seq_protocol_err_count",
    "invalid_tx_word_count", "invalid_crc_count",  "error_frames",         "dumped_frames",
};

struct ZTSFcRemotePort {
    std::optional<std::uint32_t> mPortId;
    std::string mState;  ///< empty: not known
};

struct ZTSFcHost {
    std::uint64_t mIdentity = 0;         ///< another one: made anew since, under the same number
    std::string mState;                  ///< port_state, empty: not known
    std::optional<std::uint64_t> mNode;  ///< names as numbers, the first byte the highest
    std::optional<std::uint64_t> mPort;
    std::optional<std::uint64_t> mPermanentPort;  ///< of the adapter, looked for if there is no other
    std::array<std::optional<std::uint64_t>, std::size(ZTFcCounters)> mCounters;
    std::map<std::string, ZTSFcRemotePort> mRemotePorts;  ///< by their names in sysfs
};

/// By host number.
using ZTFcHosts = std::map<std::uint32_t, ZTSFcHost>;

/// One look at everything. aRoot: where sysfs is mounted. Takes as long as the drivers take to answer.
/// Nothing if it cannot be known which hosts and remote ports there are, which is not the same as none; a
/// system that has never had a Fibre Channel host has no list of them and no hosts.
std::optional<ZTFcHosts> readFcHosts(const std::string& acrRoot);
