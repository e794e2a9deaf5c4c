#include "HostPorts.h"

#include <strings.h>

#include <algorithm>
#include <charconv>
#include <set>
#include <tuple>
#include <vector>

namespace {

enum LocalAttribute : unsigned char {
    LA_State,
    LA_Speed,
    LA_Type,
    LA_PortId,
    LA_Node,
    LA_Port,
    LA_PermanentPort,
    LA_Fabric
};
constexpr const char* sLocalAttributes[] = {"port_state", "speed",     "port_type",           "port_id",
                                            "node_name",  "port_name", "permanent_port_name", "fabric_name"};

// Of what it is made.
enum MakingAttribute : unsigned char {
    MA_SymbolicName,
    MA_Model,
    MA_Firmware,
    MA_DriverName,
    MA_DriverVersion
};
constexpr const char* sMakingAttributes[] = {"symbolic_name", "model", "firmware_version", "driver_name",
                                             "driver_version"};
constexpr const char* sScsiAttributes[] = {"proc_name"};

enum RemoteAttribute : unsigned char { RA_State, RA_Roles, RA_PortId, RA_DevLossTmo, RA_Node, RA_Port };
constexpr const char* sRemoteAttributes[] = {"port_state",   "roles",     "port_id",
                                             "dev_loss_tmo", "node_name", "port_name"};

constexpr std::size_t sLooksARound = 40;  // over all remote ports: within a minute though looks come late
constexpr std::size_t sMostRemoteALook = 256;  // some milliseconds
constexpr unsigned int sLooksBehindAChange = 8;
constexpr unsigned int sLooksAMaking = 60;

using Read = std::optional<std::string_view>;

// Some drivers say so that they have nothing to say.
bool sIsNone(const std::string& acrText) {
    constexpr const char* lNone[] = {"unknown", "(null)", "<NULL>"};
    return std::any_of(std::begin(lNone), std::end(lNone),
                       [&](const char* apNone) { return strcasecmp(acrText.c_str(), apNone) == 0; });
}

void sSet(std::string& arText, const Read& acrRead) {
    if (acrRead) {
        arText = *acrRead;
        if (sIsNone(arText)) {
            arText.clear();
        }
    }
}

// What is not told stays what it was.
void sKeep(std::string& arText, const Read& acrRead) {
    std::string lText;
    sSet(lText, acrRead);
    if (!lText.empty()) {
        arText = std::move(lText);
    }
}

void sKeep(std::optional<std::uint32_t>& arNumber, const Read& acrRead) {
    std::uint32_t lNumber = 0;
    const std::string_view lDigits = acrRead.value_or("");
    const auto lParsed = std::from_chars(lDigits.begin(), lDigits.end(), lNumber);
    if (lParsed.ec == std::errc() && lParsed.ptr == lDigits.end()) {
        arNumber = lNumber;
    }
}

void sTakeMaking(ZTSLocalPort& arTo, const ZTSLocalPort& acrFrom) {
    arTo.mSymbolicName = acrFrom.mSymbolicName;
    arTo.mModel = acrFrom.mModel;
    arTo.mFirmware = acrFrom.mFirmware;
    arTo.mDriver = acrFrom.mDriver;
}

// All zeros and all ones are no name.
std::optional<ZTSWwn> sName(const Read& acrRead) {
    const auto lName = acrRead ? ZTSWwn::fromText(*acrRead) : std::nullopt;
    const auto lIsAll = [&](std::uint8_t aByte) {
        return std::all_of(lName->mBytes.begin(), lName->mBytes.end(),
                           [=](std::uint8_t aOne) { return aOne == aByte; });
    };
    return !lName || lIsAll(0) || lIsAll(0xff) ? std::nullopt : lName;
}

// A port's name stays its name, also while it cannot be read.
void sSet(ZTSWwn& arName, const std::optional<ZTSWwn>& acrRead) {
    arName = acrRead.value_or(arName);
}

// 24 bits that are not all zeros, in hexadecimal digits.
void sSet(std::optional<std::uint32_t>& arPortId, const Read& acrRead) {
    if (!acrRead) {
        return;
    }
    std::uint32_t lId = 0;
    const std::string_view lDigits = acrRead->substr(acrRead->starts_with("0x") ? 2 : 0);
    const auto lParsed = std::from_chars(lDigits.begin(), lDigits.end(), lId, 16);
    const bool lIsId =
        lParsed.ec == std::errc() && lParsed.ptr == lDigits.end() && lId != 0 && lId <= 0xffffff;
    arPortId = lIsId ? std::optional(lId) : std::nullopt;
}

// Without a switch some drivers name the port itself, or its node, as the fabric.
void sSetFabric(ZTSLocalPort& arPort, const Read& acrRead) {
    const auto lFabric = sName(acrRead);
    if (lFabric && *lFabric != arPort.mNames.mPort && *lFabric != arPort.mNames.mNode) {
        arPort.mFabric = lFabric->toText();
    } else if (acrRead && arPort.mState == "Online") {
        arPort.mFabric.clear();
    }
}

// The numbers of a name such as rport-3:0-1, each behind what stands before it.
bool sReadNumbers(std::string_view aName,
                  std::initializer_list<std::pair<std::string_view, std::uint32_t*>> aParts) {
    for (const auto& [lrBefore, lrpNumber] : aParts) {
        if (!aName.starts_with(lrBefore)) {
            return false;
        }
        aName.remove_prefix(lrBefore.size());
        const auto lParsed = std::from_chars(aName.begin(), aName.end(), *lrpNumber);
        if (lParsed.ec != std::errc()) {
            return false;
        }
        aName.remove_prefix(static_cast<std::size_t>(lParsed.ptr - aName.begin()));
    }
    return aName.empty();
}

}  // namespace

