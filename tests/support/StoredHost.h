// What a made-up host has told, as a batch for a store: two fabrics with two ports each, two arrays with two
// controllers each, which have a port on each fabric, and three LUNs with eight paths each.
#pragma once

#include "StoreBatch.h"
#include "StoreWriter.h"

/// A port of the host, 0 to 3: even ones are on the fabric "left", odd ones on "right".
inline ZTSWwn ZTHostPort(unsigned int aNumber) {
    return {{0x10, 0, 0, 0x25, 0xb5, 1, 0, static_cast<std::uint8_t>(aNumber)}};
}
inline std::string ZTHostFabric(unsigned int aPort) {
    return aPort % 2 == 0 ? "left" : "right";
}
/// Of an array, 1 or 2, and a controller, 0 or 1, the port that a port of the host sees.
inline ZTSWwn ZTArrayPort(unsigned int aArray, unsigned int aController, unsigned int aPort) {
    return {{0x50, 6, 1, 0x60, 0x3b, static_cast<std::uint8_t>(aArray),
             static_cast<std::uint8_t>(aController), static_cast<std::uint8_t>(aPort % 2)}};
}

/// The ports with their names: "hba0", "array1-A-left".
inline void ZTAddHostPorts(ZTSStoreBatch& arBatch) {
    ZTSHostPorts& lrPorts = arBatch.mPorts.emplace();
    ZTPortLabels& lrLabels = arBatch.mLabels.emplace();
    for (unsigned int lPort = 0; lPort < 4; ++lPort) {
        const std::string lFabric = ZTHostFabric(lPort);
        ZTSLocalPort lLocal{{{}, ZTHostPort(lPort)},
                            "host" + std::to_string(3 + lPort),
                            "Online",
                            "16 Gbit",
                            "NPort",
                            0x10203,
                            lFabric};
        lLocal.mModel = "VRX-32";
        lLocal.mFirmware = "12.6." + std::to_string(lPort);
        lrPorts.mLocal.push_back(lLocal);
        lrLabels[ZTHostPort(lPort)] = {"hba" + std::to_string(lPort), "", "", lFabric,
                                       "sw 1/" + std::to_string(lPort)};
        for (unsigned int lArray = 1; lArray <= 2; ++lArray) {
            for (unsigned int lController = 0; lController < 2; ++lController) {
                const ZTSWwn lTarget = ZTArrayPort(lArray, lController, lPort);
                const std::string lArrayName = "array" + std::to_string(lArray);
                const std::string lLetter = lController == 0 ? "A" : "B";
                lrPorts.mRemote.push_back({ZTHostPort(lPort),
                                           {{}, lTarget},
                                           "Online",
                                           "FCP Target",
                                           0x20100 + 2 * lArray + lController,
                                           lFabric,
                                           30});
                lrLabels[lTarget] = {lArrayName + "-" + lLetter + "-" + lFabric, lArrayName, lLetter, lFabric,
                                     ""};
            }
        }
    }
}

/// LUN 0, of array1, is "mpatha" with "/data" and "/logs"; 1, of array1, "mpathb" with "/home"; 2, of array2,
/// "mpathc" with nothing on it. Controller A's paths are optimized.
inline void ZTAddHostStorage(ZTSStoreBatch& arBatch) {
    ZTSHostStorage& lrStorage = arBatch.mHost.mStorage.emplace();
    for (unsigned int lLun = 0; lLun < 3; ++lLun) {
        const std::string lDigits = "600601603b201a2f000000000000000" + std::to_string(lLun);
        ZTSMap lMap{
            "dm-" + std::to_string(lLun), std::string("mpath") + char('a' + lLun), "3" + lDigits, {}, 8};
        for (unsigned int lPath = 0; lPath < 8; ++lPath) {
            const unsigned int lPort = lPath / 2;
            ZTSLun lShown;
            lShown.mAddress =
                std::to_string(3 + lPort) + ":0:" + std::to_string(lPath % 2) + ":" + std::to_string(lLun);
            lShown.mInitiator = ZTHostPort(lPort);
            lShown.mTarget = ZTArrayPort(lLun < 2 ? 1 : 2, lPath % 2, lPort);
            lShown.mFabric = ZTHostFabric(lPort);
            lShown.mLun = lLun;
            lShown.mDisk = std::string("sd") + char('a' + 8 * lLun + lPath);
            lShown.mWwid = "naa." + lDigits;
            lShown.mSerial = "APM" + std::to_string(lLun);
            lShown.mVendor = "VRX";
            lShown.mModel = "ARRAY";
            lShown.mState = "running";
            lShown.mAccess = lPath % 2 == 0 ? "active/optimized" : "active/non-optimized";
            lShown.mQueueDepth = 32;
            lrStorage.mLuns.push_back(lShown);
            lMap.mPaths.push_back({lShown.mDisk, true, ZTEPathSource::Kernel});
        }
        lrStorage.mMaps.push_back(lMap);
    }
    lrStorage.mVolumes = {{"dm-5", "vg0-data", {"dm-0"}}, {"dm-6", "vg0-logs", {"dm-0"}}};
    lrStorage.mMounts = {{"/data", "dm-5", "xfs"}, {"/home", "dm-1", "ext4"}, {"/logs", "dm-6", "xfs"}};
}

inline ZTSStoreOptions ZTHostStoreOptions(const std::string& acrPath) {
    ZTSStoreOptions lOptions;
    lOptions.mPath = acrPath;
    lOptions.mHostName = "db7";
    return lOptions;
}
