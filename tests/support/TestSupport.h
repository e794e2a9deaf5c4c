// What tests need around a program: processes with captured output, directories that clean themselves up, and
// waiting for something with a deadline.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "Descriptor.h"
#include "Exception.h"
#include "Periods.h"

#ifdef __has_feature
#define ZT_TEST_HAS_FEATURE(name) __has_feature(name)
#else
#define ZT_TEST_HAS_FEATURE(name) 0
#endif
#if defined(__SANITIZE_THREAD__) || ZT_TEST_HAS_FEATURE(thread_sanitizer)
inline constexpr bool ZTHasThreadSanitizer = true;
#else
inline constexpr bool ZTHasThreadSanitizer = false;
#endif
#if defined(__SANITIZE_ADDRESS__) || ZT_TEST_HAS_FEATURE(address_sanitizer)
inline constexpr bool ZTIsSanitized = true;
#else
inline constexpr bool ZTIsSanitized = ZTHasThreadSanitizer;
#endif

/// How often to do what is to be done often: few times as a test, many with ZT_TORTURE=all.
template <class Rounds>
Rounds ZTTestRounds(Rounds aFew, Rounds aMany) {
    return getenv("ZT_TORTURE") != nullptr ? aMany : aFew;
}

/// Makes a period of this process short, for a test that waits until it is over.
class ZTCTestPeriod {
  public:
    explicit ZTCTestPeriod(ZTEPeriod aPeriod, unsigned int aMilliseconds = 30)
        : mPeriod(aPeriod), mBefore(ZTPeriod(aPeriod)) {
        ZTSetPeriod(mPeriod, std::chrono::milliseconds(aMilliseconds));
    }
    ~ZTCTestPeriod() { ZTSetPeriod(mPeriod, mBefore); }
    ZTCTestPeriod(const ZTCTestPeriod&) = delete;
    ZTCTestPeriod& operator=(const ZTCTestPeriod&) = delete;

  private:
    const ZTEPeriod mPeriod;
    const std::chrono::milliseconds mBefore;
};

