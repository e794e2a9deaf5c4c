// What sysfs says of Fibre Channel hosts and remote ports. Whatever is missing, empty, unreadable or garbled
// is told as not known; nothing here throws but for want of memory.
#pragma once

#include <array>
#include <map>

#include "Folder.h"

/// The error counters of a port that are looked at.
inline constexpr const char* ZTFcCounters[] = {
    "statistics/link_failure_count",    "statistics/loss_of_sync_count",
    "statistics/loss_of_signal_count",  "statistics/prim_seq_protocol_err_count",
    "statistics/invalid_tx_word_count", "statistics/invalid_crc_count",
    "statistics/error_frames",          "statistics/dumped_frames",
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

/// Looks at everything, again and again. One thread.
class ZTCFcSysfs {
  public:
    /// acrRoot: where sysfs is mounted. aKeptBelow: attributes stay open whose descriptors are below.
    explicit ZTCFcSysfs(const std::string& acrRoot, int aKeptBelow = countFcDescriptors(4));
    ZTCFcSysfs(const ZTCFcSysfs&) = delete;
    ZTCFcSysfs& operator=(const ZTCFcSysfs&) = delete;

    /// Takes as long as the drivers take to answer. Nothing if it cannot be known which hosts and remote
    /// ports there are, which is not the same as none; a system that has never had a Fibre Channel host has
    /// no list of them and no hosts. Throws std::bad_alloc; the next look is as good as any.
    std::optional<ZTFcHosts> look();

  private:
    struct Class;
    struct Known {
        Known(const Class& acrClass, const char* apName, std::uint64_t aInode, ZTSFcKept& arKept);

        const std::uint64_t mInode;
        std::uint64_t mLook = 0;  // the last one that found it
        ZTCFcFolder mFolder;
    };
    // A folder of sysfs with those of hosts, or of remote ports.
    struct Class {
        const std::string mPath;
        const char* const mpPrefix;  // of the names in it, before the number of the host ...
        const char mEnd;             // ... and what comes behind that
        const std::span<const char* const> mAttributes;
        std::map<std::string, Known, std::less<>> mKnown{};
    };

    template <class Do>
    bool each(Class& arClass, const Do& acrDo);
    bool readHost(std::uint32_t aNumber, Known& arKnown, ZTFcHosts& arHosts) const;
    std::optional<ZTFcHosts> read();

    ZTSFcKept mKept;
    Class mHosts;
    Class mRemotePorts;
    std::uint64_t mLook = 0;
};
