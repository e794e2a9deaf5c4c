// What is known of the host as a whole. Multipath's configuration lies on a disk, which may stand still.
#pragma once

#include <string>

#include "HostFacts.h"

/// The kernel and the boot, from /proc: never waits for a disk. Throws std::bad_alloc.
void readKernelFacts(const std::string& acrRoot, ZTSHostFacts& arFacts);
/// Of /etc/multipath.conf and /etc/multipath/conf.d/*.conf: names and texts, in the order of the names; 16
/// digits. "none" where there are none; empty: it cannot be read now. Throws std::bad_alloc.
std::string hashMultipathConfig(const std::string& acrRoot);
