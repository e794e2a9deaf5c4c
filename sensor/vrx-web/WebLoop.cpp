#include "WebLoop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <new>
#include <system_error>

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds sIdleTick = 1s;  // while nobody is connected
constexpr std::chrono::seconds sStatusEvery = 5s;
constexpr std::chrono::seconds sEndTime = 1s;
constexpr unsigned int sMostAtOnce = 64;  // connections that are taken before others have their turn

// What a descriptor is; a listener has its number from Listener on.
constexpr std::uint64_t sSignal = 0;
constexpr std::uint64_t sWake = 1;
constexpr std::uint64_t sReload = 2;
constexpr std::uint64_t sServer = 3;
constexpr std::uint64_t sListener = 4;

ZTCSensorDescriptor sChecked(int aDescriptor, const char* apWhat) {
    if (aDescriptor < 0) {
        throw std::system_error(errno, std::generic_category(), apWhat);
    }
    return ZTCSensorDescriptor(aDescriptor);
}

// Held back from every thread that is made behind this.
ZTCSensorDescriptor sTakeSignals() {
    sigset_t lSignals;
    sigemptyset(&lSignals);
    for (const int lSignal : {SIGTERM, SIGINT, SIGHUP}) {
        sigaddset(&lSignals, lSignal);
    }
    pthread_sigmask(SIG_BLOCK, &lSignals, nullptr);
    return sChecked(signalfd(-1, &lSignals, SFD_CLOEXEC | SFD_NONBLOCK), "signalfd");
}

std::vector<ZTCWebListener> sListen(const std::vector<std::string>& acrAddresses) {
    std::vector<ZTCWebListener> lListeners;
    lListeners.reserve(acrAddresses.size());
    for (const std::string& lrAddress : acrAddresses) {
        lListeners.emplace_back(lrAddress);
    }
    return lListeners;
}

}  // namespace

