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
#include <utility>

#include "Delivery.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned int sTransportGroup = 4;
constexpr unsigned int sUeventGroup = 1;
constexpr std::size_t sMaxMessage = 64 * 1024;
constexpr unsigned int sAtOnce = 1000;  // messages of a socket between two looks, however many there are

ZTFcHosts sReadFirst(ZTCFcSysfs& arSysfs, const ZTSFcSettings& acrSettings) {
    auto lHosts = arSysfs.look();
    if (!lHosts) {
        throw ZTCFcError("the Fibre Channel hosts below " + acrSettings.mSysfs + " cannot be read");
    }
    return std::move(*lHosts);
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

// Calls the function with what the socket has: the outcome, and the bytes of a message.
template <class Take>
void sReceiveAll(ZTCFcSocket& arSocket, const Take& acrTake) {
    alignas(nlmsghdr) unsigned char lBytes[sMaxMessage];
    std::size_t lSize = 0;
    for (unsigned int lLeft = sAtOnce; arSocket.isOpen() && lLeft > 0; --lLeft) {
        const ZTEFcReceipt lReceipt = arSocket.receive(lBytes, sizeof lBytes, lSize);
        if (lReceipt == ZTFR_Nothing) {
            break;
        }
        acrTake(lReceipt, lBytes, lSize);
    }
}

// Whether a uevent is about Fibre Channel: its lines are NAME=VALUE, with a NUL behind each.
bool sIsOfFibreChannel(const unsigned char* apBytes, std::size_t aSize) {
    const std::string_view lText(reinterpret_cast<const char*>(apBytes), aSize);
    return lText.find("SUBSYSTEM=fc_") != std::string_view::npos;
}

}  // namespace

ZTCFcSession::ZTCFcSession(const ZTSFcSettings& acrSettings)
    : mSettings(acrSettings),
      mTransport(acrSettings.mProtocol, sTransportGroup, acrSettings.mSender),
      mUevents(NETLINK_KOBJECT_UEVENT, sUeventGroup, 0),
      mReport(acrSettings),
      mSysfs(acrSettings.mSysfs),
      mWatcher(sReadFirst(mSysfs, acrSettings), 2 * acrSettings.mPeriod),
      mSchedule(acrSettings.mPeriod) {
    mBoards.update(mWatcher);
    if (!mTransport.isOpen()) {
        mReport.tellThatNothingIsHeard(mTransport.getError());
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
    mReport.tellAtEnd(mWatcher.takeCounts());
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

void ZTCFcSession::run() {
    for (;;) {
        const Clock::time_point lNextLook = mSchedule.getNext();
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
                mSchedule.begin();
                look();
                mReport.add(mWatcher.takeCounts());
                mReport.tell();
                mSchedule.end();
                mReport.setMemoryThere();
            }
        } catch (const std::bad_alloc&) {
            deliver();
            mWatcher.noteLoss();  // of a message that could not be taken
            mReport.setMemoryGone();
        }
    }
}

// Takes what the kernel has told, and hands on what of it is an event.
void ZTCFcSession::listen() {
    sReceiveAll(mTransport, [&](ZTEFcReceipt aReceipt, const unsigned char* apBytes, std::size_t aSize) {
        if (aReceipt == ZTFR_Message) {
            mReport.countMalformed(readTransportMessages(
                apBytes, aSize, [this](const ZTSFcMessage& acrMessage) { announce(acrMessage); }));
        } else if (aReceipt == ZTFR_Foreign) {
            mReport.countForeign();
        } else {
            mWatcher.noteLoss();
            mReport.setOverrun();
            mSchedule.hasten();
        }
    });
    sReceiveAll(mUevents, [&](ZTEFcReceipt aReceipt, const unsigned char* apBytes, std::size_t aSize) {
        if (aReceipt == ZTFR_Loss || (aReceipt == ZTFR_Message && sIsOfFibreChannel(apBytes, aSize))) {
            mSchedule.hasten();
        }
    });
}

// A host may announce something before a look has found it. What that look finds of other hosts may be told
// again by messages behind this one.
void ZTCFcSession::announce(const ZTSFcMessage& acrMessage) {
    if (!mWatcher.isKnown(acrMessage.mHost) && mSchedule.takeLookBetween()) {
        const auto lRead = Clock::now();
        compare(mSysfs.look(), lRead);
    }
    mWatcher.announce(acrMessage, Clock::now(), mEvents);
    deliver();
}

// What is announced while sysfs is read comes first, or a change would be found before it is announced, and
// told twice. One look is put off for that, but not the next.
void ZTCFcSession::look() {
    const auto lRead = Clock::now();
    const auto lHosts = mSysfs.look();
    pollfd lTold{mTransport.get(), POLLIN, 0};
    if (poll(&lTold, 1, 0) > 0 && mSchedule.putOff()) {
        return;
    }
    mSchedule.settle();
    if ((lTold.revents & POLLERR) != 0) {
        mWatcher.noteLoss();  // as the next message would show
    }
    compare(lHosts, lRead);
}

// aRead: when the reading of the hosts began.
void ZTCFcSession::compare(const std::optional<ZTFcHosts>& acrHosts, ZTCFcWatcher::Time aRead) {
    if (acrHosts) {
        mWatcher.look(*acrHosts, aRead, mEvents);
        mBoards.update(mWatcher);
        deliver();
    }
    mReport.setHostsReadable(acrHosts.has_value());
}

// Hands on what has happened. A close waits for it.
void ZTCFcSession::deliver() {
    for (const ZTSFcEvent& lrEvent : mEvents) {
        deliverFcEvent(mRegistrations, lrEvent, toFcName(mWatcher.getPort(lrEvent.mBoard)));
    }
    mEvents.clear();
}
