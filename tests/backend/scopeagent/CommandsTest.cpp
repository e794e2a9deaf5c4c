// Commands through the pipes of a running agent: what each is answered, that none is lost however it comes,
// and what a malformed one does.
#include <ctime>

#include "AgentClient.h"

namespace {

constexpr char sEndOfThread[] = "-H- ScopeAgentCommandHandler";
constexpr char sErrorText[] = "Exiting ScopeAgentCommandHandler thread with error : ";

// Two targets: the node name, the port name, the address.
#define TARGET_A "20000025b501000a 21000025b501000a 00010203"
#define TARGET_B "20000025b501000b 21000025b501000b 00ffffff"
// The port of the one, the address of the other.
#define TARGET_A_ELSEWHERE "20000025b501000a 21000025b501000a 00000007"
#define TARGET_C_AT_B "20000025b501000c 21000025b501000c 00ffffff"

// One adapter, by its node and port name, without records.
#define NO_RECORDS                                      \
    "02 00000001 0000002f"                              \
    "32303a30303a30303a32353a62353a30303a30303a3031 2e" \
    "31303a30303a30303a32353a62353a30303a30303a3031 00000000"

// Request and response.
constexpr const char* sRoundTrips[][2] = {
    // GetScopeData, before anything is registered.
    {"56525831 00000002 00000001 01", "56525831 00000002 0000003c" NO_RECORDS},
    {"56525831 80000002 00000003 01 ffff", "56525831 80000002 0000003c" NO_RECORDS},
    // StartScope, without and with something behind the ceiling.
    {"56525831 00000000 00000005 00 00010000", "56525831 00000000 00000005 00 00000000"},
    {"56525831 ffffffff 00000008 00 ffffffff 010203", "56525831 ffffffff 00000005 00 00000000"},
    // Stop.
    {"56525831 00000003 00000001 02", "56525831 00000003 00000005 00 00000000"},
    {"56525831 00000003 00000006 02 0405060708", "56525831 00000003 00000005 00 00000000"},
    // RegisterTargets: none, one, three of which one is known, two that are half known, none with bytes
    // behind.
    {"56525831 00000004 00000005 03 00000000", "56525831 00000004 00000003 01 0006"},
    {"56525831 00000005 00000019 03 00000001" TARGET_A, "56525831 00000005 00000005 00 00000000"},
    {"56525831 00000006 00000042 03 00000003" TARGET_A TARGET_B TARGET_A "ff",
     "56525831 00000006 00000005 00 00000000"},
    {"56525831 00000007 0000002d 03 00000002" TARGET_A_ELSEWHERE TARGET_C_AT_B,
     "56525831 00000007 00000005 00 00000000"},
    {"56525831 00000008 00000019 03 00000000" TARGET_B, "56525831 00000008 00000003 01 0006"},
    // CollectionPeriod.
    {"56525831 00000009 00000005 05 00000000", "56525831 00000009 00000003 01 0006"},
    {"56525831 0000000a 00000005 05 00000005", "56525831 0000000a 00000005 00 00000000"},
    {"56525831 0000000b 00000006 05 ffffffff 00", "56525831 0000000b 00000005 00 00000000"},
};

TEST(Commands, AreAnsweredByteForByte) {
    const ZTCTestDirectory lDirectory;
    ZTCTestAgent lAgent(lDirectory);
    const ZTCTestSensor lSensor(lDirectory);
    for (const auto& [lpRequest, lpResponse] : sRoundTrips) {
        EXPECT_EQ(lSensor.ask(bytesOf(lpRequest)), bytesOf(lpResponse)) << lpRequest;
    }
    // The longest that is taken.
    EXPECT_EQ(lSensor.ask(messageOf(12, "\x02" + std::string(65535, 'x'))), successOf(12));
    lAgent.stop();

    // A target is told of once in each map that did not have it.
    const std::string lLog = lAgent.getLog();
    std::string lTargets;
    for (const char* const lpText : {"Registered Target <", "Added Target <", "The limit set is "}) {
        for (std::size_t lAt = 0; (lAt = lLog.find(lpText, lAt)) != std::string::npos; ++lAt) {
            lTargets += lLog.substr(lAt, lLog.find('\n', lAt) + 1 - lAt);
        }
    }
    EXPECT_EQ(lTargets,
              "Registered Target <20:00:00:25:b5:01:00:0a, 21:00:00:25:b5:01:00:0a, 66051>\n"
              "Registered Target <20:00:00:25:b5:01:00:0b, 21:00:00:25:b5:01:00:0b, 16777215>\n"
              "Registered Target <20:00:00:25:b5:01:00:0a, 21:00:00:25:b5:01:00:0a, 7>\n"
              "Added Target <20:00:00:25:b5:01:00:0a, 21:00:00:25:b5:01:00:0a, 66051> to Wwpn Target Map\n"
              "Added Target <20:00:00:25:b5:01:00:0b, 21:00:00:25:b5:01:00:0b, 16777215> to Wwpn Target Map\n"
              "Added Target <20:00:00:25:b5:01:00:0c, 21:00:00:25:b5:01:00:0c, 16777215> to Wwpn Target Map\n"
              "The limit set is 262144\n"
              "The limit set is 262144\n");
}

TEST(Commands, ShutDownIsAnsweredBeforeTheEndAndNothingBehindItIs) {
    for (const char* const lpBody : {"04", "04 fffefdfc00"}) {
        SCOPED_TRACE(lpBody);
        const ZTCTestDirectory lDirectory;
        ZTCTestAgent lAgent(lDirectory);
        const ZTCTestSensor lSensor(lDirectory);
        lSensor.send(stopOf(1) + messageOf(2, bytesOf(lpBody)) + stopOf(3));
        EXPECT_EQ(lSensor.receive(), successOf(1));
        EXPECT_EQ(lSensor.receive(), successOf(2));
        EXPECT_EQ(lSensor.receive(), "");
        lAgent.expectEnd(std::string(sErrorText) + "Shutting down ScopeAgent\n", ZTTestSoon);
    }
}

TEST(Commands, NoneIsLostHoweverTheyCome) {
    const ZTCTestDirectory lDirectory;
    ZTCTestAgent lAgent(lDirectory, {"-d", "1"});
    const ZTCTestSensor lSensor(lDirectory);
    unsigned int lTag = 0;

    for (; lTag < 10000; ++lTag) {
        ASSERT_EQ(lSensor.ask(stopOf(lTag)), successOf(lTag));
    }
    const std::string lTargets = bytesOf("03 00000002" TARGET_A TARGET_B);
    for (const char lByte : messageOf(++lTag, lTargets)) {
        lSensor.sendAndSeeRead(std::string(1, lByte));
    }
    EXPECT_EQ(lSensor.receive(), successOf(lTag));
    for (std::size_t lAt = 1; lAt < messageOf(0, lTargets).size(); ++lAt) {
        const std::string lMessage = messageOf(++lTag, lTargets);
        lSensor.sendAndSeeRead(lMessage.substr(0, lAt));
        ASSERT_FALSE(lSensor.hasResponseWithin(0));
        ASSERT_EQ(lSensor.ask(lMessage.substr(lAt)), successOf(lTag)) << "split at " << lAt;
    }
    for (unsigned int lBurst = 0; lBurst < 40; ++lBurst) {
        std::string lCommands;
        for (unsigned int lAt = 0; lAt < 50; ++lAt) {
            lCommands += stopOf(lTag + lAt);
        }
        lSensor.send(lCommands);
        for (unsigned int lAt = 0; lAt < 50; ++lAt) {
            ASSERT_EQ(lSensor.receive(), successOf(lTag++));
        }
    }
    lAgent.stop();
}

struct Malformed {
    const char* mpBytes;
    const char* mpError;
};

constexpr char sCut[] = "The writer went away";  // because the sensor closes the pipe behind the bytes
constexpr char sShort[] = "The message ends too early";

constexpr Malformed sMalformed[] = {
    {"56525830 00000001 00000001 02", "magic 0x56525830"},
    {"00000000 00000000 00000000", "magic 0x0"},
    {"56525831 00000001 00000000", "length 0x0"},
    {"56525831 00000001 00010001", "length 0x10001"},
    {"56525831 00000001 ffffffff", "length 0xffffffff"},
    {"56", sCut},
    {"56525831 00000001 00000005", sCut},
    {"56525831 00000001 00000005 00 000000", sCut},
    {"56525831 00000001 00000004 00 000000", sShort},             // half a ceiling
    {"56525831 00000001 00000001 05", sShort},                    // no period
    {"56525831 00000001 00000003 03 0000", sShort},               // half a count
    {"56525831 00000001 00000019 03 00000002" TARGET_A, sShort},  // one of two targets
    {"56525831 00000001 00000018 03 00000001 20000025b501000a 21000025b501000a 000102", sShort},
    {"56525831 00000001 0000000a 03 ffffffff 20000025b5", sShort},  // half a name
};

TEST(Commands, AMalformedOneEndsTheAgentWithoutAnAnswer) {
    for (const Malformed& lrMalformed : sMalformed) {
        SCOPED_TRACE(lrMalformed.mpBytes);
        const ZTCTestDirectory lDirectory;
        ZTCTestAgent lAgent(lDirectory);
        ZTCTestSensor lSensor(lDirectory);
        lSensor.send(stopOf(7) + bytesOf(lrMalformed.mpBytes));
        EXPECT_EQ(lSensor.receive(), successOf(7));
        if (lrMalformed.mpError == sCut) {
            lSensor.closeCommands();
        }
        EXPECT_EQ(lSensor.receive(), "");
        lAgent.expectEnd(sErrorText);
        EXPECT_TRUE(contains(lAgent.getLog(), lrMalformed.mpError)) << lAgent.getLog();
        EXPECT_EQ(countIn(lAgent.getErr(), sEndOfThread), 1U) << lAgent.getErr();
    }
}

double secondsOf(clockid_t aClock) {
    timespec lTime{};
    clock_gettime(aClock, &lTime);
    return static_cast<double>(lTime.tv_sec) + static_cast<double>(lTime.tv_nsec) / 1e9;
}

TEST(Commands, AMessageThatStopsEndsTheAgentAfterAWhile) {
    for (const std::size_t lLength : {1U, 16U}) {
        const ZTCTestDirectory lDirectory;
        ZTCTestAgent lAgent(lDirectory, {}, {"ZT_TEST_PERIODS=MessagePause=100"});
        const ZTCTestSensor lSensor(lDirectory);
        EXPECT_EQ(lSensor.ask(stopOf(1)), successOf(1));
        const double lStart = secondsOf(CLOCK_MONOTONIC);
        lSensor.send(messageOf(2, std::string(5, '\0')).substr(0, lLength));
        EXPECT_EQ(lSensor.receive(), "");
        EXPECT_GE(secondsOf(CLOCK_MONOTONIC) - lStart, 0.1);
        lAgent.expectEnd(std::string(sErrorText) + "The writer stopped");
    }
}

// However slowly: a byte at a time, in all for longer than a pause may be.
TEST(Commands, AMessageThatGoesOnIsServed) {
    const int lPause = ZTIsSanitized ? 4000 : 1000;
    const ZTCTestDirectory lDirectory;
    ZTCTestAgent lAgent(lDirectory, {}, {"ZT_TEST_PERIODS=MessagePause=" + std::to_string(lPause)});
    const ZTCTestSensor lSensor(lDirectory);
    const std::string lMessage = messageOf(2, '\2' + std::string(65535, 'x'));
    const double lEnd = secondsOf(CLOCK_MONOTONIC) + 1.05 * lPause / 1000;
    std::size_t lAt = 0;
    signal(SIGPIPE, SIG_IGN);
    while (secondsOf(CLOCK_MONOTONIC) < lEnd && !HasFailure()) {
        lSensor.sendAndSeeRead(lMessage.substr(lAt++, 1));
        EXPECT_FALSE(lSensor.hasResponseWithin(lPause / 20));
    }
    EXPECT_EQ(lSensor.ask(lMessage.substr(lAt)), successOf(2));
    lAgent.stop();
}

TEST(Commands, AnUnknownOneEndsTheProcessAtOnce) {
    for (const char* const lpBody : {"06", "ff 00000000"}) {
        SCOPED_TRACE(lpBody);
        const ZTCTestDirectory lDirectory;
        ZTCTestAgent lAgent(lDirectory);
        const ZTCTestSensor lSensor(lDirectory);
        lSensor.send(messageOf(1, bytesOf(lpBody)));
        EXPECT_EQ(lSensor.receive(), "");
        EXPECT_EQ(lAgent.waitForEnd(), 1);
        EXPECT_EQ(countIn(lAgent.getLog(), " -H- "), 1U);
        EXPECT_EQ(countIn(lAgent.getLog(), "Assertion [ false ] failed"), 1U) << lAgent.getLog();
    }
}

TEST(Commands, ASensorMayCloseThePipeBetweenThemAndNothingSpinsOrIsLeftOpen) {
    const ZTCTestDirectory lDirectory;
    ZTCTestAgent lAgent(lDirectory, {"-d", "127"}, {"ZT_TEST_PERIODS=Second=100"});
    EXPECT_TRUE(waitUntil([&] { return namesIn(lDirectory).count(ZTTestStatistics) == 1; }));
    const auto lDescriptors = [&] {
        const std::filesystem::directory_iterator lAll("/proc/" + std::to_string(lAgent.getProcess()) +
                                                       "/fd");
        return std::distance(begin(lAll), end(lAll));
    };
    std::ptrdiff_t lFirst = 0;
    for (unsigned int lTag = 0; lTag < 1000; ++lTag) {
        const ZTCTestSensor lSensor(lDirectory);
        ASSERT_EQ(lSensor.ask(stopOf(lTag)), successOf(lTag));
        lFirst = lTag == 0 ? lDescriptors() : lFirst;
    }
    // An end that is being opened anew counts twice for a moment.
    EXPECT_TRUE(waitUntil([&] { return lDescriptors() <= lFirst; }));
    const auto lWaits = [&] { return countIn(lAgent.getLog(), "Waiting for control availability..."); };
    EXPECT_TRUE(waitUntil([&] { return lWaits() >= 1001; }));
    // From here to the end of a whole wait it needs hardly any of the processor's time.
    clockid_t lProcessor{};
    ASSERT_EQ(clock_getcpuclockid(lAgent.getProcess(), &lProcessor), 0);
    const double lUsed = secondsOf(lProcessor);
    const double lStart = secondsOf(CLOCK_MONOTONIC);
    EXPECT_TRUE(waitUntil([&, lBefore = lWaits()] { return lWaits() >= lBefore + 2; }));
    EXPECT_LT(secondsOf(lProcessor) - lUsed, (secondsOf(CLOCK_MONOTONIC) - lStart) / 10);
    lAgent.stop();
}

}  // namespace
