#include "HostVerbs.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

using Host = ZTCMadeUpHost;
using Words = ZTCHostWords;
using Time = ZTCMadeUpHost::Time;

Time sAfter(Words& arWords) {
    return arWords.getDuration("after", Time(0));
}

// ---- paths and links ----

void sSetPaths(Host& arHost, Words& arWords, bool aIsUsable) {
    for (ZTSHostDisk* const lpPath : arHost.findPaths(arWords.next("a path"))) {
        lpPath->mHasFailed = !aIsUsable;
        arHost.setPath(*lpPath, aIsUsable);
    }
}
void sPathFail(Host& arHost, Words& arWords) {
    sSetPaths(arHost, arWords, false);
}
void sPathBack(Host& arHost, Words& arWords) {
    sSetPaths(arHost, arWords, true);
}
void sPathGone(Host& arHost, Words& arWords) {
    for (ZTSHostDisk* const lpPath : arHost.findPaths(arWords.next("a path"))) {
        arHost.removePath(*lpPath);
    }
}
void sLunBack(Host& arHost, Words& arWords) {
    arHost.addPaths(arWords.next("a map"));
}
void sSetLink(Host& arHost, Words& arWords, bool aIsUp) {
    arHost.setLink(arHost.findPort(arWords.next("a port of the host")), aIsUp, sAfter(arWords));
}
void sLinkDown(Host& arHost, Words& arWords) {
    sSetLink(arHost, arWords, false);
}
void sLinkUp(Host& arHost, Words& arWords) {
    sSetLink(arHost, arWords, true);
}
void sTargetLost(Host& arHost, Words& arWords) {
    arHost.setTarget(arWords.next("a target"), false, sAfter(arWords));
}
void sTargetBack(Host& arHost, Words& arWords) {
    arHost.setTarget(arWords.next("a target"), true, sAfter(arWords));
}
void sTargetGone(Host& arHost, Words& arWords) {
    arHost.removeTarget(arWords.next("a target"));
}

// ---- disks ----

void sStall(Host& arHost, Words& arWords) {
    arHost.findDisk(arWords.next("a disk")).mIsStalled = true;
}
void sGoOn(Host& arHost, Words& arWords) {
    arHost.findDisk(arWords.next("a disk")).mIsStalled = false;
}
void sRate(Host& arHost, Words& arWords) {
    const std::string lDisk = arWords.next("a map or a disk");
    arHost.findDisk(lDisk).mRate =
        static_cast<double>(readHostNumber(arWords.next("commands a second"), "rate"));
}
void sTime(Host& arHost, Words& arWords) {
    const std::string lName = arWords.next("a disk");
    const double lTime = static_cast<double>(readHostNumber(arWords.next("microseconds"), "time")) / 1000;
    arHost.findDisk(lName).mTime = lTime;
}
void sSetDevices(Host& arHost, Words& arWords, const char* apAttribute, const char* apWhat) {
    const auto lPaths = arHost.findPaths(arWords.next("a path, a map or a target"));
    const std::string lText = arWords.next(apWhat);
    for (ZTSHostDisk* const lpPath : lPaths) {
        arHost.setDeviceAttribute(*lpPath, apAttribute, lText);
    }
}
void sQueueDepth(Host& arHost, Words& arWords) {
    sSetDevices(arHost, arWords, "queue_depth", "a number");
}
void sAccess(Host& arHost, Words& arWords) {
    sSetDevices(arHost, arWords, "access_state", "a state such as standby");
}
void sState(Host& arHost, Words& arWords) {
    sSetDevices(arHost, arWords, "state", "a state such as offline");
}
void sVolume(Host& arHost, Words& arWords) {
    const std::string lName = arWords.next("a name");
    const auto lOver = arWords.getList("over");
    if (lOver.empty()) {
        throw ZTCHostSimError("nothing beneath, expected over=DISK[,DISK...]");
    }
    arHost.addVolume(lName, lOver);
}
void sVolumeGone(Host& arHost, Words& arWords) {
    arHost.removeVolume(arWords.next("a volume"));
}
void sMount(Host& arHost, Words& arWords) {
    const std::string lPoint = arWords.next("a mount point");
    const std::string lDisk = arWords.next("a disk");
    arHost.mount(lPoint, lDisk, arWords.tryNext().value_or("ext4"));
}
void sUnmount(Host& arHost, Words& arWords) {
    arHost.unmount(arWords.next("a mount point"));
}

