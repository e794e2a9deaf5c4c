// The host's ports and those that they see, as a table.
#pragma once

#include "PortsView.h"

std::string portsText(const ZTSPortsView& acrPorts, bool aInUtc);
