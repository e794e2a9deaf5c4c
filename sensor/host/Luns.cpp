#include "Luns.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <utility>

#include "BlockName.h"
#include "VitalData.h"

namespace {

enum Attribute : unsigned char {
    A_State,
    A_Access,
    A_QueueDepth,
    A_Type,
    A_Vendor,
    A_Model,
    A_Page80,
    A_Page83,
    A_Counters
};
constexpr const char* sAttributes[] = {"state",     "access_state", "queue_depth",   "type",
                                       "vendor",    "model",        "vpd_pg80",      "vpd_pg83",
                                       "ioerr_cnt", "iotmo_cnt",    "iorequest_cnt", "iodone_cnt"};
struct Counter {
    const char* mpMeasure;
    bool mIsOfLun;  // by hour for the LUN, besides by minute for the ports
};
constexpr Counter sCounters[] = {{"ioerr", true}, {"iotmo", true}, {"iorequest", false}, {"iodone", false}};

constexpr unsigned int sStepsFollowed = 32;  // the usual times until commands to a lost port fail are shorter
constexpr unsigned int sFollowedEach = 2;
constexpr unsigned int sStepsKeptBack = 60;
constexpr std::size_t sMostRemotePorts = 1024;  // of a host whose targets do not tell their names

using Read = std::optional<std::string_view>;

void sSet(std::string& arText, const Read& acrRead) {
    if (acrRead) {
        arText = *acrRead;
    }
}

template <class Number>
std::optional<Number> sNumber(std::string_view aText, int aBase) {
    Number lNumber = 0;
    aText.remove_prefix(aBase == 16 && aText.starts_with("0x") ? 2 : 0);
    const auto lParsed = std::from_chars(aText.begin(), aText.end(), lNumber, aBase);
    const bool lIsNumber = lParsed.ec == std::errc() && lParsed.ptr == aText.end();
    return lIsNumber ? std::optional(lNumber) : std::nullopt;
}

void sSetPage(std::string& arText, ZTCSysfsFolder& arFolder, Attribute aPage,
              std::string (*apRead)(std::span<const unsigned char>)) {
    unsigned char lPage[4096];
    if (const auto lRead = arFolder.readBytes(aPage, lPage)) {
        arText = apRead({lPage, *lRead});
    }
}

void sSetDisk(std::string& arDisk, const std::string& acrFolder) {
    std::string lDisk;
    const bool lIsListed = eachSysfsName(acrFolder + "/block", [&](const char* apName, std::uint64_t) {
        if (isBlockName(apName) && lDisk.empty()) {
            lDisk = apName;
        }
    });
    if (lIsListed) {
        arDisk = std::move(lDisk);
    }
}

// The last part of a path that is an address.
std::optional<ZTSScsiAddress> sAddressIn(std::string_view aPath) {
    while (!aPath.empty()) {
        const std::size_t lSlash = aPath.rfind('/');
        const std::string_view lPart = aPath.substr(lSlash == std::string_view::npos ? 0 : lSlash + 1);
        if (const auto lAddress = ZTSScsiAddress::fromText(lPart)) {
            return lAddress;
        }
        aPath = aPath.substr(0, aPath.size() - lPart.size());
        aPath.remove_suffix(aPath.empty() ? 0 : 1);
    }
    return {};
}

std::string sText(const ZTSScsiTarget& acrTarget) {
    return std::to_string(acrTarget.mHost) + ":" + std::to_string(acrTarget.mChannel) + ":" +
           std::to_string(acrTarget.mTarget);
}

}  // namespace

ZTCLuns::ZTCLuns(const std::string& acrRoot, std::size_t aMost)
    : mBus(acrRoot + "/sys/bus/scsi/devices/"),
      mClass(acrRoot + "/sys/class/scsi_device/"),
      mTargets(acrRoot + "/sys/class/fc_transport/target"),
      mRemotePorts(acrRoot + "/sys/class/fc_remote_ports/"),
      mRound(aMost) {
    static_assert(std::size(sCounters) == CounterCount &&
                  std::size(sAttributes) == A_Counters + CounterCount);
}

