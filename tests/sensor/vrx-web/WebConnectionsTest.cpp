#include <sys/socket.h>

#include "ServiceUsage.h"
#include "TestSupport.h"
#include "WebConnections.h"
#include "WebListeners.h"

namespace {

using namespace std::chrono_literals;

TEST(WebConnections, AnAddressHasAShareOfAll) {
    ZTCWebConnections lConnections;
    int lSocket = 0;
    const auto lAdd = [&](const char* apPeer) { return lConnections.add(lSocket++, apPeer, 1s); };
    for (std::size_t lOfPeer = 0; lOfPeer < ZTCWebConnections::MostOfPeer; ++lOfPeer) {
        EXPECT_NE(lAdd("a"), nullptr);
    }
    EXPECT_EQ(lAdd("a"), nullptr);
    for (const char* const lpPeer : {"b", "c", "d"}) {
        for (std::size_t lOfPeer = 0; lOfPeer < ZTCWebConnections::MostOfPeer; ++lOfPeer) {
            EXPECT_NE(lAdd(lpPeer), nullptr);
        }
    }
    EXPECT_EQ(lAdd("e"), nullptr);
    EXPECT_EQ(lConnections.count(), ZTCWebConnections::Most);
    lConnections.remove(*lConnections.find(0));
    EXPECT_EQ(lConnections.find(0), nullptr);
    EXPECT_NE(lAdd("e"), nullptr);
    // A descriptor that has come back is another connection.
    EXPECT_NE(lConnections.add(1, "e", 1s), nullptr);
    EXPECT_EQ(lConnections.find(1)->mPeer, "e");
    EXPECT_EQ(lConnections.count(), ZTCWebConnections::Most);
}

TEST(WebListeners, AddressesAreToldAndShared) {
    const struct {
        const char* mpText;
        const char* mpTold;
        bool mIsLoopback;
    } lRows[] = {{"127.0.0.1:9180", "127.0.0.1:9180", true},
                 {"localhost:1", "127.0.0.1:1", true},
                 {"[::1]:9180", "[::1]:9180", true},
                 {"0.0.0.0:80", "0.0.0.0:80", false},
                 {"[::]:80", "[::]:80", false},
                 {"127.9.9.9:0", "127.9.9.9:0", true},
                 {"192.0.2.1:65535", "192.0.2.1:65535", false},
                 {"/run/web.sock", "unix /run/web.sock", true}};
    for (const auto& lrRow : lRows) {
        const ZTSListenAddress lAddress = readListenAddress(lrRow.mpText);
        EXPECT_EQ(lAddress.toText(), lrRow.mpTold);
        EXPECT_EQ(lAddress.isLoopback(), lrRow.mIsLoopback) << lrRow.mpText;
    }
    const auto lPeer = [](const char* apText) { return readListenAddress(apText).toPeer(); };
    EXPECT_EQ(lPeer("192.0.2.1:1"), lPeer("192.0.2.1:2"));
    EXPECT_NE(lPeer("192.0.2.1:1"), lPeer("192.0.2.2:1"));
    EXPECT_EQ(lPeer("[2001:db8::1]:1"), lPeer("[2001:db8::ffff:1]:1"));
    EXPECT_NE(lPeer("[2001:db8::1]:1"), lPeer("[2001:db8:0:1::1]:1"));
}

TEST(WebListeners, ASocketThatIsLeftIsTakenAndOneInUseIsNot) {
    const ZTCTestDirectory lDirectory;
    const std::string lPath = lDirectory / "web.sock";
    {
        const ZTCWebListener lLeft(lPath);
        EXPECT_EQ(std::filesystem::status(lPath).permissions(), std::filesystem::perms(0660));
        EXPECT_THROW(ZTCWebListener{lPath}, std::runtime_error);
        std::filesystem::rename(lPath, lPath + ".left");
    }
    std::filesystem::rename(lPath + ".left", lPath);
    {
        const ZTCWebListener lListener(lPath);
        const ZTCDescriptor lClient(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const ZTSListenAddress& lrAddress = lListener.getAddress();
        ZTSListenAddress lPeer;
        EXPECT_FALSE(lListener.accept(lPeer).isOpen());
        EXPECT_EQ(errno, EAGAIN);
        EXPECT_EQ(connect(lClient.get(), lrAddress.get(), lrAddress.mSize), 0);
        EXPECT_TRUE(lListener.accept(lPeer).isOpen());
        EXPECT_TRUE(lPeer.isUnix());
        EXPECT_EQ(lPeer.toPeer(), "");
    }
    EXPECT_FALSE(std::filesystem::exists(lPath));
    writeFile(lPath, "a file");
    EXPECT_THROW(ZTCWebListener{lPath}, std::runtime_error);
    EXPECT_EQ(readFile(lPath), "a file");
    EXPECT_THROW(ZTCWebListener{"192.0.2.1:1"}, std::runtime_error);
    const ZTCWebListener lOne("127.0.0.1:0");
    EXPECT_THROW(ZTCWebListener{lOne.getAddress().toText()}, std::runtime_error);
}

}  // namespace
