// What a made-up host consists of, as a text says it.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Wwn.h"

struct ZTSSitePort {
    unsigned int mHost = 0;  ///< of "host3"
    std::string mFabric;
    ZTSPortNames mNames;
    std::uint32_t mId = 0;
    std::string mName;                               ///< what people call it; empty: nothing
    std::string mSwitch;                             ///< where it is plugged in
    std::map<std::string, std::string> mAttributes;  ///< of its fc_host: firmware_version, speed, ...
};

struct ZTSSiteTarget {
    std::string mName;
    std::string mArray;
    std::string mController;
    std::string mFabric;
    ZTSPortNames mNames;
    std::uint32_t mId = 0;
    std::string mSwitch;
};

struct ZTSSiteLun {
    std::string mArray;
    std::uint32_t mNumber = 0;
    std::string mMap;   ///< empty: its paths have no map
    std::string mWwid;  ///< 32 hexadecimal digits
    std::string mSerial;
    std::string mVendor;
    std::string mModel;
    std::uint64_t mGib = 0;
    std::uint32_t mDepth = 0;
    double mRate = 0;  ///< commands a second
};

/// A disk that is none of an array's, a partition of such a one, or a volume of device mapper.
struct ZTSSiteBlock {
    std::string mName;
    std::vector<std::string> mOver;  ///< none: a disk
    bool mIsPartition = false;
    std::uint64_t mGib = 0;
    double mRate = 0;
};

struct ZTSSiteMount {
    std::string mPoint;
    std::string mOver;
    std::string mType;  ///< "swap": it has no point
};

/// A plain value.
struct ZTSSite {
    std::string mKernel;
    std::map<std::string, ZTSWwn> mFabrics;
    std::vector<ZTSSitePort> mPorts;
    std::vector<ZTSSiteTarget> mTargets;
    std::vector<ZTSSiteLun> mLuns;
    std::vector<ZTSSiteBlock> mBlocks;
    std::vector<ZTSSiteMount> mMounts;
    std::string mMultipath;  ///< the text of its configuration
};

/// Throws ZTCHostSimError: PLACE:LINE: what is wrong, what was expected.
ZTSSite readHostSite(std::string_view aText, std::string_view aPlace);
/// Two fabrics, four ports, two arrays of two controllers, three LUNs of eight paths, and what stands above.
const char* getDefaultHostSite();
/// The names file that fits it.
std::string makeHostNames(const ZTSSite& acrSite);
