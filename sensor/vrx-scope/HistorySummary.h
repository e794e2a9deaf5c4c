// Sums of what the history has, by kind and by port.
#pragma once

#include "Commands.h"

/// As a table or as JSON. Throws ZTCScopeUsage and ZTCStoreError.
std::string summaryText(const ZTSScopeOptions& acrOptions);