// What comes and goes is listed; a change, and the disk that a LUN becomes, are its own.
void ZTCLuns::take(const ZTSUevent& acrEvent) {
    const auto lAddress = sAddressIn(acrEvent.mPath);
    if (!lAddress) {
        return;
    }
    const bool lIsChange = acrEvent.mAction == "change";
    const bool lIsOwn = acrEvent.mPath.ends_with("/" + lAddress->toText());
    if (acrEvent.mAction == "remove" && acrEvent.find("DEVTYPE") == "scsi_device") {
        mRound.haveGone(*lAddress);
    } else if (!mRound.makeDue(*lAddress, lIsChange ? 1 : mRound.StepsBehind) || (lIsOwn && !lIsChange)) {
        mRound.makeListDue();
    }
}

void ZTCLuns::setPorts(const ZTSHostPorts& acrPorts) {
    std::map<std::uint32_t, Port> lPorts;
    for (const ZTSLocalPort& lrPort : acrPorts.mLocal) {
        std::string_view lHost = lrPort.mHost;
        std::uint32_t lNumber = 0;
        if (takeNumber(lHost, "host", lNumber) && lHost.empty()) {
            lPorts[lNumber] = {lrPort.mNames.mPort, lrPort.mFabric};
        }
    }
    if (lPorts == mPorts) {
        return;
    }
    mRound.each([&](const ZTSScsiAddress& acrAddress, Lun& arLun) {
        const auto lPort = lPorts.find(acrAddress.mTarget.mHost);
        // A LUN may outlive its host by a moment.
        if (lPort != lPorts.end() &&
            (arLun.mLun.mInitiator != lPort->second.mName || arLun.mLun.mFabric != lPort->second.mFabric)) {
            arLun.mHasChanged = true;
            mHasChanged = true;
            arLun.mLun.mInitiator = lPort->second.mName;
            arLun.mLun.mFabric = lPort->second.mFabric;
        }
    });
    mPorts = std::move(lPorts);
}

void ZTCLuns::follow(const std::set<ZTSWwn>& acrInitiators) {
    for (const ZTSWwn& lrInitiator : acrInitiators) {
        mFollowed[lrInitiator] = sStepsFollowed;
    }
}

void ZTCLuns::makeFollowedDue() {
    std::vector<ZTSScsiAddress> lDue;
    mRound.each([&](const ZTSScsiAddress& acrAddress, const Lun& acrLun) {
        const auto lAt = mFollowed.find(acrLun.mLun.mInitiator);
        if (lAt != mFollowed.end() && lAt->second % sFollowedEach == 0) {
            lDue.push_back(acrAddress);
        }
    });
    for (const ZTSScsiAddress& lrAddress : lDue) {
        mRound.makeDue(lrAddress, 1);
    }
    for (auto& [lrInitiator, lrSteps] : mFollowed) {
        --lrSteps;
    }
    std::erase_if(mFollowed, [](const auto& acrFollowed) { return acrFollowed.second == 0; });
}

// Its target is a port's, and the port is part of its name, but its driver does not show it yet.
bool ZTCLuns::isKeptBack(const Lun& acrLun) const {
    return !acrLun.mIsTold && acrLun.mLun.mTarget != ZTSWwn() && acrLun.mLun.mInitiator == ZTSWwn() &&
           mSteps - acrLun.mSince < sStepsKeptBack;
}

bool ZTCLuns::isWhole() const {
    return mRound.isWhole() && std::ranges::none_of(mRound.getItems(), [this](const auto& acrItem) {
               return isKeptBack(acrItem.second.mValue);
           });
}

void ZTCLuns::list() {
    ++mSteps;
    mHasChanged |= mIsAnyKeptBack;
    if (!mFollowed.empty()) {
        makeFollowedDue();
    }
    mIsBus = access(mBus.c_str(), F_OK) == 0 || access(mClass.c_str(), F_OK) != 0;
    const bool lHasChanged = mRound.listIfDue(
        mIsBus ? mBus : mClass, [](const char* apName) { return ZTSScsiAddress::fromText(apName); });
    if (lHasChanged || ++mSinceRemotePorts >= mRound.StepsARound) {
        mOfRemotePorts.clear();
        mSinceRemotePorts = 0;
    }
    mHasChanged |= lHasChanged;
}

void ZTCLuns::readDue(const ZTCSlice& acrSlice, unsigned int aQuarters, ZTNanoseconds aTime,
                      ZTCMeasures& arMeasures) {
    mRound.readDue(acrSlice, aQuarters, [&](const ZTSScsiAddress& acrAddress, Lun& arLun) {
        return read(acrAddress, arLun, true, aTime, arMeasures);
    });
}

