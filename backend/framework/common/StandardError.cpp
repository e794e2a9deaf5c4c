#include "StandardError.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>

namespace {

// Writes what is taken at once. A pipe or a terminal is opened anew for that, because the flag would be for
// all who share the one that is open; where that is not allowed, the piece is one that fits where there is
// room.
ssize_t sWriteAtOnce(const char* apBytes, std::size_t aSize) {
    struct stat lStatus {};
    if (fstat(STDERR_FILENO, &lStatus) != 0) {
        return -1;
    }
    if (S_ISSOCK(lStatus.st_mode)) {
        return send(STDERR_FILENO, apBytes, aSize, MSG_DONTWAIT | MSG_NOSIGNAL);
    }
    const int lOwn = S_ISREG(lStatus.st_mode)
                         ? -1
                         : open("/proc/thread-self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    const ssize_t lWritten = write(lOwn >= 0 ? lOwn : STDERR_FILENO, apBytes, aSize);
    if (lOwn >= 0) {
        close(lOwn);
    }
    return lWritten;
}

}  // namespace

void showOnStandardError(const char* apBytes, std::size_t aSize, int aMilliseconds) {
    for (std::size_t lAt = 0; lAt < aSize;) {
        pollfd lPoll{STDERR_FILENO, POLLOUT, 0};
        if (poll(&lPoll, 1, aMilliseconds) <= 0 || (lPoll.revents & POLLOUT) == 0) {
            return;
        }
        const ssize_t lWritten = sWriteAtOnce(apBytes + lAt, std::min<std::size_t>(aSize - lAt, PIPE_BUF));
        if (lWritten <= 0) {
            return;
        }
        lAt += static_cast<std::size_t>(lWritten);
    }
}

void tellOnStandardError(const char* apName, const char* apText) {
    char lLine[1024];
    const int lLength = snprintf(lLine, sizeof lLine, "%s: %s\n", apName, apText);
    const auto lShown =
        std::min<std::size_t>(static_cast<std::size_t>(std::max(lLength, 0)), sizeof lLine - 1);
    lLine[lShown - 1] = '\n';
    showOnStandardError(lLine, lShown, 0);
}
