#include "FilesLook.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "HostFiles.h"
#include "LossBook.h"
#include "PortLabels.h"
#include "SensorFiles.h"

namespace {

constexpr std::chrono::minutes sEvery(1);
constexpr std::chrono::seconds sAnswerTime(1);
constexpr std::size_t sLongestFile = std::size_t{4} << 20;

// An editor, or a script that prints line by line, writes a file a little at a time.
constexpr std::chrono::milliseconds sIsStill(250);
constexpr std::chrono::milliseconds sLookAgain(50);
constexpr std::chrono::seconds sPatience(3);

struct File {
    std::string mText;
    std::string mWhyNot;         // empty: it was read
    ZTNanoseconds mWritten = 0;  // last
};

ZTNanoseconds sWrittenAt(const struct stat& acrStatus) {
    return acrStatus.st_mtim.tv_sec * ZTSecond + acrStatus.st_mtim.tv_nsec;
}

File sReadFile(const std::string& acrPath) {
    File lFile;
    const ZTCSensorDescriptor lOpen(open(acrPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat lStatus {};
    if (!lOpen.isOpen() || fstat(lOpen.get(), &lStatus) != 0) {
        lFile.mWhyNot = strerror(errno);
        return lFile;
    }
    if (!S_ISREG(lStatus.st_mode)) {
        lFile.mWhyNot = "it is not a file";
        return lFile;
    }
    char lBytes[16384];
    ssize_t lRead = 0;
    while (lFile.mWhyNot.empty() && (lRead = read(lOpen.get(), lBytes, sizeof lBytes)) > 0) {
        lFile.mText.append(lBytes, static_cast<std::size_t>(lRead));
        lFile.mWhyNot = lFile.mText.size() > sLongestFile ? "it is longer than 4 MiB" : "";
    }
    if (lRead < 0) {
        lFile.mWhyNot = strerror(errno);
    }
    lFile.mWritten = fstat(lOpen.get(), &lStatus) == 0 ? sWrittenAt(lStatus) : 0;
    return lFile;
}

bool sIsBeingWritten(const File& acrFile) {
    const ZTNanoseconds lAge = ZTSMoment::now().mTime - acrFile.mWritten;
    return acrFile.mWhyNot.empty() && lAge >= 0 && lAge < std::chrono::nanoseconds(sIsStill).count();
}

}  // namespace

ZTCFilesLook::ZTCFilesLook(std::string aRoot, std::shared_ptr<ZTCHostBook> apBook)
    : mRoot(std::move(aRoot)), mpBook(std::move(apBook)) {}

void ZTCFilesLook::askForNames(const std::string& acrPath) {
    const std::lock_guard lLock(mLock);
    mNames = Names{acrPath, Clock::now() + sPatience};
}

bool ZTCFilesLook::areNamesRead() const {
    const std::lock_guard lLock(mLock);
    return !mNames;
}

void ZTCFilesLook::askForPaths(std::uint64_t aQuestion) {
    const std::lock_guard lLock(mLock);
    mQuestion = aQuestion;
}

std::optional<ZTSPathsAnswer> ZTCFilesLook::takePaths() {
    const std::lock_guard lLock(mLock);
    return std::exchange(mPaths, std::nullopt);
}

// The names first: they say which fabrics the ports are on.
ZTCLooker::Clock::time_point ZTCFilesLook::look() {
    const auto lNext = readNames();
    askMultipathd();
    const auto lNow = Clock::now();
    if (lNow >= mFactsDue) {
        readFacts(lNow);
    }
    return std::min(lNext, mFactsDue);
}

// Returns when to try again.
ZTCLooker::Clock::time_point ZTCFilesLook::readNames() {
    std::optional<Names> lNames;
    {
        const std::lock_guard lLock(mLock);
        lNames = mNames;
    }
    if (!lNames) {
        return Clock::time_point::max();
    }
    try {
        const File lFile = lNames->mPath.empty() ? File() : sReadFile(lNames->mPath);
        if (sIsBeingWritten(lFile) && Clock::now() < lNames->mPatience) {
            return Clock::now() + sLookAgain;
        }
        lFile.mWhyNot.empty() ? takeNames(lNames->mPath, lFile.mText)
                              : refuseNames(lNames->mPath, lFile.mWhyNot);
    } catch (const std::bad_alloc&) {
        refuseNames(lNames->mPath, "no memory");
    }
    const std::lock_guard lLock(mLock);
    if (mNames && mNames->mPath == lNames->mPath && mNames->mPatience == lNames->mPatience) {
        mNames.reset();
        return Clock::time_point::max();
    }
    return Clock::now();  // it was asked for anew meanwhile
}

void ZTCFilesLook::takeNames(const std::string& acrPath, const std::string& acrText) {
    ZTSNamesFile lNames = readPortLabels(acrText);
    mpBook->say([&](ZTCServiceLog& arLog) {
        for (const auto& [lrLine, lrText] : lNames.mMistakes) {
            arLog.note(ZTSL_Warning, "%s:%zu: %s; the line is left out", acrPath.c_str(), lrLine,
                       lrText.c_str());
        }
        if (lNames.mMoreMistakes != 0) {
            arLog.note(ZTSL_Warning, "%s: %zu more lines are left out", acrPath.c_str(),
                       lNames.mMoreMistakes);
        }
        if (!acrPath.empty()) {
            arLog.note(ZTSL_Notice, "%s: ports named: %zu", acrPath.c_str(), lNames.mLabels.size());
        }
    });
    if (!mpBook->areLabels(lNames.mLabels)) {
        mpBook->setLabels(std::move(lNames.mLabels), ZTSMoment::now().mTime);
    }
}

void ZTCFilesLook::refuseNames(const std::string& acrPath, const std::string& acrWhy) {
    mpBook->say([&](ZTCServiceLog& arLog) {
        arLog.note(ZTSL_Warning, "the names file %s cannot be read: %s; ports keep the names they had",
                   acrPath.c_str(), acrWhy.c_str());
    });
}

void ZTCFilesLook::askMultipathd() {
    std::optional<std::uint64_t> lQuestion;
    {
        const std::lock_guard lLock(mLock);
        lQuestion = std::exchange(mQuestion, std::nullopt);
    }
    if (!lQuestion) {
        return;
    }
    std::string lWhyNot;
    auto lPaths = ::askMultipathd(mRoot, sAnswerTime, lWhyNot);
    mpBook->see([&](ZTSSight& arSight) { arSight.mNoMultipathd = lPaths ? "" : lWhyNot; });
    if (lPaths) {
        const std::lock_guard lLock(mLock);
        mPaths = {std::move(*lPaths), *lQuestion};
    }
}

void ZTCFilesLook::readFacts(Clock::time_point aNow) {
    mFactsDue = aNow + sEvery;
    if (mFacts.mKernel.empty()) {
        readKernelFacts(mRoot, mFacts);
    }
    mFacts.mMultipathConfig = hashMultipathConfig(mRoot);
    mpBook->seeFacts(mFacts, ZTSMoment::now().mTime);
}

void ZTCFilesLook::tellSlow(unsigned int aSeconds) {
    mpBook->say([&](ZTCServiceLog& arLog) {
        arLog.note(ZTSL_Warning, "names and multipath's configuration could not be read for %u s", aSeconds);
    });
}

void ZTCFilesLook::tellFailed(const char* apWhy) {
    mpBook->say([&](ZTCServiceLog& arLog) {
        arLog.note(ZTSL_Error, "a look at names and multipath's configuration failed: %s", apWhy);
    });
}

void ZTCFilesLook::tellHangs(unsigned int aSeconds) {
    mpBook->say([&](ZTCServiceLog& arLog) {
        arLog.note(ZTSL_Warning,
                   "names and multipath's configuration cannot be read: a disk has not answered for %u s",
                   aSeconds);
    });
}
