#include "DisksLook.h"

#include <algorithm>
#include <ctime>
#include <new>
#include <utility>

#include "LossBook.h"

namespace {

constexpr std::chrono::seconds sEvery(1);
constexpr std::chrono::milliseconds sSlice(5);        // of processor time
constexpr std::chrono::minutes sDoubtEvery(1);        // what was told of paths, where no uevents come
constexpr std::chrono::minutes sPortsPatience(1);     // a driver may stand
constexpr std::chrono::seconds sBlindSpotsAfter(10);  // even if not all is known
constexpr unsigned int sMostMessages = 1024;          // at once

std::chrono::nanoseconds sProcessorTime() {
    timespec lTime{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &lTime);
    return std::chrono::seconds(lTime.tv_sec) + std::chrono::nanoseconds(lTime.tv_nsec);
}

}  // namespace

ZTCDisksLook::ZTCDisksLook(const std::string& acrRoot, std::shared_ptr<ZTCHostBook> apBook,
                           std::shared_ptr<ZTCFilesLook> apFiles,
                           std::function<void(std::uint64_t)> aAskForPaths)
    : mRoot(acrRoot),
      mpBook(std::move(apBook)),
      mpFiles(std::move(apFiles)),
      mAskForPaths(std::move(aAskForPaths)),
      mTransport(acrRoot, ZTCKernelMessages::What::Transport),
      mUevents(acrRoot, ZTCKernelMessages::What::Uevents),
      mStorage(acrRoot),
      mBegan(Clock::now()),
      mNextSlice(mBegan),
      mNextDisks(mBegan),
      mNextDoubt(mBegan + sDoubtEvery) {}

std::array<int, 2> ZTCDisksLook::getDescriptors() const {
    return {mTransport.getDescriptor(), mUevents.getDescriptor()};
}

ZTCLooker::Clock::time_point ZTCDisksLook::look() {
    const auto lBegan = sProcessorTime();
    takeTransport();
    takeUevents();
    const auto lNow = Clock::now();
    if (lNow >= mNextSlice) {
        mNextSlice = lNow + sEvery;
        lookAtStorage(lNow);
        mpBook->see([&](ZTSSight& arSight) {
            arSight.mNoTransport = mTransport.getWhyNot();
            arSight.mNoUevents = mUevents.getWhyNot();
        });
        mpBook->tellBlindSpots(lNow - mBegan >= sBlindSpotsAfter);
    }
    if (lNow >= mNextDisks) {
        mNextDisks = lNow + ZTCStalls::Every;
        lookAtDisks(lNow);
    }
    mpBook->noteSlice(sProcessorTime() - lBegan);
    return std::min(mNextSlice, mNextDisks);
}

void ZTCDisksLook::end() {
    mTimes.end(ZTSMoment::now().mTime, mMeasures);
    mpBook->addMeasures(mMeasures, Clock::now());
}

// ---- What the kernel tells ----

void ZTCDisksLook::takeTransport() {
    std::span<const unsigned char> lBytes;
    auto lGot = ZTCKernelMessages::Got::Message;
    std::shared_ptr<const ZTSHostPorts> lpPorts;
    for (unsigned int lCount = 0; lCount < sMostMessages && lGot != ZTCKernelMessages::Got::Nothing;
         ++lCount) {
        lGot = mTransport.receive(lBytes);
        if (lGot == ZTCKernelMessages::Got::Message) {
            lpPorts = lpPorts != nullptr ? lpPorts : mpBook->getPorts();
            mMessages.take(lBytes, *lpPorts, ZTSMoment::now().mTime, mFpins);
        } else if (lGot == ZTCKernelMessages::Got::Lost) {
            mMessages.noteLoss(ZTSMoment::now().mTime);
        }
    }
    if (!mFpins.empty()) {
        mpBook->takeFpins(mFpins);
    }
    noteLostMessages();
}

// By their numbers, which say how many they were.
void ZTCDisksLook::noteLostMessages() {
    mMessages.step(ZTSMoment::now().mTime);
    const std::uint64_t lLost = mMessages.countLost();
    if (lLost != mLostMessages) {
        mpBook->loseMessages(lLost - mLostMessages, ZTSMoment::now().mTime);
        mLostMessages = lLost;
    }
}

