#include "AgentStatus.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>

#include "ProcessTable.h"
#include "ScopeWire.h"
#include "SensorFiles.h"
#include "SensorPidFile.h"

namespace {

using Time = ZTSAgentStatus::Time;

Time sChangeTimeOf(const struct stat& acrStatus) {
    return Time(
        std::chrono::duration_cast<Time::duration>(std::chrono::seconds(acrStatus.st_mtim.tv_sec) +
                                                   std::chrono::nanoseconds(acrStatus.st_mtim.tv_nsec)));
}

// Opens a file that may be missing.
ZTCSensorDescriptor sOpenIfThere(const std::string& acrPath) {
    try {
        return openSensorFile(acrPath, O_RDONLY, S_IFREG);
    } catch (const ZTCNoAgentError&) {
        return ZTCSensorDescriptor();
    }
}

// As the agent looks for it: what is not to be believed counts as absent.
ZTCSensorDescriptor sOpenSensorPidFile(const std::string& acrPath) {
    try {
        return sOpenIfThere(acrPath);
    } catch (const ZTCUnsafeFileError&) {
        return ZTCSensorDescriptor();
    }
}

}  // namespace

// For writing, on the whole file, held by an open file description. Other locks mean nothing.
bool isAgentLock(int aDescriptor) {
    struct flock lLock {};
    lLock.l_type = F_WRLCK;
    lLock.l_whence = SEEK_SET;
    return fcntl(aDescriptor, F_OFD_GETLK, &lLock) == 0 && lLock.l_type == F_WRLCK && lLock.l_pid == -1 &&
           lLock.l_start == 0 && lLock.l_len == 0;
}

ZTCSensorDescriptor openAgentLock(const std::string& acrDirectory) {
    ZTCSensorDescriptor lFile = sOpenIfThere(acrDirectory + ZTWirePidFile);
    return lFile.isOpen() && isAgentLock(lFile.get()) ? std::move(lFile) : ZTCSensorDescriptor();
}

bool isAgentRunning(const std::string& acrDirectory) {
    return openAgentLock(acrDirectory).isOpen();
}

ZTSAgentStatus readAgentStatus(const std::string& acrDirectory) {
    openSensorFile(acrDirectory, O_RDONLY | O_DIRECTORY, S_IFDIR);
    ZTSAgentStatus lStatus;
    struct stat lFile {};
    if (const auto lPid = openAgentLock(acrDirectory); lPid.isOpen() && fstat(lPid.get(), &lFile) == 0) {
        lStatus.mIsRunning = true;
        lStatus.mHeartbeat = sChangeTimeOf(lFile);
        lStatus.mProcess = findProcessWith(
            lFile, ZTWirePidFile, [](const ZTSOpenFile& acrFile) { return acrFile.mLock == "OFDLCK"; });
    }
    if (lStatus.mProcess != 0) {
        lStatus.mSince = getProcessStart(lStatus.mProcess);
        // Of all that it writes, only the log is appended to.
        const auto lLog = findOpenFile(lStatus.mProcess, "/", [](const ZTSOpenFile& acrFile) {
            return acrFile.mIsAppended && S_ISREG(acrFile.mStatus.st_mode);
        });
        lStatus.mLog = lLog ? lLog->mPath : "";
    }
    if (const auto lSensor = sOpenSensorPidFile(acrDirectory + ZTWireSensorPidFile);
        lSensor.isOpen() && fstat(lSensor.get(), &lFile) == 0) {
        lStatus.mSensor = readPidFile(lSensor.get());
        lStatus.mSensorHeartbeat = sChangeTimeOf(lFile);
        lStatus.mIsSensorRunning = findLivingSensor(lSensor.get()) != 0;
    }
    return lStatus;
}
