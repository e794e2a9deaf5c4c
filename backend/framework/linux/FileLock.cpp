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

#include "Exception.h"

namespace {

struct flock wholeFile() {
    struct flock lLock {};
    lLock.l_type = F_WRLCK;
    lLock.l_whence = SEEK_SET;
    return lLock;
}

struct DirectoryCloser {
    void operator()(DIR* apDirectory) const { closedir(apDirectory); }
};
using Directory = std::unique_ptr<DIR, DirectoryCloser>;

// Whether the kernel lists a lock under the descriptor's information, in /proc/PID/fdinfo.
bool listsLock(const char* apInfo) {
    FILE* const lpInfo = fopen(apInfo, "re");
    if (lpInfo == nullptr) {
        return false;
    }
    char lLine[256];
    bool lFound = false;
    while (!lFound && fgets(lLine, sizeof lLine, lpInfo) != nullptr) {
        lFound = strncmp(lLine, "lock:", 5) == 0 && strstr(lLine, "WRITE") != nullptr;
    }
    fclose(lpInfo);
    return lFound;
}

bool holdsLock(pid_t aProcess, const struct stat& acrFile) {
    char lPath[64];
    snprintf(lPath, sizeof lPath, "/proc/%d/fd", aProcess);
    const Directory lDirectory(opendir(lPath));
    if (lDirectory == nullptr) {
        return false;
    }
    while (const dirent* lpEntry = readdir(lDirectory.get())) {
        struct stat lStatus {};
        if (fstatat(dirfd(lDirectory.get()), lpEntry->d_name, &lStatus, 0) != 0 ||
            lStatus.st_dev != acrFile.st_dev || lStatus.st_ino != acrFile.st_ino) {
            continue;
        }
        char lInfo[64 + sizeof lpEntry->d_name];
        snprintf(lInfo, sizeof lInfo, "/proc/%d/fdinfo/%s", aProcess, lpEntry->d_name);
        if (listsLock(lInfo)) {
            return true;
        }
    }
    return false;
}

}  // namespace

bool OsLockFile(int aDescriptor) {
    struct flock lLock = wholeFile();
    if (fcntl(aDescriptor, F_OFD_SETLK, &lLock) == 0) {
        return true;
    }
    if (errno == EAGAIN || errno == EACCES) {
        return false;
    }
    throwErrno<ZTCOsException>("fcntl F_OFD_SETLK", nullptr, errno);
}

bool OsIsFileLocked(int aDescriptor) {
    struct flock lLock = wholeFile();
    if (fcntl(aDescriptor, F_OFD_GETLK, &lLock) != 0) {
        throwErrno<ZTCOsException>("fcntl F_OFD_GETLK", nullptr, errno);
    }
    return lLock.l_type != F_UNLCK;
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
        if (*lpEnd == '\0' && lProcess > 0 && holdsLock(static_cast<pid_t>(lProcess), lFile)) {
            return static_cast<pid_t>(lProcess);
        }
    }
    return 0;
}
