#include "Waiting.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "Failure.h"

namespace {

bool sIsIgnored(int aSignal) {
    struct sigaction lAction {};
    return sigaction(aSignal, nullptr, &lAction) == 0 && lAction.sa_handler == SIG_IGN;
}

}  // namespace

ZTCWaiting::ZTCWaiting() {
    sigemptyset(&mBlocked);
    for (const int lSignal : {SIGINT, SIGTERM, SIGHUP, SIGWINCH}) {
        if (!sIsIgnored(lSignal)) {
            sigaddset(&mBlocked, lSignal);
        }
    }
    mSignals = ZTCSensorDescriptor(signalfd(-1, &mBlocked, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!mSignals.isOpen()) {
        throw ZTCScopeFailure(std::string("cannot wait for signals: ") + strerror(errno));
    }
    sigprocmask(SIG_BLOCK, &mBlocked, nullptr);
}

ZTCWaiting::~ZTCWaiting() {
    // One that has come meanwhile has had its effect.
    signalfd_siginfo lSignal{};
    while (read(mSignals.get(), &lSignal, sizeof lSignal) > 0) {
    }
    sigprocmask(SIG_UNBLOCK, &mBlocked, nullptr);
}

ZTCWaiting::Reason ZTCWaiting::until(Clock::time_point aTime) {
    for (;;) {
        const auto lLeft = std::chrono::ceil<std::chrono::milliseconds>(aTime - Clock::now()).count();
        pollfd lPoll{mSignals.get(), POLLIN, 0};
        const int lReady = poll(&lPoll, 1, static_cast<int>(std::clamp<std::int64_t>(lLeft, 0, 60'000)));
        signalfd_siginfo lSignal{};
        if (lReady > 0 && read(mSignals.get(), &lSignal, sizeof lSignal) == sizeof lSignal) {
            return lSignal.ssi_signo == SIGWINCH ? Reason::Resize : Reason::End;
        }
        if (lReady <= 0 && lLeft <= 60'000) {
            return Reason::Time;
        }
    }
}
