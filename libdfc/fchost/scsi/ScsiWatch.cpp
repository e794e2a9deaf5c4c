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
constexpr std::chrono::milliseconds sSoon{200};  // what a module brings is there some time behind its uevent
constexpr std::chrono::seconds sAgain{60};       // for what no uevent tells
constexpr unsigned int sTriesSoon = 10;

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
    mThread.start([this] { run(); });
}

ZTCScsiWatch::~ZTCScsiWatch() {
    mThread.end();
}

void ZTCScsiWatch::run() {
    giveUpFcRights();
    while (waitForWork()) {
        try {
            work();
        } catch (const std::bad_alloc&) {
            mReport.setMemoryGone();
        }
    }
    finish();
}

// What is there by now is told or counted, however little memory there is.
void ZTCScsiWatch::finish() {
    try {
        takeFirsts();
        drain();
    } catch (const std::bad_alloc&) {
        mReport.setMemoryGone();
    }
    mTeller.settle(mNow, true);
    mReport.tellCounts(true);
}

// False: it is to end.
bool ZTCScsiWatch::waitForWork() {
    const int lSource = mpSource != nullptr && !mRest ? mpSource->getFile() : -1;
    pollfd lPolls[] = {{mThread.getStop(), POLLIN, 0}, {mrUevents.get(), POLLIN, 0}, {lSource, POLLIN, 0}};
    const auto lLeft = std::chrono::ceil<std::chrono::milliseconds>(getNext() - Clock::now()).count();
    const int lReady = poll(lPolls, std::size(lPolls), static_cast<int>(std::max<std::int64_t>(lLeft, 0)));
    mHasWork = lReady > 0 && lPolls[2].revents != 0;
    mNow = Clock::now();
    return lReady <= 0 || lPolls[0].revents == 0;
}

ZTCScsiWatch::Time ZTCScsiWatch::getNext() const {
    Time lNext = mLook;
    for (const auto& lrTime : {mOpen, mDrain, mRest}) {
        lNext = std::min(lNext, lrTime.value_or(lNext));
    }
    return mTeller.isKeeping() ? std::min(lNext, mNow + sUntilDrain) : lNext;
}

void ZTCScsiWatch::work() {
    mRest = isTime(mRest) ? std::nullopt : mRest;
    listen();
    if (isTime(mOpen)) {
        open();
    }
    if (mHasWork) {
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
        }
        if (lIsOf("DEVPATH=/module/scsi_mod") && mpSource == nullptr) {
            mOpen = mNow;
            mSoon = sTriesSoon;
        }
        if (lIsOf("SUBSYSTEM=cpu") && mpSource != nullptr) {
            const ZTCFcRaisedRights lRaised;
            mpSource->lookForProcessors();
        }
    });
}

// Takes the first way that is to be had.
void ZTCScsiWatch::open() {
    mOpen = mNow + (mSoon > 0 ? sSoon : sAgain);
    mSoon -= mSoon > 0 ? 1 : 0;
    const ZTCFcRaisedRights lRaised;
    std::string lWhyNot;
    for (const ZTSScsiWay& lrWay : mWays) {
        try {
            mpSource = lrWay.mOpen();
        } catch (const ZTCScsiNotAvailable& lrError) {
            lWhyNot += (lWhyNot.empty() ? "" : "; ") + std::string(lrWay.mpName) + ": " + lrError.what();
            continue;
        }
        mOpen.reset();
        mrStatistics.set(lrWay.mFigure, 1);
        mReport.tellWay(true, mpSource->describe() + (lWhyNot.empty() ? "" : "; not by " + lWhyNot));
        return;
    }
    mReport.tellWay(false, mWays.empty() ? "ZT_LIBDFC_FCHOST_SCSI is none" : lWhyNot);
}

// Whether there was anything.
bool ZTCScsiWatch::take(void (ZTCScsiSource::*apTake)(ZTScsiFailures&)) {
    mFailures.clear();
    try {
        if (mpSource != nullptr) {
            (mpSource.get()->*apTake)(mFailures);
        }
    } catch (const std::bad_alloc&) {
        mDrain = mNow + sUntilDrain;
        mReport.setMemoryGone();
    }
    for (const ZTSScsiFailure& lrFailure : mFailures) {
        mTeller.tell(lrFailure, mNow);
    }
    return !mFailures.empty();
}

void ZTCScsiWatch::takeFirsts() {
    if (!take(&ZTCScsiSource::take)) {
        mRest = mNow + sRest;
    } else if (!mDrain) {
        mDrain = mNow + sUntilDrain;
    }
}

void ZTCScsiWatch::drain() {
    mDrain.reset();
    take(&ZTCScsiSource::takeRepeats);
    countLost();
}

void ZTCScsiWatch::countLost() {
    if (mpSource != nullptr) {
        mrStatistics.count(ZTFF_LostFull, mpSource->takeLost());
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
