#include "LogFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

// Whether the last line of a file that is not empty lacks its end.
bool isLastLineTorn(const char* apPath, off_t aSize) {
    const int lFile = open(apPath, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK);
    if (lFile < 0) {
        return false;  // then nobody can know
    }
    char lLast = '\0';
    const bool lIsTorn = pread(lFile, &lLast, sizeof lLast, aSize - 1) == sizeof lLast && lLast != '\n';
    close(lFile);
    return lIsTorn;
}

}  // namespace

int ZTCLogFile::open(const char* apPath) {
    // O_NONBLOCK: a pipe without a reader in the log's place must not hold up the start.
    const int lFile =
        ::open(apPath, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK, 0640);
    if (lFile < 0) {
        return errno;
    }
    // In a directory with the sticky bit others can put a file of theirs, or a second name of one of ours.
    struct stat lStatus {};
    fstat(lFile, &lStatus);
    if (S_ISREG(lStatus.st_mode) && (lStatus.st_uid != geteuid() || lStatus.st_nlink > 1)) {
        close(lFile);
        return lStatus.st_nlink > 1 ? EMLINK : EPERM;
    }
    if (mFile >= 0) {
        if (mTorn != 0 && !completeLine()) {
            mLost += mTorn > 1 ? 1 : 0;  // the old file keeps the part: more than its line end is lost
            mTorn = 0;
        }
        close(mFile);
    }
    mFile = lFile;
    if (S_ISREG(lStatus.st_mode) && lStatus.st_size > 0 && isLastLineTorn(apPath, lStatus.st_size)) {
        mTornText[0] = '\n';  // its writer was killed: ours do not continue it
        mTorn = 1;
    }
    if (mpKept != nullptr) {
        put(mpKept, mKept);
        free(mpKept);
        mpKept = nullptr;
        mKept = mKeptRoom = 0;
    }
    return 0;
}

void ZTCLogFile::put(const char* apLines, std::size_t aSize) {
    if (mFile < 0) {
        keep(apLines, aSize);
    } else if (completeLine()) {
        putToFile(apLines, aSize);
    } else {
        lose(apLines, aSize);
    }
}

void ZTCLogFile::discard() {
    mDiscards = true;
    mKept = 0;
}

void ZTCLogFile::spill() {
    for (std::size_t lAt = 0; mFile < 0 && lAt < mKept;) {
        const ssize_t lWritten = write(STDERR_FILENO, mpKept + lAt, mKept - lAt);
        if (lWritten < 0 && errno != EINTR) {
            break;
        }
        lAt += lWritten > 0 ? static_cast<std::size_t>(lWritten) : 0;
    }
    mKept = 0;
}

bool ZTCLogFile::completeLine() {
    const std::size_t lWritten = writeSome(mTornText, mTorn);
    memmove(mTornText, mTornText + lWritten, mTorn - lWritten);
    mTorn -= lWritten;
    return mTorn == 0;
}

void ZTCLogFile::keep(const char* apLines, std::size_t aSize) {
    if (mDiscards) {
        return;
    }
    if (mKept + aSize > mKeptRoom) {
        const std::size_t lRoom = std::max(2 * mKeptRoom, mKept + aSize);
        char* const lpKept = static_cast<char*>(realloc(mpKept, lRoom));
        if (lpKept == nullptr) {
            mLastError = ENOMEM;
            lose(apLines, aSize);
            return;
        }
        mpKept = lpKept;
        mKeptRoom = lRoom;
    }
    memcpy(mpKept + mKept, apLines, aSize);
    mKept += aSize;
}

void ZTCLogFile::putToFile(const char* apLines, std::size_t aSize) {
    const std::size_t lWritten = writeSome(apLines, aSize);
    if (lWritten == aSize) {
        return;
    }
    const char* lpRest = apLines + lWritten;
    const char* const lpEnd = apLines + aSize;
    if (lWritten != 0 && lpRest[-1] != '\n') {
        const char* const lpLineEnd = std::find(lpRest, lpEnd, '\n') + 1;
        mTorn = static_cast<std::size_t>(lpLineEnd - lpRest);
        memcpy(mTornText, lpRest, mTorn);
        lpRest = lpLineEnd;
    }
    lose(lpRest, static_cast<std::size_t>(lpEnd - lpRest));
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
    }
    return lDone;
}

void ZTCLogFile::lose(const char* apLines, std::size_t aSize) {
    mLost += static_cast<std::uint64_t>(std::count(apLines, apLines + aSize, '\n'));
}
