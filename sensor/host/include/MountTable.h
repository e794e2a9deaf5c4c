// What is mounted, and what is swapped to.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// A block device's number, the major one in the upper half. 0: none.
using ZTDeviceNumber = std::uint64_t;
/// "8:16". 0: it is none.
ZTDeviceNumber readDeviceNumber(std::string_view aText);

/// A line that may be on a disk.
struct ZTSMounted {
    ZTDeviceNumber mDevice = 0;  ///< 0: what the source names
    std::string mSource;         ///< "/dev/mapper/vg0-data"
    std::string mPoint;          ///< "/data", fit to be shown; "[swap]"
    std::string mType;

    bool operator==(const ZTSMounted&) const = default;
};

/// So many of them at most; arLeftOut: how many there are besides. What is no line is left out. Throws
/// std::bad_alloc.
std::vector<ZTSMounted> readMountInfo(std::string_view aText, std::size_t aMost, std::size_t& arLeftOut);
/// The lines of /proc/swaps. A file that is swapped to is where it is mounted: acrMounts are asked.
std::vector<ZTSMounted> readSwaps(std::string_view aText, const std::vector<ZTSMounted>& acrMounts);

/// The host's own, from /proc, read anew when they have changed. One thread.
class ZTCMountTable {
  public:
    explicit ZTCMountTable(const std::string& acrRoot, std::size_t aMost);
    ~ZTCMountTable();
    ZTCMountTable(const ZTCMountTable&) = delete;
    ZTCMountTable& operator=(const ZTCMountTable&) = delete;

    void lookAnew() { mIsDue = true; }
    /// True: getMounted() is not what it was. Throws std::bad_alloc alone.
    bool look();
    bool hasLooked() const { return mHasLooked; }
    const std::vector<ZTSMounted>& getMounted() const { return mMounted; }
    std::size_t getLeftOut() const { return mLeftOut; }

  private:
    bool hasChanged();
    int openMounts();

    const std::string mRoot;
    const std::size_t mMost;
    int mMounts = -1;  // kept, because it tells whoever has it open that something was mounted
    std::uint64_t mState = 0;
    unsigned int mSinceRead = 0;
    bool mIsDue = true;
    bool mHasLooked = false;
    std::size_t mLeftOut = 0;
    std::vector<ZTSMounted> mMounted;
};
