// What becomes of a made-up host, and what its kernel says of it.
#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "FpinLine.h"
#include "MadeUpHost.h"

namespace {

using What = ZTSHostDisk::What;

// Codes of the kernel's Fibre Channel transport class.
constexpr std::uint32_t sLinkUp = 2;
constexpr std::uint32_t sLinkDown = 3;
constexpr std::uint32_t sFpin = 0x501;

constexpr std::size_t sPathAt = 3;  // behind "sys", as uevents have it

std::string sScsiFolder(const ZTSHostDisk& acrPath) {
    return acrPath.mFolder.substr(0, acrPath.mFolder.rfind("/block/"));
}

std::string sRportFolder(const ZTSHostRemote& acrRemote) {
    return acrRemote.mFolder + "/fc_remote_ports/" +
           acrRemote.mFolder.substr(acrRemote.mFolder.rfind('/') + 1);
}

}  // namespace

void ZTCMadeUpHost::sayDisk(const char* apAction, const ZTSHostDisk& acrDisk, ZTCKernelVoice::Values aMore) {
    if (mIsQuiet) {
        return;
    }
    aMore.insert(aMore.begin(), {"SUBSYSTEM", "block"});
    aMore.insert(aMore.end(), {{"MAJOR", std::to_string(acrDisk.mNumber.first)},
                               {"MINOR", std::to_string(acrDisk.mNumber.second)},
                               {"DEVNAME", acrDisk.mDisk},
                               {"DEVTYPE", acrDisk.mWhat == What::Partition ? "partition" : "disk"}});
    mVoice.sayUevent(apAction, acrDisk.mFolder.substr(sPathAt), aMore);
}

void ZTCMadeUpHost::saySdev(const char* apAction, const ZTSHostDisk& acrPath,
                            const ZTCKernelVoice::Values& acrMore) {
    ZTCKernelVoice::Values lValues{{"SUBSYSTEM", "scsi"}};
    lValues.insert(lValues.end(), acrMore.begin(), acrMore.end());
    lValues.insert(lValues.end(), {{"DEVTYPE", "scsi_device"}, {"MODALIAS", "scsi:t-0x00"}});
    if (!mIsQuiet) {
        mVoice.sayUevent(apAction, sScsiFolder(acrPath).substr(sPathAt), lValues);
    }
}

void ZTCMadeUpHost::setOver(ZTSHostDisk& arUpper, ZTSHostDisk& arLower, bool aIsOver) {
    const std::string lSlave = arUpper.mFolder + "/slaves/" + arLower.mDisk;
    const std::string lHolder = arLower.mFolder + "/holders/" + arUpper.mDisk;
    if (aIsOver) {
        arUpper.mOver.push_back(&arLower);
        arLower.mAbove.push_back(&arUpper);
        mTree.link(lSlave, arLower.mFolder);
        mTree.link(lHolder, arUpper.mFolder);
    } else {
        std::erase(arUpper.mOver, &arLower);
        std::erase(arLower.mAbove, &arUpper);
        mTree.remove(lSlave);
        mTree.remove(lHolder);
    }
}

void ZTCMadeUpHost::setPath(ZTSHostDisk& arPath, bool aIsUsable) {
    ZTSHostDisk* const lpMap = mapOf(arPath);
    if (std::exchange(arPath.mIsUsable, aIsUsable) == aIsUsable || lpMap == nullptr) {
        return;
    }
    sayDisk("change", *lpMap,
            {{"DM_TARGET", "multipath"},
             {"DM_ACTION", aIsUsable ? "PATH_REINSTATED" : "PATH_FAILED"},
             {"DM_SEQNUM", std::to_string(++mMapperEvents)},
             {"DM_PATH", arPath.numberText()},
             {"DM_NR_VALID_PATHS",
              std::to_string(std::ranges::count(lpMap->mOver, true, &ZTSHostDisk::mIsUsable))},
             {"DM_NAME", lpMap->mName},
             {"DM_UUID", "mpath-3" + lpMap->mpLun->mWwid}});
}

