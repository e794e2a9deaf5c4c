#include "LogFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <utility>

#include "Descriptor.h"

namespace {

constexpr int sSafely = O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK;
constexpr mode_t sMode = 0640;

// In a directory with the sticky bit others can put a file of theirs, a second name of one of ours, or a pipe
// whose reader would get the log. 0, or the errno of the refusal.
int sRefusal(const struct stat& acrStatus, const char* apPath) {
    if (S_ISLNK(acrStatus.st_mode)) {
        return ELOOP;
    }
    if (!S_ISREG(acrStatus.st_mode)) {
        const bool lIsDevice = S_ISCHR(acrStatus.st_mode) && strncmp(apPath, "/dev/", 5) == 0;
        return lIsDevice ? 0 : EINVAL;
    }
    if (acrStatus.st_uid != geteuid() && acrStatus.st_uid != 0) {
        return EPERM;
    }
    return acrStatus.st_nlink > 1 ? EMLINK : 0;
}

// Opens what is at the path, which is looked at before it is opened: to open a device or a pipe has effects.
// The descriptor, or less than 0 with the errno.
int sOpenExisting(const char* apPath) {
    ZTCDescriptor lIdentity(open(apPath, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!lIdentity.isOpen()) {
        return -1;
    }
    struct stat lStatus {};
    fstat(lIdentity.get(), &lStatus);
    int lErrno = sRefusal(lStatus, apPath);
    int lFile = -1;
    if (lErrno == 0) {
        // For reading as well: the file's last byte is looked at.
        lFile = open(ZTSDescriptorPath(lIdentity.get()).mText,
                     O_RDWR | O_APPEND | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
        lErrno = errno;
    }
    lIdentity.close();
    errno = lErrno;
    return lFile;
}

int sOpenOrMake(const char* apPath) {
    for (int lTries = 0; lTries < 10; ++lTries) {  // somebody may make or remove it meanwhile
        const int lFile = sOpenExisting(apPath);
        if (lFile >= 0 || errno != ENOENT) {
            return lFile;
        }
        const int lMade = open(apPath, O_WRONLY | O_APPEND | O_CREAT | O_EXCL | sSafely, sMode);
        if (lMade >= 0 || errno != EEXIST) {
            return lMade;
        }
    }
    return -1;
}

}  // namespace

int ZTCLogFile::open(const char* apPath) {
    const int lFile = sOpenOrMake(apPath);
    if (lFile < 0) {
        return errno;
    }
    struct stat lStatus {};
    char lLast = '\n';
    const bool lHasLast = fstat(lFile, &lStatus) == 0 && S_ISREG(lStatus.st_mode) && lStatus.st_size > 0 &&
                          pread(lFile, &lLast, sizeof lLast, lStatus.st_size - 1) == sizeof lLast;
    use(lFile, lHasLast && lLast != '\n');
    mIsRegular = S_ISREG(lStatus.st_mode);
    mSize = static_cast<std::uint64_t>(lStatus.st_size);
    return 0;
}

int ZTCLogFile::rotate(const char* apPath) {
    if (!ZTIsStillAt(mFile, apPath)) {
        return open(apPath);
    }
    char lBefore[PATH_MAX];
    if (snprintf(lBefore, sizeof lBefore, "%s.1", apPath) >= static_cast<int>(sizeof lBefore)) {
        return ENAMETOOLONG;
    }
    if (rename(apPath, lBefore) != 0) {
        return errno;
    }
    const int lErrno = open(apPath);
    if (lErrno != 0) {
        rename(lBefore, apPath);
    }
    return lErrno;
}

// Goes on in another file. A line that stands in the one before in part keeps its part; of the new one, a
// writer that was killed may have left one without its end.
void ZTCLogFile::use(int aFile, bool aIsTorn) {
    if (mFile >= 0) {
        if (!completeLine()) {
            mLost += mTorn > 1 ? 1 : 0;  // more than its line end is lost
        }
        close(mFile);
    }
    mFile = aFile;
    mTornText[0] = '\n';
    mTorn = aIsTorn ? 1 : 0;
}

std::uint64_t ZTCLogFile::put(const char* apLines, std::size_t aSize) {
    const std::size_t lWritten = completeLine() ? writeSome(apLines, aSize) : 0;
    const char* lpRest = apLines + lWritten;
    const char* const lpEnd = apLines + aSize;
    if (lWritten != aSize && lWritten != 0 && lpRest[-1] != '\n') {
        const char* const lpLineEnd = std::find(lpRest, lpEnd, '\n') + 1;
        mTorn = static_cast<std::size_t>(lpLineEnd - lpRest);
        memcpy(mTornText, lpRest, mTorn);
        lpRest = lpLineEnd;
    }
    mLost += static_cast<std::uint64_t>(std::count(lpRest, lpEnd, '\n'));
    return std::exchange(mLost, 0);
}

bool ZTCLogFile::completeLine() {
    const std::size_t lWritten = writeSome(mTornText, mTorn);
    memmove(mTornText, mTornText + lWritten, mTorn - lWritten);
    mTorn -= lWritten;
    return mTorn == 0;
}

std::size_t ZTCLogFile::writeSome(const char* apBytes, std::size_t aSize) {
    std::size_t lDone = 0;
    while (lDone < aSize) {
        const ssize_t lWritten = write(mFile, apBytes + lDone, aSize - lDone);
        if (lWritten < 0 && errno == EINTR) {
            continue;
        }
        if (lWritten <= 0) {
            mLastError = lWritten < 0 ? errno : EIO;
            break;
        }
        lDone += static_cast<std::size_t>(lWritten);
        mSize += static_cast<std::uint64_t>(lWritten);
    }
    return lDone;
}
