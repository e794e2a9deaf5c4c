// What stands in for the kernel: a tree as in sysfs, and messages with a socket that sends them.
#pragma once

#include <linux/netlink.h>
#include <sched.h>
#include <sys/socket.h>

#include <map>

#include "Netlink.h"
#include "TestSupport.h"

inline std::string fcDigits(std::uint64_t aNumber) {
    char lDigits[32];
    snprintf(lDigits, sizeof lDigits, "0x%llx", static_cast<unsigned long long>(aNumber));
    return lDigits;
}

/// Hosts and remote ports come and go whole, and an attribute is never there by half.
class ZTCFcTestTree {
  public:
    ZTCFcTestTree() {
        std::filesystem::create_directories(pathOf("fc_host"));
        std::filesystem::create_directories(pathOf("fc_remote_ports"));
    }
    const std::string& getPath() const { return mDirectory.getPath(); }
    std::string pathOf(const std::string& acrBelow) const { return mDirectory / ("class/" + acrBelow); }

    /// What is there says something else from now on, to those who have it open too; empty lines behind it
    /// cover what was longer.
    void set(const std::string& acrBelow, const std::string& acrText) const {
        const std::string lPath = pathOf(acrBelow);
        if (const ZTCDescriptor lFile(open(lPath.c_str(), O_WRONLY | O_CLOEXEC)); lFile.isOpen()) {
            const std::size_t lSize =
                std::max<std::size_t>(acrText.size(), std::filesystem::file_size(lPath));
            const std::string lLines = acrText + std::string(lSize - acrText.size(), '\n');
            EXPECT_EQ(pwrite(lFile.get(), lLines.data(), lSize, 0), static_cast<ssize_t>(lSize));
            return;
        }
        writeFile(mDirectory / "new", acrText);
        std::filesystem::rename(mDirectory / "new", lPath);
    }
    /// What is there already is made anew.
    void add(const std::string& acrBelow, const std::map<std::string, std::string>& acrAttributes) const {
        const std::filesystem::path lMade(mDirectory / "made");
        std::filesystem::create_directories(lMade);
        std::filesystem::create_directories(std::filesystem::path(pathOf(acrBelow)).parent_path());
        for (const auto& [lrName, lrText] : acrAttributes) {
            std::filesystem::create_directories((lMade / lrName).parent_path());
            writeFile(lMade / lrName, lrText + "\n");
        }
        std::error_code lNotThere;
        std::filesystem::rename(pathOf(acrBelow), mDirectory / "gone", lNotThere);
        std::filesystem::rename(lMade, pathOf(acrBelow));
        std::filesystem::remove_all(mDirectory / "gone");
    }
    void addHost(unsigned int aHost) const {
        add("fc_host/host" + std::to_string(aHost), {{"port_state", "Online"},
                                                     {"node_name", fcDigits(0x1000000000000000 + aHost)},
                                                     {"port_name", fcDigits(0x2000000000000000 + aHost)},
                                                     {"statistics/link_failure_count", "0x5"}});
    }
    void remove(const std::string& acrBelow) const {
        std::error_code lNotThere;
        std::filesystem::rename(pathOf(acrBelow), mDirectory / "gone", lNotThere);
        std::filesystem::remove_all(mDirectory / "gone");
    }

  private:
    ZTCTestDirectory mDirectory;
};

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
