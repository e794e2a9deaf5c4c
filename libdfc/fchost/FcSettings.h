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

struct ZTSFcSettings {
    std::string mSysfs = "/sys";  ///< ZT_LIBDFC_FCHOST_SYSFS
    int mProtocol = 18;           ///< ZT_LIBDFC_FCHOST_NETLINK: NETLINK_SCSITRANSPORT ...
    std::uint32_t mSender = 0;    ///< ... and whose messages are believed, 0 is the kernel: "18:0"
    std::chrono::milliseconds mPeriod{1000};  ///< ZT_LIBDFC_FCHOST_PERIOD, in seconds: from look to look
    std::string mLog;  ///< ZT_LIBDFC_FCHOST_LOG: a file for the library's own lines; empty: the system's log

    /// Throws ZTCFcError, naming the variable and the valid form.
    static ZTSFcSettings fromEnvironment();
};
