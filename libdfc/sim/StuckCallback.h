// A callback that never returns.
#pragma once

#include "Simulator.h"

/// Calls back on a thread of its own, with an RSCN whose reader is held for ever.
void startStuckCallback(const ZTCSimulator::Registration& acrRegistration);
