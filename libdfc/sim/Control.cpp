#include "Control.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Scenario.h"

namespace {

constexpr size_t sMaxDatagram = 256 * 1024;  // more than a socket takes

// The socket of this process, for an end without a close.
char sBoundPath[sizeof sockaddr_un::sun_path] = "";

void sRemoveSocket() {
    if (sBoundPath[0] != '\0') {
        unlink(sBoundPath);
        sBoundPath[0] = '\0';
    }
}

[[noreturn]] void sRefuse(const std::string& acrPath, const char* apReason) {
    throw ZTCSimError("libdfc-sim: " + acrPath + ": " + apReason + ", expected a path for a socket");
}

sockaddr_un sMakeAddress(const std::string& acrPath) {
    sockaddr_un lAddress{};
    lAddress.sun_family = AF_UNIX;
    if (acrPath.size() >= sizeof lAddress.sun_path) {
        sRefuse(acrPath, strerror(ENAMETOOLONG));
    }
    memcpy(lAddress.sun_path, acrPath.data(), acrPath.size());
    return lAddress;
}

// Removes the socket of a process that is no more.
void sRemoveStale(const std::string& acrPath, const sockaddr_un& acrAddress) {
    struct stat lState {};
    if (lstat(acrPath.c_str(), &lState) != 0) {
        return;
    }
    if (!S_ISSOCK(lState.st_mode)) {
        sRefuse(acrPath, "is there and no socket");
    }
    const int lProbe = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool lIsStale =
        connect(lProbe, reinterpret_cast<const sockaddr*>(&acrAddress), sizeof acrAddress) != 0 &&
        errno == ECONNREFUSED;
    close(lProbe);
    if (!lIsStale) {
        sRefuse(acrPath, "is in use");
    }
    unlink(acrPath.c_str());
}

int sOpenSocket(const std::string& acrPath) {
    const sockaddr_un lAddress = sMakeAddress(acrPath);
    sRemoveStale(acrPath, lAddress);
    const int lSocket = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    // The file takes the socket's mode over, so that it never has a wider one.
    if (lSocket < 0 || fchmod(lSocket, S_IRUSR | S_IWUSR) != 0 ||
        bind(lSocket, reinterpret_cast<const sockaddr*>(&lAddress), sizeof lAddress) != 0) {
        const char* const lpReason = strerror(errno);
        close(lSocket);
        sRefuse(acrPath, lpReason);
    }
    memcpy(sBoundPath, lAddress.sun_path, sizeof sBoundPath);
    static const int sAtExit = atexit(sRemoveSocket) | at_quick_exit(sRemoveSocket);
    static_cast<void>(sAtExit);
    return lSocket;
}

}  // namespace

ZTCSimControl::ZTCSimControl(const std::string& acrPath, Answer aAnswer)
    : mAnswer(std::move(aAnswer)), mSocket(sOpenSocket(acrPath)) {
    mThread = std::jthread([this](const std::stop_token& acrStop) { run(acrStop); });
}

ZTCSimControl::~ZTCSimControl() {
    mThread.request_stop();
    shutdown(mSocket, SHUT_RD);  // wakes the thread
    mThread.join();
    sRemoveSocket();
    close(mSocket);
}

void ZTCSimControl::run(const std::stop_token& acrStop) {
    static char sDatagram[sMaxDatagram];  // of the one control that there is
    for (;;) {
        sockaddr_un lSender{};
        socklen_t lLength = sizeof lSender;
        auto* const lpSender = reinterpret_cast<sockaddr*>(&lSender);
        const ssize_t lRead = recvfrom(mSocket, sDatagram, sizeof sDatagram, 0, lpSender, &lLength);
        if (lRead <= 0 && acrStop.stop_requested()) {
            return;  // all that came before has been answered
        }
        if (lRead < 0) {
            continue;
        }
        try {
            const std::string lAnswer = mAnswer({sDatagram, static_cast<size_t>(lRead)});
            if (lLength > offsetof(sockaddr_un, sun_path)) {
                sendto(mSocket, lAnswer.data(), lAnswer.size(), MSG_DONTWAIT | MSG_NOSIGNAL, lpSender,
                       lLength);
            }
        } catch (const std::exception& lrException) {  // there is no memory for an answer
            fprintf(stderr, "libdfc-sim: no answer: %s\n", lrException.what());
        }
    }
}
