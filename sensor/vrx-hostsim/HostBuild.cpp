// How the host comes to be: its ports, paths, maps and volumes, as the kernel has them in sysfs.
#include <fmt/format.h>

#include "MadeUpHost.h"

namespace {

using Files = ZTCHostTree::Files;
using What = ZTSHostDisk::What;

constexpr const char* sCounters[] = {"link_failure_count",
                                     "loss_of_sync_count",
                                     "loss_of_signal_count",
                                     "prim_seq_protocol_err_count",
                                     "invalid_tx_word_count",
                                     "invalid_crc_count",
                                     "lip_count",
                                     "error_frames",
                                     "dumped_frames",
                                     "tx_frames",
                                     "rx_frames"};
constexpr const char* sFpinCounters[] = {"fpin_dn",
                                         "fpin_dn_unknown",
                                         "fpin_dn_timeout",
                                         "fpin_dn_unable_to_route",
                                         "fpin_dn_device_specific",
                                         "fpin_cn",
                                         "fpin_cn_clear",
                                         "fpin_cn_lost_credit",
                                         "fpin_cn_credit_stall",
                                         "fpin_cn_oversubscription",
                                         "fpin_cn_device_specific",
                                         "fpin_li",
                                         "fpin_li_failure_unknown",
                                         "fpin_li_link_failure_count",
                                         "fpin_li_loss_of_sync_count",
                                         "fpin_li_loss_of_signals_count",
                                         "fpin_li_prim_seq_err_count",
                                         "fpin_li_invalid_tx_word_count",
                                         "fpin_li_invalid_crc_count",
                                         "fpin_li_device_specific"};
constexpr unsigned int sMapperMajor = 253;
constexpr std::uint64_t sSectorsAGib = 2'097'152;

std::string sDigits(const ZTSWwn& acrName) {
    std::string lText = acrName.toText();
    std::erase(lText, ':');
    return "0x" + lText;
}

void sPutNames(Files& arFiles, const std::string& acrAt, const ZTSPortNames& acrNames, std::uint32_t aId) {
    arFiles[acrAt + "node_name"] = sDigits(acrNames.mNode) + "\n";
    arFiles[acrAt + "port_name"] = sDigits(acrNames.mPort) + "\n";
    arFiles[acrAt + "port_id"] = fmt::format("0x{:06x}\n", aId);
}

// "sda", "sdz", "sdaa", as the kernel counts.
std::string sDiskName(unsigned int aIndex) {
    std::string lLetters;
    for (unsigned int lRest = aIndex + 1; lRest != 0; lRest = (lRest - 1) / 26) {
        lLetters.insert(lLetters.begin(), static_cast<char>('a' + (lRest - 1) % 26));
    }
    return "sd" + lLetters;
}

// 16 disks a major number, over 16 of them; then their minor numbers go on above.
std::pair<unsigned int, unsigned int> sDiskNumber(unsigned int aIndex) {
    const unsigned int lMajor = (aIndex & 0xf0) >> 4;
    return {lMajor == 0  ? 8
            : lMajor < 8 ? 64 + lMajor
                         : 120 + lMajor,
            (aIndex & 0xf) << 4 | (aIndex & 0xfff00)};
}

// A page of vital product data.
std::string sPage(unsigned char aPage, const std::string& acrBody) {
    return std::string{0, static_cast<char>(aPage), static_cast<char>(acrBody.size() >> 8),
                       static_cast<char>(acrBody.size())} +
           acrBody;
}

std::string sDesignators(const ZTSSiteLun& acrLun, unsigned int aPort) {
    std::string lBody{1, 3, 0, 16};
    for (std::size_t lAt = 0; lAt < acrLun.mWwid.size(); lAt += 2) {
        lBody += static_cast<char>(readHostNumber("0x" + acrLun.mWwid.substr(lAt, 2), "WWID"));
    }
    return lBody + std::string{1, 0x14, 0, 4, 0, 0, 0, static_cast<char>(aPort)} +
           std::string{1, 0x15, 0, 4, 0, 0, 0, static_cast<char>(aPort / 2 + 1)};
}

}  // namespace

