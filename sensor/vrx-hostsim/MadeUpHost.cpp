#include "MadeUpHost.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

namespace {

constexpr std::chrono::milliseconds sShortestStep{200};
constexpr char sMark[] = ".vrx-hostsim";  // whose folders these are

// What is somebody else's stays.
void sCheckRoot(const ZTCHostTree& acrTree) {
    std::error_code lError;
    if (std::filesystem::exists(acrTree.pathOf(sMark), lError)) {
        return;
    }
    for (const char* const lpFolder : {"sys", "proc", "etc"}) {
        if (std::filesystem::exists(acrTree.pathOf(lpFolder), lError)) {
            throw ZTCHostSimError(fmt::format("{} is there and none of a made-up host, expected a new folder",
                                              acrTree.pathOf(lpFolder)));
        }
    }
}

}  // namespace

ZTCMadeUpHost::ZTCMadeUpHost(const std::string& acrRoot, ZTSSite aSite)
    : mSite(std::move(aSite)), mTree(acrRoot), mVoice(mTree.getRoot()) {
    sCheckRoot(mTree);
    mTree.replace(sMark, "");
    mTree.replace("etc/multipath.conf", mSite.mMultipath);
    mTree.replace("etc/vrx-sca/names", makeHostNames(mSite));
    std::filesystem::create_directories(mTree.pathOf("run/kernel"));
    build();
}

void ZTCMadeUpHost::reboot(const std::string& acrKernel) {
    if (!acrKernel.empty()) {
        mSite.mKernel = acrKernel;
    }
    build();
}

void ZTCMadeUpHost::step(Clock::time_point aNow) {
    std::vector<Due> lDue;
    const auto lLater = std::stable_partition(mDue.begin(), mDue.end(),
                                              [=](const Due& acrDue) { return acrDue.mTime > aNow; });
    std::move(lLater, mDue.end(), std::back_inserter(lDue));
    mDue.erase(lLater, mDue.end());
    std::ranges::stable_sort(lDue, {}, &Due::mTime);
    for (const Due& lrDue : lDue) {
        lrDue.mDo();
    }
    if (aNow - mLast >= sShortestStep) {
        complete(std::min(std::chrono::duration<double>(aNow - mLast).count(), 1.0));
        mLast = aNow;
        writeDiskStats();
        writeCommandCounts();
    }
}

void ZTCMadeUpHost::schedule(Time aAfter, std::function<void()> aDo) {
    if (aAfter == Time(0)) {
        aDo();
    } else {
        mDue.push_back({Clock::now() + aAfter, std::move(aDo)});
    }
}

std::string ZTCMadeUpHost::listPaths() const {
    std::string lText;
    for (const auto& [lrNumber, lrpDisk] : mDisks) {
        if (lrpDisk->mWhat == ZTSHostDisk::What::Path) {
            const ZTSHostDisk* const lpMap = mapOf(*lrpDisk);
            const char* const lpState = lpMap == nullptr ? "undef" : lrpDisk->mIsUsable ? "active" : "failed";
            lText += fmt::format("{} {} {}\n", lrpDisk->mDisk, lpMap != nullptr ? lpMap->mName : "[orphan]",
                                 lpState);
        }
    }
    return lText;
}

std::string ZTCMadeUpHost::report() const {
    std::string lText;
    for (const auto& [lrNumber, lrpDisk] : mDisks) {
        if (lrpDisk->mWhat == ZTSHostDisk::What::Map) {
            lText += fmt::format("{} {}: {} of {} paths{}\n", lrpDisk->mDisk, lrpDisk->mName,
                                 std::ranges::count(lrpDisk->mOver, true, &ZTSHostDisk::mIsUsable),
                                 lrpDisk->mOver.size(), isStanding(*lrpDisk) ? ", stands still" : "");
        }
    }
    return lText + fmt::format("messages: {} said, {} lost\n", mVoice.countSaid(), mVoice.countLost());
}

