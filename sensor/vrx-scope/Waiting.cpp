#include "Waiting.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>

namespace {

sigset_t theSignals() {
    sigset_t lSignals;
    sigemptyset(&lSignals);
    for (const int lSignal : {SIGINT, SIGTERM, SIGHUP, SIGWINCH}) {
        sigaddset(&lSignals, lSignal);
    }
    return lSignals;
}

}  // namespace

ZTCWaiting::ZTCWaiting() {
    const sigset_t lSignals = theSignals();
    sigprocmask(SIG_BLOCK, &lSignals, nullptr);
    mSignals = ZTCSensorDescriptor(signalfd(-1, &lSignals, SFD_CLOEXEC | SFD_NONBLOCK));
}

ZTCWaiting::~ZTCWaiting() {
    // One that has come meanwhile has had its effect.
    signalfd_siginfo lSignal{};
    while (read(mSignals.get(), &lSignal, sizeof lSignal) > 0) {
    }
    const sigset_t lSignals = theSignals();
    sigprocmask(SIG_UNBLOCK, &lSignals, nullptr);
}

ZTCWaiting::Reason ZTCWaiting::until(Clock::time_point aTime) {
    for (;;) {
        const auto lLeft = std::chrono::ceil<std::chrono::milliseconds>(aTime - Clock::now()).count();
        pollfd lPoll{mSignals.get(), POLLIN, 0};
        const int lReady = poll(&lPoll, 1, static_cast<int>(std::clamp<std::int64_t>(lLeft, 0, 60'000)));
        signalfd_siginfo lSignal{};
        if (lReady > 0 && read(mSignals.get(), &lSignal, sizeof lSignal) == sizeof lSignal) {
            return lSignal.ssi_signo == SIGWINCH ? Resize : End;
        }
        if (lReady <= 0 && lLeft <= 60'000) {
            return Time;
        }
    }
}