// What does not change by itself is not read again, once it is known.
void ZTCLuns::readRound(const ZTCSlice& acrSlice, unsigned int aQuarters, ZTNanoseconds aTime,
                        ZTCMeasures& arMeasures) {
    mRound.readRound(acrSlice, aQuarters, [&](const ZTSScsiAddress& acrAddress, Lun& arLun) {
        const ZTSLun& lrLun = arLun.mLun;
        const bool lIsKnown = !lrLun.mWwid.empty() && (!arLun.mIsDisk || !lrLun.mDisk.empty()) &&
                              (lrLun.mInitiator == ZTSWwn() || lrLun.mTarget != ZTSWwn());
        return read(acrAddress, arLun, !lIsKnown, aTime, arMeasures);
    });
}

std::string ZTCLuns::folderOf(const std::string& acrAddress) const {
    return mIsBus ? mBus + acrAddress : mClass + acrAddress + "/device";
}

ZTESysfsRead ZTCLuns::read(const ZTSScsiAddress& acrAddress, Lun& arLun, bool aIsWhole, ZTNanoseconds aTime,
                           ZTCMeasures& arMeasures) {
    Lun lNew = arLun;
    ZTSLun& lrNew = lNew.mLun;
    lrNew.mAddress = acrAddress.toText();
    lNew.mSince = lNew.mSince != 0 ? lNew.mSince : mSteps;
    const std::string lPath = folderOf(lrNew.mAddress);
    ZTCSysfsFolder lFolder(lPath, sAttributes);
    sSet(lrNew.mState, lFolder.read(A_State));
    sSet(lrNew.mAccess, lFolder.read(A_Access));
    if (const auto lDepth = lFolder.read(A_QueueDepth)) {
        lrNew.mQueueDepth = sNumber<std::uint32_t>(*lDepth, 10);
    }
    if (aIsWhole) {
        readWhole(acrAddress, lFolder, lPath, lNew);
    }
    if (lrNew.mState.empty() && !lFolder.isHere()) {
        return ZTESysfsRead::Gone;
    }
    if (lrNew != arLun.mLun) {
        lNew.mHasChanged = true;
    }
    mHasChanged |= lNew.mHasChanged;
    arLun = std::move(lNew);
    count(lFolder, arLun, aTime, arMeasures);
    const bool lIsWhole = !arLun.mLun.mState.empty() && (!arLun.mIsDisk || !arLun.mLun.mDisk.empty());
    return lIsWhole ? ZTESysfsRead::Whole : ZTESysfsRead::Partly;
}

void ZTCLuns::readWhole(const ZTSScsiAddress& acrAddress, ZTCSysfsFolder& arFolder,
                        const std::string& acrPath, Lun& arLun) {
    ZTSLun& lrLun = arLun.mLun;
    lrLun.mLun = acrAddress.mLun;
    if (const auto lType = arFolder.read(A_Type)) {
        arLun.mIsDisk = *lType == "0";
    }
    sSet(lrLun.mVendor, arFolder.read(A_Vendor));
    sSet(lrLun.mModel, arFolder.read(A_Model));
    sSetPage(lrLun.mSerial, arFolder, A_Page80, &readSerial);
    sSetPage(lrLun.mWwid, arFolder, A_Page83, &readWwid);
    sSetDisk(lrLun.mDisk, acrPath);
    if (const auto lPort = mPorts.find(acrAddress.mTarget.mHost); lPort != mPorts.end()) {
        lrLun.mInitiator = lPort->second.mName;
        lrLun.mFabric = lPort->second.mFabric;
    }
    setTarget(acrAddress.mTarget, lrLun.mTarget);
}

// A counter that is seen first, or is less than it was, has added nothing.
void ZTCLuns::count(ZTCSysfsFolder& arFolder, Lun& arLun, ZTNanoseconds aTime, ZTCMeasures& arMeasures) {
    const ZTSLun& lrLun = arLun.mLun;
    for (std::size_t lAt = 0; lAt < CounterCount; ++lAt) {
        const auto lRead = arFolder.read(A_Counters + lAt);
        const auto lCount = lRead ? sNumber<std::uint64_t>(*lRead, 16) : std::nullopt;
        if (!lCount) {
            continue;
        }
        const std::uint64_t lAdded = *lCount - std::min(arLun.mCounts[lAt].value_or(*lCount), *lCount);
        arLun.mCounts[lAt] = lCount;
        const Counter& lrCounter = sCounters[lAt];
        if (lrLun.mInitiator != ZTSWwn()) {
            arMeasures.add(aTime, {lrLun.mInitiator, lrLun.mTarget, ""}, lrCounter.mpMeasure, lAdded);
        }
        if (lrCounter.mIsOfLun) {
            const std::string& lrName = lrLun.mWwid.empty() ? lrLun.mAddress : lrLun.mWwid;
            arMeasures.addToHour(aTime, {lrLun.mInitiator, lrLun.mTarget, lrName}, lrCounter.mpMeasure,
                                 lAdded);
        }
    }
}

