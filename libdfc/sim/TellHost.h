// A made-up host that plays beside the simulated library.
#pragma once

#include <string>

/// Sends a line to the socket that ZT_VRX_HOSTSIM names. Without one there is no such host, and nothing is to
/// be done. Returns what is wrong, in a line; mostly nothing.
std::string tellMadeUpHost(const std::string& acrLine);
