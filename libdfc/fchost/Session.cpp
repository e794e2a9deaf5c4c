#include "Session.h"

#include <linux/netlink.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string_view>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned int sTransportGroup = 4;
constexpr unsigned int sUeventGroup = 1;
constexpr std::size_t sMaxMessage = 64 * 1024;
constexpr std::chrono::milliseconds sSettling(
    50);                                // between looks, when there is always something to look at
constexpr unsigned int sAtOnce = 1000;  // messages between two looks, however many there are
constexpr std::size_t sCodes = 64;      // without a kind that are told apart

constexpr ZTSFcEventId sLink{ZT_DFC_LINK, 0, 0};
constexpr ZTSFcEventId sRscn{ZT_DFC_RSCN, 0, 0};
constexpr ZTSFcEventId sPortInterruptError{0, 8, 1};
constexpr ZTSFcEventId sAdapterArrival{0, 16, 1};

ZTFcHosts readFirst(const std::string& acrRoot) {
    auto lHosts = readFcHosts(acrRoot);
    if (!lHosts) {
        throw ZTCFcError("the Fibre Channel hosts below " + acrRoot + " cannot be read");
    }
    return std::move(*lHosts);
}

HBA_wwn toName(std::uint64_t aName) {
    HBA_wwn lName{};
    for (std::uint8_t& lrByte : lName.wwn) {
        lrByte = static_cast<std::uint8_t>(aName >> 56);
        aName <<= 8;
    }
    return lName;
}

void putWord(unsigned char* apBytes, std::uint32_t aWord) {
    for (const unsigned int lShift : {24U, 16U, 8U, 0U}) {
        *apBytes++ = static_cast<unsigned char>(aWord >> lShift);
    }
}

// Keeps signals from the threads that are started meanwhile: they are the agent's.
class SignalsHeldBack {
  public:
    SignalsHeldBack() {
        sigset_t lAll;
        sigfillset(&lAll);
        pthread_sigmask(SIG_SETMASK, &lAll, &mBefore);
    }
    ~SignalsHeldBack() { pthread_sigmask(SIG_SETMASK, &mBefore, nullptr); }
    SignalsHeldBack(const SignalsHeldBack&) = delete;
    SignalsHeldBack& operator=(const SignalsHeldBack&) = delete;

  private:
    sigset_t mBefore{};
};

// Whether a uevent is about Fibre Channel: its lines are NAME=VALUE, with a NUL behind each.
bool isOfFibreChannel(const unsigned char* apBytes, std::size_t aSize) {
    const std::string_view lText(reinterpret_cast<const char*>(apBytes), aSize);
    return lText.find("SUBSYSTEM=fc_") != std::string_view::npos;
}

}  // namespace

ZTCFcSession::ZTCFcSession(const ZTSFcSettings& acrSettings)
    : mSettings(acrSettings),
      mJournal(acrSettings.mLog),
      // Before the first look: what changes behind it is announced.
      mTransport(acrSettings.mProtocol, sTransportGroup, acrSettings.mSender),
      mUevents(NETLINK_KOBJECT_UEVENT, sUeventGroup, 0),
      mWatcher(readFirst(acrSettings.mSysfs), 2 * acrSettings.mPeriod) {
    publish();
    if (!mTransport.isOpen()) {
        mJournal.note(
            "the kernel's events are not received (%s): states are looked at every %.2f s, and no more",
            strerror(mTransport.getError()), std::chrono::duration<double>(mSettings.mPeriod).count());
    }
    const SignalsHeldBack lHeldBack;
    try {
        mThread = std::thread([this] { run(); });
    } catch (const std::system_error&) {
        throw ZTCFcError("no thread can be started");
    }
}

ZTCFcSession::~ZTCFcSession() {
    mStop.set();
    mThread.join();
    try {
        addUp();  // what came behind the last look
    } catch (const std::bad_alloc&) {
        mJournal.note("no memory for the counts of what came last");
    }
    tellSums(true);
}

ZTCFcSession::Stop::Stop() : mFile(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (mFile < 0) {
        throw ZTCFcError(std::string("eventfd: ") + strerror(errno));
    }
}

ZTCFcSession::Stop::~Stop() {
    close(mFile);
}

void ZTCFcSession::Stop::set() const {
    eventfd_write(mFile, 1);
}

bool ZTCFcSession::getNames(std::uint32_t aBoard, HBA_wwn& arNode, HBA_wwn& arPort) {
    const std::lock_guard<std::mutex> lLock(mNamesLock);
    if (aBoard >= mNames.size()) {
        return false;
    }
    arNode = toName(mNames[aBoard].mNode);
    arPort = toName(mNames[aBoard].mPort);
    return true;
}

// Lets other threads see what the watcher knows of the boards.
void ZTCFcSession::publish() {
    const std::lock_guard<std::mutex> lLock(mNamesLock);
    mNames.resize(mWatcher.countBoards());
    for (std::uint32_t lBoard = 0; lBoard < mNames.size(); ++lBoard) {
        mNames[lBoard] = {mWatcher.getNode(lBoard), mWatcher.getPort(lBoard)};
    }
    mBoards = mWatcher.countBoards();
}

