#include "HostSite.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "HostWords.h"

namespace {

constexpr std::uint64_t sMostLuns = 4096;

ZTSWwn sReadName(const std::string& acrText) {
    if (const auto lName = ZTSWwn::fromText(acrText)) {
        return *lName;
    }
    throw ZTCHostSimError(fmt::format("'{}', expected a world wide name", acrText));
}

std::string sNeed(ZTCHostWords& arWords, const char* apKey) {
    if (auto lText = arWords.find(apKey)) {
        return *lText;
    }
    throw ZTCHostSimError(fmt::format("no {0}, expected {0}=", apKey));
}

std::string sFabric(ZTCHostWords& arWords, const ZTSSite& acrSite) {
    std::string lName = sNeed(arWords, "fabric");
    if (!acrSite.mFabrics.contains(lName)) {
        throw ZTCHostSimError(fmt::format("fabric '{}', expected one of a line above", lName));
    }
    return lName;
}

ZTSPortNames sNames(ZTCHostWords& arWords) {
    return {sReadName(sNeed(arWords, "wwnn")), sReadName(sNeed(arWords, "wwpn"))};
}

void sReadFabric(ZTCHostWords& arWords, ZTSSite& arSite) {
    const std::string lName = arWords.next("a fabric's name");
    arSite.mFabrics[lName] = sReadName(arWords.next("its world wide name"));
}

// What every fc_host has, unless the line says it otherwise.
void sReadPort(ZTCHostWords& arWords, ZTSSite& arSite) {
    ZTSSitePort lPort;
    const std::string lHost = arWords.next("a host such as host1");
    if (!lHost.starts_with("host")) {
        throw ZTCHostSimError(fmt::format("'{}', expected a host such as host1", lHost));
    }
    lPort.mHost = static_cast<unsigned int>(readHostNumber(lHost.substr(4), "host"));
    lPort.mFabric = sFabric(arWords, arSite);
    lPort.mNames = sNames(arWords);
    lPort.mId = static_cast<std::uint32_t>(arWords.getNumber("id", 0));
    lPort.mName = arWords.get("name", "");
    lPort.mSwitch = arWords.get("switch", "");
    lPort.mAttributes = {{"speed", "16 Gbit"},
                         {"supported_speeds", "4 Gbit, 8 Gbit, 16 Gbit"},
                         {"port_type", "NPort (fabric via point-to-point)"},
                         {"model", "VRX-4162"},
                         {"serial_number", fmt::format("VRX{:05}", lPort.mHost)},
                         {"firmware_version", "4.2.1"},
                         {"driver_version", "2.3.0.5"},
                         {"symbolic_name", "VRX-4162 FV4.2.1 DV2.3.0.5 HN:server1"}};
    for (auto& [lrKey, lrText] : arWords.takePairs()) {
        lPort.mAttributes[lrKey] = lrText;
    }
    arSite.mPorts.push_back(std::move(lPort));
}

void sReadTarget(ZTCHostWords& arWords, ZTSSite& arSite) {
    ZTSSiteTarget lTarget;
    lTarget.mName = arWords.next("a target's name");
    lTarget.mArray = sNeed(arWords, "array");
    lTarget.mController = sNeed(arWords, "controller");
    lTarget.mFabric = sFabric(arWords, arSite);
    lTarget.mNames = sNames(arWords);
    lTarget.mId = static_cast<std::uint32_t>(arWords.getNumber("id", 0));
    lTarget.mSwitch = arWords.get("switch", "");
    arSite.mTargets.push_back(std::move(lTarget));
}

// Of "0-1023" each LUN has its number in its name, its serial number and the last digits of its WWID.
void sReadLuns(ZTCHostWords& arWords, ZTSSite& arSite) {
    ZTSSiteLun lLun;
    lLun.mArray = arWords.next("an array");
    const std::string lNumbers = arWords.next("a LUN, or FIRST-LAST");
    const auto lEnds = splitHostText(lNumbers, '-');
    const std::uint64_t lFirst = readHostNumber(lEnds.front(), "LUN");
    const std::uint64_t lLast = readHostNumber(lEnds.back(), "LUN");
    const std::string lMap = arWords.get("map", "");
    const std::string lWwid = sNeed(arWords, "wwid");
    const std::string lSerial = sNeed(arWords, "serial");
    lLun.mGib = arWords.getNumber("gib", 100);
    lLun.mVendor = arWords.get("vendor", "MADEUP");
    lLun.mModel = arWords.get("model", "VDISK");
    lLun.mDepth = static_cast<std::uint32_t>(arWords.getNumber("depth", 32));
    lLun.mRate = static_cast<double>(arWords.getNumber("io", 100));
    if (lWwid.size() != 32 || lWwid.find_first_not_of("0123456789abcdef") != std::string::npos) {
        throw ZTCHostSimError(fmt::format("WWID '{}', expected 32 hexadecimal digits", lWwid));
    }
    if (lLast < lFirst || lLast - lFirst >= sMostLuns) {
        throw ZTCHostSimError(fmt::format("LUNs '{}', expected FIRST-LAST, {} at most", lNumbers, sMostLuns));
    }
    const bool lIsRange = lEnds.size() > 1;
    for (std::uint64_t lAt = lFirst; lAt <= lLast; ++lAt) {
        lLun.mNumber = static_cast<std::uint32_t>(lAt);
        lLun.mMap = lIsRange && !lMap.empty() ? fmt::format("{}{:04}", lMap, lAt) : lMap;
        lLun.mSerial = lIsRange ? fmt::format("{}{:04}", lSerial, lAt) : lSerial;
        lLun.mWwid = lIsRange ? fmt::format("{}{:04x}", lWwid.substr(0, 28), lAt) : lWwid;
        arSite.mLuns.push_back(lLun);
    }
}

void sAddBlock(ZTCHostWords& arWords, ZTSSite& arSite, bool aIsDisk, bool aIsPartition) {
    ZTSSiteBlock lBlock;
    lBlock.mName = arWords.next("a name");
    lBlock.mIsPartition = aIsPartition;
    if (!aIsDisk) {
        lBlock.mOver = splitHostText(sNeed(arWords, "over"), ',');
    }
    lBlock.mGib = arWords.getNumber("gib", 20);
    lBlock.mRate = static_cast<double>(arWords.getNumber("io", aIsDisk ? 10 : 0));
    arSite.mBlocks.push_back(std::move(lBlock));
}
void sReadDisk(ZTCHostWords& arWords, ZTSSite& arSite) {
    sAddBlock(arWords, arSite, true, false);
}
void sReadPartition(ZTCHostWords& arWords, ZTSSite& arSite) {
    sAddBlock(arWords, arSite, false, true);
}
void sReadVolume(ZTCHostWords& arWords, ZTSSite& arSite) {
    sAddBlock(arWords, arSite, false, false);
}

void sReadMount(ZTCHostWords& arWords, ZTSSite& arSite) {
    ZTSSiteMount lMount;
    lMount.mPoint = arWords.next("a mount point");
    lMount.mOver = arWords.next("what is mounted");
    lMount.mType = arWords.next("a type such as xfs");
    arSite.mMounts.push_back(std::move(lMount));
}
void sReadSwap(ZTCHostWords& arWords, ZTSSite& arSite) {
    arSite.mMounts.push_back({"", arWords.next("what is swapped to"), "swap"});
}
void sReadKernel(ZTCHostWords& arWords, ZTSSite& arSite) {
    arSite.mKernel = arWords.next("a version");
}

struct LineRow {
    const char* mpName;
    void (*mpRead)(ZTCHostWords& arWords, ZTSSite& arSite);
};
constexpr LineRow sLines[] = {
    {"kernel", sReadKernel}, {"fabric", sReadFabric}, {"port", sReadPort},           {"target", sReadTarget},
    {"lun", sReadLuns},      {"disk", sReadDisk},     {"partition", sReadPartition}, {"volume", sReadVolume},
    {"mount", sReadMount},   {"swap", sReadSwap}};

void sReadLine(const std::string& acrLine, ZTSSite& arSite) {
    constexpr std::string_view lMultipath = "multipath ";
    if (acrLine.starts_with(lMultipath)) {
        arSite.mMultipath += acrLine.substr(lMultipath.size()) + "\n";
        return;
    }
    ZTCHostWords lWords(acrLine);
    const auto lVerb = lWords.tryNext();
    if (!lVerb) {
        lWords.end();
        return;
    }
    const auto* const lpRow =
        std::ranges::find_if(sLines, [&](const LineRow& acrRow) { return *lVerb == acrRow.mpName; });
    if (lpRow == std::end(sLines)) {
        throw ZTCHostSimError(fmt::format(
            "'{}', expected kernel, fabric, port, target, lun, disk, partition, volume, mount, swap or multipath",
            *lVerb));
    }
    lpRow->mpRead(lWords, arSite);
    lWords.end();
}

}  // namespace