void ZTCMadeUpHost::setLink(ZTSSitePort& arPort, bool aIsUp, Time aAfter) {
    const std::string lName = fmt::format("host{}", arPort.mHost);
    const std::string lAt = hostFolder(arPort) + "/fc_host/" + lName + "/";
    mIsUp[arPort.mHost] = aIsUp;
    mTree.setText(lAt + "port_state", aIsUp ? "Online" : "Linkdown");
    mTree.setText(lAt + "speed", aIsUp ? arPort.mAttributes.at("speed") : "unknown");
    if (!aIsUp) {
        count(lName, "link_failure_count", 1);
    }
    tellTransport(arPort, aIsUp ? sLinkUp : sLinkDown, 0);
    followLinks([&](const ZTSHostRemote& acrRemote) { return acrRemote.mHost == arPort.mHost; }, aAfter);
}

void ZTCMadeUpHost::setTarget(const std::string& acrName, bool aIsHere, Time aAfter) {
    const auto lRemotes = findRemotes(acrName);
    for (ZTSHostRemote* const lpRemote : lRemotes) {
        lpRemote->mIsLost = !aIsHere;
        if (aIsHere && std::exchange(lpRemote->mIsGone, false)) {
            buildTarget(*lpRemote);
        }
    }
    const auto lIsOne = [&](const ZTSHostRemote& acrRemote) {
        return std::ranges::find(lRemotes, &acrRemote) != lRemotes.end();
    };
    followLinks(lIsOne, aAfter);
    if (aIsHere) {
        addMissing(
            [&](const ZTSHostRemote& acrRemote, const ZTSSiteLun& /*acrLun*/) { return lIsOne(acrRemote); });
    }
}

void ZTCMadeUpHost::followLinks(const std::function<bool(const ZTSHostRemote&)>& acrWhich, Time aAfter) {
    std::vector<ZTSHostRemote*> lRemotes;
    for (const auto& lrpRemote : mRemotes) {
        if (acrWhich(*lrpRemote) && !lrpRemote->mIsGone) {
            lRemotes.push_back(lrpRemote.get());
            mTree.setText(sRportFolder(*lrpRemote) + "/port_state",
                          isOnline(*lrpRemote) ? "Online" : "Blocked");
        }
    }
    for (const auto& [lrNumber, lrpDisk] : mDisks) {
        if (std::ranges::find(lRemotes, lrpDisk->mpRemote) != lRemotes.end()) {
            mTree.setText(sScsiFolder(*lrpDisk) + "/state",
                          isOnline(*lrpDisk->mpRemote) ? "running" : "blocked");
        }
    }
    schedule(aAfter, [this, lRemotes] { settlePaths(lRemotes); });
}

// As the links are by then.
void ZTCMadeUpHost::settlePaths(const std::vector<ZTSHostRemote*>& acrRemotes) {
    for (const auto& [lrNumber, lrpDisk] : mDisks) {
        if (std::ranges::find(acrRemotes, lrpDisk->mpRemote) == acrRemotes.end()) {
            continue;
        }
        const bool lIsOnline = isOnline(*lrpDisk->mpRemote);
        if (!lIsOnline) {
            mTree.setText(sScsiFolder(*lrpDisk) + "/state", "transport-offline");
        }
        setPath(*lrpDisk, lIsOnline && !lrpDisk->mHasFailed);
    }
}

void ZTCMadeUpHost::removeTarget(const std::string& acrName) {
    for (ZTSHostRemote* const lpRemote : findRemotes(acrName)) {
        lpRemote->mIsLost = lpRemote->mIsGone = true;
        mTree.setText(sRportFolder(*lpRemote) + "/port_state", "Not Present");
        for (auto lAt = mDisks.begin(); lAt != mDisks.end();) {
            ZTSHostDisk& lrDisk = *(lAt++)->second;
            if (lrDisk.mpRemote == lpRemote) {
                removePath(lrDisk);
            }
        }
        const std::string lTarget = fmt::format("target{}:0:{}", lpRemote->mHost, lpRemote->mNumber);
        mTree.remove("sys/class/fc_transport/" + lTarget);
        mTree.remove(lpRemote->mFolder + "/" + lTarget);
    }
}