// ---- the fabric ----

void sFpin(Host& arHost, Words& arWords) {
    ZTSSitePort& lrPort = arHost.findPort(arWords.next("a port of the host"));
    arHost.tellFpin(lrPort, arWords);
}
void sRscn(Host& arHost, Words& arWords) {
    const ZTSSitePort& lrPort = arHost.findPort(arWords.next("a port of the host"));
    constexpr std::uint32_t lRscn = 5;
    arHost.tellTransport(lrPort, lRscn,
                         static_cast<std::uint32_t>(readHostNumber(arWords.next("a page"), "page")));
}
void sLose(Host& arHost, Words& arWords) {
    arHost.getVoice().lose(static_cast<std::uint32_t>(readHostNumber(arWords.next("how many"), "messages")));
}
void sCounter(Host& arHost, Words& arWords) {
    const std::string lWhere = arWords.next("a port, HOST/TARGET or a path");
    const std::string lName = arWords.next("a counter");
    std::string lMore = arWords.next("+N");
    lMore.erase(0, lMore.starts_with('+') ? 1 : 0);
    arHost.count(lWhere, lName, readHostNumber(lMore, "what is added"));
}
void sDevLoss(Host& arHost, Words& arWords) {
    const std::string lName = arWords.next("a target");
    arHost.setRemoteAttribute(lName, "dev_loss_tmo", arWords.next("seconds"));
}
void sSetPort(Host& arHost, Words& arWords, const std::string& acrAttribute) {
    ZTSSitePort& lrPort = arHost.findPort(arWords.next("a port of the host"));
    arHost.setAttribute(lrPort, acrAttribute, arWords.nextText("a text"));
}
void sFirmware(Host& arHost, Words& arWords) {
    sSetPort(arHost, arWords, "firmware_version");
}
void sDriver(Host& arHost, Words& arWords) {
    sSetPort(arHost, arWords, "driver_version");
}
void sSpeed(Host& arHost, Words& arWords) {
    sSetPort(arHost, arWords, "speed");
}
void sPortId(Host& arHost, Words& arWords) {
    sSetPort(arHost, arWords, "port_id");
}

// ---- the host ----

void sConfig(Host& arHost, Words& arWords) {
    arHost.setConfig(arWords.nextText("a line"));
}
void sMultipathd(Host& arHost, Words& arWords) {
    const std::string lState = arWords.next("on or off");
    if (lState != "on" && lState != "off") {
        throw ZTCHostSimError(fmt::format("'{}', expected on or off", lState));
    }
    arHost.setMultipathd(lState == "on");
}
void sReboot(Host& arHost, Words& arWords) {
    arHost.reboot(arWords.get("kernel", ""));
}
void sReport(Host& /*arHost*/, Words& /*arWords*/) {}

constexpr char sReportName[] = "report";