void ZTCLuns::setTarget(const ZTSScsiTarget& acrTarget, ZTSWwn& arName) {
    static constexpr const char* sNames[] = {"port_name"};
    ZTCSysfsFolder lFolder(mTargets + sText(acrTarget), sNames);
    const auto lRead = lFolder.read(0);
    if (const auto lName = lRead ? ZTSWwn::fromText(*lRead) : std::nullopt) {
        arName = *lName;
    } else if (mPorts.contains(acrTarget.mHost)) {
        const auto& lrTargets = targetsOf(acrTarget.mHost);
        const auto lAt = lrTargets.find(acrTarget);
        arName = lAt != lrTargets.end() ? lAt->second : arName;
    }
}

const std::map<ZTSScsiTarget, ZTSWwn>& ZTCLuns::targetsOf(std::uint32_t aHost) {
    static constexpr const char* sNames[] = {"scsi_target_id", "port_name"};
    if (const auto lKnown = mOfRemotePorts.find(aHost); lKnown != mOfRemotePorts.end()) {
        return lKnown->second;
    }
    std::map<ZTSScsiTarget, ZTSWwn> lTargets;
    std::size_t lCount = 0;
    eachSysfsName(mRemotePorts, [&](const char* apName, std::uint64_t) {
        std::string_view lName(apName);
        ZTSScsiTarget lTarget;
        if (!takeNumber(lName, "rport-", lTarget.mHost) || !takeNumber(lName, ":", lTarget.mChannel) ||
            lTarget.mHost != aHost || ++lCount > sMostRemotePorts) {
            return;
        }
        ZTCSysfsFolder lFolder(mRemotePorts + apName, sNames);
        const auto lId = lFolder.read(0);
        const auto lNumber = lId ? sNumber<std::uint32_t>(*lId, 10) : std::nullopt;
        const auto lPort = lFolder.read(1);
        const auto lWwn = lPort ? ZTSWwn::fromText(*lPort) : std::nullopt;
        if (lNumber && lWwn) {
            lTarget.mTarget = *lNumber;
            lTargets[lTarget] = *lWwn;
        }
    });
    return mOfRemotePorts.emplace(aHost, std::move(lTargets)).first->second;
}

// Those that have not changed are moved. What may throw comes first.
bool ZTCLuns::tell(std::vector<ZTSLun>& arLuns) {
    if (!mHasChanged) {
        return false;
    }
    const std::size_t lMost = mRound.getItems().size();
    std::vector<ZTSLun> lChanged, lLuns;
    std::vector<ZTSScsiAddress> lTold;
    lLuns.reserve(lMost);
    lTold.reserve(lMost);
    mRound.each([&](const ZTSScsiAddress&, const Lun& acrLun) {
        if (acrLun.mHasChanged && !isKeptBack(acrLun)) {
            lChanged.push_back(acrLun.mLun);
        }
    });
    std::size_t lOld = 0, lNew = 0;
    bool lIsAnyKeptBack = false;
    mRound.each([&](const ZTSScsiAddress& acrAddress, Lun& arLun) {
        if (isKeptBack(arLun)) {
            lIsAnyKeptBack = true;
            return;
        }
        while (lOld < mTold.size() && mTold[lOld] < acrAddress) {
            ++lOld;
        }
        lLuns.push_back(std::move(arLun.mHasChanged ? lChanged[lNew++] : arLuns[lOld]));
        lTold.push_back(acrAddress);
        arLun.mHasChanged = false;
        arLun.mIsTold = true;
    });
    arLuns = std::move(lLuns);
    mTold = std::move(lTold);
    mHasChanged = false;
    mIsAnyKeptBack = lIsAnyKeptBack;
    return true;
}
