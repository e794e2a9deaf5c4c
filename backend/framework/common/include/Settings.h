// Process-wide settings other than the log's (Log.h). Safe from any thread.
#pragma once

inline constexpr unsigned int ZTHbTimeoutDefault = 240;

/// The heartbeat time-out, in seconds.
void setHbTimeout(unsigned int aSeconds);
void getHbTimeout(unsigned int& arSeconds);
