#include "FcSettings.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>

namespace {

constexpr double sShortest = 0.01;
constexpr double sLongest = 3600;
constexpr std::uint32_t sFastest = 10000;
constexpr std::string_view sWays[] = {"auto", "bpf", "perf", "none"};  // by ZTEScsiWays

// Reads a number up to the end of a text or, if there is one, up to the colon.
template <class Number>
bool sReadNumber(const char*& arpText, Number& arNumber) {
    const char* const lpEnd = arpText + strcspn(arpText, ":");
    const auto lParsed = std::from_chars(arpText, lpEnd, arNumber);
    const bool lIsRead = lParsed.ec == std::errc() && lParsed.ptr == lpEnd;
    arpText = lpEnd;
    return lIsRead;
}

}  // namespace

ZTSFcSettings ZTSFcSettings::fromEnvironment() {
    ZTSFcSettings lSettings;
    if (const char* const lpSysfs = getenv("ZT_LIBDFC_FCHOST_SYSFS")) {
        if (*lpSysfs != '/') {
            throw ZTCFcError("ZT_LIBDFC_FCHOST_SYSFS: not an absolute path");
        }
        lSettings.mSysfs = lpSysfs;
    }
    if (const char* lpNetlink = getenv("ZT_LIBDFC_FCHOST_NETLINK")) {
        const bool lIsRead = sReadNumber(lpNetlink, lSettings.mProtocol) && lSettings.mProtocol >= 0 &&
                             (*lpNetlink == '\0' || sReadNumber(++lpNetlink, lSettings.mSender));
        if (!lIsRead || *lpNetlink != '\0') {
            throw ZTCFcError("ZT_LIBDFC_FCHOST_NETLINK: not PROTOCOL or PROTOCOL:SENDER, two numbers");
        }
    }
    if (const char* lpPeriod = getenv("ZT_LIBDFC_FCHOST_PERIOD")) {
        double lSeconds = 0;
        if (!sReadNumber(lpPeriod, lSeconds) || *lpPeriod != '\0' ||
            !(lSeconds >= sShortest && lSeconds <= sLongest)) {
            throw ZTCFcError("ZT_LIBDFC_FCHOST_PERIOD: not a number of seconds from 0.01 to 3600");
        }
        lSettings.mPeriod =
            std::chrono::ceil<std::chrono::milliseconds>(std::chrono::duration<double>(lSeconds));
    }
    if (const char* const lpLog = getenv("ZT_LIBDFC_FCHOST_LOG")) {
        lSettings.mLog = lpLog;
    }
    if (const char* const lpWays = getenv("ZT_LIBDFC_FCHOST_SCSI")) {
        const auto* const lpFound = std::find(std::begin(sWays), std::end(sWays), lpWays);
        if (lpFound == std::end(sWays)) {
            throw ZTCFcError("ZT_LIBDFC_FCHOST_SCSI: not auto, bpf, perf or none");
        }
        lSettings.mScsi = static_cast<ZTEScsiWays>(lpFound - sWays);
    }
    if (const char* lpRate = getenv("ZT_LIBDFC_FCHOST_RATE")) {
        if (!sReadNumber(lpRate, lSettings.mRate) || *lpRate != '\0' || lSettings.mRate == 0 ||
            lSettings.mRate > sFastest) {
            throw ZTCFcError("ZT_LIBDFC_FCHOST_RATE: not a number from 1 to 10000");
        }
    }
    if (const char* const lpStatistics = getenv("ZT_VRX_SENSOR_DIR")) {
        lSettings.mStatistics = lpStatistics;
    }
    return lSettings;
}
