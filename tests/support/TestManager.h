// The service manager, as a program that is to be managed sees it: it is told of its state, and that it
// lives.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include "TestSupport.h"

class ZTCTestManager {
  public:
    explicit ZTCTestManager(const std::string& acrPath) : mPath(acrPath) {
        sockaddr_un lAddress{AF_UNIX, ""};
        acrPath.copy(lAddress.sun_path, sizeof lAddress.sun_path - 1);
        EXPECT_EQ(bind(mSocket.get(), reinterpret_cast<const sockaddr*>(&lAddress), sizeof lAddress), 0);
    }
    std::vector<std::string> getEnvironment(const std::string& acrWatchdog,
                                            const std::vector<std::string>& acrMore = {}) const {
        std::vector<std::string> lEnvironment{"NOTIFY_SOCKET=" + mPath, "WATCHDOG_USEC=" + acrWatchdog,
                                              "WATCHDOG_PID"};
        lEnvironment.insert(lEnvironment.end(), acrMore.begin(), acrMore.end());
        return lEnvironment;
    }
    /// Whether something with the part is told from now on.
    bool hears(const std::string& acrPart) const {
        return waitUntil([&] {
            char lText[512];
            const ssize_t lRead = recv(mSocket.get(), lText, sizeof lText, MSG_DONTWAIT);
            return lRead > 0 && contains({lText, static_cast<std::size_t>(lRead)}, acrPart);
        });
    }

  private:
    const std::string mPath;
    ZTCDescriptor mSocket{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};
