#include "SensorPipes.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <thread>

#include "ProcessTable.h"
#include "ScopeWire.h"

namespace {

constexpr std::chrono::milliseconds sStart(1000);
constexpr std::chrono::milliseconds sLookEvery(10);

// Keeps SIGPIPE from the thread, and takes the one that came meanwhile.
class PipeSignalBlock {
  public:
    PipeSignalBlock() {
        sigemptyset(&mPipe);
        sigaddset(&mPipe, SIGPIPE);
        sigset_t lPending;
        sigpending(&lPending);
        mWasPending = sigismember(&lPending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &mPipe, &mBefore);
    }
    ~PipeSignalBlock() {
        const timespec lNow{};
        if (!mWasPending) {
            sigtimedwait(&mPipe, nullptr, &lNow);
        }
        pthread_sigmask(SIG_SETMASK, &mBefore, nullptr);
    }
    PipeSignalBlock(const PipeSignalBlock&) = delete;
    PipeSignalBlock& operator=(const PipeSignalBlock&) = delete;

  private:
    sigset_t mPipe{};
    sigset_t mBefore{};
    bool mWasPending = false;
};

ZTCSensorDescriptor sOpenCommandPipe(const std::string& acrPath) {
    // Its end for writing is opened by clients alone.
    struct stat lStatus {};
    const pid_t lClient = lstat(acrPath.c_str(), &lStatus) != 0 || !S_ISFIFO(lStatus.st_mode)
                              ? 0
                              : findProcessWith(lStatus, acrPath, [](const ZTSOpenFile& acrFile) {
                                    return acrFile.mIsWritten;
                                });
    if (lClient != 0) {
        throw ZTCPipesTakenError(acrPath + " is taken by " + describeProcess(lClient) + ": end it first",
                                 lClient);
    }
    return openSensorFile(acrPath, O_WRONLY, S_IFIFO);
}

// The agent makes it after the other one.
ZTCSensorDescriptor sOpenOutputPipe(const std::string& acrPath, ZTCSensorPipes::Clock::time_point aDeadline) {
    for (;;) {
        try {
            return openSensorFile(acrPath, O_RDONLY, S_IFIFO);
        } catch (const ZTCNoAgentError&) {
            if (ZTCSensorPipes::Clock::now() >= aDeadline) {
                throw;
            }
            std::this_thread::sleep_for(sLookEvery);
        }
    }
}

[[noreturn]] void sThrowEnded() {
    throw ZTCNoAgentError("the agent ended before it had answered: its log says why");
}

}  // namespace

ZTCSensorPipes::ZTCSensorPipes(const std::string& acrDirectory, Clock::time_point aDeadline)
    : mCommands(sOpenCommandPipe(acrDirectory + ZTWireCommandPipe)),
      mAnswers(sOpenOutputPipe(acrDirectory + ZTWireOutputPipe, std::min(aDeadline, Clock::now() + sStart))),
      mReader([this](std::uint8_t* apBytes, std::size_t aRoom) { return readSome(apBytes, aRoom); }) {}

ZTSensorBytes ZTCSensorPipes::receive(std::uint32_t aTag, Clock::time_point aDeadline) {
    mDeadline = aDeadline;
    return mReader.read(aTag);
}

void ZTCSensorPipes::send(const ZTSensorBytes& acrBytes, Clock::time_point aDeadline) {
    mDeadline = aDeadline;
    const PipeSignalBlock lNoSignal;
    for (std::size_t lAt = 0; lAt < acrBytes.size();) {
        waitFor(mCommands, POLLOUT);
        const ssize_t lWritten = ::write(mCommands.get(), acrBytes.data() + lAt, acrBytes.size() - lAt);
        if (lWritten >= 0) {
            lAt += static_cast<std::size_t>(lWritten);
        } else if (errno == EPIPE) {
            sThrowEnded();
        } else if (errno != EAGAIN && errno != EINTR) {
            throwSensorErrno("the command pipe", errno);
        }
    }
}

std::size_t ZTCSensorPipes::readSome(std::uint8_t* apBytes, std::size_t aRoom) {
    for (;;) {
        waitFor(mAnswers, POLLIN);
        const ssize_t lRead = read(mAnswers.get(), apBytes, aRoom);
        if (lRead > 0) {
            return static_cast<std::size_t>(lRead);
        }
        if (lRead == 0) {
            sThrowEnded();
        }
        if (errno != EAGAIN && errno != EINTR) {
            throwSensorErrno("the output pipe", errno);
        }
    }
}

void ZTCSensorPipes::waitFor(const ZTCSensorDescriptor& acrPipe, short aEvents) const {
    pollfd lPoll{acrPipe.get(), aEvents, 0};
    for (;;) {
        const auto lLeft = std::chrono::ceil<std::chrono::milliseconds>(mDeadline - Clock::now()).count();
        if (lLeft <= 0) {
            throw ZTCTimedOutError(
                "the agent has not answered in time: look at its log, or give it longer (--timeout)");
        }
        const int lReady = poll(&lPoll, 1, static_cast<int>(std::min<std::int64_t>(lLeft, 60'000)));
        if (lReady > 0) {
            return;
        }
        if (lReady < 0 && errno != EINTR) {
            throwSensorErrno("poll", errno);
        }
    }
}
