#include "Clib.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdlib>

#include "Exception.h"

void ClibStat(const char* apPath, struct stat* apResult) {
    if (lstat(apPath, apResult) != 0) {
        throwErrno<ZTCClibStatFailedEx>("stat", apPath, errno);
    }
}

void ClibUtime(const char* apPath) {
    if (utimensat(AT_FDCWD, apPath, nullptr, AT_SYMLINK_NOFOLLOW) != 0) {
        throwErrno<ZTCClibUtimeFailedEx>("utime", apPath, errno);
    }
}

void ClibMkdir(const char* apPath, int aMode) {
    if (mkdir(apPath, static_cast<mode_t>(aMode)) == 0) {
        return;
    }
    if (errno == EEXIST) {
        throwErrno<ZTCExistsEx>("mkdir", apPath, errno);
    }
    throwErrno<ZTCClibEx>("mkdir", apPath, errno);
}

void ClibGetenv(const char* apName, char* apValue, std::size_t aSize) {
    const char* const lpValue = getenv(apName);
    if (lpValue == nullptr) {
        throwErrno<ZTCClibEx>("getenv", apName, ENOENT);
    }
    const std::size_t lLength = strlen(lpValue);
    if (lLength >= aSize) {
        throwErrno<ZTCClibEx>("getenv", apName, ENAMETOOLONG);
    }
    memcpy(apValue, lpValue, lLength + 1);
}
