// Connections that are opened, held, dribbled into, half closed or torn: whoever else asks is answered
// meanwhile, and nothing is left of them.
#include <sys/resource.h>

#include "WebProgram.h"
#include "WebTls.h"

namespace {

using Clients = std::vector<std::unique_ptr<ZTCWebClient>>;

constexpr char sPeriods[] =
    "ZT_TEST_WEB_PERIODS=head=300,idle=300,taking=300,request=2000,token=300,alive=100";
constexpr std::size_t sOfHistory = 4 * 3;  // each thread that reads it has its files
constexpr char sFriend[] = "127.0.0.9";

std::size_t sCountEnded(const Clients& acrClients) {
    return static_cast<std::size_t>(std::count_if(acrClients.begin(), acrClients.end(),
                                                  [](const auto& acrpOne) { return acrpOne->hasEnded(); }));
}

struct Stand : ZTSWebStand {
    explicit Stand(const ZTCTestChild::Arguments& acrArguments = {}) : ZTSWebStand(acrArguments, {sPeriods}) {
        friendIsAnswered();
        mBefore = mWeb.countDescriptors() + sOfHistory;
    }
    // One at another address.
    void friendIsAnswered() const {
        ZTCWebClient lFriend(mWeb.getPort(), sFriend);
        const ZTSWebReply lReply = lFriend.get("/api/v1/incidents");
        ASSERT_EQ(lReply.mStatus, 200U) << lReply.mBody;
    }
    void expectNothingIsLeft() const {
        EXPECT_TRUE(waitUntil([&] { return mWeb.countDescriptors() <= mBefore; })) << mWeb.countDescriptors();
        friendIsAnswered();
    }
    Clients open(std::size_t aCount, const std::string& acrBytes) const {
        Clients lClients;
        for (std::size_t lAt = 0; lAt < aCount; ++lAt) {
            lClients.push_back(std::make_unique<ZTCWebClient>(mWeb.getPort()));
            lClients.back()->send(acrBytes);
        }
        return lClients;
    }
    // All are closed, although each goes on and on; a friend is answered at any time.
    void expectEnd(const Clients& acrClients, const std::string& acrByte) const {
        EXPECT_TRUE(waitUntil([&] {
            for (const auto& lrpClient : acrClients) {
                ::send(lrpClient->getSocket(), acrByte.data(), acrByte.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
            }
            friendIsAnswered();
            return sCountEnded(acrClients) == acrClients.size();
        })) << sCountEnded(acrClients);
    }

    std::size_t mBefore = 0;
};

TEST(WebHeld, WhoSendsSlowlyIsSentOff) {
    const Stand lStand;
    const struct {
        std::string mBegin, mByte;
    } lRows[] = {{"", ""},
                 {"G", "E"},
                 {"GET / HTTP/1.1\r\nHost: localhost\r\n", "x: y\r\n"},
                 {"GET /", "a"},
                 {"\r\n", "\r\n"},
                 {"POST / HTTP/1.1\r\nHost: localhost\r\nContent-Length: 100000\r\n\r\n", "a"},
                 {"PUT / HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\n", "1\r\na\r\n"},
                 {ZTWebGet("/"), ""},
                 {ZTWebGet("/") + "GET / HT", "T"}};
    for (const auto& lrRow : lRows) {
        SCOPED_TRACE(lrRow.mBegin);
        lStand.expectEnd(lStand.open(20, lrRow.mBegin), lrRow.mByte);
    }
    lStand.expectNothingIsLeft();
}

// Each asks for much, and reads nothing.
TEST(WebHeld, WhoTakesNothingIsSentOff) {
    const Stand lStand;
    std::string lMuch;
    for (int lTimes = 0; lTimes < 200; ++lTimes) {
        lMuch += ZTWebGet("/page/lanes.js");
    }
    lStand.expectEnd(lStand.open(50, lMuch), "");
    lStand.expectNothingIsLeft();
    if (!ZTIsSanitized) {
        EXPECT_LE(lStand.mWeb.getMemory("VmHWM"), 60U << 10);
    }
}

TEST(WebHeld, WhoIsTornOrHalfClosedLeavesNothing) {
    const Stand lStand;
    const std::string lRequests[] = {ZTWebGet("/api/v1/records"), ZTWebGet("/api/v1/stream"), "GET / HT",
                                     ZTWebGet("/metrics") + ZTWebGet("/"), ""};
    for (unsigned int lRound = 0; lRound < ZTTestRounds(200U, 20000U); ++lRound) {
        ZTCWebClient lClient(lStand.mWeb.getPort());
        lClient.send(lRequests[lRound % std::size(lRequests)]);
        const linger lTear{1, 0};
        setsockopt(lClient.getSocket(), SOL_SOCKET, SO_LINGER, &lTear, sizeof lTear);
    }
    const Clients lStreams = lStand.open(100, ZTWebGet("/api/v1/stream"));
    for (const auto& lrpStream : lStreams) {
        EXPECT_TRUE(lrpStream->readUntil("retry:"));
    }
    for (const auto& lrpStream : lStreams) {
        shutdown(lrpStream->getSocket(), SHUT_RDWR);
    }
    ZTCWebClient lHalf(lStand.mWeb.getPort());
    lHalf.send(ZTWebGet("/api/v1/ports"));
    lHalf.close();
    EXPECT_TRUE(lHalf.waitForEnd());
    lStand.expectNothingIsLeft();
}

TEST(WebHeld, RequestsInARowAreAnsweredInTheirOrder) {
    const Stand lStand;
    ZTCWebClient lClient(lStand.mWeb.getPort());
    std::string lRow;
    for (int lTimes = 0; lTimes < 50; ++lTimes) {
        lRow += ZTWebGet("/api/v1/incidents/" + std::to_string(1 + lTimes % 4)) +
                "HEAD /api/v1/incidents/1 HTTP/1.1\r\nHost: localhost\r\n\r\n" + ZTWebGet("/nowhere");
    }
    lClient.send(lRow);
    for (int lTimes = 0; lTimes < 50; ++lTimes) {
        const ZTSWebReply lOne = lClient.receive();
        EXPECT_TRUE(contains(lOne.mBody, "\"id\":" + std::to_string(1 + lTimes % 4)) ||
                    contains(lOne.mBody, "\"id\": " + std::to_string(1 + lTimes % 4)))
            << lOne.mBody;
        EXPECT_EQ(lClient.receive(false).mStatus, 200U);
        EXPECT_EQ(lClient.receive().mStatus, 404U);
    }
}

// One address has a quarter of all; four have all. What is too much is closed, and told in few lines.
TEST(WebHeld, TenThousandConnectionsLeaveRoomForOthers) {
    rlimit lFiles{};
    getrlimit(RLIMIT_NOFILE, &lFiles);
    const rlimit lBefore = lFiles;
    const Stand lStand;
    lFiles.rlim_cur = lFiles.rlim_max;
    setrlimit(RLIMIT_NOFILE, &lFiles);
    const std::size_t lMost = std::min<std::size_t>(10000, lFiles.rlim_max - 300);
    {
        Clients lClients;
        std::size_t lPeak = 0;
        for (std::size_t lAt = 0; lAt < lMost; ++lAt) {
            lClients.push_back(std::make_unique<ZTCWebClient>(lStand.mWeb.getPort()));
            lClients.back()->send("GET / HTTP/1.1\r\n");
            if (lAt % 500 == 499) {
                lStand.friendIsAnswered();
                lPeak = std::max(lPeak, lStand.mWeb.countDescriptors());
            }
        }
        EXPECT_LE(lPeak, lStand.mBefore + 255);
        EXPECT_TRUE(waitUntil([&] { return sCountEnded(lClients) == lClients.size(); }));
    }
    lStand.expectNothingIsLeft();

    Clients lStreams;
    for (unsigned int lAt = 0; lAt < 1200; ++lAt) {
        const std::string lFrom = "127.0.0." + std::to_string(10 + lAt % 6);
        lStreams.push_back(std::make_unique<ZTCWebClient>(lStand.mWeb.getPort(), lFrom.c_str()));
        lStreams.back()->send(ZTWebGet("/api/v1/stream"));
    }
    EXPECT_TRUE(waitUntil([&] { return sCountEnded(lStreams) == 200; })) << sCountEnded(lStreams);
    lStreams.clear();
    lStand.expectNothingIsLeft();
    EXPECT_LE(countIn(lStand.mWeb.getErr(), "\n"), 10U) << lStand.mWeb.getErr();
    if (!ZTIsSanitized) {
        EXPECT_LE(lStand.mWeb.getMemory("VmHWM"), 60U << 10);
    }
    setrlimit(RLIMIT_NOFILE, &lBefore);
}

// Guesses wait, and only so many; who knows the token does not.
TEST(WebHeld, ATokenIsNotGuessed) {
    const ZTCTestDirectory lDirectory;
    const std::string lToken = "0123456789abcdef0123456789abcdef";
    writeFile(lDirectory / "tokens", "another-of-enough-bytes\n" + lToken + "\n");
    std::filesystem::permissions(lDirectory / "tokens", std::filesystem::perms(0600));
    const ZTSWebStand lStand({"--token-file", lDirectory / "tokens"}, {"ZT_TEST_WEB_PERIODS=token=300"});
    const std::string lRight = "Authorization: Bearer " + lToken + "\r\n";
    ZTCWebClient lKnows(lStand.mWeb.getPort(), sFriend);
    EXPECT_EQ(lKnows.get("/api/v1/ports", lRight).mStatus, 200U);
    for (const char* const lpFree : {"/", "/page/app.js", "/healthz"}) {
        EXPECT_NE(lKnows.get(lpFree).mStatus, 401U) << lpFree;
    }
    for (const char* const lpPath :
         {"/api/v1/ports", "/metrics", "/api/v1/stream", "/api/v1/records?format=csv"}) {
        const ZTSWebReply lReply = lStand.mWeb.get(lpPath);
        EXPECT_EQ(lReply.mStatus, 401U) << lpPath;
        EXPECT_EQ(lReply.getHeader("WWW-Authenticate"), "Bearer");
    }
    std::vector<std::string> lGuesses = {"",
                                         "Bearer",
                                         "Bearer ",
                                         "Bearer x",
                                         "Basic " + lToken,
                                         "Bearer " + lToken + "0",
                                         "Bearer " + lToken.substr(1),
                                         "Bearer another-of-enough-bytes\n" + lToken,
                                         "Bearer " + std::string(5000, 'a')};
    lGuesses.resize(400, "Bearer wrong");
    Clients lGuessing;
    const auto lBegin = std::chrono::steady_clock::now();
    for (const std::string& lrGuess : lGuesses) {
        lGuessing.push_back(std::make_unique<ZTCWebClient>(lStand.mWeb.getPort()));
        lGuessing.back()->send(ZTWebGet("/api/v1/ports", "Authorization: " + lrGuess + "\r\n"));
    }
    EXPECT_EQ(lKnows.get("/api/v1/ports", lRight).mStatus, 200U);
    std::size_t lRefused = 0;
    for (const auto& lrpGuess : lGuessing) {
        const unsigned int lStatus = lrpGuess->receive().mStatus;
        lRefused += lStatus == 401;
        EXPECT_TRUE(lStatus == 401 || lStatus == 429 || lStatus == 503 || lStatus == 400 || lStatus == 0)
            << lStatus;
    }
    EXPECT_GT(lRefused, 5U);
    EXPECT_GE(std::chrono::steady_clock::now() - lBegin, std::chrono::milliseconds(300));
    EXPECT_EQ(lKnows.get("/api/v1/ports", lRight).mStatus, 200U);
}

TEST(WebHeld, AHandshakeThatIsNoneIsSentOff) {
    const ZTCTestDirectory lDirectory;
    ZTMakeCertificate("db7", lDirectory / "crt", lDirectory / "key");
    const ZTSWebStand lStand({"--certificate", lDirectory / "crt", "--key", lDirectory / "key"}, {sPeriods});
    const auto lExpectAnswer = [&] {
        ZTCWebTlsClient lClient(lStand.mWeb.getPort());
        ASSERT_TRUE(lClient.isSafe());
        EXPECT_EQ(lClient.get("/api/v1/ports").mStatus, 200U);
    };
    lExpectAnswer();
    const std::size_t lBefore = lStand.mWeb.countDescriptors();
    const std::string lHello("\x16\x03\x01\x02\0\x01\0\x01\xfc\x03\x03", 11);
    for (const std::string& lrBegin : {std::string(), lHello, ZTWebGet("/"), std::string(1 << 20, '\x16')}) {
        Clients lClients;
        for (int lAt = 0; lAt < 50; ++lAt) {
            lClients.push_back(std::make_unique<ZTCWebClient>(lStand.mWeb.getPort()));
            lClients.back()->send(lrBegin);
        }
        lExpectAnswer();
        EXPECT_TRUE(waitUntil([&] {
            for (const auto& lrpClient : lClients) {
                ::send(lrpClient->getSocket(), "x", 1, MSG_NOSIGNAL | MSG_DONTWAIT);
            }
            return sCountEnded(lClients) == lClients.size();
        }));
    }
    EXPECT_TRUE(waitUntil([&] { return lStand.mWeb.countDescriptors() <= lBefore + sOfHistory; }));
    lExpectAnswer();
}

}  // namespace
