// What a made-up host has in /proc and /etc, and how its disks go on.
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <ctime>
#include <fstream>
#include <random>

#include "MadeUpHost.h"

namespace {

using What = ZTSHostDisk::What;

constexpr std::size_t sCountedAStep = 32;
constexpr std::uint64_t sWaiting = 4;  // commands, of a disk that stands still

// As mountinfo has it: what would part its fields is a backslash and three digits.
std::string sEscaped(const std::string& acrText) {
    std::string lText;
    for (const char lSign : acrText) {
        if (lSign == ' ' || lSign == '\t' || lSign == '\n' || lSign == '\\') {
            lText += fmt::format("\\{:03o}", static_cast<unsigned int>(lSign));
        } else {
            lText += lSign;
        }
    }
    return lText;
}

// Device mapper's nodes have a dash twice where a name has one, but between group and volume; names here have
// one at most.
std::string sNode(const ZTSHostDisk& acrDisk) {
    return acrDisk.mName == acrDisk.mDisk ? acrDisk.mDisk : "mapper/" + acrDisk.mName;
}

std::string sBootId() {
    std::random_device lRandom;
    const std::uint32_t lFirst = lRandom();
    const std::uint32_t lRest = lRandom();
    return fmt::format("{:08x}-{:04x}-4{:03x}-8{:03x}-{:08x}{:04x}", lFirst, lRest >> 16, lRest & 0xfff,
                       lFirst & 0xfff, lRest, lFirst >> 16);
}

}  // namespace

void ZTCMadeUpHost::buildProc() {
    mTree.replace("proc/sys/kernel/random/boot_id", sBootId() + "\n");
    mTree.replace("proc/sys/kernel/osrelease", mSite.mKernel + "\n");
    mTree.replace("proc/version", fmt::format("Linux version {} (madeup@server1) SMP\n", mSite.mKernel));
    mTree.replace("proc/stat", fmt::format("cpu  0 0 0 0 0 0 0 0 0 0\nbtime {}\n", time(nullptr)));
    mTree.replace("proc/uptime", "1.00 1.00\n");
    writeMounts();
    writeDiskStats();
}

void ZTCMadeUpHost::writeMounts() {
    std::string lMounts =
        "22 1 0:21 / /sys rw,nosuid,nodev,noexec shared:7 - sysfs sysfs rw\n"
        "23 1 0:22 / /proc rw,nosuid,nodev,noexec shared:12 - proc proc rw\n"
        "24 1 0:23 / /run rw,nosuid,nodev shared:5 - tmpfs tmpfs rw,size=1638400k,mode=755\n";
    std::string lSwaps = "Filename\t\t\t\tType\t\tSize\t\tUsed\t\tPriority\n";
    unsigned int lId = 30;
    for (const ZTSSiteMount& lrMount : mSite.mMounts) {
        const ZTSHostDisk& lrDisk = findDisk(lrMount.mOver);
        if (lrMount.mType == "swap") {
            lSwaps += fmt::format("/dev/{:<34} partition\t8388604\t\t0\t\t-2\n", lrDisk.mDisk);
        } else {
            lMounts +=
                fmt::format("{} 1 {} / {} rw,relatime shared:{} - {} /dev/{} rw\n", lId, lrDisk.numberText(),
                            sEscaped(lrMount.mPoint), lId, lrMount.mType, sNode(lrDisk));
        }
        ++lId;
    }
    mTree.replace("proc/1/mountinfo", lMounts);
    mTree.replace("proc/self/mountinfo", lMounts);
    mTree.replace("proc/swaps", lSwaps);
}

void ZTCMadeUpHost::mount(const std::string& acrPoint, const std::string& acrName,
                          const std::string& acrType) {
    findDisk(acrName);
    mSite.mMounts.push_back({acrPoint, acrName, acrType});
    writeMounts();
}

void ZTCMadeUpHost::unmount(const std::string& acrPoint) {
    if (std::erase_if(mSite.mMounts,
                      [&](const ZTSSiteMount& acrMount) { return acrMount.mPoint == acrPoint; }) == 0) {
        throw ZTCHostSimError(fmt::format("'{}', expected what is mounted", acrPoint));
    }
    writeMounts();
}

void ZTCMadeUpHost::setConfig(const std::string& acrMore) {
    mSite.mMultipath += acrMore + "\n";
    mTree.replace("etc/multipath.conf", mSite.mMultipath);
}

// A path whose link is down waits until it is failed; a map, when none of its paths goes on; what lies above,
// when something beneath does, for who uses it waits for all of it.
bool ZTCMadeUpHost::isStanding(const ZTSHostDisk& acrDisk) const {
    if (acrDisk.mIsStalled) {
        return true;
    }
    if (acrDisk.mWhat == What::Path) {
        return acrDisk.mIsUsable && !isOnline(*acrDisk.mpRemote);
    }
    const auto lIsStanding = [this](const ZTSHostDisk* apDisk) {
        return !apDisk->mIsUsable || isStanding(*apDisk);
    };
    return acrDisk.mWhat == What::Map ? std::ranges::all_of(acrDisk.mOver, lIsStanding)
                                      : std::ranges::any_of(acrDisk.mOver, lIsStanding);
}

