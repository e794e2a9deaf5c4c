// What the watch does with a system that hangs at its start, in a thread or at its end, and what it tells of
// it.
#include <sys/socket.h>
#include <sys/un.h>

#include "TestSupport.h"

namespace {

class SystemWatch : public ::testing::Test {
  protected:
    std::string log() const { return readFile(mDirectory / "zt-test.log"); }
    ZTCTestChild::Arguments environmentOf(const ZTCTestChild::Arguments& acrMore) const {
        ZTCTestChild::Arguments lAll{"ZT_VRX_SENSOR_DIR=" + mDirectory.getPath(), "NOTIFY_SOCKET"};
        lAll.insert(lAll.end(), acrMore.begin(), acrMore.end());
        return lAll;
    }
    void put(const char* apName, bool aIsThere) const {
        std::filesystem::remove(mDirectory / apName);
        if (aIsThere) {
            writeFile(mDirectory / apName, "");
        }
    }

    const ZTCTestDirectory mDirectory;
    const ZTCTestChild::Arguments mForeground{ZT_TEST_SYSTEM, "-D", "false"};
};

}  // namespace

TEST_F(SystemWatch, LeavesWhatHangsAndTellsWhatItWas) {
    constexpr char lLibrary[] = "The vendor library's function does not return: ending without it\n";
    constexpr char lOther[] = "not the vendor library that holds it up: leaving\n";
    const struct {
        std::string mHangs;
        bool mIsInside;  // a thread in foreign code
        std::string mPeriods, mTold;
    } lRows[] = {{"thread", false, "ThreadsEnd=50", "Thread waiter does not end: ending without it\n"},
                 {"thread", true, "ThreadsEnd=50", lLibrary},
                 {"start", true, "StartTold=1,ThreadsEnd=50", lLibrary},
                 {"start", false, "StartTold=1,ThreadsEnd=10,ProcessEnd=50", lOther},
                 {"destroy", false, "ThreadsEnd=10,ProcessEnd=50", lOther},
                 {"thread destroy", true, "ThreadsEnd=10,ProcessEnd=50", lOther}};
    for (const auto& lrRow : lRows) {
        SCOPED_TRACE(lrRow.mHangs + (lrRow.mIsInside ? " inside" : ""));
        put("zt-test.log", false);
        put("inside", lrRow.mIsInside);
        ZTCTestChild lSystem(mForeground, environmentOf({"ZT_TEST_PERIODS=" + lrRow.mPeriods,
                                                         "ZT_TEST_HANGS=" + lrRow.mHangs}));
        const std::string lReached = lrRow.mHangs == "start" ? "Not ready after" : "Waiting\n";
        EXPECT_TRUE(waitUntil([&] { return contains(log(), lReached); }));
        kill(lSystem.getProcess(), SIGTERM);
        EXPECT_EQ(lSystem.waitForEnd(), 0);
        EXPECT_TRUE(contains(log(), "Ending on signal 15\n") && contains(log(), lrRow.mTold)) << log();
        EXPECT_EQ(contains(log(), "Ending in order\n"), lrRow.mHangs == "thread");
        // What cannot be known to be harmless is not tried once more.
        EXPECT_EQ(std::filesystem::exists(mDirectory / "zt-test.pid"), lrRow.mTold == lOther);
    }
}

TEST_F(SystemWatch, TellsOfAStartThatTakesLongAndWaits) {
    for (const bool lIsInside : {true, false}) {
        put("go", false);
        put("inside", lIsInside);
        ZTCTestChild lStarter({ZT_TEST_SYSTEM, "-D", "true"},
                              environmentOf({"ZT_TEST_PERIODS=StartTold=20", "ZT_TEST_HANGS=start"}));
        const std::string lSaid = std::string("zt-test-system: not ready after 60 s") +
                                  (lIsInside ? ": the vendor library's function does not return" : "") +
                                  "; still waiting\n";
        EXPECT_TRUE(waitUntil([&] { return lStarter.getErr() == lSaid; })) << lStarter.getErr();
        EXPECT_TRUE(waitUntil([&] { return contains(log(), "-W- SystemWatch"); }));
        EXPECT_TRUE(lStarter.isAlive());
        put("go", true);
        EXPECT_EQ(lStarter.waitForEnd(), 0);
        EXPECT_EQ(lStarter.getErr(), lSaid);
        EXPECT_EQ(runChild(ZTCTestChild::Arguments{ZT_TEST_SYSTEM, "-s"}, environmentOf({})).mStatus, 0);
    }
}

TEST_F(SystemWatch, FeedsTheServiceManagersWatchdogUnlessACallLastsTooLong) {
    const ZTCDescriptor lSocket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un lAddress{AF_UNIX, ""};
    (mDirectory / "notify").copy(lAddress.sun_path, sizeof lAddress.sun_path - 1);
    ASSERT_EQ(bind(lSocket.get(), reinterpret_cast<const sockaddr*>(&lAddress), sizeof lAddress), 0);
    // The next state that the service manager is told and that does not begin so.
    const auto lNextBut = [&](const std::string& acrPassedOver) {
        for (;;) {
            pollfd lPoll{lSocket.get(), POLLIN, 0};
            char lText[128]{};
            if (poll(&lPoll, 1, 60000) != 1 || recv(lSocket.get(), lText, sizeof lText - 1, 0) <= 0 ||
                !std::string(lText).starts_with(acrPassedOver)) {
                return std::string(lText);
            }
        }
    };
    ZTCTestChild lSystem(mForeground, environmentOf({"NOTIFY_SOCKET=" + (mDirectory / "notify"),
                                                     "WATCHDOG_USEC=40000", "ZT_TEST_HANGS=start"}));
    EXPECT_EQ(lNextBut("-"), "EXTEND_TIMEOUT_USEC=60000");
    EXPECT_EQ(lNextBut("-"), "EXTEND_TIMEOUT_USEC=60000");
    put("go", true);
    EXPECT_EQ(lNextBut("EXTEND_"), "READY=1");
    for (unsigned int lRound = 0; lRound < 3; ++lRound) {
        EXPECT_EQ(lNextBut("EXTEND_"), "WATCHDOG=1");
        EXPECT_EQ(lNextBut("-"), "WATCHDOG=1");
        put("inside", true);
        std::string lText = lNextBut("WATCHDOG");
        for (unsigned int lNote = 0; lNote < 5; ++lNote, lText = lNextBut("-")) {
            EXPECT_TRUE(lText.starts_with("STATUS=Inside the vendor library's function for ")) << lText;
        }
        put("inside", false);
        EXPECT_EQ(lNextBut("STATUS=Inside"), "STATUS=");
    }
    kill(lSystem.getProcess(), SIGTERM);
    EXPECT_EQ(lSystem.waitForEnd(), 0);
}