/// Whether the condition comes true before what can only be a hang.
template <class Condition>
bool waitUntil(Condition&& arCondition, unsigned int aSeconds = ZTIsSanitized ? 60 : 30) {
    const auto lDeadline = std::chrono::steady_clock::now() + std::chrono::seconds(aSeconds);
    while (!arCondition()) {
        if (std::chrono::steady_clock::now() > lDeadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// Runs the work, given a number from 0, in so many threads at once.
template <class Work>
void inThreads(unsigned int aCount, const Work& acrWork) {
    std::vector<std::thread> lThreads;
    for (unsigned int lThread = 0; lThread < aCount; ++lThread) {
        lThreads.emplace_back([&acrWork, lThread] { acrWork(lThread); });
    }
    for (std::thread& lrThread : lThreads) {
        lrThread.join();
    }
}

inline std::string readFile(const std::string& acrPath) {
    std::ifstream lFile(acrPath, std::ios::binary);
    return {std::istreambuf_iterator<char>(lFile), {}};
}

inline void writeFile(const std::string& acrPath, const std::string& acrText) {
    std::ofstream(acrPath, std::ios::binary) << acrText;
}

inline bool contains(const std::string& acrText, const std::string& acrPart) {
    return acrText.find(acrPart) != std::string::npos;
}

inline std::size_t countIn(const std::string& acrText, const std::string& acrPart) {
    std::size_t lCount = 0;
    for (std::size_t lAt = 0; (lAt = acrText.find(acrPart, lAt)) != std::string::npos; ++lAt) {
        ++lCount;
    }
    return lCount;
}

template <class Exception, class Work>
void expectThrown(const Work& acrWork, const std::string& acrText, unsigned int aCode) {
    try {
        acrWork();
        FAIL() << "nothing was thrown instead of " << acrText;
    } catch (const Exception& lrException) {
        EXPECT_EQ(lrException.what(), acrText);
        EXPECT_EQ(lrException.getCode(), aCode);
    }
}

/// A new directory, removed with all that is in it.
class ZTCTestDirectory {
  public:
    explicit ZTCTestDirectory(const std::string& acrParent = "/tmp") : mPath(acrParent + "/zt-test-XXXXXX") {
        EXPECT_NE(mkdtemp(mPath.data()), nullptr);
    }
    ~ZTCTestDirectory() { std::filesystem::remove_all(mPath); }
    ZTCTestDirectory(const ZTCTestDirectory&) = delete;
    ZTCTestDirectory& operator=(const ZTCTestDirectory&) = delete;

    const std::string& getPath() const { return mPath; }
    std::string operator/(const std::string& acrName) const { return mPath + "/" + acrName; }
    bool isEmpty() const { return std::filesystem::is_empty(mPath); }

  private:
    std::string mPath;
};

/// A child of this process, or one that was left to it: killed and collected at the latest when this goes.
class ZTCTestProcess {
  public:
    explicit ZTCTestProcess(pid_t aProcess) : mProcess(aProcess) {}
    ~ZTCTestProcess() {
        if (!mHasEnded) {
            kill(mProcess, SIGKILL);
            waitpid(mProcess, nullptr, 0);
        }
    }
    ZTCTestProcess(const ZTCTestProcess&) = delete;
    ZTCTestProcess& operator=(const ZTCTestProcess&) = delete;

    pid_t getProcess() const { return mProcess; }

    bool isAlive() const {
        siginfo_t lInfo{};
        return waitid(P_PID, static_cast<id_t>(mProcess), &lInfo, WEXITED | WNOHANG | WNOWAIT) == 0 &&
               lInfo.si_pid == 0;
    }

    /// The exit status, or 128 and the signal.
    int waitForEnd(unsigned int aSeconds = 120) {
        const ZTCDescriptor lProcess(static_cast<int>(syscall(SYS_pidfd_open, mProcess, 0)));
        pollfd lPoll{lProcess.get(), POLLIN, 0};
        if (poll(&lPoll, 1, static_cast<int>(aSeconds) * 1000) != 1) {
            ADD_FAILURE() << "process " << mProcess << " hangs";
            kill(mProcess, SIGKILL);
        }
        int lStatus = 0;
        waitpid(mProcess, &lStatus, 0);
        mHasEnded = true;
        return WIFSIGNALED(lStatus) ? 128 + WTERMSIG(lStatus) : WEXITSTATUS(lStatus);
    }

  private:
    pid_t mProcess;
    bool mHasEnded = false;
};

/// A child with captured standard output and error.
class ZTCTestChild {
  public:
    using Arguments = std::vector<std::string>;

    /// Runs the work in a fork of this process, which then exits: 0, or 99 after a failed expectation.
    explicit ZTCTestChild(const std::function<void()>& acrWork) : mProcess(run(acrWork)) {}

    /// Starts a program. Of the environment, NAME=VALUE is set and NAME alone is unset.
    ZTCTestChild(const Arguments& acrCommand, const Arguments& acrEnvironment)
        : mProcess(run([&] {
              for (const std::string& lrEntry : acrEnvironment) {
                  lrEntry.find('=') != std::string::npos ? putenv(const_cast<char*>(lrEntry.c_str()))
                                                         : unsetenv(lrEntry.c_str());
              }
              std::vector<char*> lWords;
              for (const std::string& lrWord : acrCommand) {
                  lWords.push_back(const_cast<char*>(lrWord.c_str()));
              }
              lWords.push_back(nullptr);
              execv(lWords[0], lWords.data());
              abort();
          })) {}

    pid_t getProcess() const { return mProcess.getProcess(); }
    bool isAlive() const { return mProcess.isAlive(); }
    int waitForEnd(unsigned int aSeconds = 120) { return mProcess.waitForEnd(aSeconds); }
    std::string getOut() const { return textOf(mOut); }
    std::string getErr() const { return textOf(mErr); }

  private:
    pid_t run(const std::function<void()>& acrWork) {
        fflush(nullptr);
        const pid_t lProcess = fork();
        if (lProcess != 0) {
            return lProcess;
        }
        prctl(PR_SET_PDEATHSIG, SIGKILL);  // a test that hangs leaves nobody behind
        dup2(mOut.get(), STDOUT_FILENO);
        dup2(mErr.get(), STDERR_FILENO);
        try {
            acrWork();
        } catch (const ZTCException& lrException) {
            ADD_FAILURE() << lrException.what();
        }
        exit(::testing::Test::HasFailure() ? 99 : 0);
    }

    static std::string textOf(const ZTCDescriptor& acrFile) {
        return readFile("/proc/self/fd/" + std::to_string(acrFile.get()));
    }

    ZTCDescriptor mOut{memfd_create("out", MFD_CLOEXEC)};
    ZTCDescriptor mErr{memfd_create("err", MFD_CLOEXEC)};
    ZTCTestProcess mProcess;
};

/// How a child ended.
struct ZTSTestEnd {
    int mStatus;
    std::string mOut, mErr;
};

template <class Child = ZTCTestChild, class... Start>
ZTSTestEnd runChild(const Start&... acrStart) {
    Child lChild(acrStart...);
    const int lStatus = lChild.waitForEnd();
    return {lStatus, lChild.getOut(), lChild.getErr()};
}