bool ZTCMadeUpHost::hasCommands(const ZTSHostDisk& acrDisk) {
    const ZTSHostDisk* const lpMap = mapOf(acrDisk);
    return lpMap != nullptr
               ? lpMap->mRate > 0
               : acrDisk.mRate > 0 || (acrDisk.mWhat != What::Map &&
                                       std::ranges::any_of(acrDisk.mOver, [](const ZTSHostDisk* apDisk) {
                                           return hasCommands(*apDisk);
                                       }));
}

std::uint64_t ZTCMadeUpHost::countWaiting(const ZTSHostDisk& acrDisk) const {
    if (acrDisk.mIsStalled) {
        return sWaiting;
    }
    if (!hasCommands(acrDisk) || !acrDisk.mIsUsable) {
        return 0;
    }
    if (isStanding(acrDisk)) {
        return sWaiting;
    }
    const ZTSHostDisk* const lpMap = mapOf(acrDisk);
    return lpMap != nullptr && isStanding(*lpMap) ? 0 : 1;  // what waits above has not come down
}

// Commands begin at maps and at disks without one; they reach the paths that go on, and come from above.
void ZTCMadeUpHost::complete(double aSeconds) {
    for (const auto& [lrNumber, lrpDisk] : mDisks) {
        if (lrpDisk->mRate == 0 || mapOf(*lrpDisk) != nullptr || !lrpDisk->mIsUsable ||
            isStanding(*lrpDisk)) {
            continue;
        }
        const double lCommands = lrpDisk->mRate * aSeconds;
        std::vector<ZTSHostDisk*> lPaths;
        std::ranges::copy_if(lrpDisk->mOver, std::back_inserter(lPaths), [this](const ZTSHostDisk* apDisk) {
            return apDisk->mIsUsable && !isStanding(*apDisk);
        });
        for (ZTSHostDisk* const lpPath : lPaths) {
            const double lShare = lCommands / static_cast<double>(lPaths.size());
            lpPath->mCommands += lShare;
            lpPath->mMilliseconds += lShare * lpPath->mTime;
        }
        completeAbove(*lrpDisk, lCommands);
    }
}

void ZTCMadeUpHost::completeAbove(ZTSHostDisk& arDisk, double aCommands) {
    arDisk.mCommands += aCommands;
    arDisk.mMilliseconds += aCommands * arDisk.mTime;
    for (ZTSHostDisk* const lpAbove : arDisk.mAbove) {
        if (!isStanding(*lpAbove)) {
            completeAbove(*lpAbove, aCommands / static_cast<double>(arDisk.mAbove.size()));
        }
    }
}

void ZTCMadeUpHost::writeDiskStats() {
    std::string lText;
    for (const auto& [lrNumber, lrpDisk] : mDisks) {
        const auto lReads = static_cast<std::uint64_t>(lrpDisk->mCommands * 0.6);
        const auto lWrites = static_cast<std::uint64_t>(lrpDisk->mCommands) - lReads;
        const auto lTime = static_cast<std::uint64_t>(lrpDisk->mMilliseconds);
        lText += fmt::format("{:4} {:7} {} {} 0 {} {} {} 0 {} {} {} {} {} 0 0 0 0 0 0\n", lrNumber.first,
                             lrNumber.second, lrpDisk->mDisk, lReads, lReads * 16, lTime * 6 / 10, lWrites,
                             lWrites * 16, lTime - lTime * 6 / 10, countWaiting(*lrpDisk), lTime, lTime);
    }
    mTree.replace("proc/diskstats", lText);
}

// Some disks at a time: they are many.
void ZTCMadeUpHost::writeCommandCounts() {
    for (std::size_t lCount = std::min(sCountedAStep, mDisks.size()); lCount > 0; --lCount) {
        auto lAt = mDisks.upper_bound(mCounted);
        lAt = lAt == mDisks.end() ? mDisks.begin() : lAt;
        mCounted = lAt->first;
        const ZTSHostDisk& lrDisk = *lAt->second;
        if (lrDisk.mWhat == What::Path) {
            const std::string lFolder = lrDisk.mFolder.substr(0, lrDisk.mFolder.rfind("/block/"));
            const auto lDone = static_cast<std::uint64_t>(lrDisk.mCommands);
            mTree.setText(lFolder + "/iodone_cnt", fmt::format("0x{:x}", lDone));
            mTree.setText(lFolder + "/iorequest_cnt", fmt::format("0x{:x}", lDone + countWaiting(lrDisk)));
        }
    }
}
