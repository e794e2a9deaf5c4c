#include "IncidentCommand.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <poll.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <iterator>
#include <new>
#include <sstream>
#include <system_error>
#include <vector>

#include "ServiceLog.h"
#include "ServiceThread.h"
#include "SnFigures.h"

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds sDeath = 1s;        // so long one that was killed may take to die
constexpr std::chrono::milliseconds sLookEvery = 50ms;  // where the kernel has no descriptors of processes

// Of this thread alone, and of what it starts: a root that starts a program would get the right back but for
// the first of these. The rest of vrx-sn keeps it: who has fewer rights than an agent cannot see which
// process has its pipes. What else a root has stays, as the right to lock more memory: new memory is locked
// here too.
void sGiveUpNetwork() {
    __user_cap_header_struct lHeader{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct lRights[2]{};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    if (syscall(SYS_capget, &lHeader, lRights) == 0) {
        auto& [lEffective, lPermitted, lInheritable] = lRights[CAP_TO_INDEX(CAP_NET_ADMIN)];
        for (std::uint32_t* const lpRights : {&lEffective, &lPermitted, &lInheritable}) {
            *lpRights &= ~CAP_TO_MASK(CAP_NET_ADMIN);
        }
        syscall(SYS_capset, &lHeader, lRights);
    }
}

// A file in memory, which holds up neither side, however little of it is read.
ZTCSensorDescriptor sFileOf(const std::string& acrText) {
    ZTCSensorDescriptor lFile(memfd_create("incident", MFD_CLOEXEC));
    const bool lIsWhole =
        lFile.isOpen() &&
        write(lFile.get(), acrText.data(), acrText.size()) == static_cast<ssize_t>(acrText.size()) &&
        lseek(lFile.get(), 0, SEEK_SET) == 0;
    return lIsWhole ? std::move(lFile) : ZTCSensorDescriptor();
}

std::vector<std::string> sWordsOf(const std::string& acrCommand) {
    std::istringstream lText(acrCommand);
    return {std::istream_iterator<std::string>(lText), {}};
}

// What it is started with: our signals are as usual for it, it leads a process group, and has no descriptor
// of ours.
struct Spawning {
    explicit Spawning(int aInput) {
        sigset_t lNone;
        sigset_t lAll;
        sigemptyset(&lNone);
        sigfillset(&lAll);
        posix_spawnattr_init(&mAttributes);
        posix_spawnattr_setflags(&mAttributes,
                                 POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
        posix_spawnattr_setsigmask(&mAttributes, &lNone);
        posix_spawnattr_setsigdefault(&mAttributes, &lAll);
        posix_spawn_file_actions_init(&mActions);
        posix_spawn_file_actions_adddup2(&mActions, aInput, STDIN_FILENO);
        for (const int lOutput : {STDOUT_FILENO, STDERR_FILENO}) {
            posix_spawn_file_actions_addopen(&mActions, lOutput, "/dev/null", O_WRONLY, 0);
        }
        posix_spawn_file_actions_addclosefrom_np(&mActions, STDERR_FILENO + 1);
        posix_spawn_file_actions_addchdir_np(&mActions, "/");
    }
    ~Spawning() {
        posix_spawn_file_actions_destroy(&mActions);
        posix_spawnattr_destroy(&mAttributes);
    }
    Spawning(const Spawning&) = delete;
    Spawning& operator=(const Spawning&) = delete;

    posix_spawnattr_t mAttributes{};
    posix_spawn_file_actions_t mActions{};
};

// Whether it has ended; its number stays its own until it is taken off.
bool sHasEnded(int aProcess) {
    siginfo_t lInfo{};
    return waitid(P_PID, static_cast<id_t>(aProcess), &lInfo, WEXITED | WNOHANG | WNOWAIT) != 0 ||
           lInfo.si_pid == aProcess;
}

}  // namespace

ZTCIncidentCommand::ZTCIncidentCommand(ZTCSnFigures& arFigures, ZTCServiceLog& arLog,
                                       std::chrono::milliseconds aTime)
    : mrFigures(arFigures), mrLog(arLog), mTime(aTime), mEnded(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!mEnded.isOpen()) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

ZTCIncidentCommand::~ZTCIncidentCommand() {
    finish(0ms);
    mThread.joinable() ? mThread.join() : void();
}

void ZTCIncidentCommand::setCommand(const std::string& acrCommand) {
    const std::lock_guard lLock(mLock);
    mCommand = acrCommand;
}

void ZTCIncidentCommand::run(std::string aText) {
    const std::lock_guard lLock(mLock);
    if (mCommand.empty() || mIsEnding) {
        return;
    }
    if (mWaiting.size() >= MostWaiting) {
        mrFigures.count(ZTSN_CommandsDropped);
        mrLog.note(ZTSL_Warning, "%zu incidents wait for the command of --on-incident: one is not told",
                   mWaiting.size());
        return;
    }
    if (!mThread.joinable()) {
        mHasEnded = false;
        mThread = startServiceThread("vrx-sn-command", [this] { work(); });
    }
    mWaiting.push_back(std::move(aText));
    mChanged.notify_all();
}

bool ZTCIncidentCommand::finish(std::chrono::milliseconds aTime) {
    std::unique_lock lLock(mLock);
    if (!std::exchange(mIsEnding, true)) {
        mEnd = Clock::now() + aTime;
        eventfd_write(mEnded.get(), 1);
        mChanged.notify_all();
    }
    return mChanged.wait_for(lLock, aTime + 2 * sDeath, [this] { return mHasEnded; });
}

std::size_t ZTCIncidentCommand::countWaiting() const {
    const std::lock_guard lLock(mLock);
    return mWaiting.size();
}

// ---- Its thread ----

void ZTCIncidentCommand::work() {
    sGiveUpNetwork();
    std::unique_lock lLock(mLock);
    while (true) {
        mChanged.wait(lLock, [this] { return mIsEnding || !mWaiting.empty(); });
        if (mIsEnding) {
            break;
        }
        try {
            const std::string lCommand = mCommand;
            const std::string lText = mWaiting.front();
            lLock.unlock();
            execute(lCommand, lText);
        } catch (const std::bad_alloc&) {
            mrFigures.count(ZTSN_CommandsFailed);
            mrLog.note(ZTSL_Warning, "the command of --on-incident failed: %s", "no memory");
        }
        lLock.owns_lock() ? void() : lLock.lock();
        mWaiting.pop_front();
    }
    if (!mWaiting.empty()) {
        mrFigures.count(ZTSN_CommandsDropped, mWaiting.size());
        mrLog.note(ZTSL_Warning, "ending: %zu incidents are not told to the command of --on-incident",
                   mWaiting.size());
    }
    mHasEnded = true;
    mChanged.notify_all();
}

void ZTCIncidentCommand::execute(const std::string& acrCommand, const std::string& acrText) {
    int lProcess = 0;
    int lStatus = 0;
    std::string lWhy;
    if (acrCommand.empty()) {  // since it was to be run
        return;
    }
    mrFigures.count(ZTSN_Commands);
    if (isStuck()) {
        lWhy = "the one before cannot be killed";
    } else if (const int lError = spawn(acrCommand, acrText, lProcess); lError != 0) {
        lWhy = strerror(lError);
    } else {
        const bool lIsInTime = waitFor(lProcess, Clock::now() + mTime, true);
        // Its number is still its own, and so is its group's. Nothing of it stays behind.
        kill(-lProcess, SIGKILL);
        const bool lIsDead = waitFor(lProcess, Clock::now() + sDeath, false);
        lIsDead ? waitpid(lProcess, &lStatus, 0) : 0;
        if (!lIsDead) {
            mStuck = lProcess;
            lWhy = "it cannot be killed";
        } else if (!lIsInTime) {
            lWhy = "it took too long, and was killed";
        } else if (WIFSIGNALED(lStatus)) {
            lWhy = "it ended by signal " + std::to_string(WTERMSIG(lStatus));
        } else if (WEXITSTATUS(lStatus) != 0) {
            lWhy = "it ended with status " + std::to_string(WEXITSTATUS(lStatus));
        }
    }
    if (!lWhy.empty()) {
        mrFigures.count(ZTSN_CommandsFailed);
        mrLog.note(ZTSL_Warning, "the command of --on-incident failed: %s", lWhy.c_str());
    }
}

// Such a one waits for a disk or a server that does not answer: the next ones would only join it.
bool ZTCIncidentCommand::isStuck() {
    if (mStuck != 0 && sHasEnded(mStuck)) {
        waitpid(mStuck, nullptr, 0);
        mStuck = 0;
    }
    return mStuck != 0;
}

// 0, or what is wrong.
int ZTCIncidentCommand::spawn(const std::string& acrCommand, const std::string& acrText,
                              int& arProcess) const {
    static char sPath[] = "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";
    static char sLanguage[] = "LANG=C.UTF-8";
    char* lEnvironment[] = {sPath, sLanguage, nullptr};
    std::vector<std::string> lWords = sWordsOf(acrCommand);
    const ZTCSensorDescriptor lInput = sFileOf(acrText);
    if (!lInput.isOpen() || lWords.empty()) {
        return ENOMEM;
    }
    std::vector<char*> lArguments;
    lArguments.reserve(lWords.size() + 1);
    for (std::string& lrWord : lWords) {
        lArguments.push_back(lrWord.data());
    }
    lArguments.push_back(nullptr);
    const Spawning lSpawning(lInput.get());
    return posix_spawn(&arProcess, lArguments[0], &lSpawning.mActions, &lSpawning.mAttributes,
                       lArguments.data(), lEnvironment);
}

// Whether it has ended in that time, or in what is left of ours, if that matters.
bool ZTCIncidentCommand::waitFor(int aProcess, Clock::time_point aUntil, bool aHeedsEnd) {
    const ZTCSensorDescriptor lProcess(static_cast<int>(syscall(SYS_pidfd_open, aProcess, 0)));
    while (!sHasEnded(aProcess)) {
        const auto lLeft = std::chrono::ceil<std::chrono::milliseconds>(aUntil - Clock::now());
        if (lLeft <= 0ms) {
            return false;
        }
        pollfd lPolls[] = {{lProcess.get(), POLLIN, 0}, {aHeedsEnd ? mEnded.get() : -1, POLLIN, 0}};
        poll(lPolls, 2, static_cast<int>((lProcess.isOpen() ? lLeft : std::min(lLeft, sLookEvery)).count()));
        if (lPolls[1].revents != 0) {
            const std::lock_guard lLock(mLock);
            aHeedsEnd = false;
            aUntil = std::min(aUntil, mEnd);
        }
    }
    return true;
}
