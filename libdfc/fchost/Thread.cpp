#include "Thread.h"

#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <system_error>
#include <utility>

#include "FcSettings.h"

namespace {

// Keeps signals from the threads that are started meanwhile.
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

}  // namespace

ZTCFcThread::ZTCFcThread() : mStop(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (mStop < 0) {
        throw ZTCFcError(std::string("eventfd: ") + strerror(errno));
    }
}

ZTCFcThread::~ZTCFcThread() {
    end();
    close(mStop);
}

void ZTCFcThread::start(std::function<void()> aRun) {
    const SignalsHeldBack lHeldBack;
    try {
        mThread = std::thread(std::move(aRun));
    } catch (const std::system_error&) {
        throw ZTCFcError("no thread can be started");
    }
}

void ZTCFcThread::end() {
    if (mThread.joinable()) {
        eventfd_write(mStop, 1);
        mThread.join();
    }
}
