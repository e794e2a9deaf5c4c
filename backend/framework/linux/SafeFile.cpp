#include "SafeFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include "ClibMemory.h"
#include "Exception.h"

namespace {

[[noreturn]] void sRefuse(const char* apPath, const char* apReason, int aErrno) {
    char lText[ZTCException::MaxText + 1];
    snprintf(lText, sizeof lText, "%s is refused: %s", apPath, apReason);
    throw ZTCOsException(lText, static_cast<unsigned int>(aErrno));
}

void sCheckOwner(const char* apPath, const struct stat& acrStatus) {
    if (acrStatus.st_uid != geteuid() && acrStatus.st_uid != 0) {
        sRefuse(apPath, "it belongs to another user", EPERM);
    }
}

void sCheckKind(const char* apPath, const struct stat& acrStatus, mode_t aType) {
    if (S_ISLNK(acrStatus.st_mode)) {
        sRefuse(apPath, "it is a symbolic link", ELOOP);
    }
    if ((acrStatus.st_mode & S_IFMT) != aType) {
        sRefuse(apPath, aType == S_IFIFO ? "it is not a pipe" : "it is not a regular file", EINVAL);
    }
    if (acrStatus.st_nlink > 1) {  // 0: removed since it was opened
        sRefuse(apPath, "it has more than one name (hard link)", EMLINK);
    }
}

bool sMayOthersWrite(const struct stat& acrStatus) {
    return (acrStatus.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

}  // namespace

void OsCheckDirectory(const char* apPath) {
    struct stat lStatus {};
    if (stat(apPath, &lStatus) != 0) {
        throwErrno<ZTCOsException>("stat", apPath, errno);
    }
    if (!S_ISDIR(lStatus.st_mode)) {
        sRefuse(apPath, "it is not a directory", ENOTDIR);
    }
    sCheckOwner(apPath, lStatus);
    if (sMayOthersWrite(lStatus) && (lStatus.st_mode & S_ISVTX) == 0) {
        sRefuse(apPath, "others may write in it (chmod go-w, or set the sticky bit)", EPERM);
    }
}

void OsCheckFile(int aDescriptor, const char* apPath, mode_t aType) {
    struct stat lStatus {};
    if (fstat(aDescriptor, &lStatus) != 0) {
        throwErrno<ZTCOsException>("fstat", apPath, errno);
    }
    sCheckKind(apPath, lStatus, aType);
    if (lStatus.st_uid != geteuid()) {
        sRefuse(apPath, "it belongs to another user", EPERM);
    }
}

void OsCheckOurFile(const struct stat& acrStatus, const char* apPath) {
    sCheckKind(apPath, acrStatus, S_IFREG);
    sCheckOwner(apPath, acrStatus);
}

ZTCDescriptor OsOpenOurFile(const char* apPath, int aFlags, mode_t aMode) {
    constexpr int lAlways = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    for (;;) {
        const ZTCDescriptor lFound(open(apPath, O_PATH | O_NOFOLLOW | O_CLOEXEC));
        if (lFound.isOpen()) {
            struct stat lStatus {};
            if (fstat(lFound.get(), &lStatus) != 0) {
                throwErrno<ZTCOsException>("fstat", apPath, errno);
            }
            OsCheckOurFile(lStatus, apPath);
            ZTCDescriptor lFile(
                open(ZTSDescriptorPath(lFound.get()).mText, (aFlags & ~O_CREAT) | (lAlways & ~O_NOFOLLOW)));
            if (!lFile.isOpen()) {
                throwErrno<ZTCOsException>("open", apPath, errno);
            }
            return lFile;
        }
        if (errno != ENOENT || (aFlags & O_CREAT) == 0) {
            throwErrno<ZTCOsException>("open", apPath, errno);
        }
        ZTCDescriptor lMade(open(apPath, aFlags | O_EXCL | lAlways, aMode));
        if (lMade.isOpen()) {
            return lMade;
        }
        if (errno != EEXIST) {  // somebody made it in this moment
            throwErrno<ZTCOsException>("open", apPath, errno);
        }
    }
}

void OsCheckCode(const char* apPath, char* apResolved) {
    struct stat lStatus {};
    if (realpath(apPath, apResolved) == nullptr || stat(apResolved, &lStatus) != 0) {
        throwErrno<ZTCOsException>("cannot look at", apPath, errno);
    }
    if (!S_ISREG(lStatus.st_mode)) {
        sRefuse(apResolved, "it is not a regular file", EINVAL);
    }
    sCheckOwner(apResolved, lStatus);
    if (sMayOthersWrite(lStatus)) {
        sRefuse(apResolved, "others may write it (chmod go-w)", EPERM);
    }
    char lDirectory[PATH_MAX];
    ClibStrcpy(lDirectory, apResolved);
    while (char* const lpSlash = strrchr(lDirectory, '/')) {
        lpSlash[lpSlash == lDirectory ? 1 : 0] = '\0';
        OsCheckDirectory(lDirectory);
        lpSlash[0] = '\0';
    }
}
