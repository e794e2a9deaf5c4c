#include "ScsiWatch.h"

#include <poll.h>

#include <algorithm>
#include <iterator>
#include <new>
#include <string_view>
#include <utility>

#include "Rights.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds sUntilDrain{100};  // in which the kernel counts what repeats itself
constexpr std::chrono::milliseconds sRest{10};         // of a source that says it has something, and has not
constexpr std::chrono::milliseconds sBreath{1};  // of one that has little, so that it is not one at a time
constexpr std::size_t sLittle = 64;
constexpr std::chrono::milliseconds sSoon{200};  // what a module brings is there some time behind its uevent
constexpr std::chrono::seconds sAgain{60};       // for what no uevent tells
constexpr std::chrono::seconds sShort{1};        // of memory: until it is tried again
constexpr unsigned int sTriesSoon = 10;
constexpr std::size_t sReserve = 512;  // failures that are taken however little memory there is
constexpr unsigned int sTriesAtEnd = 100;

// Whether a uevent has the line. There is a NUL behind each, and the first is a title.
bool sHasLine(std::string_view aUevent, std::string_view aLine) {
    for (std::size_t lAt = 0; (lAt = aUevent.find(aLine, lAt)) != std::string_view::npos; ++lAt) {
        const std::size_t lEnd = lAt + aLine.size();
        if (lAt != 0 && aUevent[lAt - 1] == '\0' && (lEnd == aUevent.size() || aUevent[lEnd] == '\0')) {
            return true;
        }
    }
    return false;
}

}  // namespace

ZTCScsiWatch::ZTCScsiWatch(const ZTSFcSettings& acrSettings, const ZTCFcBoards& acrBoards,
                           ZTCFcRegistrations& arRegistrations, ZTCFcStatistics& arStatistics,
                           ZTCFcSocket& arUevents, ZTScsiWays aWays)
    : mPeriod(acrSettings.mPeriod),
      mWays(std::move(aWays)),
      mrStatistics(arStatistics),
      mrUevents(arUevents),
      mTeller(acrSettings, acrBoards, arRegistrations, arStatistics),
      mReport(acrSettings, arStatistics),
      mDepths(acrSettings.mSysfs),
      mNow(Clock::now()),
      mLook(mNow),
      mOpen(mNow) {
    mFailures.reserve(sReserve);
    mThread.start([this] { run(); });
}

ZTCScsiWatch::~ZTCScsiWatch() {
    mThread.end();
}

void ZTCScsiWatch::run() {
    giveUpFcRights();  // the session tells if that is refused
    while (waitForWork()) {
        try {
            work();
        } catch (const std::bad_alloc&) {
            mReport.setMemoryGone();
        }
    }
    finish();
}

// What is there by now is told or counted, however little memory there is: then it is taken by parts. Of what
// cannot be taken even so nobody knows how much it is, so one stands for it.
void ZTCScsiWatch::finish() {
    for (const auto lpTake : {&ZTCScsiSource::take, &ZTCScsiSource::takeRepeats}) {
        bool lIsAll = take(lpTake);
        for (unsigned int lTry = 1; !lIsAll && !mFailures.empty() && lTry < sTriesAtEnd; ++lTry) {
            lIsAll = take(lpTake);
        }
        mrStatistics.count(ZTFF_LostNoMemory, lIsAll ? 0 : 1);
    }
    countLost();
    mTeller.settle(mNow, true);
    mReport.tellCounts(true);
}

// False: it is to end.
bool ZTCScsiWatch::waitForWork() {
    const int lSource = mpSource != nullptr && !mRest ? mpSource->getFile() : -1;
    pollfd lPolls[] = {{mThread.getStop(), POLLIN, 0}, {mrUevents.get(), POLLIN, 0}, {lSource, POLLIN, 0}};
    const auto lLeft = std::chrono::ceil<std::chrono::milliseconds>(getNext() - Clock::now()).count();
    const int lReady = poll(lPolls, std::size(lPolls), static_cast<int>(std::max<std::int64_t>(lLeft, 0)));
    mHasUevents = lReady > 0 && lPolls[1].revents != 0;
    mHasFailures = lReady > 0 && lPolls[2].revents != 0;
    mNow = Clock::now();
    return lReady <= 0 || lPolls[0].revents == 0;
}

ZTCScsiWatch::Time ZTCScsiWatch::getNext() const {
    Time lNext = std::min(mLook, mOpen);
    for (const auto& lrTime : {mDrain, mRest}) {
        lNext = std::min(lNext, lrTime.value_or(lNext));
    }
    return mTeller.isKeeping() ? std::min(lNext, mNow + sUntilDrain) : lNext;
}