void ZTCFcSession::run() {
    Clock::time_point lLastLook = Clock::now();
    for (;;) {
        const Clock::time_point lNextLook =
            lLastLook + (mIsLookDue ? std::min(sSettling, mSettings.mPeriod) : mSettings.mPeriod);
        pollfd lPolls[] = {
            {mStop.get(), POLLIN, 0}, {mTransport.get(), POLLIN, 0}, {mUevents.get(), POLLIN, 0}};
        const auto lLeft = std::chrono::ceil<std::chrono::milliseconds>(lNextLook - Clock::now()).count();
        const int lReady =
            poll(lPolls, std::size(lPolls), static_cast<int>(std::max<std::int64_t>(lLeft, 0)));
        if (lReady > 0 && lPolls[0].revents != 0) {
            return;
        }
        try {
            if (lReady > 0) {
                listen();
            }
            if (Clock::now() >= lNextLook) {
                mIsLookedFor = false;
                lLastLook = Clock::now();  // if this one fails
                look();
                addUp();
                tellSums(false);
                lLastLook = Clock::now();
                mIsOutOfMemory = false;
            }
        } catch (const std::bad_alloc&) {
            deliver();
            mWatcher.noteLoss();  // of a message that could not be taken
            if (!std::exchange(mIsOutOfMemory, true)) {
                mJournal.note("no memory: what was left out is found by the next look, or counted as lost");
            }
        }
    }
}

// Takes what the kernel has told, and hands on what of it is an event.
void ZTCFcSession::listen() {
    alignas(nlmsghdr) unsigned char lBytes[sMaxMessage];
    std::size_t lSize = 0;
    for (unsigned int lLeft = sAtOnce; mTransport.isOpen() && lLeft > 0; --lLeft) {
        const ZTCFcSocket::Outcome lOutcome = mTransport.receive(lBytes, sizeof lBytes, lSize);
        if (lOutcome == ZTCFcSocket::Nothing) {
            break;
        }
        if (lOutcome == ZTCFcSocket::Message) {
            mBad.mCount += readTransportMessages(
                lBytes, lSize, [this](const ZTSFcMessage& acrMessage) { announce(acrMessage); });
        }
        mForeign.mCount += lOutcome == ZTCFcSocket::Foreign ? 1 : 0;
        if (lOutcome == ZTCFcSocket::Loss) {
            mWatcher.noteLoss();
            mIsLookDue = true;
            mHasOverrun = true;
        }
    }
    for (unsigned int lLeft = sAtOnce; mUevents.isOpen() && lLeft > 0; --lLeft) {
        const ZTCFcSocket::Outcome lOutcome = mUevents.receive(lBytes, sizeof lBytes, lSize);
        if (lOutcome == ZTCFcSocket::Nothing) {
            break;
        }
        mIsLookDue = mIsLookDue || lOutcome == ZTCFcSocket::Loss ||
                     (lOutcome == ZTCFcSocket::Message && isOfFibreChannel(lBytes, lSize));
    }
}

// A host may announce something before a look has found it. What that look finds of other hosts may be told
// again by messages behind this one.
void ZTCFcSession::announce(const ZTSFcMessage& acrMessage) {
    if (!mWatcher.isKnown(acrMessage.mHost) && !mIsLookedFor) {
        mIsLookedFor = true;
        const auto lRead = Clock::now();
        compare(readFcHosts(mSettings.mSysfs), lRead);
    }
    mWatcher.announce(acrMessage, Clock::now(), mEvents);
    deliver();
}

// What is announced while sysfs is read comes first, or a change would be found before it is announced, and
// told twice. One look is put off for that, but not the next.
void ZTCFcSession::look() {
    const auto lRead = Clock::now();
    const auto lHosts = readFcHosts(mSettings.mSysfs);
    pollfd lTold{mTransport.get(), POLLIN, 0};
    mIsPutOff = poll(&lTold, 1, 0) > 0 && !mIsPutOff;
    mIsLookDue = mIsPutOff;
    if (mIsPutOff) {
        return;
    }
    if ((lTold.revents & POLLERR) != 0) {
        mWatcher.noteLoss();  // as the next message would show
    }
    compare(lHosts, lRead);
}

// aRead: when the reading of the hosts began.
void ZTCFcSession::compare(const std::optional<ZTFcHosts>& acrHosts, ZTCFcWatcher::Time aRead) {
    if (acrHosts) {
        mWatcher.look(*acrHosts, aRead, mEvents);
        publish();
        deliver();
    }
    if (mIsUnreadable != !acrHosts) {
        mIsUnreadable = !acrHosts;
        mJournal.note(mIsUnreadable ? "the hosts below %s cannot be read: nothing is known to have changed"
                                    : "the hosts below %s can be read again",
                      mSettings.mSysfs.c_str());
    }
}

