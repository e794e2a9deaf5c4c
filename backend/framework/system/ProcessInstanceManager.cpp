#include "ProcessInstanceManager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>

#include "Descriptor.h"
#include "Exception.h"
#include "FileLock.h"
#include "Process.h"
#include "SafeFile.h"

namespace {

constexpr unsigned int sKillSeconds = 10;
constexpr unsigned int sExitCondition = 19;

// Opens the pid file following no link, waiting for nothing. Not open when there is none and none is made.
ZTCDescriptor openPidFile(const char* apPath, int aFlags) {
    ZTCDescriptor lFile(open(apPath, aFlags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, 0644));
    if (!lFile.isOpen()) {
        if (errno == ENOENT && (aFlags & O_CREAT) == 0) {
            return lFile;
        }
        throwErrno<ZTCOsException>(errno == ELOOP ? "The pid file must not be a symbolic link:" : "open",
                                   apPath, errno);
    }
    OsCheckFile(lFile.get(), apPath, S_IFREG);
    return lFile;
}

bool isStillAt(int aDescriptor, const char* apPath) {
    struct stat lOpened {};
    struct stat lNamed {};
    return fstat(aDescriptor, &lOpened) == 0 && lstat(apPath, &lNamed) == 0 &&
           lOpened.st_dev == lNamed.st_dev && lOpened.st_ino == lNamed.st_ino;
}

[[noreturn]] void throwRunning(int aDescriptor) {
    char lText[64];
    const pid_t lHolder = OsFindLockHolder(aDescriptor);
    if (lHolder != 0) {
        snprintf(lText, sizeof lText, "Another instance is running: process %d", lHolder);
    } else {
        snprintf(lText, sizeof lText, "Another instance is running");
    }
    throw ZTCExitConditionEx(lText, sExitCondition);
}

void writeNumber(int aDescriptor, const char* apPath) {
    char lText[16];
    const int lLength = snprintf(lText, sizeof lText, "%d\n", getpid());
    if (pwrite(aDescriptor, lText, static_cast<std::size_t>(lLength), 0) != lLength ||
        ftruncate(aDescriptor, lLength) != 0) {
        throwErrno<ZTCOsException>("write", apPath, errno);
    }
}

// Asks the process that holds the lock to end. False: it has not, or it was gone before it could be asked.
bool sStop(pid_t aHolder, int aDescriptor) {
    try {
        const ZTCProcess lProcess(aHolder);
        // Looked at again: what we hold may be another process that got the number of one that has ended.
        if (OsFindLockHolder(aDescriptor) != aHolder) {
            return false;
        }
        lProcess.sendSignal(SIGTERM);
        return lProcess.waitForEnd(sKillSeconds);
    } catch (const ZTCOsException& lrException) {
        if (lrException.getCode() != ESRCH) {
            throw;
        }
        return false;
    }
}

// The number that a pid file holds; 0 when it holds none. Throws ZTCClibGetProcStatusFailedEx.
pid_t readNumber(const char* apPath) {
    const ZTCDescriptor lFile(open(apPath, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    char lText[32];
    const ssize_t lLength = lFile.isOpen() ? read(lFile.get(), lText, sizeof lText) : -1;
    if (lLength < 0) {
        throwErrno<ZTCClibGetProcStatusFailedEx>("read", apPath, errno);
    }
    pid_t lProcess = 0;
    const char* const lpEnd = lText + lLength;
    const auto lParsed = std::from_chars(lText, lpEnd, lProcess);
    const bool lIsWhole = lParsed.ec == std::errc() && (lParsed.ptr == lpEnd || *lParsed.ptr == '\n');
    return lIsWhole && lProcess > 0 ? lProcess : 0;
}

}  // namespace

ZTCProcessInstanceManager::~ZTCProcessInstanceManager() {
    if (mPidFd >= 0) {
        close(mPidFd);
    }
}

bool ZTCProcessInstanceManager::isAnInstanceRunning() {
    if (mState == Running) {
        return false;
    }
    const ZTCDescriptor lFile = openPidFile(mPidFile.get(), O_RDONLY);
    return lFile.isOpen() && OsIsFileLocked(lFile.get());
}

void ZTCProcessInstanceManager::markAsRunning() {
    while (mState != Running) {
        ZTCDescriptor lFile = openPidFile(mPidFile.get(), O_RDWR | O_CREAT);
        if (!OsLockFile(lFile.get())) {
            throwRunning(lFile.get());
        }
        if (!isStillAt(lFile.get(), mPidFile.get())) {
            continue;  // an instance that was ending has removed the file that we had opened
        }
        writeNumber(lFile.get(), mPidFile.get());
        mPidFd = lFile.release();
        mState = Running;
    }
}

void ZTCProcessInstanceManager::killRunningInstance() {
    const ZTCDescriptor lFile = openPidFile(mPidFile.get(), O_RDONLY);
    if (!lFile.isOpen() || !OsIsFileLocked(lFile.get())) {
        throw ZTCExitConditionEx("No instance is running", sExitCondition);
    }
    const pid_t lHolder = OsFindLockHolder(lFile.get());
    if ((lHolder != 0 && sStop(lHolder, lFile.get())) || !OsIsFileLocked(lFile.get())) {
        return;
    }
    if (lHolder == 0) {
        throwErrno<ZTCOsException>("The process that holds the lock cannot be seen:", mPidFile.get(), EPERM);
    }
    char lText[64];
    snprintf(lText, sizeof lText, "Process %d has not ended within %u seconds", lHolder, sKillSeconds);
    throw ZTCTimeOutEx(lText, ETIMEDOUT);
}

void ZTCProcessInstanceManager::exitInstanceManagement() {
    if (mState != Running) {
        return;
    }
    // Removed while the lock is held: who opens it now sees, once it has the lock, that it is gone.
    if (isStillAt(mPidFd, mPidFile.get())) {
        unlink(mPidFile.get());
    }
    close(mPidFd);
    mPidFd = -1;
    mState = NotRunning;
}

void ZTCProcessInstanceManager::getProcStatus(ZTCString aPidFile) {
    const pid_t lProcess = readNumber(aPidFile.get());
    bool lIsAlive = false;
    if (lProcess != 0) {
        try {
            lIsAlive = ZTCProcess(lProcess).isAlive();
        } catch (const ZTCOsException&) {
            lIsAlive = false;
        }
    }
    if (!lIsAlive) {
        throwErrno<ZTCClibGetProcStatusFailedEx>("No process by the number in", aPidFile.get(), ESRCH);
    }
}
