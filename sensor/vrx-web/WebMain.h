// The program, so that tests have it with other periods.
#pragma once

#include "WebOptions.h"

int runWeb(int argc, char** argv, const ZTSWebPeriods& acrPeriods);
