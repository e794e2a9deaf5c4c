// What a host tells, as batches for a store.
#pragma once

#include "StoreBatches.h"

/// Units of eight paths, by two ports of the host.
inline ZTSHostStorage ZTTestStorage(unsigned int aUnits) {
    ZTSHostStorage lStorage;
    for (unsigned int lPath = 0; lPath < 8; ++lPath) {
        for (unsigned int lUnit = 0; lUnit < aUnits; ++lUnit) {
            ZTSLun lLun;
            lLun.mAddress = std::to_string(3 + lPath / 4) + ":0:" + std::to_string(lPath % 4) + ":" +
                            std::to_string(lUnit);
            lLun.mInitiator = ZTTestPort(2 + lPath / 4);
            lLun.mTarget = ZTTestPort(100 + lPath);
            lLun.mFabric = "A";
            lLun.mLun = lUnit;
            lLun.mDisk = "sd" + std::to_string(lUnit * 8 + lPath);
            lLun.mWwid = "naa.600601603b201a2f" + std::to_string(1'000'000 + lUnit);
            lLun.mSerial = "CKM001" + std::to_string(lUnit);
            lLun.mVendor = "ACME";
            lLun.mModel = "ARRAY";
            lLun.mState = "running";
            lLun.mAccess = lPath % 2 == 0 ? "active/optimized" : "";
            lLun.mQueueDepth = lPath % 3 == 0 ? std::optional(32U) : std::nullopt;
            lStorage.mLuns.push_back(lLun);
        }
    }
    for (unsigned int lUnit = 0; lUnit < aUnits; ++lUnit) {
        const std::string lDisk = "dm-" + std::to_string(100000 + lUnit);
        lStorage.mMaps.push_back({lDisk, "mpath" + lDisk, lStorage.mLuns[lUnit].mWwid, {}, 8});
        for (unsigned int lPath = 0; lPath < 8; ++lPath) {
            lStorage.mMaps.back().mPaths.push_back({"sd" + std::to_string(lUnit * 8 + lPath), lPath != 3,
                                                    static_cast<ZTEPathSource>(lPath % 3)});
        }
        lStorage.mVolumes.push_back({lDisk + "p1", "vg-" + lDisk, {lDisk, "sdz"}});
        lStorage.mMounts.push_back({"/data" + lDisk, lDisk + "p1", "xfs"});
    }
    return lStorage;
}

/// Something for every table of what a host tells, at that second.
inline ZTSStoreBatch ZTHostBatch(std::int64_t aSecond, unsigned int aUnits = 12) {
    const ZTNanoseconds lTime = aSecond * ZTSecond;
    ZTSStoreBatch lBatch;
    lBatch.mPorts.emplace();
    lBatch.mPorts->mLocal = {{{ZTTestPort(1), ZTTestPort(2)},
                              "host3",
                              "Online",
                              "16 Gbit",
                              "NPort",
                              0x10203,
                              "A",
                              "fcoe over eth0",
                              "model",
                              "1.2",
                              "fcoe 1.2"}};
    lBatch.mPorts->mRemote = {
        {ZTTestPort(2), {ZTTestPort(3), ZTTestPort(4)}, "Online", "FCP Target", {}, "A", 60}};
    lBatch.mFacts = {"6.1.0-28-amd64", "boot", lTime - ZTSecond, "none"};
    ZTSHostNews& lrNews = lBatch.mHost;
    lrNews.mFpins = {
        {lTime,
         lTime + 1,
         2,
         ZTTestPort(2),
         "A",
         "link_integrity",
         "loss_of_signal",
         "",
         ZTTestPort(7),
         ZTTestPort(8),
         1,
         1000,
         0,
         17,
         {ZTTestPort(9), ZTTestPort(10)}},
        {lTime + 2, lTime + 3, 1, {}, "", "congestion", "0x7", "alarm", {}, {}, 0, 0, 500, 0, {}}};
    lrNews.mStalls = {{lTime, lTime + 6 * ZTSecond, false, "sdb", "a LUN", "/data", 12, "path"}};
    lrNews.mMeasures.add(lTime, {ZTTestPort(2), ZTTestPort(4), ""}, "commands", 100);
    lrNews.mMeasures.add(lTime, {ZTTestPort(2), ZTTestPort(4), ""}, "slowest_us", 30);
    lrNews.mMeasures.addToHour(lTime, {ZTTestPort(2), ZTTestPort(4), "naa.6"}, "commands", 50);
    lrNews.mStorage = ZTTestStorage(aUnits);
    lrNews.mBlindSpots = {{"fpins", "host3", "the driver posts none", false},
                          {"scsi_errors", "", "why", true}};
    lrNews.mWindows = {{"array1", lTime, lTime + ZTSecond, "new firmware"}};
    return lBatch;
}
