// What stands in for the kernel: a socket that sends messages, beside the tree of FcTree.h.
#pragma once

#include <sched.h>
#include <sys/socket.h>

#include "FcTree.h"
#include "KernelBytes.h"
#include "Netlink.h"

/// Sends to the group that the library listens to, under the number that it is told to believe.
class ZTCFcTestSender {
  public:
    ZTCFcTestSender() {
        socklen_t lSize = sizeof mAddress;
        EXPECT_EQ(bind(mSocket.get(), reinterpret_cast<sockaddr*>(&mAddress), lSize), 0);
        EXPECT_EQ(getsockname(mSocket.get(), reinterpret_cast<sockaddr*>(&mAddress), &lSize), 0);
    }
    std::string getSetting() const { return "2:" + std::to_string(mAddress.nl_pid); }
    void sendBytes(const std::string& acrBytes) const {
        const sockaddr_nl lTo{AF_NETLINK, 0, 0, 1U << 3};
        // It goes to the group; that nobody is at port 0 is an error of its own.
        sendto(mSocket.get(), acrBytes.data(), acrBytes.size(), 0, reinterpret_cast<const sockaddr*>(&lTo),
               sizeof lTo);
    }
    void send(unsigned int aHost, unsigned int aCode, unsigned int aData = 0) {
        std::string lData(4, '\0');
        fcPut(lData, 0, aData, 4);
        sendBytes(fcMessage(aHost, ++mNumber, aCode, lData));
    }
    unsigned int getSent() const { return mNumber; }

  private:
    ZTCDescriptor mSocket{socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_USERSOCK)};
    sockaddr_nl mAddress{AF_NETLINK, 0, 0, 0};
    unsigned int mNumber = 0;
};

/// Runs the work where no other test's messages are heard, if the system lets us; they are only ignored else.
template <class Work>
void inOwnNetwork(const Work& acrWork) {
    std::thread([&] {
        const char* const lpWhere = unshare(CLONE_NEWNET) == 0 ? "its own" : "of all";
        if (!ZTCFcSocket(NETLINK_USERSOCK, 4, 0).isOpen()) {
            GTEST_SKIP() << "no right to listen to the network " << lpWhere;
        }
        acrWork();
    }).join();
}
