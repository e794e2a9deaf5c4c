#include "ServiceLog.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "SensorFiles.h"
#include "ShownText.h"

namespace {

// systemd says which stream is the journal's; a program that was started from a service has one of its own.
bool sIsJournal() {
    const char* const lpStream = getenv("JOURNAL_STREAM");
    struct stat lStatus {};
    unsigned long long lDevice = 0;
    unsigned long long lNode = 0;
    return lpStream != nullptr && fstat(STDERR_FILENO, &lStatus) == 0 &&
           sscanf(lpStream, "%llu:%llu", &lDevice, &lNode) == 2 && lStatus.st_dev == lDevice &&
           lStatus.st_ino == lNode;
}

// A pipe or a terminal is opened anew, because the flag would be for all who share the one that is open.
ssize_t sWriteAtOnce(const char* apBytes, std::size_t aSize) {
    struct stat lStatus {};
    if (fstat(STDERR_FILENO, &lStatus) != 0) {
        return -1;
    }
    if (S_ISSOCK(lStatus.st_mode)) {
        return send(STDERR_FILENO, apBytes, aSize, MSG_DONTWAIT | MSG_NOSIGNAL);
    }
    if (S_ISREG(lStatus.st_mode)) {
        return write(STDERR_FILENO, apBytes, aSize);
    }
    const ZTCSensorDescriptor lOwn(
        open("/proc/thread-self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    pollfd lPoll{STDERR_FILENO, POLLOUT, 0};
    if (poll(&lPoll, 1, 0) <= 0 || (lPoll.revents & POLLOUT) == 0) {
        return -1;
    }
    return write(lOwn.isOpen() ? lOwn.get() : STDERR_FILENO, apBytes, std::min<std::size_t>(aSize, PIPE_BUF));
}

std::string sShown(const char* apText) {
    try {
        return toShownText(apText);
    } catch (const std::bad_alloc&) {
        return "no memory";  // short enough to need none
    }
}

}  // namespace

ZTCServiceLog::ZTCServiceLog(const char* apProgram) : mpProgram(apProgram), mIsJournal(sIsJournal()) {}

void ZTCServiceLog::note(ZTEServiceLevel aLevel, const char* apFormat, ...) try {
    char lText[1024];
    va_list lMore;
    va_start(lMore, apFormat);
    vsnprintf(lText, sizeof lText, apFormat, lMore);
    va_end(lMore);
    const std::string lShown = sShown(lText);
    char lLine[PIPE_BUF];
    const int lLength = mIsJournal ? snprintf(lLine, sizeof lLine, "<%d>%s\n", aLevel, lShown.c_str())
                                   : snprintf(lLine, sizeof lLine, "%s: %s\n", mpProgram, lShown.c_str());
    const auto lSize = std::min(static_cast<std::size_t>(std::max(lLength, 1)), sizeof lLine - 1);
    lLine[lSize - 1] = '\n';
    if (sWriteAtOnce(lLine, lSize) != static_cast<ssize_t>(lSize)) {
        ++mLost;
    }
} catch (const std::bad_alloc&) {
    ++mLost;
}

unsigned long long ZTCServiceTrouble::secondsUntil(Clock::time_point aNow) const {
    return static_cast<unsigned long long>(
        std::chrono::duration_cast<std::chrono::seconds>(aNow - mSince).count());
}

void ZTCServiceTrouble::met(const std::string& acrWhy, Clock::time_point aNow) {
    ++mTimes;
    lasts(acrWhy, aNow);
}

void ZTCServiceTrouble::lasts(const std::string& acrWhy, Clock::time_point aNow) {
    if (!mIsThere) {
        mIsThere = true;
        mSince = mTold = aNow;
        mrLog.note(mLevel, "%s: %s", mpWhat, acrWhy.c_str());
    } else if (aNow - mTold >= Again) {
        mTold = aNow;
        mrLog.note(mLevel, "%s, for %llu s, %llu times: %s", mpWhat, secondsUntil(aNow), mTimes,
                   acrWhy.c_str());
    }
}

void ZTCServiceTrouble::over(Clock::time_point aNow) {
    if (mIsThere) {
        mrLog.note(ZTSL_Notice, "over after %llu s: %s", secondsUntil(aNow), mpWhat);
    }
    mIsThere = false;
    mTimes = 0;
}