void ZTCScsiWatch::work() {
    mRest = isTime(mRest) ? std::nullopt : mRest;
    if (mHasUevents) {
        listen();
    }
    if (mOpen <= mNow) {
        keepOpen();
    }
    if (mHasFailures) {
        takeFirsts();
    }
    if (isTime(mDrain)) {
        drain();
    }
    mTeller.settle(mNow, false);
    if (mLook <= mNow) {
        look();
        mReport.setMemoryThere();
    }
}

void ZTCScsiWatch::listen() {
    mrUevents.receiveAll([this](ZTEFcReceipt aReceipt, const unsigned char* apBytes, std::size_t aSize) {
        const bool lIsLoss = aReceipt == ZTFR_Loss;  // of a uevent that may have been any
        if (!lIsLoss && aReceipt != ZTFR_Message) {
            return;
        }
        const std::string_view lUevent(reinterpret_cast<const char*>(apBytes), lIsLoss ? 0 : aSize);
        const auto lIsOf = [&](std::string_view aLine) { return lIsLoss || sHasLine(lUevent, aLine); };
        if (lIsOf("SUBSYSTEM=scsi")) {
            mDepths.noteChange();
            mTeller.noteChange();
        }
        if (lIsOf("DEVPATH=/module/scsi_mod") && mpSource == nullptr) {
            mOpen = mNow;
            mSoon = sTriesSoon;
        }
        if (lIsOf("SUBSYSTEM=cpu") && mpSource != nullptr) {
            mOpen = mNow;
        }
    });
}

// Opens the source; or, once there is one, what of it could not be opened, or has come since.
void ZTCScsiWatch::keepOpen() {
    mOpen = mNow + sShort;  // unless all goes well
    const ZTCFcRaisedRights lRaised;
    if (mpSource != nullptr) {
        mpSource->lookForProcessors();
    }
    if (mpSource != nullptr || open()) {
        mReport.tellWay(true, mpSource->describe() + (mWhyNot.empty() ? "" : "; not by " + mWhyNot));
    } else {
        mReport.tellWay(false, mWays.empty() ? "ZT_LIBDFC_FCHOST_SCSI is none" : mWhyNot);
    }
    mOpen = mNow + (mpSource == nullptr && mSoon > 0 ? sSoon : sAgain);
    mSoon -= mSoon > 0 ? 1 : 0;
}

// Takes the first way that is to be had.
bool ZTCScsiWatch::open() {
    mWhyNot.clear();
    for (const ZTSScsiWay& lrWay : mWays) {
        try {
            mpSource = lrWay.mOpen();
        } catch (const ZTCScsiNotAvailable& lrError) {
            mWhyNot += (mWhyNot.empty() ? "" : "; ") + std::string(lrWay.mpName) + ": " + lrError.what();
            continue;
        }
        mrStatistics.set(lrWay.mFigure, 1);
        return true;
    }
    return false;
}

// False: for want of memory there may be more.
bool ZTCScsiWatch::take(void (ZTCScsiSource::*apTake)(ZTScsiFailures&)) {
    mFailures.clear();
    bool lIsAll = true;
    try {
        if (mpSource != nullptr) {
            (mpSource.get()->*apTake)(mFailures);
        }
    } catch (const std::bad_alloc&) {
        lIsAll = false;
        mDrain = mNow + sUntilDrain;
        mReport.setMemoryGone();
    }
    for (const ZTSScsiFailure& lrFailure : mFailures) {
        mTeller.tell(lrFailure, mNow);
    }
    return lIsAll;
}

void ZTCScsiWatch::takeFirsts() {
    take(&ZTCScsiSource::take);
    if (mFailures.empty()) {
        mRest = mNow + sRest;
        return;
    }
    if (mFailures.size() < sLittle) {
        mRest = mNow + sBreath;
    }
    mDrain = mDrain.value_or(mNow + sUntilDrain);
}

void ZTCScsiWatch::drain() {
    mDrain.reset();
    take(&ZTCScsiSource::takeRepeats);
    countLost();
}

void ZTCScsiWatch::countLost() {
    if (mpSource != nullptr) {
        mrStatistics.count(ZTFF_LostFull, mpSource->takeLost());
        mrStatistics.count(ZTFF_LostBusy, mpSource->takeUnseen());
    }
}

void ZTCScsiWatch::look() {
    mLook = mNow + mPeriod;
    mChanges.clear();
    try {
        mDepths.look(mChanges);
    } catch (const std::bad_alloc&) {
        mReport.setMemoryGone();
    }
    for (const ZTSScsiDepthChange& lrChange : mChanges) {
        mTeller.tell(lrChange, mNow);
    }
    countLost();
    mReport.tellCounts(false);
}