void ZTCMadeUpHost::removePath(ZTSHostDisk& arPath) {
    if (arPath.mWhat != What::Path) {
        throw ZTCHostSimError(fmt::format("{} is no path, expected one such as sdb", arPath.mDisk));
    }
    if (ZTSHostDisk* const lpMap = mapOf(arPath)) {
        setOver(*lpMap, arPath, false);
        sayDisk("change", *lpMap);
    }
    // 16 numbers a disk, 16 disks a major one: what its name counts.
    unsigned int lIndex = 0;
    for (const char lLetter : arPath.mDisk.substr(2)) {
        lIndex = lIndex * 26 + static_cast<unsigned int>(lLetter - 'a' + 1);
    }
    mFreeIndices.insert(lIndex - 1);
    mTree.remove("sys/class/scsi_device/" + arPath.mAddress);
    mTree.remove("sys/bus/scsi/devices/" + arPath.mAddress);
    removeDisk(arPath);
}

void ZTCMadeUpHost::removeDisk(ZTSHostDisk& arDisk) {
    for (ZTSHostDisk* const lpOver : std::vector(arDisk.mOver)) {
        setOver(arDisk, *lpOver, false);
    }
    for (const std::string& lrLink : {"sys/block/" + arDisk.mDisk, "sys/class/block/" + arDisk.mDisk,
                                      "sys/dev/block/" + arDisk.numberText()}) {
        mTree.remove(lrLink);
    }
    const bool lIsPath = arDisk.mWhat == What::Path;
    mTree.remove(lIsPath ? sScsiFolder(arDisk) : arDisk.mFolder);
    sayDisk("remove", arDisk);
    if (lIsPath) {
        saySdev("remove", arDisk);
    }
    for (const std::string* const lpName : {&arDisk.mDisk, &arDisk.mName, &arDisk.mAddress}) {
        mByName.erase(*lpName);
    }
    mDisks.erase(std::pair(arDisk.mNumber));
}

void ZTCMadeUpHost::addMissing(const std::function<bool(const ZTSHostRemote&, const ZTSSiteLun&)>& acrWhich) {
    for (const auto& lrpRemote : mRemotes) {
        for (const ZTSSiteLun& lrLun : mSite.mLuns) {
            if (lrLun.mArray != lrpRemote->mpTarget->mArray || lrpRemote->mIsGone ||
                findPath(*lrpRemote, lrLun) != nullptr || !acrWhich(*lrpRemote, lrLun)) {
                continue;
            }
            buildPath(*lrpRemote, lrLun);
            ZTSHostDisk& lrPath = *findPath(*lrpRemote, lrLun);
            saySdev("add", lrPath);
            sayDisk("add", lrPath);
            if (const auto lMap = mMaps.find(&lrLun); lMap != mMaps.end()) {
                setOver(*lMap->second, lrPath, true);
                sayDisk("change", *lMap->second);
            }
        }
    }
}

void ZTCMadeUpHost::addPaths(const std::string& acrMap) {
    const ZTSSiteLun* const lpLun = findDisk(acrMap).mpLun;
    addMissing(
        [=](const ZTSHostRemote& /*acrRemote*/, const ZTSSiteLun& acrLun) { return &acrLun == lpLun; });
}

void ZTCMadeUpHost::setAttribute(ZTSSitePort& arPort, const std::string& acrName,
                                 const std::string& acrText) {
    arPort.mAttributes[acrName] = acrText;
    mTree.setText(fmt::format("{}/fc_host/host{}/{}", hostFolder(arPort), arPort.mHost, acrName), acrText);
}

void ZTCMadeUpHost::setDeviceAttribute(ZTSHostDisk& arPath, const std::string& acrName,
                                       const std::string& acrText) {
    mTree.setText(sScsiFolder(arPath) + "/" + acrName, acrText);
    if (acrName == "access_state") {
        saySdev("change", arPath, {{"SDEV_UA", "ASYMMETRIC_ACCESS_STATE_CHANGED"}});
    }
}

void ZTCMadeUpHost::setRemoteAttribute(const std::string& acrName, const std::string& acrAttribute,
                                       const std::string& acrText) {
    for (const ZTSHostRemote* const lpRemote : findRemotes(acrName)) {
        mTree.setText(sRportFolder(*lpRemote) + "/" + acrAttribute, acrText);
    }
}

