// One client at a time: who drives the agent holds the lock of its runtime directory.
#pragma once

#include <chrono>

#include "SensorFiles.h"

/// Held as long as the object lives, also while no agent runs.
class ZTCDirectoryClaim {
  public:
    static constexpr std::chrono::milliseconds LookEvery{50};

    /// Waits so long for another client to go, which may be no time. Throws ZTCPipesTakenError, and what
    /// opening the directory throws.
    ZTCDirectoryClaim(const std::string& acrDirectory, std::chrono::milliseconds aWait);

    /// Whether the directory is still the one that its path leads to.
    bool isInItsPlace() const;

  private:
    std::string mPath;
    ZTCSensorDescriptor mDirectory;
};
