// Tests of a made-up storage: LUNs, maps, volumes and mounts, as values that can be compared.
#pragma once

#include <fmt/format.h>

#include "HostStorage.h"
#include "StorageTree.h"

inline ZTSWwn port(std::uint64_t aNumber) {
    return *ZTSWwn::fromText(fcDigits(aNumber));
}

inline std::string textOf(const ZTSHostStorage& acrStorage) {
    std::string lText;
    for (const ZTSLun& lrLun : acrStorage.mLuns) {
        lText += fmt::format("{} {:x}>{:x}/{} {} {} {} {} {} {} {} {}\n", lrLun.mAddress,
                             lrLun.mInitiator.mBytes[7], lrLun.mTarget.mBytes[7], lrLun.mLun, lrLun.mDisk,
                             lrLun.mWwid, lrLun.mSerial, lrLun.mVendor, lrLun.mModel, lrLun.mState,
                             lrLun.mAccess, lrLun.mQueueDepth ? std::to_string(*lrLun.mQueueDepth) : "none");
    }
    for (const ZTSMap& lrMap : acrStorage.mMaps) {
        lText += fmt::format("{} {} {}:", lrMap.mName, lrMap.mDisk, lrMap.mWwid);
        for (const ZTSPath& lrPath : lrMap.mPaths) {
            lText += fmt::format(" {}{}{}", lrPath.mDisk, lrPath.mIsUsable ? "+" : "-",
                                 "pmk"[static_cast<int>(lrPath.mSource)]);
        }
        lText += "\n";
    }
    for (const ZTSVolume& lrVolume : acrStorage.mVolumes) {
        lText +=
            fmt::format("{} {} over {}\n", lrVolume.mName, lrVolume.mDisk, fmt::join(lrVolume.mOver, " "));
    }
    for (const ZTSMount& lrMount : acrStorage.mMounts) {
        lText += fmt::format("{} {} {}\n", lrMount.mPoint, lrMount.mDisk, lrMount.mType);
    }
    return lText;
}

/// A local port, two targets, a LUN that both show, and a local disk.
class HostStorage : public testing::Test {
  protected:
    HostStorage() {
        mTree.addLun("3:0:0:1", "sdb", "8:16", 1);
        mTree.addLun("3:0:1:1", "sdc", "8:32", 1);
        mTree.addBlock("sda", "8:0", {{"sda1/dev", "8:1\n"}});
        mTree.addMapped("dm-0", "mpatha", "mpath-36006", {"sdb", "sdc"});
        mTree.addMapped("dm-1", "vg0-data", "LVM-abc", {"dm-0"});
        mTree.set("proc/1/mountinfo",
                  "22 1 8:1 / / rw - ext4 /dev/sda1 rw\n"
                  "23 22 0:5 / /proc rw - proc proc rw\n"
                  "24 22 253:1 / /data rw,noatime shared:1 master:2 - xfs /dev/mapper/vg0-data rw\n");
        mTree.set("proc/swaps", "Filename Type Size Used Priority\n/swap\\040file file 1 0 -2\n");
        ZTSLocalPort lLocal;
        lLocal.mHost = "host3";
        lLocal.mState = "Online";
        lLocal.mFabric = "left";
        lLocal.mNames.mPort = port(0x1000000000000001);
        mPorts.mLocal = {lLocal};
        for (const std::uint64_t lTarget : {0U, 1U}) {
            mPorts.mRemote.push_back(
                {lLocal.mNames.mPort, {{}, port(0x5000000000000000 + lTarget)}, "Online", "", {}, "left"});
        }
    }
    bool step(ZTCHostStorage& arStorage) {
        return arStorage.step(mPorts, std::chrono::seconds(1), 3600 * ZTSecond, mMeasures);
    }
    /// As it is seen in so many steps; with nothing of it told by the kernel.
    std::string look(unsigned int aSteps = 60) {
        for (unsigned int lStep = 0; lStep < aSteps; ++lStep) {
            step(mStorage);
        }
        return textOf(mStorage.getStorage());
    }
    std::string lookAnew() {
        ZTCHostStorage lStorage(mTree.getPath());
        for (unsigned int lStep = 0; lStep < 4; ++lStep) {
            step(lStorage);
        }
        EXPECT_TRUE(lStorage.isWhole());
        return textOf(lStorage.getStorage());
    }
    void tell(const std::string& acrPath, const char* apAction,
              const std::map<std::string, std::string>& acrValues = {}) {
        ZTSUevent lEvent{apAction, acrPath, {}};
        for (const auto& [lrName, lrValue] : acrValues) {
            lEvent.mValues[lrName] = lrValue;
        }
        mStorage.take(lEvent);
    }
    void tellOfPath(const char* apAction, const char* apNumber, const char* apLeft) {
        tell("/devices/virtual/block/dm-0", "change",
             {{"DM_ACTION", apAction}, {"DM_PATH", apNumber}, {"DM_NR_VALID_PATHS", apLeft}});
    }
    std::string pathsOf(unsigned int aSteps = 1) {
        const std::string lText = look(aSteps);
        const std::size_t lAt = lText.find("36006: ") + 7;
        return lText.substr(lAt, lText.find('\n', lAt) - lAt);
    }
    /// Asked just now, as the number says; 0: by nobody.
    void answer(const std::vector<ZTSMultipathdPath>& acrPaths) {
        std::optional<std::uint64_t> lQuestion;
        for (unsigned int lStep = 0; lStep < 60 && !lQuestion; ++lStep) {
            step(mStorage);
            lQuestion = mStorage.takeQuestion();
        }
        mStorage.takePaths(acrPaths, lQuestion.value_or(0));
    }
    std::uint64_t measured(const char* apName, const std::string& acrLun) const {
        std::uint64_t lSum = 0;
        for (const auto& [lrKey, lValue] : mMeasures.getValues()) {
            lSum += lrKey.mName == apName && lrKey.mWhose.mLun == acrLun &&
                            lrKey.mIsHour == !acrLun.empty() &&
                            lrKey.mWhose.mInitiator == port(0x1000000000000001) &&
                            lrKey.mWhose.mRemote == port(0x5000000000000000)
                        ? lValue
                        : 0;
        }
        return lSum;
    }

    ZTCStorageTestTree mTree;
    ZTSHostPorts mPorts;
    ZTCMeasures mMeasures;
    ZTCHostStorage mStorage{mTree.getPath()};
};