void ZTCMadeUpHost::build() {
    mIsQuiet = true;
    mDue.clear();
    mMaps.clear();
    mByName.clear();
    mDisks.clear();
    mRemotes.clear();
    mDiskIndices = mMapperMinors = 0;
    mFreeIndices.clear();
    mTree.remove("sys");
    buildPorts();
    for (const auto& lrpRemote : mRemotes) {
        buildTarget(*lrpRemote);
        for (const ZTSSiteLun& lrLun : mSite.mLuns) {
            if (lrLun.mArray == lrpRemote->mpTarget->mArray) {
                buildPath(*lrpRemote, lrLun);
            }
        }
    }
    for (const ZTSSiteLun& lrLun : mSite.mLuns) {
        buildMap(lrLun);
    }
    for (const ZTSSiteBlock& lrBlock : mSite.mBlocks) {
        buildBlock(lrBlock);
    }
    buildProc();
    mIsQuiet = false;
}

std::string ZTCMadeUpHost::hostFolder(const ZTSSitePort& acrPort) const {
    return fmt::format("sys/devices/pci0000:00/0000:00:03.0/0000:04:00.{}/host{}", acrPort.mHost,
                       acrPort.mHost);
}

void ZTCMadeUpHost::buildPorts() {
    for (const ZTSSitePort& lrPort : mSite.mPorts) {
        const std::string lName = fmt::format("host{}", lrPort.mHost);
        const std::string lAt = "fc_host/" + lName + "/";
        Files lFiles{{lAt + "port_state", "Online\n"},
                     {lAt + "fabric_name", sDigits(mSite.mFabrics.at(lrPort.mFabric)) + "\n"},
                     {lAt + "permanent_port_name", sDigits(lrPort.mNames.mPort) + "\n"},
                     {lAt + "tgtid_bind_type", "wwpn (World Wide Port Name)\n"},
                     {lAt + "dev_loss_tmo", "60\n"},
                     {lAt + "statistics/nos_count", "0xffffffffffffffff\n"},
                     {"scsi_host/" + lName + "/proc_name", "vrxfc\n"},
                     {"scsi_host/" + lName + "/state", "running\n"}};
        sPutNames(lFiles, lAt, lrPort.mNames, lrPort.mId);
        for (const auto& [lrName, lrText] : lrPort.mAttributes) {
            lFiles[lAt + lrName] = lrText + "\n";
        }
        for (const char* const lpName : sCounters) {
            lFiles[lAt + "statistics/" + lpName] = "0x0\n";
        }
        for (const char* const lpName : sFpinCounters) {
            lFiles[lAt + "statistics/" + lpName] = "0x0\n";
        }
        mIsUp[lrPort.mHost] = true;
        const std::string lFolder = hostFolder(lrPort);
        mTree.addFolder(lFolder, lFiles);
        mTree.link("sys/class/fc_host/" + lName, fmt::format("{}/fc_host/{}", lFolder, lName));
        mTree.link("sys/class/scsi_host/" + lName, fmt::format("{}/scsi_host/{}", lFolder, lName));
        mTree.link("sys/bus/scsi/devices/" + lName, lFolder);
        mTree.link(fmt::format("{}/fc_host/{}/device", lFolder, lName), lFolder);
        buildRemotes(lrPort);
    }
}

void ZTCMadeUpHost::buildRemotes(const ZTSSitePort& acrPort) {
    unsigned int lNumber = 0;
    for (const ZTSSiteTarget& lrTarget : mSite.mTargets) {
        if (lrTarget.mFabric != acrPort.mFabric) {
            continue;
        }
        const std::string lName = fmt::format("rport-{}:0-{}", acrPort.mHost, lNumber);
        const std::string lFolder = hostFolder(acrPort) + "/" + lName;
        const std::string lAt = "fc_remote_ports/" + lName + "/";
        Files lFiles{{lAt + "port_state", "Online\n"},
                     {lAt + "roles", "FCP Target\n"},
                     {lAt + "dev_loss_tmo", "60\n"},
                     {lAt + "fast_io_fail_tmo", "5\n"},
                     {lAt + "scsi_target_id", fmt::format("{}\n", lNumber)}};
        sPutNames(lFiles, lAt, lrTarget.mNames, lrTarget.mId);
        for (const char* const lpName : sFpinCounters) {
            lFiles[lAt + "statistics/" + lpName] = "0x0\n";
        }
        mTree.addFolder(lFolder, lFiles);
        mTree.link("sys/class/fc_remote_ports/" + lName,
                   fmt::format("{}/fc_remote_ports/{}", lFolder, lName));
        mRemotes.push_back(std::make_unique<ZTSHostRemote>(
            ZTSHostRemote{acrPort.mHost, lNumber++, &lrTarget, lFolder, false, false}));
    }
}

