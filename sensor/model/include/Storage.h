// What lies beyond the ports: LUNs, the paths to them, and what stands above, up to the mounts.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Wwn.h"

/// A LUN as one path shows it: a SCSI device of this host.
struct ZTSLun {
    std::string mAddress;  ///< "3:0:1:2": host, channel, target and LUN, as the kernel counts
    ZTSWwn mInitiator;     ///< port names; all zeros: not known, or the path is not Fibre Channel
    ZTSWwn mTarget;
    std::string mFabric;  ///< the initiator's
    std::uint64_t mLun = 0;
    std::string mDisk;    ///< "sdb"; empty: it is no disk
    std::string mWwid;    ///< its name in page 0x83, "naa.600601603b201a2f"; empty: not known
    std::string mSerial;  ///< page 0x80
    std::string mVendor;
    std::string mModel;
    std::string mState;   ///< "running", "blocked", "offline"
    std::string mAccess;  ///< "active/optimized"; empty: the array has no such states
    std::optional<std::uint32_t> mQueueDepth;

    bool operator==(const ZTSLun&) const = default;
    /// What stays the same when the kernel numbers anew: "50:... LUN 2 seen from 10:...", the ports and the
    /// LUN, else the address.
    std::string getName() const;
};

/// How it is known whether a path is usable.
enum class ZTEPathSource : unsigned char {
    Ports,       ///< inferred: of the LUN's own state and the ports; nobody has told
    Multipathd,  ///< its answer
    Kernel,      ///< device mapper told of a failure or a reinstatement
};
struct ZTSPath {
    std::string mDisk;  ///< "sdb"
    bool mIsUsable = false;
    ZTEPathSource mSource = ZTEPathSource::Ports;

    bool operator==(const ZTSPath&) const = default;
};

/// The paths to one LUN, under one name.
struct ZTSMap {
    std::string mDisk;  ///< "dm-3"
    std::string mName;  ///< "mpatha"
    std::string mWwid;  ///< behind "mpath-" in device mapper's uuid
    std::vector<ZTSPath> mPaths;
    /// The most paths that it has had since the history knows it: what has been removed is missing all the
    /// same. Never less than there are disks of, but where somebody has accepted fewer.
    std::uint32_t mTotal = 0;

    bool operator==(const ZTSMap&) const = default;
    std::uint32_t countUsable() const;
    /// Whether one of its paths is inferred.
    bool isInferred() const;
};

/// A block device over others: a volume, a partition, an array of disks.
struct ZTSVolume {
    std::string mDisk;               ///< "dm-5", "sda1", "md0"
    std::string mName;               ///< "vg0-data"; else the disk's
    std::vector<std::string> mOver;  ///< the disks right beneath, sorted

    bool operator==(const ZTSVolume&) const = default;
};

struct ZTSMount {
    std::string mPoint;  ///< "/data"; swap is "[swap]"
    std::string mDisk;
    std::string mType;  ///< "xfs"

    bool operator==(const ZTSMount&) const = default;
};

/// What stands above a disk, each once and sorted.
struct ZTSHit {
    std::vector<std::string> mMaps;     ///< names
    std::vector<std::string> mVolumes;  ///< names
    std::vector<std::string> mMounts;   ///< mount points

    /// What people know it by: the mounts, else the volumes, else the maps; "/data, /home", and how many more
    /// than eight there are. Empty: nothing stands above.
    std::string toText() const;
};

/// All of it at one moment. A plain value: any thread. Each search walks through all of it; for many there is
/// ZTCStorageIndex.
struct ZTSHostStorage {
    std::vector<ZTSLun> mLuns;  ///< sorted by host, channel, target and LUN
    std::vector<ZTSMap> mMaps;  ///< sorted by name
    std::vector<ZTSVolume> mVolumes;
    std::vector<ZTSMount> mMounts;

    bool operator==(const ZTSHostStorage&) const = default;
    /// The LUN of a disk; null: none.
    const ZTSLun* findDisk(std::string_view aDisk) const;
    /// The map that has a disk as a path, or that is the disk; null: none.
    const ZTSMap* findMap(std::string_view aDisk) const;
    /// What stands above a disk, whether it is a path, a map or a volume; with itself, if it is a map or a
    /// volume. A circle ends it.
    ZTSHit hitBy(std::string_view aDisk) const;
};
