#include "SensorPidFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <string_view>

#include "ProcessTable.h"
#include "ScopeWire.h"

int readPidFile(int aDescriptor) {
    char lText[16];
    const ssize_t lLength = pread(aDescriptor, lText, sizeof lText, 0);
    const char* const lpEnd = lText + (lLength > 0 ? lLength : 0);
    int lProcess = 0;
    const auto lParsed = std::from_chars(lText, lpEnd, lProcess);
    const std::string_view lRest(lParsed.ptr, static_cast<std::size_t>(lpEnd - lParsed.ptr));
    const std::size_t lBlanks = std::min(lRest.find_first_not_of(" \t\r"), lRest.size());
    const bool lIsWhole = lParsed.ec == std::errc() && (lBlanks == lRest.size() || lRest[lBlanks] == '\n');
    return lIsWhole && lProcess > 0 ? lProcess : 0;
}

pid_t findLivingSensor(int aDescriptor) {
    const pid_t lProcess = readPidFile(aDescriptor);
    struct stat lStatus {};
    const auto lStart = lProcess > 0 ? getProcessStart(lProcess) : std::nullopt;
    const bool lIsIt = lStart && fstat(aDescriptor, &lStatus) == 0 &&
                       std::chrono::system_clock::to_time_t(*lStart) <= lStatus.st_mtim.tv_sec;
    return lIsIt ? lProcess : 0;
}

ZTCSensorPidFile::ZTCSensorPidFile(const std::string& acrDirectory)
    : mPath(acrDirectory + ZTWireSensorPidFile) {
    take();
}

ZTCSensorPidFile::~ZTCSensorPidFile() {
    if (isInItsPlace()) {
        unlink(mPath.c_str());
    }
}

void ZTCSensorPidFile::take() {
    mFile = openSensorFile(mPath, O_RDWR | O_CREAT, S_IFREG);
    if (const pid_t lOther = findLivingSensor(mFile.get()); lOther != 0 && lOther != getpid()) {
        mFile = ZTCSensorDescriptor();
        throw ZTCPipesTakenError(
            "the agent has a sensor, " + describeProcess(lOther) + ": end it first (" + mPath + ")", lOther);
    }
    const std::string lText = std::to_string(getpid()) + "\n";
    if (ftruncate(mFile.get(), 0) != 0 ||
        pwrite(mFile.get(), lText.data(), lText.size(), 0) != static_cast<ssize_t>(lText.size())) {
        throwSensorErrno(mPath, errno);
    }
}

void ZTCSensorPidFile::touch() {
    if (!isInItsPlace()) {
        take();
    } else if (futimens(mFile.get(), nullptr) != 0) {
        throwSensorErrno(mPath, errno);
    }
}

bool ZTCSensorPidFile::isInItsPlace() const {
    struct stat lOurs {};
    struct stat lNamed {};
    return mFile.isOpen() && fstat(mFile.get(), &lOurs) == 0 && lstat(mPath.c_str(), &lNamed) == 0 &&
           lOurs.st_dev == lNamed.st_dev && lOurs.st_ino == lNamed.st_ino;
}
