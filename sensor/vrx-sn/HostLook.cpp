#include "HostLook.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <new>

#include "HostPorts.h"
#include "PortBook.h"
#include "PortLabels.h"
#include "SensorFiles.h"
#include "SnBuffer.h"
#include "SnLog.h"
#include "SnThread.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds sEvery(1);
constexpr std::chrono::seconds sPatience(1);  // at the start and at the end
constexpr std::chrono::seconds sSlow(5);      // for a look
constexpr std::chrono::minutes sHangs(1);
constexpr std::size_t sLongestFile = std::size_t{4} << 20;

ZTNanoseconds sNow() {
    return std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
}

// Returns why it could not be read; empty: it was.
std::string sReadFile(const std::string& acrPath, std::string& arText) {
    const ZTCSensorDescriptor lFile(open(acrPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat lStatus {};
    if (!lFile.isOpen() || fstat(lFile.get(), &lStatus) != 0) {
        return strerror(errno);
    }
    if (!S_ISREG(lStatus.st_mode)) {
        return "it is not a file";
    }
    for (char lBytes[16384];;) {
        const ssize_t lRead = read(lFile.get(), lBytes, sizeof lBytes);
        if (lRead <= 0) {
            return lRead < 0 ? strerror(errno) : "";
        }
        arText.append(lBytes, static_cast<std::size_t>(lRead));
        if (arText.size() > sLongestFile) {
            return "it is longer than 4 MiB";
        }
    }
}

}  // namespace

/// What the threads have in common with the others. One that is kept may outlive the rest: so nothing of
/// theirs is touched but under the lock, and not behind the end.
class ZTCHostLook::Shared {
  public:
    Shared(const std::string& acrRoot, ZTCSnBuffer& arBuffer, ZTCSnLog& arLog)
        : mrBuffer(arBuffer), mrLog(arLog), mHostPorts(acrRoot) {}

    using Run = void (Shared::*)(std::unique_lock<std::mutex>&);
    template <std::size_t Size>
    void start(const char (&aprName)[Size], Run apRun, const std::shared_ptr<Shared>& acrpSelf) {
        std::unique_lock lLock(mLock);
        startSnThread(aprName, [acrpSelf, apRun] {
            std::unique_lock lHeld(acrpSelf->mLock);
            (acrpSelf.get()->*apRun)(lHeld);
            --acrpSelf->mRunning;
            acrpSelf->mChanged.notify_all();
        }).detach();
        ++mRunning;
    }

    // The threads.
    void look(std::unique_lock<std::mutex>& arLock);
    void readNames(std::unique_lock<std::mutex>& arLock);

    void askForNames(const std::string& acrPath) {
        const std::lock_guard lLock(mLock);
        mNamesFile = acrPath;
        mForNames.notify_all();
    }
    bool areNamesRead() const { return !mNamesFile && !mIsReading; }
    template <class Condition>
    void waitUntil(const Condition& acrCondition) {
        std::unique_lock lLock(mLock);
        mChanged.wait_for(lLock, sPatience, acrCondition);
    }
    void end() {
        const std::lock_guard lLock(mLock);
        mEnds = true;
        mForLooks.notify_all();
        mForNames.notify_all();
    }
    void tell();
    void tellTrouble(Clock::time_point aNow);

    mutable std::mutex mLock;
    std::condition_variable mChanged;  // for those who wait for the threads
    unsigned int mRunning = 0;
    ZTCPortBook mBook;

  private:
    void noteLook(Clock::duration aTime);
    void takeLook();
    void takeNames(const std::string& acrPath, ZTSNamesFile aNames);

    ZTCSnBuffer& mrBuffer;
    ZTCSnLog& mrLog;
    std::condition_variable mForLooks;
    std::condition_variable mForNames;
    bool mEnds = false;
    std::optional<std::string> mNamesFile;  // to be read
    bool mIsReading = false;
    std::optional<Clock::time_point> mLookBegan;  // of the look that is under way
    bool mIsHangTold = false;
    bool mIsLookUntold = true;
    std::size_t mLeftOut = 0;
    ZTCHostPorts mHostPorts;  // the thread's own
};

// Without the lock while it waits for drivers.
void ZTCHostLook::Shared::look(std::unique_lock<std::mutex>& arLock) {
    for (auto lNext = Clock::now(); !mEnds; mForLooks.wait_until(arLock, lNext, [this] { return mEnds; })) {
        const auto lBegin = Clock::now();
        mLookBegan = lBegin;
        arLock.unlock();
        bool lHasChanged = false;
        bool lIsWhole = true;
        try {
            lHasChanged = mHostPorts.look();
        } catch (const std::bad_alloc&) {
            lIsWhole = false;  // what it saw, the next one tells
        }
        const auto lTime = Clock::now() - lBegin;
        arLock.lock();
        lNext = std::max(lNext, lBegin + lTime) + sEvery;
        mLookBegan.reset();
        mIsLookUntold |= lHasChanged;
        if (!mEnds && lIsWhole) {
            noteLook(lTime);
            takeLook();
            mChanged.notify_all();
        }
    }
}

void ZTCHostLook::Shared::takeLook() {
    try {
        if (mIsLookUntold) {
            mBook.seeHost(mHostPorts.getPorts(), sNow());
            mIsLookUntold = false;
        }
        mBook.settle();
        tell();
    } catch (const std::bad_alloc&) {
        // What is not told yet is told behind the next look.
    }
}

void ZTCHostLook::Shared::noteLook(Clock::duration aTime) {
    if (aTime >= sSlow) {
        mrLog.note(
            ZTSL_Warning, "the host's ports could not be seen for %u s: a driver was slow to answer",
            static_cast<unsigned int>(std::chrono::duration_cast<std::chrono::seconds>(aTime).count()));
    }
    const std::size_t lLeftOut = mHostPorts.getLeftOut();
    if (lLeftOut != 0 && mLeftOut == 0) {
        mrLog.note(ZTSL_Warning, "%zu ports are left out: %zu ports and %zu remote ports are looked at",
                   lLeftOut, ZTCHostPorts::MostLocal, ZTCHostPorts::MostRemote);
    }
    mLeftOut = lLeftOut;
}

void ZTCHostLook::Shared::tell() {
    for (ZTSChange& lrChange : mBook.takeChanges()) {
        mrBuffer.takeChange(std::move(lrChange));
    }
    if (mBook.haveNews()) {
        mrBuffer.takePorts(*mBook.getPorts());
        mBook.haveBeenTaken();
    }
}

void ZTCHostLook::Shared::tellTrouble(Clock::time_point aNow) {
    const bool lHangs = mLookBegan && aNow - *mLookBegan >= sHangs;
    if (lHangs && !mIsHangTold) {
        mrLog.note(ZTSL_Warning, "the host's ports cannot be seen: a driver has not answered for %u s",
                   static_cast<unsigned int>(
                       std::chrono::duration_cast<std::chrono::seconds>(aNow - *mLookBegan).count()));
    }
    mIsHangTold = lHangs;
}

// Without the lock while it waits for a disk.
void ZTCHostLook::Shared::readNames(std::unique_lock<std::mutex>& arLock) {
    for (;; mChanged.notify_all()) {
        mIsReading = false;
        mForNames.wait(arLock, [this] { return mEnds || mNamesFile; });
        if (mEnds) {
            return;
        }
        mIsReading = true;
        const std::string lPath = std::move(*mNamesFile);
        mNamesFile.reset();
        arLock.unlock();
        ZTSNamesFile lNames;
        std::string lWhyNot;
        try {
            std::string lText;
            lWhyNot = lPath.empty() ? "" : sReadFile(lPath, lText);
            lNames = readPortLabels(lText);
        } catch (const std::bad_alloc&) {
            lWhyNot = "no memory";
        }
        arLock.lock();
        if (!mEnds && lWhyNot.empty()) {
            takeNames(lPath, std::move(lNames));
        } else if (!mEnds) {
            mrLog.note(ZTSL_Warning, "the names file %s cannot be read: %s; ports keep the names they had",
                       lPath.c_str(), lWhyNot.c_str());
        }
    }
}

void ZTCHostLook::Shared::takeNames(const std::string& acrPath, ZTSNamesFile aNames) {
    for (const auto& [lrLine, lrText] : aNames.mMistakes) {
        mrLog.note(ZTSL_Warning, "%s:%zu: %s; the line is left out", acrPath.c_str(), lrLine, lrText.c_str());
    }
    if (aNames.mMoreMistakes != 0) {
        mrLog.note(ZTSL_Warning, "%s: %zu more lines are left out", acrPath.c_str(), aNames.mMoreMistakes);
    }
    if (!acrPath.empty()) {
        mrLog.note(ZTSL_Notice, "%s: ports named: %zu", acrPath.c_str(), aNames.mLabels.size());
    }
    if (mBook.getLabels() == aNames.mLabels) {
        return;
    }
    try {
        mrBuffer.takeLabels(aNames.mLabels);
        mBook.setLabels(std::move(aNames.mLabels), sNow());
        tell();
    } catch (const std::bad_alloc&) {
        mrLog.note(ZTSL_Warning, "the names file %s cannot be read: %s; ports keep the names they had",
                   acrPath.c_str(), "no memory");
    }
}

ZTCHostLook::ZTCHostLook(const std::string& acrRoot, const std::string& acrNames, ZTCSnBuffer& arBuffer,
                         ZTCSnLog& arLog)
    : mpShared(std::make_shared<Shared>(acrRoot, arBuffer, arLog)) {
    mpShared->askForNames(acrNames);
    try {
        // The names first: they say which fabrics the ports are on.
        mpShared->start("vrx-sn-names", &Shared::readNames, mpShared);
        mpShared->waitUntil([this] { return mpShared->areNamesRead(); });
        mpShared->start("vrx-sn-ports", &Shared::look, mpShared);
        mpShared->waitUntil([this] { return mpShared->mBook.hasLooked(); });
    } catch (...) {
        mpShared->end();
        throw;
    }
}

ZTCHostLook::~ZTCHostLook() {
    mpShared->end();
    mpShared->waitUntil([this] { return mpShared->mRunning == 0; });
}

std::shared_ptr<const ZTSHostPorts> ZTCHostLook::getPorts() const {
    const std::lock_guard lLock(mpShared->mLock);
    return mpShared->mBook.getPorts();
}

void ZTCHostLook::reload(const std::string& acrNames) {
    mpShared->askForNames(acrNames);
}

void ZTCHostLook::seeAgent(ZTCPortBook::Names aPorts) {
    std::sort(aPorts.begin(), aPorts.end());
    aPorts.erase(std::unique(aPorts.begin(), aPorts.end()), aPorts.end());
    aPorts.resize(std::min(aPorts.size(), ZTCHostPorts::MostLocal));
    const std::lock_guard lLock(mpShared->mLock);
    mpShared->mBook.seeAgent(std::move(aPorts), sNow());
    mpShared->tell();
}

void ZTCHostLook::setStart(const ZTSStoreStart& acrStart) {
    const std::lock_guard lLock(mpShared->mLock);
    mpShared->mBook.setStart(acrStart.mPorts);
    mpShared->tell();
}

void ZTCHostLook::tellTrouble(std::chrono::steady_clock::time_point aNow) {
    const std::lock_guard lLock(mpShared->mLock);
    mpShared->tellTrouble(aNow);
}
