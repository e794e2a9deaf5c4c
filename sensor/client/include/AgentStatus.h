// Whether an agent runs, and what can be seen of it without a command.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

#include "SensorFiles.h"

struct ZTSAgentStatus {
    using Time = std::chrono::system_clock::time_point;

    bool mIsRunning = false;         ///< a process holds the lock of the pid file
    pid_t mProcess = 0;              ///< 0: not to be seen
    std::optional<Time> mSince;      ///< when it began
    std::string mLog;                ///< where it writes its log; empty: not to be seen
    std::optional<Time> mHeartbeat;  ///< when it last touched its pid file
    pid_t mSensor = 0;               ///< the process that the sensor's pid file names, 0 for none
    bool mIsSensorRunning = false;
    std::optional<Time> mSensorHeartbeat;
};

/// Whether an agent serves the directory: a process holds the lock of its pid file. Throws
/// ZTCNoPermissionError, ZTCUnsafeFileError, ZTCSensorError.
bool isAgentRunning(const std::string& acrDirectory);
/// Its pid file, not open if nobody holds the lock; throws as isAgentRunning does. And whether somebody still
/// holds it.
ZTCSensorDescriptor openAgentLock(const std::string& acrDirectory);
bool isAgentLock(int aDescriptor);

/// Throws ZTCNoAgentError (no such directory), ZTCNoPermissionError, ZTCUnsafeFileError, ZTCSensorError.
ZTSAgentStatus readAgentStatus(const std::string& acrDirectory);