ZTCHostPorts::Local::Local(const std::string& acrFolder, std::uint64_t aInode)
    : mInode(aInode), mFolder(acrFolder, sLocalAttributes) {}

ZTCHostPorts::ZTCHostPorts(const std::string& acrRoot)
    : mLocalPath(acrRoot + "/sys/class/fc_host/"),
      mScsiPath(acrRoot + "/sys/class/scsi_host/"),
      mRemotePath(acrRoot + "/sys/class/fc_remote_ports/") {}

bool ZTCHostPorts::look() {
    ++mLook;
    mLeftOut = 0;
    lookAtLocal();
    lookAtRemote();
    const bool lHasChanged = mHasChanged;
    if (lHasChanged) {
        tell();
        mHasChanged = false;
    }
    return lHasChanged;
}

void ZTCHostPorts::lookAtLocal() {
    const bool lIsListed = eachSysfsName(mLocalPath, [this](const char* apName, std::uint64_t aInode) {
        std::uint32_t lNumber = 0;
        if (!sReadNumbers(apName, {{"host", &lNumber}})) {
            return;
        }
        auto lAt = mLocal.find(lNumber);
        if (lAt != mLocal.end() && lAt->second.mInode != aInode) {
            forget(lAt);
            lAt = mLocal.end();
        }
        if (lAt == mLocal.end()) {
            if (mLocal.size() == MostLocal) {
                ++mLeftOut;
                return;
            }
            lAt = mLocal.try_emplace(lNumber, mLocalPath + apName, aInode).first;
            lAt->second.mPort.mHost = apName;
        }
        lAt->second.mLook = mLook;
        if (readLocal(lAt->second)) {
            makeDue(lNumber);
        }
    });
    for (auto lAt = mLocal.begin(); lIsListed && lAt != mLocal.end();) {
        const auto lOne = lAt++;
        if (lOne->second.mLook != mLook) {
            forget(lOne);
        }
    }
}

void ZTCHostPorts::forget(std::map<std::uint32_t, Local>::iterator aAt) {
    const ZTSLocalPort& lrPort = aAt->second.mPort;
    if (lrPort.mNames.mPort != ZTSWwn()) {
        if (mGone.size() == MostLocal) {
            mGone.clear();
        }
        mGone[lrPort.mNames.mPort] = lrPort;
    }
    mLocal.erase(aAt);
    mHasChanged = true;
}