constexpr ZTSHostVerb sVerbs[] = {
    {"path-fail", "PATHS", "path-fail sdb", "device mapper fails a path, or those of a map or a target",
     sPathFail},
    {"path-back", "PATHS", "path-back sdb", "and takes it back", sPathBack},
    {"path-gone", "PATHS", "path-gone sdc", "a path is removed from the host", sPathGone},
    {"lun-gone", "MAP", "lun-gone mpathc", "all paths of a map are removed", sPathGone},
    {"lun-back", "MAP", "lun-back mpathc", "every path of a map is there again", sLunBack},
    {"link-down", "PORT [after=TIME]", "link-down host1 after=5s",
     "a link goes; its paths' commands wait, and its paths fail after that time", sLinkDown},
    {"link-up", "PORT [after=TIME]", "link-up host1 after=2s",
     "a link comes; its paths are taken back after that time", sLinkUp},
    {"target-lost", "TARGET [after=TIME]", "target-lost array2/A",
     "targets log out: one, HOST/ONE, those of an array, or of ARRAY/CONTROLLER", sTargetLost},
    {"target-gone", "TARGET", "target-gone array2-B0", "targets are given up, their paths are removed",
     sTargetGone},
    {"target-back", "TARGET [after=TIME]", "target-back array2", "targets are there again, with their paths",
     sTargetBack},
    {"stall", "DISK", "stall sdb", "a disk, map or volume has commands and completes none", sStall},
    {"go-on", "DISK", "go-on sdb", "it completes them", sGoOn},
    {"rate", "DISK N", "rate mpatha 0", "so many commands a second; 0: it is idle", sRate},
    {"time", "DISK MICROSECONDS", "time sdb 25000", "how long a command takes", sTime},
    {"queue-depth", "PATHS N", "queue-depth sdb 16", "the driver allows so many commands at once",
     sQueueDepth},
    {"access", "PATHS STATE", "access array1/A standby", "how the array wants its paths used", sAccess},
    {"state", "PATHS STATE", "state sdb offline", "what the kernel thinks of a device", sState},
    {"volume", "NAME over=DISKS", "volume vg1-more over=mpathb,mpathc", "a volume is made", sVolume},
    {"volume-gone", "NAME", "volume-gone vg1-more", "a volume is removed", sVolumeGone},
    {"mount", "POINT DISK [TYPE]", "mount \"/srv/my files\" vg1-data xfs", "it is mounted there too", sMount},
    {"umount", "POINT", "umount /scratch", "no longer", sUnmount},
    {"fpin", "PORT DESCRIPTOR [KEY=VALUE...]...",
     "fpin host1 link-integrity port=array1-A0 detecting=20:01:00:05:33:6c:a1:01 event=loss_of_signal count=5 "
     "threshold=1000 ports=array1-A0,array1-B0 congestion event=credit_stall severity=alarm period=2000",
     "the fabric tells of its performance. Descriptors: link-integrity, delivery, peer-congestion, congestion, or "
     "a tag with bytes=HEX",
     sFpin},
    {"rscn", "PORT PAGE", "rscn host1 0x010a00", "the kernel tells that the fabric's state changed", sRscn},
    {"lose", "N", "lose 3", "messages about the fabric that never come", sLose},
    {"counter", "WHERE NAME +N", "counter host1 invalid_crc_count +12",
     "a counter climbs: of a port, of HOST/TARGET, or of a path (ioerr_cnt)", sCounter},
    {"dev-loss", "TARGET SECONDS", "dev-loss array1 30", "dev_loss_tmo of remote ports", sDevLoss},
    {"firmware", "PORT TEXT", "firmware host1 4.3.0", "a port has another firmware", sFirmware},
    {"driver", "PORT TEXT", "driver host1 2.4.0.1", "a port has another driver", sDriver},
    {"speed", "PORT TEXT", "speed host1 8 Gbit", "a link has another speed", sSpeed},
    {"port-id", "PORT NUMBER", "port-id host1 0x010600", "a port has another address", sPortId},
    {"config", "LINE", "config \"# somebody was here\"", "multipath's configuration has a line more",
     sConfig},
    {"multipathd", "on|off", "multipathd off", "whether multipathd answers", sMultipathd},
    {"reboot", "[kernel=VERSION]", "reboot kernel=6.1.0-31-amd64",
     "another boot: all that the site has is there again", sReboot},
    {sReportName, "", "report", "how many paths each map has, and what was said", sReport},
};

const ZTSHostVerb& sFind(const std::string& acrName) {
    const auto* const lpVerb =
        std::ranges::find_if(sVerbs, [&](const ZTSHostVerb& acrVerb) { return acrName == acrVerb.mpName; });
    if (lpVerb == std::end(sVerbs)) {
        throw ZTCHostSimError(
            fmt::format("unknown verb '{}', expected one of vrx-hostsim language", acrName.substr(0, 60)));
    }
    return *lpVerb;
}

}  // namespace

std::span<const ZTSHostVerb> getHostVerbs() {
    return sVerbs;
}

std::string playHostLine(ZTCMadeUpHost& arHost, std::string_view aLine) {
    ZTCHostWords lWords(aLine);
    const auto lName = lWords.tryNext();
    if (!lName) {
        lWords.end();
        return {};
    }
    const ZTSHostVerb& lrVerb = sFind(*lName);
    lrVerb.mpPlay(arHost, lWords);
    lWords.end();
    return *lName == sReportName ? arHost.report() : std::string();
}
