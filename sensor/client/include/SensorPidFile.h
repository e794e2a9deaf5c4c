// The sensor's pid file, by which the agent sees that its sensor is alive.
#pragma once

#include "SensorFiles.h"

/// Written when made, removed with the object. The agent ends when it finds the file untouched for two of its
/// heartbeat periods and the process gone. One thread.
class ZTCSensorPidFile {
  public:
    /// Throws ZTCPipesTakenError when the file is a living sensor's, ZTCNoPermissionError,
    /// ZTCUnsafeFileError, ZTCSensorError.
    explicit ZTCSensorPidFile(const std::string& acrDirectory);
    ~ZTCSensorPidFile();
    ZTCSensorPidFile(const ZTCSensorPidFile&) = delete;
    ZTCSensorPidFile& operator=(const ZTCSensorPidFile&) = delete;

    /// Sets its time to now, and makes it anew if somebody has removed it. Throws as the constructor does.
    void touch();

  private:
    void take();
    bool isInItsPlace() const;

    std::string mPath;
    ZTCSensorDescriptor mFile;
};

/// The process that a pid file names, 0 if it names none.
int readPidFile(int aDescriptor);
/// The living process that it names, 0 if there is none: one that is younger than the file has been given the
/// number of one that has ended.
pid_t findLivingSensor(int aDescriptor);
