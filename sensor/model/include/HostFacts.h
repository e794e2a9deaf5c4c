// What is known of a host as a whole, and changes seldom.
#pragma once

#include <string>
#include <vector>

#include "Record.h"

/// Empty: not known. A plain value: any thread.
struct ZTSHostFacts {
    std::string mKernel;           ///< "6.1.0-28-amd64"
    std::string mBoot;             ///< an id of this boot
    ZTNanoseconds mBooted = 0;     ///< when it began
    std::string mMultipathConfig;  ///< a hash of multipath's configuration; "none": there is none

    bool operator==(const ZTSHostFacts&) const = default;
};

/// A row for each that is not what it was, of what "host", without a name: "changed", "kernel" or
/// "multipath_config"; "booted", with the time of the boot and the kernel after it. What is not known says
/// nothing.
std::vector<ZTSChange> listFactChanges(const ZTSHostFacts& acrBefore, const ZTSHostFacts& acrAfter,
                                       ZTNanoseconds aTime);