// True: its remote ports will not be as they were either.
bool ZTCHostPorts::readLocal(Local& arLocal) {
    ZTCSysfsFolder& lrFolder = arLocal.mFolder;
    ZTSLocalPort lPort = arLocal.mPort;
    sSet(lPort.mState, lrFolder.read(LA_State));
    sSet(lPort.mSpeed, lrFolder.read(LA_Speed));
    sSet(lPort.mType, lrFolder.read(LA_Type));
    sSet(lPort.mPortId, lrFolder.read(LA_PortId));
    sSet(lPort.mNames.mNode, sName(lrFolder.read(LA_Node)));
    const auto lName = sName(lrFolder.read(LA_Port));
    if (lName || lPort.mNames.mPort == ZTSWwn()) {
        sSet(lPort.mNames.mPort, lName ? lName : sName(lrFolder.read(LA_PermanentPort)));
    }
    sSetFabric(lPort, lrFolder.read(LA_Fabric));
    lrFolder.end();
    readMaking(arLocal, lPort);
    // It went while it was read: the next look misses it, and this one says nothing of it.
    if (lPort == arLocal.mPort || (lPort.mState.empty() && !lrFolder.isHere())) {
        return false;
    }
    const bool lIsMoved = lPort.mState != arLocal.mPort.mState || lPort.mPortId != arLocal.mPort.mPortId;
    arLocal.mPort = std::move(lPort);
    mHasChanged = true;
    return lIsMoved;
}

void ZTCHostPorts::readMaking(Local& arLocal, ZTSLocalPort& arPort) {
    const auto lGone = mGone.find(arPort.mNames.mPort);
    if (lGone != mGone.end()) {
        sTakeMaking(arPort, lGone->second);
        mGone.erase(lGone);
        arLocal.mMakingDue = 0;
        return;
    }
    if (arLocal.mMakingDue != 0 && arPort == arLocal.mPort) {
        --arLocal.mMakingDue;
        return;
    }
    ZTCSysfsFolder lFolder(mLocalPath + arPort.mHost, sMakingAttributes);
    sKeep(arPort.mSymbolicName, lFolder.read(MA_SymbolicName));
    sKeep(arPort.mModel, lFolder.read(MA_Model));
    sKeep(arPort.mFirmware, lFolder.read(MA_Firmware));
    sKeep(arLocal.mDriver, ZTCSysfsFolder(mScsiPath + arPort.mHost, sScsiAttributes).read(0));
    sKeep(arLocal.mDriver, lFolder.read(MA_DriverName));
    sKeep(arLocal.mDriverVersion, lFolder.read(MA_DriverVersion));
    const bool lIsOne = arLocal.mDriver.empty() || arLocal.mDriverVersion.empty();
    sKeep(arPort.mDriver, arLocal.mDriver + (lIsOne ? "" : " ") + arLocal.mDriverVersion);
    arLocal.mMakingDue = sLooksAMaking;
}

void ZTCHostPorts::makeDue(std::uint32_t aHost) {
    for (auto lAt = mRemote.lower_bound({aHost, 0, 0}); lAt != mRemote.end() && lAt->first.mHost == aHost;
         ++lAt) {
        lAt->second.mDue = sLooksBehindAChange;
    }
}

void ZTCHostPorts::lookAtRemote() {
    listRemote();
    std::vector<decltype(mRemote)::value_type*> lDue;
    for (auto& lrRemote : mRemote) {
        if (lrRemote.second.mDue != 0) {
            lDue.push_back(&lrRemote);
        }
    }
    // Those first that have been read least since they are due.
    std::stable_sort(lDue.begin(), lDue.end(), [](const auto* apLeft, const auto* apRight) {
        return apLeft->second.mDue > apRight->second.mDue;
    });
    const std::size_t lMost = mLook == 1 ? MostRemote : sMostRemoteALook;
    lDue.resize(std::min(lDue.size(), lMost));
    for (auto* const lpRemote : lDue) {
        --lpRemote->second.mDue;
        readRemote(lpRemote->first, lpRemote->second);
    }
    const std::size_t lRound = (mRemote.size() + sLooksARound - 1) / sLooksARound;
    for (std::size_t lCount = std::min(lMost - lDue.size(), lRound); lCount != 0; --lCount) {
        auto lAt = mRemote.upper_bound(mReadLast);
        lAt = lAt == mRemote.end() ? mRemote.begin() : lAt;
        mReadLast = lAt->first;
        readRemote(lAt->first, lAt->second);
    }
}

