#include "Session.h"

#include <linux/netlink.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <iterator>
#include <string_view>

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned int sTransportGroup = 4;
constexpr unsigned int sUeventGroup = 1;
constexpr std::size_t sMaxMessage = 64 * 1024;
constexpr std::chrono::milliseconds sSettling(
    50);                                // between looks, when there is always something to look at
constexpr unsigned int sAtOnce = 1000;  // messages between two looks, however many there are

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
      mWatcher(readFirst(acrSettings.mSysfs), 2 * acrSettings.mPeriod),
      mStop(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (mStop < 0) {
        throw ZTCFcError(std::string("eventfd: ") + strerror(errno));
    }
    publish();
    if (!mTransport.isOpen()) {
        mJournal.note(
            "the kernel's events are not received (%s): states are looked at every %.2f s, and no more",
            strerror(mTransport.getError()), std::chrono::duration<double>(mSettings.mPeriod).count());
    }
    // Signals are the agent's: this thread takes none.
    sigset_t lAll;
    sigset_t lBefore;
    sigfillset(&lAll);
    pthread_sigmask(SIG_SETMASK, &lAll, &lBefore);
    try {
        mThread = std::thread([this] { run(); });
    } catch (const std::system_error&) {
        pthread_sigmask(SIG_SETMASK, &lBefore, nullptr);
        close(mStop);
        throw ZTCFcError("no thread can be started");
    }
    pthread_sigmask(SIG_SETMASK, &lBefore, nullptr);
}

ZTCFcSession::~ZTCFcSession() {
    eventfd_write(mStop, 1);
    mThread.join();
    close(mStop);
    try {
        report();  // what came behind the last look
    } catch (const std::bad_alloc&) {
        mJournal.note("no memory for the counts of what came last");
    }
    reportSums();
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
        pollfd lPolls[] = {{mStop, POLLIN, 0}, {mTransport.get(), POLLIN, 0}, {mUevents.get(), POLLIN, 0}};
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
                lLastLook = Clock::now();
                mIsLookedFor = false;
                look();
                report();
            }
        } catch (const std::bad_alloc&) {
            mJournal.note("no memory for a look: the next one finds what it left out");
        }
    }
}

// Takes what the kernel has told, and hands on what of it is an event.
void ZTCFcSession::listen() {
    alignas(nlmsghdr) static thread_local unsigned char sBytes[sMaxMessage];
    std::size_t lSize = 0;
    for (unsigned int lLeft = sAtOnce; mTransport.isOpen() && lLeft > 0; --lLeft) {
        const ZTCFcSocket::Outcome lOutcome = mTransport.receive(sBytes, sizeof sBytes, lSize);
        if (lOutcome == ZTCFcSocket::Nothing) {
            break;
        }
        if (lOutcome == ZTCFcSocket::Message) {
            mBad += readTransportMessages(sBytes, lSize,
                                          [this](const ZTSFcMessage& acrMessage) { announce(acrMessage); });
        }
        mForeign += lOutcome == ZTCFcSocket::Foreign ? 1 : 0;
        if (lOutcome == ZTCFcSocket::Loss) {
            mWatcher.noteLoss();
            mIsLookDue = true;
        }
    }
    for (unsigned int lLeft = sAtOnce; mUevents.isOpen() && lLeft > 0; --lLeft) {
        const ZTCFcSocket::Outcome lOutcome = mUevents.receive(sBytes, sizeof sBytes, lSize);
        if (lOutcome == ZTCFcSocket::Nothing) {
            break;
        }
        mIsLookDue = mIsLookDue || lOutcome == ZTCFcSocket::Loss ||
                     (lOutcome == ZTCFcSocket::Message && isOfFibreChannel(sBytes, lSize));
    }
}

// A host may announce something before a look has found it.
void ZTCFcSession::announce(const ZTSFcMessage& acrMessage) {
    if (!mWatcher.isKnown(acrMessage.mHost) && !mIsLookedFor) {
        mIsLookedFor = true;
        look();
    }
    deliver(mWatcher.announce(acrMessage, Clock::now()));
}

void ZTCFcSession::look() {
    mIsLookDue = false;
    const auto lHosts = readFcHosts(mSettings.mSysfs);
    if (lHosts) {
        const ZTFcEvents lEvents = mWatcher.look(*lHosts, Clock::now());
        publish();
        deliver(lEvents);
    }
    if (mIsUnreadable != !lHosts) {
        mIsUnreadable = !lHosts;
        mJournal.note(mIsUnreadable ? "the hosts below %s cannot be read: nothing is known to have changed"
                                    : "the hosts below %s can be read again",
                      mSettings.mSysfs.c_str());
    }
}

void ZTCFcSession::deliver(const ZTFcEvents& acrEvents) {
    for (const ZTSFcEvent& lrEvent : acrEvents) {
        deliver(lrEvent);
    }
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

// Tells in the journal what was lost, and what has come for the first time that is no event.
void ZTCFcSession::report() {
    const ZTCFcWatcher::Counts lCounts = mWatcher.takeCounts();
    mOfUnknownHosts += lCounts.mOfUnknownHosts;
    if (lCounts.mLost != 0) {
        mLost += lCounts.mLost;
        mJournal.note("%llu events of the kernel were lost, %llu in all: states are read again",
                      static_cast<unsigned long long>(lCounts.mLost), static_cast<unsigned long long>(mLost));
    }
    for (const auto& [lCode, lCount] : lCounts.mWithoutKind) {
        std::uint64_t& lrSum = mWithoutKind[lCode];
        if (lrSum == 0) {
            mJournal.note(
                "events with code 0x%x have no kind: they are counted, and told when the library is closed",
                lCode);
        }
        lrSum += lCount;
    }
}

void ZTCFcSession::reportSums() const {
    for (const auto& [lCode, lCount] : mWithoutKind) {
        mJournal.note("%llu events with code 0x%x had no kind", static_cast<unsigned long long>(lCount),
                      lCode);
    }
    const struct {
        std::uint64_t mCount;
        const char* mpWhat;
    } lSums[] = {{mLost, "events of the kernel were lost"},
                 {mOfUnknownHosts, "events were of hosts that are not there"},
                 {mBad, "messages were malformed"},
                 {mForeign, "messages were not the kernel's"}};
    for (const auto& lrSum : lSums) {
        if (lrSum.mCount != 0) {
            mJournal.note("%llu %s", static_cast<unsigned long long>(lrSum.mCount), lrSum.mpWhat);
        }
    }
}
