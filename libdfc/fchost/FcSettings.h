// What the environment sets.
#pragma once

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>

/// A setting that is not understood, or something that the library cannot be without.
class ZTCFcError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// How failed SCSI commands are to be learned of.
enum ZTEScsiWays : unsigned char { ZTSW_Any, ZTSW_Bpf, ZTSW_Perf, ZTSW_None };

struct ZTSFcSettings {
    std::string mSysfs = "/sys";  ///< ZT_LIBDFC_FCHOST_SYSFS
    int mProtocol = 18;           ///< ZT_LIBDFC_FCHOST_NETLINK: NETLINK_SCSITRANSPORT ...
    std::uint32_t mSender = 0;    ///< ... and whose messages are believed, 0 is the kernel: "18:0"
    std::chrono::milliseconds mPeriod{1000};  ///< ZT_LIBDFC_FCHOST_PERIOD, in seconds: from look to look
    std::string mLog;  ///< ZT_LIBDFC_FCHOST_LOG: a file for the library's own lines; empty: the system's log

    ZTEScsiWays mScsi = ZTSW_Any;  ///< ZT_LIBDFC_FCHOST_SCSI: auto, bpf, perf, none
    std::uint32_t mRate = 10000;   ///< ZT_LIBDFC_FCHOST_RATE: SCSI events of a kind that are told a second
    std::string mStatistics;       ///< ZT_VRX_SENSOR_DIR: where the statistics are shown; empty: nowhere

    /// Throws ZTCFcError, naming the variable and the valid form.
    static ZTSFcSettings fromEnvironment();
};