void ZTCHostPorts::listRemote() {
    const bool lIsListed = eachSysfsName(mRemotePath, [this](const char* apName, std::uint64_t aInode) {
        RemoteKey lKey{};
        if (!sReadNumbers(apName, {{"rport-", &lKey.mHost}, {":", &lKey.mChannel}, {"-", &lKey.mNumber}})) {
            return;
        }
        auto lAt = mRemote.find(lKey);
        if (lAt == mRemote.end()) {
            if (mRemote.size() == MostRemote) {
                ++mLeftOut;
                return;
            }
            lAt = mRemote.try_emplace(lKey).first;
        }
        if (lAt->second.mInode != aInode) {
            // Its attributes follow its folder by a moment.
            lAt->second = {aInode, mLook, sLooksBehindAChange, {}};
            mHasChanged = true;
        }
        lAt->second.mLook = mLook;
    });
    if (lIsListed) {
        mHasChanged |= std::erase_if(mRemote, [this](const auto& acrRemote) {
                           return acrRemote.second.mLook != mLook;
                       }) != 0;
    }
}

void ZTCHostPorts::readRemote(const RemoteKey& acrKey, Remote& arRemote) {
    const std::string lName = "rport-" + std::to_string(acrKey.mHost) + ":" +
                              std::to_string(acrKey.mChannel) + "-" + std::to_string(acrKey.mNumber);
    ZTCSysfsFolder lFolder(mRemotePath + lName, sRemoteAttributes);
    ZTSRemotePort lPort = arRemote.mPort;
    sSet(lPort.mState, lFolder.read(RA_State));
    sSet(lPort.mRoles, lFolder.read(RA_Roles));
    sSet(lPort.mPortId, lFolder.read(RA_PortId));
    sKeep(lPort.mDevLossTmo, lFolder.read(RA_DevLossTmo));
    // At rest the names cost as much as the rest, and say the same.
    if (lPort != arRemote.mPort || arRemote.mDue != 0 || lPort.mNames.mPort == ZTSWwn()) {
        sSet(lPort.mNames.mNode, sName(lFolder.read(RA_Node)));
        sSet(lPort.mNames.mPort, sName(lFolder.read(RA_Port)));
    }
    if (lPort != arRemote.mPort && (!lPort.mState.empty() || lFolder.isHere())) {
        arRemote.mPort = std::move(lPort);
        mHasChanged = true;
    }
}

// A port is known by its name, so each is told once: of two with the same name the one that is online, else
// the first.
void ZTCHostPorts::tell() {
    ZTSHostPorts lPorts;
    std::map<std::uint32_t, const ZTSLocalPort*> lTold;
    std::set<ZTSWwn> lNames{ZTSWwn()};
    for (const bool lIsOnline : {true, false}) {
        for (const auto& [lrNumber, lrLocal] : mLocal) {
            const ZTSLocalPort& lrPort = lrLocal.mPort;
            if ((lrPort.mState == "Online") == lIsOnline && lNames.insert(lrPort.mNames.mPort).second) {
                lTold[lrNumber] = &lrPort;
            }
        }
    }
    for (const auto& [lrNumber, lrpPort] : lTold) {
        lPorts.mLocal.push_back(*lrpPort);
    }
    for (const auto& [lrKey, lrRemote] : mRemote) {
        const auto lLocal = lTold.find(lrKey.mHost);
        if (lLocal != lTold.end() && lrRemote.mPort.mNames.mPort != ZTSWwn()) {
            ZTSRemotePort& lrPort = lPorts.mRemote.emplace_back(lrRemote.mPort);
            lrPort.mInitiator = lLocal->second->mNames.mPort;
            lrPort.mFabric = lLocal->second->mFabric;
        }
    }
    const auto lKeyOf = [](const ZTSRemotePort& acrPort) {
        return std::tie(acrPort.mInitiator, acrPort.mNames.mPort);
    };
    std::stable_sort(lPorts.mRemote.begin(), lPorts.mRemote.end(),
                     [&](const auto& acrLeft, const auto& acrRight) {
                         return lKeyOf(acrLeft) != lKeyOf(acrRight)
                                    ? lKeyOf(acrLeft) < lKeyOf(acrRight)
                                    : (acrLeft.mState == "Online") > (acrRight.mState == "Online");
                     });
    lPorts.mRemote.erase(std::unique(lPorts.mRemote.begin(), lPorts.mRemote.end(),
                                     [&](const auto& acrLeft, const auto& acrRight) {
                                         return lKeyOf(acrLeft) == lKeyOf(acrRight);
                                     }),
                         lPorts.mRemote.end());
    mPorts = std::move(lPorts);
}
