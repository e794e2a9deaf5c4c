#include "Process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Exception.h"

// The C library's own header for these two cannot be used from C++ everywhere: system calls it is.

ZTCProcess::ZTCProcess(pid_t aProcess) : mDescriptor(static_cast<int>(syscall(SYS_pidfd_open, aProcess, 0))) {
    if (!mDescriptor.isOpen()) {
        throwErrno<ZTCOsException>("pidfd_open", nullptr, errno);
    }
}

bool ZTCProcess::waitForEnd(unsigned int aMilliseconds) const {
    // A wait that a signal cut short goes on with the whole time: signals are blocked where this is called.
    pollfd lPoll{mDescriptor.get(), POLLIN, 0};
    int lReady = 0;
    do {
        lReady = poll(&lPoll, 1, static_cast<int>(aMilliseconds));
    } while (lReady < 0 && errno == EINTR);
    return lReady > 0;
}

void ZTCProcess::sendSignal(int aSignal) const {
    if (syscall(SYS_pidfd_send_signal, mDescriptor.get(), aSignal, nullptr, 0) != 0) {
        throwErrno<ZTCOsException>("pidfd_send_signal", nullptr, errno);
    }
}

bool OsIsZombie(pid_t aProcess) {
    char lPath[64];
    snprintf(lPath, sizeof lPath, "/proc/%d/stat", aProcess);
    const ZTCDescriptor lFile(open(lPath, O_RDONLY | O_CLOEXEC));
    char lText[512];
    const ssize_t lLength = read(lFile.get(), lText, sizeof lText - 1);
    lText[std::max<ssize_t>(lLength, 0)] = '\0';
    const char* const lpName = strrchr(lText, ')');  // the state follows the name, which may hold anything
    return lpName != nullptr && strncmp(lpName, ") Z", 3) == 0;
}