void ZTCDisksLook::takeUevents() {
    std::span<const unsigned char> lBytes;
    auto lGot = ZTCKernelMessages::Got::Message;
    for (unsigned int lCount = 0; lCount < sMostMessages && lGot != ZTCKernelMessages::Got::Nothing;
         ++lCount) {
        lGot = mUevents.receive(lBytes);
        if (lGot == ZTCKernelMessages::Got::Lost) {
            mStorage.lookAnew();
        } else if (lGot == ZTCKernelMessages::Got::Message) {
            takeUevent(lBytes);
        }
    }
}

void ZTCDisksLook::takeUevent(std::span<const unsigned char> aBytes) {
    try {
        if (const auto lEvent = readUevent(aBytes)) {
            mStorage.take(*lEvent);
        }
    } catch (const std::bad_alloc&) {
        mStorage.lookAnew();  // it does not come again
        throw;
    }
}

// ---- What is looked at ----

void ZTCDisksLook::lookAtStorage(Clock::time_point aNow) {
    if (const auto lPaths = mpFiles->takePaths()) {
        mStorage.takePaths(lPaths->mPaths, lPaths->mQuestion);
    }
    mIsUntold |= mStorage.step(*mpBook->getPorts(), sSlice, ZTSMoment::now().mTime, mMeasures);
    // Ports are part of a LUN's name: what is told without them comes and goes once more with them.
    const bool lAreNamed = mpBook->hasSeenPorts() || aNow - mBegan >= sPortsPatience;
    if (mIsUntold && lAreNamed && mStorage.isWhole()) {
        mpBook->seeStorage(mStorage.getStorage(), ZTSMoment::now().mTime);
        mIsUntold = false;
    }
    askForPaths(aNow);
    noteLeftOut();
}

void ZTCDisksLook::askForPaths(Clock::time_point aNow) {
    if (aNow >= mNextDoubt) {
        mNextDoubt = aNow + sDoubtEvery;
        if (!mUevents.getWhyNot().empty()) {
            mStorage.doubtPaths();
        }
    }
    if (const auto lQuestion = mStorage.takeQuestion()) {
        mAskForPaths(*lQuestion);
    }
}

void ZTCDisksLook::lookAtDisks(Clock::time_point aNow) {
    const auto lText = readDiskStatsFile(mRoot);
    mpBook->see([&](ZTSSight& arSight) { arSight.mHasDiskStats = lText.has_value(); });
    if (!lText) {
        return;
    }
    if (auto lStart = mpBook->takeStartStalls()) {
        mStalls.setStart(std::move(*lStart));
    }
    const std::vector<ZTSDiskStats> lStats = readDiskStats(*lText);
    const ZTSHostStorage& lrStorage = mStorage.getStorage();
    const ZTNanoseconds lTime = ZTSMoment::now().mTime;
    mpBook->takeStalls(mStalls.look(lStats, lrStorage, lTime, aNow), mStalls.countStalled());
    mTimes.look(lStats, lrStorage, lTime, mMeasures);
    mpBook->addMeasures(mMeasures, aNow);
}

void ZTCDisksLook::noteLeftOut() {
    const std::size_t lLeftOut = mStorage.getLeftOut();
    if (lLeftOut != 0 && mLeftOut == 0) {
        mpBook->say([&](ZTCServiceLog& arLog) {
            arLog.note(ZTSL_Warning,
                       "%zu LUNs, maps or mounts are left out: there are more than are looked at", lLeftOut);
        });
    }
    mLeftOut = lLeftOut;
}

void ZTCDisksLook::tellSlow(unsigned int aSeconds) {
    mpBook->say([&](ZTCServiceLog& arLog) {
        arLog.note(ZTSL_Warning, "LUNs and paths could not be seen for %u s: the kernel was slow to answer",
                   aSeconds);
    });
}

void ZTCDisksLook::tellFailed(const char* apWhy) {
    mpBook->say(
        [&](ZTCServiceLog& arLog) { arLog.note(ZTSL_Error, "a look at LUNs and paths failed: %s", apWhy); });
}

void ZTCDisksLook::tellHangs(unsigned int aSeconds) {
    mpBook->say([&](ZTCServiceLog& arLog) {
        arLog.note(ZTSL_Warning, "LUNs and paths cannot be seen: the kernel has not answered for %u s",
                   aSeconds);
    });
}
