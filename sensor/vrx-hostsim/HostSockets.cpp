#include "HostSockets.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "HostWords.h"

namespace {

constexpr timeval sLongest{1, 0};
constexpr std::uint64_t sLongestQuestion = 4096;
constexpr int sAnswerWithin = 30'000;  // milliseconds
constexpr std::size_t sMostAnswer = std::size_t{256} * 1024;
constexpr std::string_view sQuestion = "show paths raw format";

bool sReceive(int aSocket, void* apBytes, std::size_t aSize) {
    return recv(aSocket, apBytes, aSize, MSG_WAITALL) == static_cast<ssize_t>(aSize);
}

void sAnswer(int aSocket, const std::string& acrPaths) {
    setsockopt(aSocket, SOL_SOCKET, SO_RCVTIMEO, &sLongest, sizeof sLongest);
    setsockopt(aSocket, SOL_SOCKET, SO_SNDTIMEO, &sLongest, sizeof sLongest);
    std::uint64_t lLength = 0;
    char lQuestion[sLongestQuestion];
    if (!sReceive(aSocket, &lLength, sizeof lLength) || lLength > sizeof lQuestion ||
        !sReceive(aSocket, static_cast<char*>(lQuestion), lLength)) {
        return;
    }
    const bool lIsKnown = std::string_view(static_cast<char*>(lQuestion), lLength).starts_with(sQuestion);
    const std::string lText = lIsKnown ? acrPaths : "fail\n";
    lLength = lText.size() + 1;
    std::string lAnswer(reinterpret_cast<const char*>(&lLength), sizeof lLength);
    lAnswer += lText;
    lAnswer += '\0';
    for (std::string_view lRest = lAnswer; !lRest.empty();) {
        const ssize_t lSent = send(aSocket, lRest.data(), lRest.size(), MSG_NOSIGNAL);
        if (lSent <= 0) {
            return;
        }
        lRest.remove_prefix(static_cast<std::size_t>(lSent));
    }
}

[[noreturn]] void sRefuse(const std::string& acrPath, const char* apWhy) {
    throw ZTCHostSimError(acrPath + ": " + apWhy + ", expected a path for a socket");
}

}  // namespace

sockaddr_un makeHostAddress(std::string_view aPath) {
    sockaddr_un lAddress{AF_UNIX, ""};
    if (aPath.size() >= sizeof lAddress.sun_path) {
        sRefuse(std::string(aPath), strerror(ENAMETOOLONG));
    }
    aPath.copy(lAddress.sun_path, aPath.size());
    return lAddress;
}

ZTCHostSocket::ZTCHostSocket(std::string aPath, int aType) : mPath(std::move(aPath)) {
    const sockaddr_un lAddress = makeHostAddress(mPath);
    const auto* const lpAddress = reinterpret_cast<const sockaddr*>(&lAddress);
    const int lProbe = socket(AF_UNIX, aType | SOCK_CLOEXEC, 0);
    const bool lIsInUse = connect(lProbe, lpAddress, sizeof lAddress) == 0;
    const bool lIsStale = !lIsInUse && errno == ECONNREFUSED;
    close(lProbe);
    if (lIsInUse) {
        sRefuse(mPath, "is in use");
    }
    if (lIsStale) {
        unlink(mPath.c_str());
    }
    mSocket = socket(AF_UNIX, aType | SOCK_CLOEXEC, 0);
    // The file takes the socket's mode over.
    if (mSocket < 0 || fchmod(mSocket, 0600) != 0 || bind(mSocket, lpAddress, sizeof lAddress) != 0 ||
        (aType == SOCK_STREAM && listen(mSocket, 8) != 0)) {
        const char* const lpWhy = strerror(errno);
        close(mSocket);
        sRefuse(mPath, lpWhy);
    }
}

ZTCHostSocket::~ZTCHostSocket() {
    unlink(mPath.c_str());
    close(mSocket);
}

void answerAsMultipathd(int aListener, const std::string& acrPaths) {
    const int lSocket = accept4(aListener, nullptr, nullptr, SOCK_CLOEXEC);
    if (lSocket >= 0) {
        sAnswer(lSocket, acrPaths);
        close(lSocket);
    }
}

std::string askHost(const std::string& acrSocket, const std::string& acrLine) {
    const sockaddr_un lAddress = makeHostAddress(acrSocket);
    const sockaddr_un lAny{AF_UNIX, ""};  // the system chooses an address, to be answered at
    const int lSocket = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    std::string lAnswer(sMostAnswer, '\0');
    pollfd lPoll{lSocket, POLLIN, 0};
    ssize_t lRead = -1;
    if (bind(lSocket, reinterpret_cast<const sockaddr*>(&lAny), sizeof lAny.sun_family) == 0 &&
        connect(lSocket, reinterpret_cast<const sockaddr*>(&lAddress), sizeof lAddress) == 0 &&
        send(lSocket, acrLine.data(), acrLine.size(), MSG_NOSIGNAL) >= 0 &&
        poll(&lPoll, 1, sAnswerWithin) == 1) {
        lRead = recv(lSocket, lAnswer.data(), lAnswer.size(), 0);
    }
    close(lSocket);
    if (lRead < 0) {
        throw ZTCHostSimError(acrSocket + ": nobody answers there, expected a vrx-hostsim");
    }
    lAnswer.resize(static_cast<std::size_t>(lRead));
    return lAnswer;
}
