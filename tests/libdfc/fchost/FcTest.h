// What stands in for the kernel: messages with a socket that sends them, beside the tree of FcTree.h.
#pragma once

#include <linux/netlink.h>
#include <sched.h>
#include <sys/socket.h>

#include "FcTree.h"
#include "Netlink.h"

inline void fcPut(std::string& arBytes, std::size_t aAt, std::uint64_t aNumber, std::size_t aSize) {
    memcpy(arBytes.data() + aAt, &aNumber, aSize);
}

/// The bytes of a message, its lengths all right.
inline std::string fcMessage(unsigned int aHost, unsigned int aNumber, unsigned int aCode,
                             const std::string& acrData = std::string(4, '\0')) {
    const std::size_t lData = acrData.size();
    std::string lBytes = std::string(52, '\0') + acrData + std::string(NLMSG_ALIGN(lData) - lData, '\0');
    const std::size_t lFields[][3] = {
        {0, 4, 52 + lData},  {4, 2, 0x11},   {16, 2, 0x0101}, {18, 2, 0xa1b2},  {20, 2, 0x0100},
        {22, 2, 36 + lData}, {40, 2, aHost}, {42, 2, lData},  {44, 4, aNumber}, {48, 4, aCode}};
    for (const auto& [lAt, lSize, lValue] : lFields) {
        fcPut(lBytes, lAt, lValue, lSize);
    }
    return lBytes;
}

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
