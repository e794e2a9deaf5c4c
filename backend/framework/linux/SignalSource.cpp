#include "SignalSource.h"

#include <sys/signalfd.h>

#include <cerrno>
#include <csignal>

#include "Exception.h"

ZTCSignalSource::ZTCSignalSource() {
    sigset_t lSignals;
    sigemptyset(&lSignals);
    for (const int lSignal : {SIGTERM, SIGINT, SIGHUP}) {
        sigaddset(&lSignals, lSignal);
    }
    pthread_sigmask(SIG_BLOCK, &lSignals, nullptr);
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
    mDescriptor = ZTCDescriptor(signalfd(-1, &lSignals, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!mDescriptor.isOpen()) {
        throwErrno<ZTCOsException>("signalfd", nullptr, errno);
    }
}

int ZTCSignalSource::take() {
    signalfd_siginfo lSignal;
    if (read(mDescriptor.get(), &lSignal, sizeof lSignal) != sizeof lSignal) {
        return 0;
    }
    return static_cast<int>(lSignal.ssi_signo);
}
