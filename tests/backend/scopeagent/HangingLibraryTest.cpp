// A vendor library that does not return, or takes the process with it: the agent ends all the same, and
// whoever started it is told.
#include <sys/prctl.h>

#include <memory>
#include <optional>

#include "AgentClient.h"
#include "TestDisk.h"

namespace {

using Options = ZTCTestAgent::Options;

Options badEnvironment(const std::string& acrWords, const Options& acrMore = {}) {
    Options lAll{"ZT_LIBDFC=" ZT_PROVIDER_BAD, "ZT_BAD=" + acrWords, "ZT_BAD_UNTIL=/none"};
    lAll.insert(lAll.end(), acrMore.begin(), acrMore.end());
    return lAll;
}

constexpr char sSoon[] = "ZT_TEST_PERIODS=ThreadsEnd=100";

bool isHanging(const std::string& acrErr) {
    return contains(acrErr, "hanging\n");
}

// An agent whose library hangs in a function, as soon as it is called.
struct HangingAgent {
    explicit HangingAgent(const std::string& acrFunction)
        : mFunction(acrFunction),
          mAgent(mDirectory, {}, badEnvironment("hang=" + acrFunction + ";", {sSoon})) {}

    void bringThere() {
        if (contains(mFunction, "reg_event")) {
            mSensor.emplace(mDirectory);
            mSensor->send(messageOf(1, '\0' + wordOf(65536)));
            mSensor->send(stopOf(2));
        }
        EXPECT_TRUE(waitUntil([&] { return isHanging(mAgent.getErr()); })) << mFunction << mAgent.getErr();
    }
    void expectEnd() {
        SCOPED_TRACE(mFunction);
        mAgent.expectEnd("The vendor library's " + mFunction + " does not return: ending without it\n",
                         ZTTestSoon);
        const bool lIsServing = mSensor.has_value();
        EXPECT_EQ(contains(mAgent.getLog(), "ScopeAgent System exiting"), lIsServing);
    }

    const std::string mFunction;
    ZTCTestDirectory mDirectory;
    ZTCTestAgent mAgent;
    std::optional<ZTCTestSensor> mSensor;
};

TEST(HangingLibrary, DoesNotKeepTheAgentFromEnding) {
    std::vector<std::unique_ptr<HangingAgent>> lAgents;
    for (const char* const lpFunction :
         {"loading", "init", "number_of_adapters", "ztapi_supported", "adapter_info", "ztapi_reg_event",
          "dfc_reg_event", "ztapi_unreg_event", "dfc_unreg_event"}) {
        lAgents.push_back(std::make_unique<HangingAgent>(lpFunction));
    }
    for (const auto& lrAgent : lAgents) {
        lrAgent->bringThere();
    }
    ZTCTestChild lStop(ZTCTestAgent::commandOf({"-s"}, {}),
                       ZTCTestAgent::environmentOf(lAgents[0]->mDirectory));
    for (std::size_t lAt = 1; lAt < lAgents.size(); ++lAt) {
        lAgents[lAt]->mAgent.sendSignal(SIGTERM);
    }
    for (const auto& lrAgent : lAgents) {
        lrAgent->expectEnd();
    }
    EXPECT_EQ(lStop.waitForEnd(), 0) << lStop.getErr();
}

// What is to be removed cannot be, and is left.
TEST(HangingLibrary, EndsTheAgentAlsoWhereItsDirectoryStandsStill) {
    const ZTCTestDisk lDisk(ZTTestPidFile);
    const ZTCTestDirectory lDirectory;
    Options lEnvironment = badEnvironment("hang=init;", lDisk.getEnvironment());
    lEnvironment.push_back(std::string(sSoon) + ",CleanUp=50");
    ZTCTestAgent lAgent(lDirectory, {}, lEnvironment);
    EXPECT_TRUE(waitUntil([&] { return isHanging(lAgent.getErr()); }));
    lDisk.stand();
    lAgent.sendSignal(SIGTERM);
    EXPECT_EQ(lAgent.waitForEnd(ZTTestSoon), 0);
    EXPECT_TRUE(contains(lAgent.getLog(), "The vendor library's init does not return: ending without it\n"));
}

TEST(HangingLibrary, EndsTheAgentInOrderWhenItReturnsInTime) {
    const ZTCTestDirectory lOther;
    const ZTCTestDirectory lDirectory;
    ZTCTestAgent lAgent(lDirectory, {}, badEnvironment("hang=init;", {"ZT_BAD_UNTIL=" + (lOther / "go")}));
    EXPECT_TRUE(waitUntil([&] { return isHanging(lAgent.getErr()); }));
    lAgent.sendSignal(SIGTERM);
    EXPECT_TRUE(waitUntil([&] { return contains(lAgent.getLog(), "Ending on signal 15\n"); }));
    writeFile(lOther / "go", "");
    lAgent.expectEnd();
    EXPECT_FALSE(contains(lAgent.getLog(), "does not return"));
}

TEST(HangingLibrary, DoesNotLeaveADaemonBehindThatNobodyWaitsFor) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const ZTCTestDirectory lDirectory;
    ZTCTestChild lStarter({ZT_TEST_AGENT},
                          ZTCTestAgent::environmentOf(lDirectory, badEnvironment("hang=init;", {sSoon})));
    EXPECT_TRUE(waitUntil([&] { return isHanging(lStarter.getErr()); }));
    ZTCTestProcess lDaemon(std::stoi(readFile(lDirectory / ZTTestPidFile)));
    kill(lStarter.getProcess(), SIGKILL);
    EXPECT_EQ(lStarter.waitForEnd(), 128 + SIGKILL);
    EXPECT_EQ(lDaemon.waitForEnd(ZTTestSoon), 0);
    const std::string lLog = readFile(lDirectory / ZTTestLog);
    EXPECT_LT(lLog.find("the process that waited for the start has gone\n"),
              lLog.find("The vendor library's init does not return"));
    EXPECT_EQ(namesIn(lDirectory), std::set<std::string>{ZTTestLog});
}

TEST(CrashingLibrary, IsToldToWhoStartsADaemon) {
    const std::pair<const char*, const char*> lRows[] = {
        {"raise=6", "was ended by SIGABRT before it was ready\n"},
        {"raise=9", "was ended by SIGKILL before it was ready\n"},
        {"raise=11", "was ended by SIGSEGV before it was ready\n"},
        {"exits", "ended with status 0 before it was ready\n"}};
    for (const auto& [lpWords, lpTold] : lRows) {
        if (ZTIsSanitized && std::string(lpWords) == "raise=11") {
            continue;  // the sanitizer tells of that itself
        }
        const ZTCTestDirectory lDirectory;
        const ZTSTestEnd lEnd = runChild(ZTCTestAgent::commandOf({}, {}),
                                         ZTCTestAgent::environmentOf(lDirectory, badEnvironment(lpWords)));
        EXPECT_EQ(lEnd.mStatus, 1) << lpWords;
        EXPECT_TRUE(lEnd.mErr.starts_with("vrx-sca: process ")) << lEnd.mErr;
        EXPECT_TRUE(lEnd.mErr.ends_with(lpTold)) << lEnd.mErr;
    }
}

}  // namespace