void ZTCMadeUpHost::buildTarget(const ZTSHostRemote& acrRemote) {
    const std::string lName = fmt::format("target{}:0:{}", acrRemote.mHost, acrRemote.mNumber);
    const std::string lFolder = acrRemote.mFolder + "/" + lName;
    Files lFiles;
    sPutNames(lFiles, "fc_transport/" + lName + "/", acrRemote.mpTarget->mNames, acrRemote.mpTarget->mId);
    mTree.addFolder(lFolder, lFiles);
    mTree.link("sys/class/fc_transport/" + lName, lFolder + "/fc_transport/" + lName);
}

ZTSHostDisk& ZTCMadeUpHost::addDisk(ZTSHostDisk aDisk, const std::string& acrFolder, Files aFiles) {
    const std::string lBelow =
        aDisk.mFolder == acrFolder ? "" : aDisk.mFolder.substr(acrFolder.size() + 1) + "/";
    aFiles[lBelow + "dev"] = aDisk.numberText() + "\n";
    aFiles[lBelow + "holders/"];
    aFiles[lBelow + "slaves/"];
    aFiles[lBelow + "uevent"] =
        fmt::format("MAJOR={}\nMINOR={}\nDEVNAME={}\nDEVTYPE={}\n", aDisk.mNumber.first, aDisk.mNumber.second,
                    aDisk.mDisk, aDisk.mWhat == What::Partition ? "partition" : "disk");
    mTree.addFolder(acrFolder, aFiles);
    if (aDisk.mWhat != What::Partition) {
        mTree.link("sys/block/" + aDisk.mDisk, aDisk.mFolder);
    }
    mTree.link("sys/class/block/" + aDisk.mDisk, aDisk.mFolder);
    mTree.link("sys/dev/block/" + aDisk.numberText(), aDisk.mFolder);
    auto& lrpDisk = mDisks[aDisk.mNumber];
    lrpDisk = std::make_unique<ZTSHostDisk>(std::move(aDisk));
    for (const std::string* const lpName : {&lrpDisk->mDisk, &lrpDisk->mName, &lrpDisk->mAddress}) {
        if (!lpName->empty()) {
            mByName[*lpName] = lrpDisk.get();
        }
    }
    return *lrpDisk;
}

unsigned int ZTCMadeUpHost::takeDiskIndex() {
    return mFreeIndices.empty() ? mDiskIndices++ : mFreeIndices.extract(mFreeIndices.begin()).value();
}

void ZTCMadeUpHost::buildPath(ZTSHostRemote& arRemote, const ZTSSiteLun& acrLun) {
    const unsigned int lIndex = takeDiskIndex();
    ZTSHostDisk lDisk;
    lDisk.mWhat = What::Path;
    lDisk.mNumber = sDiskNumber(lIndex);
    lDisk.mDisk = lDisk.mName = sDiskName(lIndex);
    lDisk.mpLun = &acrLun;
    lDisk.mpRemote = &arRemote;
    lDisk.mRate = acrLun.mRate;
    lDisk.mAddress = fmt::format("{}:0:{}:{}", arRemote.mHost, arRemote.mNumber, acrLun.mNumber);
    const std::string lFolder = fmt::format("{}/target{}:0:{}/{}", arRemote.mFolder, arRemote.mHost,
                                            arRemote.mNumber, lDisk.mAddress);
    lDisk.mFolder = lFolder + "/block/" + lDisk.mDisk;
    // A LUN is at home on one of the controllers.
    const bool lIsAtHome = (acrLun.mNumber % 2 == 0) == (arRemote.mpTarget->mController == "A");
    const std::string lAccess = lIsAtHome ? "active/optimized" : "active/non-optimized";
    const std::string lAddress = lDisk.mAddress;
    addDisk(std::move(lDisk), lFolder,
            {{"vendor", fmt::format("{:<8}\n", acrLun.mVendor)},
             {"model", fmt::format("{:<16}\n", acrLun.mModel)},
             {"rev", "0401\n"},
             {"type", "0\n"},
             {"state", "running\n"},
             {"queue_depth", fmt::format("{}\n", acrLun.mDepth)},
             {"access_state", lAccess + "\n"},
             {"preferred_path", lIsAtHome ? "1\n" : "0\n"},
             {"dh_state", "alua\n"},
             {"timeout", "30\n"},
             {"wwid", "naa." + acrLun.mWwid + "\n"},
             {"iorequest_cnt", "0x0\n"},
             {"iodone_cnt", "0x0\n"},
             {"ioerr_cnt", "0x0\n"},
             {"iotmo_cnt", "0x0\n"},
             {"vpd_pg80", sPage(0x80, acrLun.mSerial)},
             {"vpd_pg83", sPage(0x83, sDesignators(acrLun, arRemote.mNumber + 1))},
             {"scsi_device/" + lAddress + "/", ""},
             {"block/" + sDiskName(lIndex) + "/size", fmt::format("{}\n", acrLun.mGib * sSectorsAGib)}});
    mTree.link("sys/class/scsi_device/" + lAddress, lFolder + "/scsi_device/" + lAddress);
    mTree.link(lFolder + "/scsi_device/" + lAddress + "/device", lFolder);
    mTree.link("sys/bus/scsi/devices/" + lAddress, lFolder);
    mTree.link(lFolder + "/block/" + sDiskName(lIndex) + "/device", lFolder);
}