ZTSHostDisk& ZTCMadeUpHost::findDisk(const std::string& acrName) {
    const auto lFound = mByName.find(acrName);
    if (lFound == mByName.end()) {
        throw ZTCHostSimError(
            fmt::format("'{}', expected a disk, a map or a volume that the host has, such as sdb", acrName));
    }
    return *lFound->second;
}

std::vector<ZTSHostDisk*> ZTCMadeUpHost::findPaths(const std::string& acrName) {
    if (mByName.contains(acrName)) {
        ZTSHostDisk& lrDisk = findDisk(acrName);
        if (lrDisk.mWhat == ZTSHostDisk::What::Path) {
            return {&lrDisk};
        }
        if (lrDisk.mWhat == ZTSHostDisk::What::Map) {
            return lrDisk.mOver;
        }
    }
    const auto lRemotes = findRemotes(acrName);
    std::vector<ZTSHostDisk*> lPaths;
    for (const auto& [lrNumber, lrpDisk] : mDisks) {
        if (std::ranges::find(lRemotes, lrpDisk->mpRemote) != lRemotes.end()) {
            lPaths.push_back(lrpDisk.get());
        }
    }
    return lPaths;
}

ZTSSitePort& ZTCMadeUpHost::findPort(const std::string& acrHost) {
    for (ZTSSitePort& lrPort : mSite.mPorts) {
        if (acrHost == fmt::format("host{}", lrPort.mHost) || acrHost == lrPort.mName) {
            return lrPort;
        }
    }
    throw ZTCHostSimError(fmt::format("'{}', expected a port of the host, such as host1", acrHost));
}

std::vector<ZTSHostRemote*> ZTCMadeUpHost::findRemotes(const std::string& acrName) {
    std::vector<ZTSHostRemote*> lFound;
    for (const auto& lrpRemote : mRemotes) {
        const ZTSSiteTarget& lrTarget = *lrpRemote->mpTarget;
        if (acrName == lrTarget.mName || acrName == lrTarget.mArray ||
            acrName == lrTarget.mArray + "/" + lrTarget.mController ||
            acrName == fmt::format("host{}/{}", lrpRemote->mHost, lrTarget.mName)) {
            lFound.push_back(lrpRemote.get());
        }
    }
    if (lFound.empty()) {
        throw ZTCHostSimError(fmt::format(
            "'{}', expected what the host sees: a disk, TARGET, HOST/TARGET, ARRAY or ARRAY/CONTROLLER",
            acrName));
    }
    return lFound;
}

ZTSWwn ZTCMadeUpHost::findName(const std::string& acrName) const {
    for (const ZTSSiteTarget& lrTarget : mSite.mTargets) {
        if (lrTarget.mName == acrName) {
            return lrTarget.mNames.mPort;
        }
    }
    for (const ZTSSitePort& lrPort : mSite.mPorts) {
        if (lrPort.mName == acrName || fmt::format("host{}", lrPort.mHost) == acrName) {
            return lrPort.mNames.mPort;
        }
    }
    if (const auto lName = ZTSWwn::fromText(acrName)) {
        return *lName;
    }
    throw ZTCHostSimError(fmt::format("'{}', expected a port of the site, or a world wide name", acrName));
}

ZTSHostDisk* ZTCMadeUpHost::mapOf(const ZTSHostDisk& acrPath) {
    const auto lFound = std::ranges::find(acrPath.mAbove, ZTSHostDisk::What::Map, &ZTSHostDisk::mWhat);
    return lFound != acrPath.mAbove.end() ? *lFound : nullptr;
}

ZTSHostDisk* ZTCMadeUpHost::findPath(const ZTSHostRemote& acrRemote, const ZTSSiteLun& acrLun) {
    const auto lFound =
        mByName.find(fmt::format("{}:0:{}:{}", acrRemote.mHost, acrRemote.mNumber, acrLun.mNumber));
    return lFound != mByName.end() ? lFound->second : nullptr;
}

bool ZTCMadeUpHost::isOnline(const ZTSHostRemote& acrRemote) const {
    return mIsUp.at(acrRemote.mHost) && !acrRemote.mIsLost;
}