std::string ZTCMadeUpHost::statisticsOf(const std::string& acrWhere) {
    if (acrWhere.find('/') != std::string::npos) {
        return sRportFolder(*findRemotes(acrWhere).front()) + "/statistics/";
    }
    const ZTSSitePort& lrPort = findPort(acrWhere);
    return fmt::format("{}/fc_host/host{}/statistics/", hostFolder(lrPort), lrPort.mHost);
}

void ZTCMadeUpHost::countFile(const std::string& acrPath, std::uint64_t aMore) {
    const std::string lNow = mTree.read(acrPath);
    if (lNow.empty()) {
        throw ZTCHostSimError(fmt::format("{} is not there, expected a counter", acrPath));
    }
    mTree.setText(acrPath, fmt::format("0x{:x}", readHostNumber(lNow, "what the counter has") + aMore));
}

void ZTCMadeUpHost::count(const std::string& acrWhere, const std::string& acrName, std::uint64_t aMore) {
    if (mByName.contains(acrWhere) && findDisk(acrWhere).mWhat == What::Path) {
        countFile(sScsiFolder(findDisk(acrWhere)) + "/" + acrName, aMore);
    } else {
        countFile(statisticsOf(acrWhere) + acrName, aMore);
    }
}

// The kernel counts for the remote ports that an FPIN is about, for its own port, and tells.
void ZTCMadeUpHost::tellFpin(ZTSSitePort& arPort, ZTCHostWords& arWords) {
    const ZTSFpinLine lFpin =
        readFpinLine(arWords, [this](const std::string& acrName) { return findName(acrName); });
    for (const ZTSFpinCount& lrCount : lFpin.mCounts) {
        const auto lIsNamed = [&](const ZTSWwn& acrName) {
            return std::ranges::find(lrCount.mPorts, acrName) != lrCount.mPorts.end();
        };
        for (const char* const lpName : lrCount.mNames) {
            if (lrCount.mPorts.empty() || lIsNamed(arPort.mNames.mPort)) {
                count(fmt::format("host{}", arPort.mHost), lpName, 1);
            }
            for (const auto& lrpRemote : mRemotes) {
                if (lrpRemote->mHost == arPort.mHost && lIsNamed(lrpRemote->mpTarget->mNames.mPort)) {
                    countFile(sRportFolder(*lrpRemote) + "/statistics/" + lpName, 1);
                }
            }
        }
    }
    mVoice.sayTransport(arPort.mHost, sFpin, lFpin.mEls);
}

void ZTCMadeUpHost::tellTransport(const ZTSSitePort& acrPort, std::uint32_t aCode, std::uint32_t aData) {
    const auto* const lpBytes = reinterpret_cast<const unsigned char*>(&aData);
    mVoice.sayTransport(acrPort.mHost, aCode, {lpBytes, sizeof aData});
}

void ZTCMadeUpHost::addVolume(const std::string& acrName, const std::vector<std::string>& acrOver) {
    std::vector<ZTSHostDisk*> lOver;
    lOver.reserve(acrOver.size());
    for (const std::string& lrName : acrOver) {
        lOver.push_back(&findDisk(lrName));
    }
    const bool lIsPart = lOver.front()->mWhat == What::Map && acrName.find("part") != std::string::npos;
    ZTSHostDisk& lrVolume =
        addMapped(What::Volume, acrName,
                  lIsPart ? fmt::format("part{}-mpath-3{}", acrName.back(), lOver.front()->mpLun->mWwid)
                          : fmt::format("LVM-{:0>32}{:0>32}", "", acrName),
                  20);
    for (ZTSHostDisk* const lpOver : lOver) {
        setOver(lrVolume, *lpOver, true);
    }
    sayDisk("add", lrVolume);
    sayDisk("change", lrVolume);
}

void ZTCMadeUpHost::removeVolume(const std::string& acrName) {
    ZTSHostDisk& lrVolume = findDisk(acrName);
    const bool lIsMounted =
        std::ranges::find(mSite.mMounts, acrName, &ZTSSiteMount::mOver) != mSite.mMounts.end();
    if (lrVolume.mWhat != What::Volume || lIsMounted || !lrVolume.mAbove.empty()) {
        throw ZTCHostSimError(fmt::format("{} is in use or no volume, expected one that is free", acrName));
    }
    removeDisk(lrVolume);
}
