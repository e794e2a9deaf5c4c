#include "TellHost.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

std::string tellMadeUpHost(const std::string& acrLine) {
    const char* const lpPath = getenv("ZT_VRX_HOSTSIM");
    if (lpPath == nullptr) {
        return {};
    }
    constexpr timeval lLongest{1, 0};  // a socket holds few lines, and the host takes each at once
    sockaddr_un lAddress{AF_UNIX, ""};
    strncpy(lAddress.sun_path, lpPath, sizeof lAddress.sun_path - 1);
    const int lSocket = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    setsockopt(lSocket, SOL_SOCKET, SO_SNDTIMEO, &lLongest, sizeof lLongest);
    const bool lIsSent = sendto(lSocket, acrLine.data(), acrLine.size(), MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr*>(&lAddress), sizeof lAddress) >= 0;
    const char* const lpReason = strerror(errno);
    close(lSocket);
    return lIsSent ? std::string() : std::string("libdfc-sim: ") + lpPath + ": " + lpReason + "\n";
}
