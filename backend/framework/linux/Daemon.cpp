#include "Daemon.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include "Exception.h"

namespace {

constexpr char sReady = 'R';
constexpr char sEnded = 'E';

// In the process that was started: waits for the child's word or its end.
[[noreturn]] void sAwaitChild(pid_t aChild, int aReport, const char* apName) {
    sigset_t lNone;
    sigemptyset(&lNone);
    pthread_sigmask(SIG_SETMASK, &lNone, nullptr);  // who waits here may give up
    char lWord = 0;
    ssize_t lRead = 0;
    do {
        lRead = read(aReport, &lWord, 1);
    } while (lRead < 0 && errno == EINTR);
    if (lRead == 1 && lWord == sReady) {
        _exit(0);
    }
    int lStatus = 0;
    while (waitpid(aChild, &lStatus, 0) < 0 && errno == EINTR) {
    }
    if (WIFSIGNALED(lStatus)) {
        const char* const lpSignal = sigabbrev_np(WTERMSIG(lStatus));
        dprintf(STDERR_FILENO, "%s: process %d was ended by SIG%s before it was ready\n", apName, aChild,
                lpSignal != nullptr ? lpSignal : "?");
        _exit(1);
    }
    if (lRead != 1 || lWord != sEnded) {
        dprintf(STDERR_FILENO, "%s: process %d ended with status %d before it was ready\n", apName, aChild,
                WEXITSTATUS(lStatus));
        _exit(1);
    }
    _exit(WEXITSTATUS(lStatus));
}

void sReopen(int aDescriptor, const ZTCString& acrPath, int aMode) {
    const ZTCDescriptor lOpened(open(acrPath.get(), aMode | O_CLOEXEC | O_NOCTTY));
    if (!lOpened.isOpen() || dup2(lOpened.get(), aDescriptor) < 0) {
        throwErrno<ZTCOsException>("open", acrPath.get(), errno);
    }
}

}  // namespace

void ZTCDaemon::detach(const ZTCString& acrDirectory, const ZTCString& acrName) {
    int lPipe[2];
    if (pipe2(lPipe, O_CLOEXEC) != 0) {
        throwErrno<ZTCOsException>("pipe2", nullptr, errno);
    }
    ZTCDescriptor lRead(lPipe[0]);
    ZTCDescriptor lWrite(lPipe[1]);
    const pid_t lChild = fork();
    if (lChild < 0) {
        throwErrno<ZTCOsException>("fork", nullptr, errno);
    }
    if (lChild > 0) {
        lWrite.close();
        sAwaitChild(lChild, lRead.get(), acrName.get());
    }
    mReport = std::move(lWrite);
    setsid();
    if (chdir(acrDirectory.get()) != 0) {
        throwErrno<ZTCOsException>("chdir", acrDirectory.get(), errno);
    }
}

void ZTCDaemon::ready(const ZTCString& acrInput, const ZTCString& acrOutput, const ZTCString& acrError) {
    sReopen(STDIN_FILENO, acrInput, O_RDONLY);
    sReopen(STDOUT_FILENO, acrOutput, O_WRONLY);
    sReopen(STDERR_FILENO, acrError, O_WRONLY);
    // Who started us may be gone: then nobody waits for the word.
    static_cast<void>(write(mReport.get(), &sReady, 1) == 1);
    mReport.close();
}

void ZTCDaemon::tellEnd(const ZTCDescriptor& acrStarter) {
    static_cast<void>(write(acrStarter.get(), &sEnded, 1) == 1);  // as above
}

void OsOpenStandardDescriptors() {
    for (int lDescriptor = STDIN_FILENO; lDescriptor <= STDERR_FILENO; ++lDescriptor) {
        if (fcntl(lDescriptor, F_GETFD) < 0 && open("/dev/null", O_RDWR) < 0) {  // takes the lowest free one
            return;
        }
    }
}

void OsNotifyServiceManager(const char* apState) {
    const char* const lpPath = getenv("NOTIFY_SOCKET");
    sockaddr_un lAddress{};
    lAddress.sun_family = AF_UNIX;
    const std::size_t lLength = lpPath != nullptr ? strlen(lpPath) : 0;
    if (lLength < 2 || lLength >= sizeof lAddress.sun_path || (lpPath[0] != '/' && lpPath[0] != '@')) {
        return;
    }
    memcpy(lAddress.sun_path, lpPath, lLength);
    if (lpPath[0] == '@') {
        lAddress.sun_path[0] = '\0';  // an abstract socket
    }
    const ZTCDescriptor lSocket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const auto lSize = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + lLength);
    static_cast<void>(sendto(lSocket.get(), apState, strlen(apState), MSG_NOSIGNAL,
                             reinterpret_cast<const sockaddr*>(&lAddress), lSize));
}