ZTCWebLoop::ZTCWebLoop(const ZTSWebSettings& acrSettings, const ZTSWebPeriods& acrPeriods,
                       const std::vector<std::string>& acrWords, ZTCServiceLog& arLog)
    : mOptions(acrSettings.mOptions),
      mPeriods(acrPeriods),
      mrLog(arLog),
      mDeaf(arLog, "connections cannot be taken"),
      mNoMemory(arLog, "there is no memory"),
      mSignals(sTakeSignals()),
      mpWake(std::make_shared<const ZTCSensorDescriptor>(
          sChecked(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd"))),
      mEvents(sChecked(epoll_create1(EPOLL_CLOEXEC), "epoll")),
      mReload("vrx-web-options", [acrWords] { return readWebSettings(acrWords); }),
      mListeners(sListen(mOptions.mListen)),
      mServer(mOptions, mPeriods, acrSettings.mAccess, arLog,
              [lpWake = mpWake] { eventfd_write(lpWake->get(), 1); }),
      mHasTokens(acrSettings.mAccess.mTokens.isAsked()) {
    watch(mSignals.get(), sSignal);
    watch(mpWake->get(), sWake);
    watch(mReload.getDescriptor(), sReload);
    watchServer();
    for (std::size_t lListener = 0; lListener < mListeners.size(); ++lListener) {
        watch(mListeners[lListener].getDescriptor(), sListener + lListener);
    }
}

void ZTCWebLoop::watch(int aDescriptor, std::uint64_t aWhat) {
    epoll_event lEvent{};
    lEvent.events = EPOLLIN;
    lEvent.data.u64 = aWhat;
    if (epoll_ctl(mEvents.get(), EPOLL_CTL_ADD, aDescriptor, &lEvent) != 0 && errno != EEXIST) {
        throw std::system_error(errno, std::generic_category(), "epoll");
    }
}

void ZTCWebLoop::watchServer() {
    for (const int lDescriptor : mServer.listDescriptors()) {
        watch(lDescriptor, sServer);
    }
}

void ZTCWebLoop::run() {
    tellWhere();
    mNotify.tellReady();
    while (!mIsEnding) {
        try {
            turn();
        } catch (const std::bad_alloc&) {
            mNoMemory.met("trying again");
            usleep(10'000);  // what is not done yet would have no more
        }
    }
    mNotify.tellStopping();
    // The disk of the history may keep whoever reads it: the process is left all the same.
    startServiceThread("vrx-web-end", [] {
        std::this_thread::sleep_for(sEndTime);
        _exit(0);
    }).detach();
}

void ZTCWebLoop::tellWhere() const {
    for (const ZTCWebListener& lrListener : mListeners) {
        const ZTSListenAddress& lrAddress = lrListener.getAddress();
        mrLog.note(ZTSL_Notice, "serving on %s", lrAddress.toText().c_str());
        const bool lHasKeys = !mOptions.mCertificate.empty();
        if (!lrAddress.isLoopback() && (!mHasTokens || !lHasKeys)) {
            mrLog.note(ZTSL_Warning, "%s is open to the network without %s", lrAddress.toText().c_str(),
                       mHasTokens ? "a certificate"
                       : lHasKeys ? "a token"
                                  : "a token and a certificate");
        }
    }
}

int ZTCWebLoop::getTimeout() const {
    const auto lTick = mTicked + (mServer.isEmpty() ? std::max(sIdleTick, mPeriods.mTick) : mPeriods.mTick);
    const auto lUntilTick = std::max(std::chrono::ceil<std::chrono::milliseconds>(lTick - Clock::now()), 0ms);
    return static_cast<int>(std::min(lUntilTick, mServer.getTimeout().value_or(lUntilTick)).count());
}

void ZTCWebLoop::turn() {
    epoll_event lEvents[32];
    const int lCount = epoll_wait(mEvents.get(), lEvents, std::size(lEvents), getTimeout());
    for (int lAt = 0; lAt < lCount; ++lAt) {
        take(lEvents[lAt].data.u64);
    }
    const auto lNow = Clock::now();
    if (lNow - mTicked >= mPeriods.mTick) {
        tick(lNow);
    }
    mServer.run();
}

void ZTCWebLoop::take(std::uint64_t aWhat) {
    eventfd_t lCount = 0;
    switch (aWhat) {
        case sSignal:
            return takeSignals();
        case sWake:
            eventfd_read(mpWake->get(), &lCount);
            return mServer.takeNews();
        case sReload:
            return reload();
        case sServer:
            return;
        default:
            return takeConnections(aWhat - sListener);
    }
}

void ZTCWebLoop::tick(Clock::time_point aNow) {
    mTicked = aNow;
    mNotify.feed(aNow);
    mServer.tick(aNow);
    mDeaf.tick(aNow);
    mNoMemory.tick(aNow);
    for (; !mResting.empty(); mResting.pop_back()) {
        watch(mListeners[mResting.back()].getDescriptor(), sListener + mResting.back());
    }
    if (aNow - mStatusTold >= sStatusEvery) {
        mStatusTold = aNow;
        mNotify.tellStatus(mServer.getStatus());
    }
}

void ZTCWebLoop::takeConnections(std::size_t aListener) {
    for (unsigned int lTaken = 0; lTaken < sMostAtOnce; ++lTaken) {
        ZTSListenAddress lPeer;
        ZTCSensorDescriptor lSocket = mListeners[aListener].accept(lPeer);
        if (lSocket.isOpen()) {
            mServer.take(std::move(lSocket), lPeer);
        } else if (errno == EAGAIN) {
            return;
        } else if (errno != ECONNABORTED && errno != EINTR) {
            return rest(aListener, errno);
        }
    }
}

// No descriptors or no memory: whoever waits would be told of again at once.
void ZTCWebLoop::rest(std::size_t aListener, int aErrno) {
    mDeaf.met(strerror(aErrno));
    mResting.push_back(aListener);
    epoll_ctl(mEvents.get(), EPOLL_CTL_DEL, mListeners[aListener].getDescriptor(), nullptr);
}

void ZTCWebLoop::takeSignals() {
    signalfd_siginfo lSignal{};
    while (read(mSignals.get(), &lSignal, sizeof lSignal) == sizeof lSignal) {
        if (lSignal.ssi_signo == SIGHUP) {
            beginReload();
        } else {
            mrLog.note(ZTSL_Notice, "ending on signal %u", lSignal.ssi_signo);
            mIsEnding = true;
        }
    }
}

void ZTCWebLoop::beginReload() {
    mNotify.tellReloading();
    try {
        mReload.begin();
    } catch (const std::exception& lrError) {
        mrLog.note(ZTSL_Error, "the configuration stays as it was: %s", lrError.what());
        mNotify.tellReady();
    }
}

void ZTCWebLoop::reload() {
    try {
        const ZTSWebSettings lNew = mReload.take();
        const std::string lFixed = listFixedChanges(mOptions, lNew.mOptions);
        if (!lFixed.empty()) {
            mrLog.note(ZTSL_Warning, "only a new start changes %s", lFixed.c_str());
        }
        mServer.setAccess(lNew.mAccess, lNew.mOptions.mAllowHosts);
        watchServer();
        mrLog.note(ZTSL_Notice, "configuration, tokens and certificate are read anew");
    } catch (const std::exception& lrError) {
        mrLog.note(ZTSL_Error, "the configuration stays as it was: %s", lrError.what());
    }
    mNotify.tellReady();
}
