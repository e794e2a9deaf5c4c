#include "Session.h"

#include <linux/netlink.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <string_view>
#include <utility>

#include "Delivery.h"
#include "Rights.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned int sTransportGroup = 4;
constexpr unsigned int sUeventGroup = 1;

ZTFcHosts sReadFirst(ZTCFcSysfs& arSysfs, const ZTSFcSettings& acrSettings) {
    auto lHosts = arSysfs.look();
    if (!lHosts) {
        throw ZTCFcError("the Fibre Channel hosts below " + acrSettings.mSysfs + " cannot be read");
    }
    return std::move(*lHosts);
}

// Whether a uevent is about Fibre Channel: its lines are NAME=VALUE, with a NUL behind each.
bool sIsOfFibreChannel(const unsigned char* apBytes, std::size_t aSize) {
    const std::string_view lText(reinterpret_cast<const char*>(apBytes), aSize);
    return lText.find("SUBSYSTEM=fc_") != std::string_view::npos;
}

}  // namespace

ZTCFcSession::ZTCFcSession(const ZTSFcSettings& acrSettings)
    : mSettings(acrSettings),
      mStatistics(acrSettings.mStatistics, acrSettings.mLog),
      mTransport(acrSettings.mProtocol, sTransportGroup, acrSettings.mSender),
      mUevents(NETLINK_KOBJECT_UEVENT, sUeventGroup, 0),
      mReport(acrSettings),
      mFpins(mStatistics, acrSettings.mLog),
      mSysfs(acrSettings.mSysfs),
      mWatcher(sReadFirst(mSysfs, acrSettings), 2 * acrSettings.mPeriod),
      mSchedule(acrSettings.mPeriod),
      mScsiUevents(NETLINK_KOBJECT_UEVENT, sUeventGroup, 0) {
    mBoards.update(mWatcher);
    if (!mTransport.isOpen()) {
        mReport.tellThatNothingIsHeard(mTransport.getError());
    }
    mThread.start([this] { run(); });
    mScsiWatch.emplace(acrSettings, mBoards, mRegistrations, mStatistics, mScsiUevents,
                       getScsiWays(acrSettings.mScsi));
}

ZTCFcSession::~ZTCFcSession() {
    mScsiWatch.reset();
    mThread.end();
    mReport.tellAtEnd(mWatcher.takeCounts());
}

void ZTCFcSession::run() {
    if (!giveUpFcRights()) {  // all is open
        mReport.tellThatRightsStay(errno);
    }
    for (;;) {
        const Clock::time_point lNextLook = mSchedule.getNext();
        pollfd lPolls[] = {
            {mThread.getStop(), POLLIN, 0}, {mTransport.get(), POLLIN, 0}, {mUevents.get(), POLLIN, 0}};
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
                mStatistics.set(ZTFF_NetlinkLost, mReport.getLost());
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
    mTransport.receiveAll([&](ZTEFcReceipt aReceipt, const unsigned char* apBytes, std::size_t aSize) {
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
    mUevents.receiveAll([&](ZTEFcReceipt aReceipt, const unsigned char* apBytes, std::size_t aSize) {
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
    if (acrMessage.isFpin()) {
        mFpins.take(acrMessage.mHost, acrMessage.mData);
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
