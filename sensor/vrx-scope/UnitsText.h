// The LUNs of a host as tables.
#pragma once

#include "Units.h"

std::string unitsText(const ZTSUnits& acrUnits, bool aIsFull, bool aInUtc, ZTNanoseconds aNow);
