// multipathd is asked and never waited for, whatever has its socket.
#include <sched.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>

#include "Multipathd.h"
#include "TestSupport.h"

namespace {

using namespace std::chrono_literals;

/// Somebody who listens at a place.
ZTCDescriptor listenAt(const std::string& acrPath, uid_t aUser = geteuid()) {
    ZTCDescriptor lSocket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un lAddress{AF_UNIX, {}};
    acrPath.copy(lAddress.sun_path, sizeof lAddress.sun_path - 1);
    lAddress.sun_path[0] = acrPath[0] == '@' ? '\0' : acrPath[0];
    const std::size_t lSize = offsetof(sockaddr_un, sun_path) + acrPath.size();
    EXPECT_EQ(
        bind(lSocket.get(), reinterpret_cast<const sockaddr*>(&lAddress), static_cast<socklen_t>(lSize)) +
            seteuid(aUser) + listen(lSocket.get(), 0),
        0);
    EXPECT_EQ(seteuid(getuid()), 0);
    return lSocket;
}

std::string packet(const std::string& acrText) {
    std::uint64_t lLength = acrText.size();
    return std::string(reinterpret_cast<const char*>(&lLength), sizeof lLength) + acrText;
}

/// Takes one who asks, checks what he asks, and answers piece by piece; an empty one waits until he has gone.
std::thread serve(int aListener, std::vector<std::string> aPieces) {
    return std::thread([aListener, lPieces = std::move(aPieces)] {
        const ZTCDescriptor lAsker(accept(aListener, nullptr, nullptr));
        const std::string lExpected = packet(std::string("show paths raw format \"%d %m %t\"") + '\0');
        std::string lRequest(lExpected.size(), '\0');
        EXPECT_EQ(recv(lAsker.get(), lRequest.data(), lRequest.size(), MSG_WAITALL),
                  static_cast<ssize_t>(lRequest.size()));
        EXPECT_EQ(lRequest, lExpected);
        for (const std::string& lrPiece : lPieces) {
            char lByte = 0;
            lrPiece.empty() ? recv(lAsker.get(), &lByte, 1, 0)
                            : send(lAsker.get(), lrPiece.data(), lrPiece.size(), MSG_NOSIGNAL);
        }
    });
}

// What it says, or why not.
std::string ask(const std::string& acrRoot, std::chrono::milliseconds aTime) {
    std::string lText;
    const auto lPaths = askMultipathd(acrRoot, aTime, lText);
    for (const ZTSMultipathdPath& lrPath : lPaths ? *lPaths : std::vector<ZTSMultipathdPath>()) {
        lText += lrPath.mDisk + "|" + lrPath.mMap + "|" + (lrPath.mIsUsable ? "usable " : "not ");
    }
    return lText;
}

TEST(Multipathd, WhateverIsAtTheOtherEnd) {
    const ZTCTestDirectory lRoot;
    std::filesystem::create_directory(lRoot / "run");
    EXPECT_EQ(ask(lRoot.getPath(), 10s), "it does not run");
    {
        const ZTCDescriptor lListener = listenAt(lRoot / "run/multipathd.socket");
        const std::string lGood = packet(
            std::string("sdb mpatha active\nsdc mpatha failed\nsdd [orphan] undef\nsde a b active\n") + '\0');
        std::vector<std::string> lBytes;
        for (const char lByte : lGood) {
            lBytes.emplace_back(1, lByte);
        }
        const std::string lPaths = "sdb|mpatha|usable sdc|mpatha|not sde|a b|usable ";
        const std::string lNoList = "its answer is no list of paths";
        const std::string lEnded = "it ended before its answer did";
        const struct {
            std::vector<std::string> mPieces;
            std::string mExpected;
        } lCases[] = {
            {{lGood, ""}, lPaths},
            {{lGood + "more", ""}, lPaths},
            {lBytes, lPaths},
            {{packet({'\0'}), ""}, ""},
            {{packet("sda [orphan] undef\n")}, ""},
            {{packet("timeout\n")}, lNoList},
            {{packet("permission deny: need to be root")}, lNoList},
            {{packet(std::string(100000, '\xff'))}, lNoList},
            {{}, lEnded},
            {{lGood.substr(0, 5)}, lEnded},
            {{lGood.substr(0, 30)}, lEnded},
            {{packet(""), ""}, "its answer is said to have 0 bytes"},
            {{"ABBAABBA", ""}, "its answer is said to have 4702393808963387969 bytes"},
            {{""}, "it has not answered within 100 ms"},
            {{lGood.substr(0, 5), ""}, "it has not answered within 100 ms"},
            {{lGood.substr(0, 30), ""}, "it has not answered within 100 ms"},
        };
        for (const auto& lrCase : lCases) {
            std::thread lServer = serve(lListener.get(), lrCase.mPieces);
            EXPECT_EQ(ask(lRoot.getPath(), contains(lrCase.mExpected, "100 ms") ? 100ms : 10s),
                      lrCase.mExpected);
            lServer.join();
        }
        // One that takes no calls: the first waits to be answered, the next for a place.
        EXPECT_EQ(ask(lRoot.getPath(), 50ms), "it has not answered within 50 ms");
        EXPECT_TRUE(ask(lRoot.getPath(), 50ms).starts_with("it cannot be reached: "));
    }
    EXPECT_EQ(ask(lRoot.getPath(), 10s), "it does not run");
    EXPECT_TRUE(ask(lRoot / std::string(100, 'x'), 10s).starts_with("it cannot be reached: "));
}

// In a network of its own nobody else has the name.
TEST(Multipathd, OnlyRootIsBelieved) {
    const ZTSTestEnd lEnd = runChild([] {
        if (geteuid() != 0 || unshare(CLONE_NEWNET) != 0) {
            return;
        }
        for (const uid_t lUser : {uid_t{0}, uid_t{65534}}) {
            const ZTCDescriptor lListener = listenAt("@/org/kernel/linux/storage/multipathd", lUser);
            if (lUser != 0) {
                EXPECT_EQ(ask("/", 10s), "who has its socket is not root");
                continue;
            }
            std::thread lServer = serve(lListener.get(), {packet("sdb mpatha active\n"), ""});
            EXPECT_EQ(ask("/", 10s), "sdb|mpatha|usable ");
            lServer.join();
        }
    });
    EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mOut;
}

}  // namespace