ZTSSite readHostSite(std::string_view aText, std::string_view aPlace) {
    ZTSSite lSite;
    std::size_t lNumber = 0;
    for (const std::string& lrLine : splitHostText(aText, '\n')) {
        ++lNumber;
        try {
            sReadLine(lrLine, lSite);
        } catch (const ZTCHostSimError& lrError) {
            throw ZTCHostSimError(fmt::format("{}:{}: {}", aPlace, lNumber, lrError.what()));
        }
    }
    return lSite;
}

std::string makeHostNames(const ZTSSite& acrSite) {
    std::string lText = "# What people call the ports of the made-up host.\n";
    for (const ZTSSitePort& lrPort : acrSite.mPorts) {
        if (!lrPort.mName.empty()) {
            lText += fmt::format("{} {} fabric={} switch=\"{}\"\n", lrPort.mNames.mPort.toText(),
                                 lrPort.mName, lrPort.mFabric, lrPort.mSwitch);
        }
    }
    for (const ZTSSiteTarget& lrTarget : acrSite.mTargets) {
        lText += fmt::format("{} {} array={} controller={} fabric={} switch=\"{}\"\n",
                             lrTarget.mNames.mPort.toText(), lrTarget.mName, lrTarget.mArray,
                             lrTarget.mController, lrTarget.mFabric, lrTarget.mSwitch);
    }
    return lText;
}
