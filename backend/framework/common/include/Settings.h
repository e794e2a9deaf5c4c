// Process-wide settings other than the log's (Log.h). Safe from any thread.
#pragma once

#include "Periods.h"

/// The heartbeat time-out, in seconds.
void setHbTimeout(unsigned int aSeconds);
void getHbTimeout(unsigned int& arSeconds);