ZTSHostDisk& ZTCMadeUpHost::addMapped(What aWhat, const std::string& acrName, const std::string& acrUuid,
                                      std::uint64_t aGib) {
    ZTSHostDisk lDisk;
    lDisk.mWhat = aWhat;
    lDisk.mNumber = {sMapperMajor, mMapperMinors};
    lDisk.mDisk = fmt::format("dm-{}", mMapperMinors++);
    lDisk.mName = acrName;
    lDisk.mFolder = "sys/devices/virtual/block/" + lDisk.mDisk;
    const std::string lFolder = lDisk.mFolder;
    return addDisk(std::move(lDisk), lFolder,
                   {{"size", fmt::format("{}\n", aGib * sSectorsAGib)},
                    {"dm/name", acrName + "\n"},
                    {"dm/uuid", acrUuid + "\n"},
                    {"dm/suspended", "0\n"}});
}

void ZTCMadeUpHost::buildMap(const ZTSSiteLun& acrLun) {
    if (acrLun.mMap.empty()) {
        return;
    }
    ZTSHostDisk& lrMap = addMapped(What::Map, acrLun.mMap, "mpath-3" + acrLun.mWwid, acrLun.mGib);
    lrMap.mpLun = &acrLun;
    lrMap.mRate = acrLun.mRate;
    mMaps[&acrLun] = &lrMap;
    for (const auto& lrpRemote : mRemotes) {
        if (lrpRemote->mpTarget->mArray == acrLun.mArray) {
            setOver(lrMap, *findPath(*lrpRemote, acrLun), true);
        }
    }
}

void ZTCMadeUpHost::buildBlock(const ZTSSiteBlock& acrBlock) {
    if (!acrBlock.mOver.empty() && !acrBlock.mIsPartition) {
        addVolume(acrBlock.mName, acrBlock.mOver);
        return;
    }
    const bool lIsPartition = acrBlock.mIsPartition;
    ZTSHostDisk* const lpOver = lIsPartition ? &findDisk(acrBlock.mOver.front()) : nullptr;
    ZTSHostDisk lDisk;
    lDisk.mWhat = lIsPartition ? What::Partition : What::Plain;
    lDisk.mDisk = lDisk.mName = acrBlock.mName;
    lDisk.mRate = acrBlock.mRate;
    lDisk.mFolder = (lIsPartition ? lpOver->mFolder : "sys/devices/pci0000:00/0000:00:05.0/virtio2/block") +
                    "/" + acrBlock.mName;
    lDisk.mNumber = lIsPartition ? lpOver->mNumber : std::pair(254U, 0U);
    while (mDisks.contains(lDisk.mNumber)) {
        lDisk.mNumber.second += lIsPartition ? 1 : 16;
    }
    Files lFiles{{"size", fmt::format("{}\n", acrBlock.mGib * sSectorsAGib)}};
    if (lIsPartition) {
        lFiles["partition"] = fmt::format("{}\n", lDisk.mNumber.second % 16);
    }
    const std::string lFolder = lDisk.mFolder;
    ZTSHostDisk& lrAdded = addDisk(std::move(lDisk), lFolder, std::move(lFiles));
    if (lpOver != nullptr) {
        lrAdded.mOver.push_back(lpOver);
        lpOver->mAbove.push_back(&lrAdded);
    }
}
