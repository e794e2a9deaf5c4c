#include "ProcessInstanceManager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <string_view>
#include <utility>

#include "Exception.h"
#include "FileLock.h"
#include "Os.h"
#include "Periods.h"
#include "Process.h"
#include "SafeFile.h"

namespace {

constexpr useconds_t sLookAgain = 1000;  // microseconds
constexpr char sNewSuffix[] = ".new";

// Not open when there is none.
ZTCDescriptor sOpenIfThere(const char* apPath) {
    try {
        return OsOpenOurFile(apPath, O_RDONLY);
    } catch (const ZTCOsException& lrException) {
        if (lrException.getCode() != ENOENT) {
            throw;
        }
        return ZTCDescriptor();
    }
}

[[noreturn]] void sThrowRunning(int aDescriptor) {
    char lText[64];
    const pid_t lHolder = OsFindLockHolder(aDescriptor);
    if (lHolder != 0) {
        snprintf(lText, sizeof lText, "Another instance is running: process %d", lHolder);
    } else {
        snprintf(lText, sizeof lText, "Another instance is running");
    }
    throw ZTCExitConditionEx(lText);
}

void sWriteNumber(int aDescriptor, const char* apPath) {
    char lText[16];
    const int lLength = snprintf(lText, sizeof lText, "%d\n", getpid());
    if (pwrite(aDescriptor, lText, static_cast<std::size_t>(lLength), 0) != lLength ||
        ftruncate(aDescriptor, lLength) != 0) {
        throwErrno<ZTCOsException>("write", apPath, errno);
    }
}

// The file that is to become the pid file, locked: nobody else than who holds its lock puts a file into the
// pid file's place. Waits for its turn among those that start.
ZTCDescriptor sTakeNewFile(const char* apPath) {
    for (const timespec lEnd = OsDeadlineIn(ZTPeriod(ZTP_InstanceStart)); !OsHasPassed(lEnd);
         usleep(sLookAgain)) {
        ZTCDescriptor lFile = OsOpenOurFile(apPath, O_RDWR | O_CREAT, S_IRUSR | S_IWUSR);
        if (OsLockFile(lFile.get()) && ZTIsStillAt(lFile.get(), apPath)) {
            OsCheckFile(lFile.get(), apPath, S_IFREG);
            fchmod(lFile.get(), S_IRUSR | S_IWUSR);
            return lFile;
        }
    }
    throwErrno<ZTCTimeOutEx>("Waiting for another start, that has locked", apPath, ETIMEDOUT);
}

// Asks the process that holds the lock to end, and waits for its end. It may be gone, or hold the lock no
// longer, before it can be asked; then it is not.
void sStop(pid_t aHolder, int aDescriptor) {
    try {
        const ZTCProcess lProcess(aHolder);
        // Looked at again: what we hold may be another process that got the number of one that has ended.
        if (OsFindLockHolder(aDescriptor) != aHolder) {
            return;
        }
        lProcess.sendSignal(SIGTERM);
        constexpr unsigned int lTurn = 100;  // milliseconds
        // A zombie that has given the lock up has ended, though its log's disk may keep the kernel from
        // clearing it.
        const timespec lEnd = OsDeadlineIn(ZTPeriod(ZTP_InstanceEnd));
        while (!lProcess.waitForEnd(lTurn)) {
            if (OsIsZombie(aHolder) && !OsIsFileLocked(aDescriptor)) {
                return;
            }
            if (OsHasPassed(lEnd)) {
                char lText[64];
                snprintf(lText, sizeof lText, "Process %d has not ended within %u seconds", aHolder,
                         ZTSecondsOf(ZTP_InstanceEnd));
                throw ZTCTimeOutEx(lText, ETIMEDOUT);
            }
        }
    } catch (const ZTCOsException& lrException) {
        if (lrException.getCode() != ESRCH) {
            throw;
        }
    }
}

// The number that a pid file holds; 0 when it holds none. Blanks may follow it on its line. Throws
// ZTCClibGetProcStatusFailedEx.
pid_t sReadNumber(const char* apPath) {
    char lText[32];
    ssize_t lLength = -1;
    try {
        lLength = read(OsOpenOurFile(apPath, O_RDONLY).get(), lText, sizeof lText);
    } catch (const ZTCOsException& lrException) {
        throw ZTCClibGetProcStatusFailedEx(lrException.what(), lrException.getCode());
    }
    if (lLength < 0) {
        throwErrno<ZTCClibGetProcStatusFailedEx>("read", apPath, errno);
    }
    pid_t lProcess = 0;
    const char* const lpEnd = lText + lLength;
    const auto lParsed = std::from_chars(lText, lpEnd, lProcess);
    const std::string_view lRest(lParsed.ptr, static_cast<std::size_t>(lpEnd - lParsed.ptr));
    const std::size_t lBlanks = std::min(lRest.find_first_not_of(" \t\r"), lRest.size());
    const bool lIsWhole = lParsed.ec == std::errc() && (lBlanks == lRest.size() || lRest[lBlanks] == '\n');
    return lIsWhole && lProcess > 0 ? lProcess : 0;
}

}  // namespace

