// What a status says, for people.
#pragma once

#include "Status.h"

std::string statusText(const ZTSScopeStatus& acrStatus, bool aInUtc);
