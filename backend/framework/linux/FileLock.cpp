#include "FileLock.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "Descriptor.h"
#include "Exception.h"

namespace {

struct flock sWholeFile() {
    struct flock lLock {};
    lLock.l_type = F_WRLCK;
    lLock.l_whence = SEEK_SET;
    return lLock;
}

struct ZTSDirectoryCloser {
    void operator()(DIR* apDirectory) const { closedir(apDirectory); }
};
using Directory = std::unique_ptr<DIR, ZTSDirectoryCloser>;

// Whether one of the lines that the kernel tells of a process is what is looked for.
template <class Found>
bool sHasLine(const char* apInfo, const Found& acrFound) {
    FILE* const lpInfo = fopen(apInfo, "re");
    if (lpInfo == nullptr) {
        return false;
    }
    char lLine[256];
    bool lFound = false;
    while (!lFound && fgets(lLine, sizeof lLine, lpInfo) != nullptr) {
        lFound = acrFound(lLine);
    }
    fclose(lpInfo);
    return lFound;
}

// From /proc/PID/status; whom the folder belongs to, the process can make root.
bool sIsOfOurUser(const char* apLine) {
    uid_t lEffective = 0;
    return sscanf(apLine, "Uid: %*u %u", &lEffective) == 1 && lEffective == geteuid();
}

// From /proc/PID/fdinfo, where only locks on the descriptor's own file are listed. The file's device in the
// line is not compared: on some file systems it is not the one that stat tells.
bool sIsOurKindOfLock(const char* apLine) {
    char lKind[16];
    char lMode[16];
    char lRange[16];
    return sscanf(apLine, "lock: %*d: %15s %*s %15s %*d %*s %15[0-9EOF ]", lKind, lMode, lRange) == 3 &&
           strcmp(lKind, "OFDLCK") == 0 && strcmp(lMode, "WRITE") == 0 && strcmp(lRange, "0 EOF") == 0;
}

bool sHoldsLock(pid_t aProcess, const struct stat& acrFile) {
    char lPath[64];
    snprintf(lPath, sizeof lPath, "/proc/%d/status", aProcess);
    if (!sHasLine(lPath, sIsOfOurUser)) {
        return false;
    }
    snprintf(lPath, sizeof lPath, "/proc/%d/fd", aProcess);
    const Directory lDirectory(opendir(lPath));
    if (lDirectory == nullptr) {
        return false;
    }
    while (const dirent* lpEntry = readdir(lDirectory.get())) {
        char lInfo[64 + sizeof lpEntry->d_name];
        snprintf(lInfo, sizeof lInfo, "/proc/%d/fdinfo/%s", aProcess, lpEntry->d_name);
        // No other file is looked at: one on a server that does not answer would not let go.
        struct stat lStatus {};
        if (sHasLine(lInfo, sIsOurKindOfLock) &&
            fstatat(dirfd(lDirectory.get()), lpEntry->d_name, &lStatus, 0) == 0 &&
            ZTIsSameFile(lStatus, acrFile)) {
            return true;
        }
    }
    return false;
}

}  // namespace

bool OsLockFile(int aDescriptor) {
    struct flock lLock = sWholeFile();
    if (fcntl(aDescriptor, F_OFD_SETLK, &lLock) == 0) {
        return true;
    }
    if (errno == EAGAIN || errno == EACCES) {
        return false;
    }
    throwErrno<ZTCOsException>("fcntl F_OFD_SETLK", nullptr, errno);
}

bool OsIsFileLocked(int aDescriptor) {
    struct flock lLock = sWholeFile();
    if (fcntl(aDescriptor, F_OFD_GETLK, &lLock) != 0) {
        throwErrno<ZTCOsException>("fcntl F_OFD_GETLK", nullptr, errno);
    }
    // The instance's lock goes with no other: while it is held, it is the one that is told of here.
    if (lLock.l_type != F_WRLCK || lLock.l_pid != -1 || lLock.l_start != 0 || lLock.l_len != 0) {
        return false;
    }
    // Into a file that others may write they can put a lock of this kind, too.
    struct stat lFile {};
    const bool lMayBeOthers = fstat(aDescriptor, &lFile) == 0 && (lFile.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    return !lMayBeOthers || OsFindLockHolder(aDescriptor) != 0;
}

pid_t OsFindLockHolder(int aDescriptor) {
    struct stat lFile {};
    const Directory lProcesses(opendir("/proc"));
    if (lProcesses == nullptr || fstat(aDescriptor, &lFile) != 0) {
        return 0;
    }
    while (const dirent* lpEntry = readdir(lProcesses.get())) {
        char* lpEnd = nullptr;
        const long lProcess = strtol(lpEntry->d_name, &lpEnd, 10);
        if (*lpEnd == '\0' && lProcess > 0 && sHoldsLock(static_cast<pid_t>(lProcess), lFile)) {
            return static_cast<pid_t>(lProcess);
        }
    }
    return 0;
}