ZTCProcessInstanceManager::~ZTCProcessInstanceManager() = default;

bool ZTCProcessInstanceManager::isAnInstanceRunning() {
    if (mState == ZTIS_Running) {
        return false;
    }
    const ZTCDescriptor lFile = sOpenIfThere(mPidFile.get());
    return lFile.isOpen() && OsIsFileLocked(lFile.get());
}

// Always a new file: whoever has an old one open could hold a lock on it.
void ZTCProcessInstanceManager::markAsRunning() {
    if (mState == ZTIS_Running) {
        return;
    }
    const ZTCString lNewPath = mPidFile + sNewSuffix;
    ZTCDescriptor lOld;
    {
        ZTCDescriptor lNew = sTakeNewFile(lNewPath.get());
        try {
            lOld = sOpenIfThere(mPidFile.get());
            if (!lOld.isOpen() || !OsIsFileLocked(lOld.get())) {
                sWriteNumber(lNew.get(), lNewPath.get());
                if (rename(lNewPath.get(), mPidFile.get()) != 0) {
                    throwErrno<ZTCOsException>("rename", lNewPath.get(), errno);
                }
                mPidFd = std::move(lNew);
                mState = ZTIS_Running;
                return;
            }
        } catch (const ZTCException&) {
            unlink(lNewPath.get());
            throw;
        }
        unlink(lNewPath.get());
    }
    sThrowRunning(lOld.get());
}

void ZTCProcessInstanceManager::killRunningInstance() {
    const ZTCDescriptor lFile = sOpenIfThere(mPidFile.get());
    if (!lFile.isOpen() || !OsIsFileLocked(lFile.get())) {
        throw ZTCExitConditionEx("No instance is running");
    }
    do {
        const pid_t lHolder = OsFindLockHolder(lFile.get());
        if (lHolder != 0) {
            sStop(lHolder, lFile.get());
        } else if (OsIsFileLocked(lFile.get())) {
            throwErrno<ZTCOsException>("The process that holds the lock cannot be seen:", mPidFile.get(),
                                       EPERM);
        }
    } while (OsIsFileLocked(lFile.get()));
}

void ZTCProcessInstanceManager::exitInstanceManagement() {
    if (mState != ZTIS_Running) {
        return;
    }
    // Removed while the lock is held: who opens it now sees, once it has the lock, that it is gone.
    if (ZTIsStillAt(mPidFd.get(), mPidFile.get())) {
        unlink(mPidFile.get());
    }
    mPidFd.close();
    mState = ZTIS_NotRunning;
}

void ZTCProcessInstanceManager::getProcStatus(ZTCString aPidFile) {
    const pid_t lProcess = sReadNumber(aPidFile.get());
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