void ZTCFcSession::deliver() {
    for (const ZTSFcEvent& lrEvent : mEvents) {
        deliver(lrEvent);
    }
    mEvents.clear();
}

void ZTCFcSession::deliver(const ZTSFcEvent& acrEvent) {
    const std::uint32_t lBoard = acrEvent.mBoard;
    const HBA_wwn lPort = toName(mWatcher.getPort(lBoard));
    switch (acrEvent.mKind) {
        case ZTSFcEvent::Link: {
            unsigned char lContext[ZT_DFC_LINK_CONTEXT]{};
            memcpy(lContext, lPort.wwn, sizeof lPort.wwn);
            mRegistrations.each(lBoard, sLink, [&](const ZTSFcRegistration& acrTo) {
                acrTo.mpByMask(lBoard, lContext, sizeof lContext);
            });
            break;
        }
        case ZTSFcEvent::Rscn: {
            // The ELS: command, page length, payload length, and one page.
            unsigned char lPayload[8]{0x61, 4, 0, 8};
            putWord(lPayload + 4, acrEvent.mPage);
            mRegistrations.each(lBoard, sRscn, [&](const ZTSFcRegistration& acrTo) {
                acrTo.mpByMask(lBoard, lPayload, sizeof lPayload);
            });
            break;
        }
        case ZTSFcEvent::PortInterruptError: {
            const ZT_event lEvent{1, ZT_EVENT_HEADER, nullptr};
            mRegistrations.each(lBoard, sPortInterruptError, [&](const ZTSFcRegistration& acrTo) {
                acrTo.mpGeneric(lBoard, lPort, sPortInterruptError.mCategory,
                                sPortInterruptError.mSubcategory, acrTo.mpContext, &lEvent);
            });
            break;
        }
        case ZTSFcEvent::AdapterArrival:
            deliverArrival(lBoard);
            break;
    }
}

// Nobody can have registered with an adapter before it is there: the first board that somebody has registered
// with stands for it. The name is the new port's.
void ZTCFcSession::deliverArrival(std::uint32_t aBoard) {
    const HBA_wwn lPort = toName(mWatcher.getPort(aBoard));
    const ZT_event lEvent{1, ZT_EVENT_HEADER, nullptr};
    const auto lDeliverTo = [&](std::uint32_t aTo) {
        return mRegistrations.each(aTo, sAdapterArrival, [&](const ZTSFcRegistration& acrTo) {
            acrTo.mpGeneric(aTo, lPort, sAdapterArrival.mCategory, sAdapterArrival.mSubcategory,
                            acrTo.mpContext, &lEvent);
        }) != 0;
    };
    if (lDeliverTo(aBoard)) {
        return;
    }
    for (std::uint32_t lBoard = 0; lBoard < aBoard && !lDeliverTo(lBoard); ++lBoard) {
    }
}

// Adds up what has come that is no event, and tells in the journal what was lost.
void ZTCFcSession::addUp() {
    if (std::exchange(mHasOverrun, false)) {
        mJournal.note("the kernel had more to tell than there was room for: the next event shows how much");
    }
    const ZTCFcWatcher::Counts lCounts = mWatcher.takeCounts();
    mOfUnknownHosts.mCount += lCounts.mOfUnknownHosts;
    mLost.mCount += lCounts.mLost - std::min(mLost.mCount, lCounts.mLate);
    if (lCounts.mLost != 0) {
        mJournal.note("%llu events of the kernel were lost, %llu in all: states are read again",
                      static_cast<unsigned long long>(lCounts.mLost),
                      static_cast<unsigned long long>(mLost.mCount));
    }
    for (const auto& [lCode, lCount] : lCounts.mWithoutKind) {
        const bool lIsToldApart = mWithoutKind.size() < sCodes || mWithoutKind.count(lCode) != 0;
        (lIsToldApart ? mWithoutKind[lCode] : mOfOtherCodes).mCount += lCount;
    }
}

void ZTCFcSession::tellSums(bool aIsLast) {
    const auto lTell = [&](Sum& arSum, const char* apWhat) {
        if (aIsLast ? arSum.mCount != 0 : arSum.mCount >= arSum.mNext) {
            mJournal.note("%llu %s", static_cast<unsigned long long>(arSum.mCount), apWhat);
        }
        while (arSum.mNext <= arSum.mCount) {
            arSum.mNext *= 10;
        }
    };
    for (auto& [lCode, lrSum] : mWithoutKind) {
        char lWhat[64];
        snprintf(lWhat, sizeof lWhat, "events with code 0x%x had no kind", lCode);
        lTell(lrSum, lWhat);
    }
    if (aIsLast) {
        lTell(mLost, "events of the kernel were lost");
    }
    lTell(mOfOtherCodes, "events with further codes had no kind");
    lTell(mOfUnknownHosts, "events were of hosts that are not there, or not yet");
    lTell(mBad, "messages were malformed");
    lTell(mForeign, "messages were not the kernel's");
}
