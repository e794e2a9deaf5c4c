// What the kernel sends is taken, and only that.
#include <linux/netlink.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "KernelMessages.h"
#include "TestSupport.h"
#include "Uevent.h"

namespace {

using Got = ZTCKernelMessages::Got;

// Empty: nothing; "lost".
std::string receive(ZTCKernelMessages& arMessages) {
    std::span<const unsigned char> lBytes;
    const Got lGot = arMessages.receive(lBytes);
    return lGot == Got::Message ? std::string(lBytes.begin(), lBytes.end())
                                : (lGot == Got::Lost ? "lost" : "");
}

TEST(KernelMessages, BelowARootASocketStandsInTheirPlace) {
    const ZTCTestDirectory lRoot;
    const std::string lPath = lRoot / "run/kernel/uevent";
    for (unsigned int lRound = 0; lRound < 2; ++lRound) {
        ZTCKernelMessages lTransport(lRoot.getPath(), ZTCKernelMessages::What::Transport);
        ZTCKernelMessages lUevents(lRoot.getPath(), ZTCKernelMessages::What::Uevents);
        ASSERT_EQ(lUevents.getWhyNot() + lTransport.getWhyNot(), "");
        EXPECT_EQ(receive(lUevents), "");
        const ZTCDescriptor lSocket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        sockaddr_un lAddress{AF_UNIX, {}};
        lPath.copy(lAddress.sun_path, sizeof lAddress.sun_path - 1);
        for (const std::string& lrText : {std::string("one"), std::string(), std::string(100000, 'x')}) {
            EXPECT_EQ(sendto(lSocket.get(), lrText.data(), lrText.size(), 0,
                             reinterpret_cast<const sockaddr*>(&lAddress), sizeof lAddress),
                      static_cast<ssize_t>(lrText.size()));
        }
        for (const char* const lpExpected : {"one", "lost", "lost", ""}) {
            EXPECT_EQ(receive(lUevents), lpExpected);
        }
        EXPECT_EQ(receive(lTransport), "");
    }
    EXPECT_FALSE(std::filesystem::exists(lPath));
    writeFile(lRoot / "file", "");
    for (const std::string& lrRoot : {lRoot / "file", lRoot / std::string(100, 'x')}) {
        ZTCKernelMessages lMessages(lrRoot, ZTCKernelMessages::What::Uevents);
        EXPECT_EQ(lMessages.getDescriptor(), -1);
        EXPECT_TRUE(lMessages.getWhyNot().starts_with("no socket: "));
        EXPECT_EQ(receive(lMessages), "");
    }
}

// In a network of its own nobody else gets what is sent.
TEST(KernelMessages, OthersThanTheKernelAreNotBelieved) {
    const ZTSTestEnd lEnd = runChild([] {
        if (unshare(CLONE_NEWNET) != 0) {
            return;
        }
        ZTCKernelMessages lMessages("/", ZTCKernelMessages::What::Uevents);
        ASSERT_EQ(lMessages.getWhyNot(), "");
        while (!receive(lMessages).empty()) {
            // of devices of the new network
        }
        const ZTCDescriptor lOther(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT));
        sockaddr_nl lGroup{};
        lGroup.nl_family = AF_NETLINK;
        lGroup.nl_groups = 1;
        std::string lText("change@/devices/virtual/block/dm-3");
        const auto lSend = [&] {
            return sendto(lOther.get(), lText.data(), lText.size(), 0,
                          reinterpret_cast<const sockaddr*>(&lGroup), sizeof lGroup) >= 0;
        };
        EXPECT_TRUE(lSend());
        EXPECT_EQ(receive(lMessages), "");
        // More than there is room for: the kernel's own might be among what is gone.
        lText.resize(30000);
        unsigned int lSent = 1;
        while (lSent < 10000 && lSend()) {
            ++lSent;
        }
        EXPECT_GT(lSent, 100U);
        EXPECT_EQ(receive(lMessages), "lost");
        EXPECT_EQ(receive(lMessages), "");
        // The kernel's own.
        for (unsigned int lTimes = 0; lTimes < 10000; ++lTimes) {
            receive(lMessages);
        }
        std::ofstream("/sys/class/mem/null/uevent") << "change";
        for (std::string lGot = receive(lMessages); !lGot.empty(); lGot = receive(lMessages)) {
            const auto lEvent =
                readUevent({reinterpret_cast<const unsigned char*>(lGot.data()), lGot.size()});
            ASSERT_TRUE(lEvent) << lGot;
            EXPECT_EQ(lEvent->mPath, lEvent->find("DEVPATH"));
            EXPECT_FALSE(lEvent->find("SUBSYSTEM").empty());
        }
    });
    EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mOut;
}

TEST(Uevent, ItsValuesAreTaken) {
    const auto lRead = [](const std::string& acrText) {
        const auto lEvent =
            readUevent({reinterpret_cast<const unsigned char*>(acrText.data()), acrText.size()});
        std::string lText = lEvent ? std::string(lEvent->mAction) + " " + std::string(lEvent->mPath) : "none";
        for (const auto& [lrName, lrValue] : lEvent ? lEvent->mValues : decltype(lEvent->mValues)()) {
            lText += " " + std::string(lrName) + "=" + std::string(lrValue);
        }
        return lText;
    };
    using namespace std::string_literals;
    const std::pair<std::string, std::string> lCases[] = {
        {"change@/d/dm-3\0DM_PATH=8:16\0DM_NAME=a=b c\0EMPTY=\0"s,
         "change /d/dm-3 DM_NAME=a=b c DM_PATH=8:16 EMPTY="},
        {"add@/d\0NAME=1\0NAME=2\0=x\0none\0\0LAST=3"s, "add /d LAST=3 NAME=1"},
        {"remove@/d"s, "remove /d"},
        {"libudev\0\xfe\xed\xca\xfe@/d\0ACTION=add\0"s, "none"},
        {"@/d\0"s, "none"},
        {"add@\0/d\0"s, "none"},
        {"add\0@/d\0"s, "none"},
        {"\0"s, "none"},
        {"", "none"}};
    for (const auto& [lrText, lrExpected] : lCases) {
        EXPECT_EQ(lRead(lrText), lrExpected);
    }
}

}  // namespace
