// The queue depths of the LUNs of Fibre Channel hosts, and which of them have changed from look to look.
#pragma once

#include <chrono>
#include <map>

#include "Folder.h"

struct ZTSScsiDepthChange {
    std::uint32_t mHost;
    std::uint32_t mChannel;
    std::uint32_t mTarget;
    std::uint64_t mLun;
    std::uint32_t mOld;
    std::uint32_t mNow;

    bool operator==(const ZTSScsiDepthChange&) const = default;
};

/// One thread.
class ZTCScsiDepths {
  public:
    using Clock = std::chrono::steady_clock;

    /// aKeptBelow: attributes stay open whose descriptors are below. aListing: so long a list of the LUNs
    /// counts, if nobody notes a change.
    explicit ZTCScsiDepths(const std::string& acrSysfs, int aKeptBelow = countFcDescriptors(3),
                           Clock::duration aListing = std::chrono::seconds(60));
    ZTCScsiDepths(const ZTCScsiDepths&) = delete;
    ZTCScsiDepths& operator=(const ZTCScsiDepths&) = delete;

    /// Devices may have come or gone: the next look lists them.
    void noteChange() { mNextListing = {}; }
    /// Reads 1,024 of the LUNs, in turns, and adds what has changed since their last turns. A LUN that has
    /// come is remembered, and nothing is told of it. Throws std::bad_alloc: what was not added comes at a
    /// later look.
    void look(std::vector<ZTSScsiDepthChange>& arChanges);

  private:
    struct Address {
        std::uint32_t mHost = 0;
        std::uint32_t mChannel = 0;
        std::uint32_t mTarget = 0;
        std::uint64_t mLun = 0;
        auto operator<=>(const Address&) const = default;
    };
    struct Lun {
        Lun(const std::string& acrPath, std::uint64_t aInode, ZTSFcKept& arKept);

        const std::uint64_t mInode;
        std::uint64_t mListing = 0;  // the last one that had it
        std::optional<std::uint32_t> mDepth;
        ZTCFcFolder mFolder;
    };

    static std::optional<Address> toAddress(std::string_view aName);
    bool list();
    void read(const Address& acrAddress, Lun& arLun, std::vector<ZTSScsiDepthChange>& arChanges) const;

    const std::string mSysfs;
    const Clock::duration mListing;
    ZTSFcKept mKept;
    std::map<Address, Lun> mLuns;
    Address mTurn;  // of the LUN that is read next, or the next one behind
    Clock::time_point mNextListing{};
    std::uint64_t mListings = 0;
};
