#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include "Daemon.h"
#include "FileLock.h"
#include "TestSupport.h"

namespace {

class DaemonTest : public ::testing::Test {
  protected:
    // A daemon whose starter has gone is left to this process, and so can be collected here.
    DaemonTest() { prctl(PR_SET_CHILD_SUBREAPER, 1); }

    std::string log() const { return readFile(mDirectory / "zt-test.log"); }
    pid_t readPid() const { return static_cast<pid_t>(strtol(readFile(mPidFile).c_str(), nullptr, 10)); }
    bool isLocked() const {
        const ZTCDescriptor lFile(open(mPidFile.c_str(), O_RDONLY));
        return lFile.isOpen() && OsIsFileLocked(lFile.get());
    }

    const ZTCTestDirectory mDirectory;
    const std::string mPidFile = mDirectory / "zt-test.pid";
    const ZTCTestChild::Arguments mEnvironment{"ZT_VRX_SENSOR_DIR=" + mDirectory.getPath(), "NOTIFY_SOCKET"};
    const ZTCTestChild::Arguments mForeground{ZT_TEST_SYSTEM, "-D", "false"};
};

}  // namespace

TEST_F(DaemonTest, ReturnsWhenItIsReadyAndEndsInOrderOnASignal) {
    for (const int lSignal : {SIGTERM, SIGINT}) {
        const ZTSTestEnd lStart = runChild(ZTCTestChild::Arguments{ZT_TEST_SYSTEM}, mEnvironment);
        ASSERT_EQ(lStart.mStatus, 0) << lStart.mErr;
        EXPECT_EQ(lStart.mOut + lStart.mErr, "");
        EXPECT_TRUE(isLocked());
        ASSERT_GT(readPid(), 1);
        ZTCTestProcess lDaemon(readPid());
        const std::string lProcess = "/proc/" + std::to_string(lDaemon.getProcess());
        EXPECT_EQ(std::filesystem::read_symlink(lProcess + "/cwd"), "/");
        for (const char* const lpStream : {"/fd/0", "/fd/1", "/fd/2"}) {
            EXPECT_EQ(std::filesystem::read_symlink(lProcess + lpStream), "/dev/null");
        }
        EXPECT_EQ(getsid(lDaemon.getProcess()), lDaemon.getProcess());
        kill(lDaemon.getProcess(), lSignal);
        EXPECT_EQ(lDaemon.waitForEnd(), 0);
        EXPECT_FALSE(std::filesystem::exists(mPidFile));
        EXPECT_TRUE(contains(log(), ": Ending on signal " + std::to_string(lSignal) + "\n"));
        EXPECT_TRUE(log().ends_with(": Ending in order\n")) << log();
        std::filesystem::remove(mDirectory / "zt-test.log");
    }
}

TEST_F(DaemonTest, TellsWhyItDoesNotStart) {
    const std::string lOpen = mDirectory / "open";
    mkdir(lOpen.c_str(), 0700);
    chmod(lOpen.c_str(), 0777);
    const std::string lSticky = mDirectory / "sticky";
    mkdir(lSticky.c_str(), 0700);
    chmod(lSticky.c_str(), 01777);
    mkdir((lSticky + "/zt-test.pid").c_str(), 0700);
    writeFile(mDirectory / "file", "");
    const struct {
        const char* mpDirectory;
        const char* mpTold;
    } lRows[] = {
        {"open", "/open is refused: others may write in it"},
        {"file", "/file is refused: it is not a directory"},
        {"missing", "/missing: No such file or directory"},
        {"sticky", "/sticky/zt-test.pid"},  // told by the detached process
    };
    for (const auto& lrRow : lRows) {
        for (const char* const lpDaemon : {"true", "false"}) {
            const ZTSTestEnd lEnd =
                runChild(ZTCTestChild::Arguments{ZT_TEST_SYSTEM, "-D", lpDaemon},
                         ZTCTestChild::Arguments{"ZT_VRX_SENSOR_DIR=" + (mDirectory / lrRow.mpDirectory)});
            EXPECT_EQ(lEnd.mStatus, 0);
            EXPECT_TRUE(contains(lEnd.mErr, lrRow.mpTold)) << lEnd.mErr;
        }
    }
    EXPECT_TRUE(std::filesystem::is_empty(lOpen));
}

TEST_F(DaemonTest, OpensTheLogAnewOnAHangUp) {
    ZTCTestChild lSystem(mForeground, mEnvironment);
    ASSERT_TRUE(waitUntil([&] { return isLocked(); })) << lSystem.getErr();
    std::filesystem::rename(mDirectory / "zt-test.log", mDirectory / "old.log");
    kill(lSystem.getProcess(), SIGHUP);
    EXPECT_TRUE(waitUntil([&] { return std::filesystem::exists(mDirectory / "zt-test.log"); }));
    kill(lSystem.getProcess(), SIGTERM);
    EXPECT_EQ(lSystem.waitForEnd(), 0);
    EXPECT_TRUE(contains(readFile(mDirectory / "old.log"), ": Starting\n"));
    EXPECT_FALSE(contains(log(), ": Starting\n"));
    EXPECT_TRUE(log().ends_with(": Ending in order\n"));
}

TEST_F(DaemonTest, TellsTheServiceManagerThatItIsReady) {
    for (const bool lIsAbstract : {false, true}) {
        sockaddr_un lAddress{};
        lAddress.sun_family = AF_UNIX;
        const std::string lName = (lIsAbstract ? "@" : "") + (mDirectory / "notify");
        lName.copy(lAddress.sun_path, sizeof lAddress.sun_path - 1);
        if (lIsAbstract) {
            lAddress.sun_path[0] = '\0';
        }
        const ZTCDescriptor lSocket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        const auto lSize = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + lName.size());
        ASSERT_EQ(bind(lSocket.get(), reinterpret_cast<const sockaddr*>(&lAddress), lSize), 0);
        ZTCTestChild lSystem(mForeground, {mEnvironment[0], "NOTIFY_SOCKET=" + lName});
        pollfd lPoll{lSocket.get(), POLLIN, 0};
        ASSERT_EQ(poll(&lPoll, 1, 60000), 1) << lSystem.getErr();
        char lText[64]{};
        recv(lSocket.get(), lText, sizeof lText - 1, 0);
        EXPECT_STREQ(lText, "READY=1");
        EXPECT_TRUE(isLocked());
        kill(lSystem.getProcess(), SIGTERM);
        EXPECT_EQ(lSystem.waitForEnd(), 0);
    }
    ZTCTestChild lSystem(mForeground, {mEnvironment[0], "NOTIFY_SOCKET=" + (mDirectory / "nobody")});
    EXPECT_TRUE(waitUntil([&] { return isLocked(); })) << lSystem.getErr();
    kill(lSystem.getProcess(), SIGTERM);
    EXPECT_EQ(lSystem.waitForEnd(), 0);
}

TEST_F(DaemonTest, EndsInOrderInAStormOfSignals) {
    for (const bool lIsRunning : {false, true}) {
        ZTCTestChild lSystem(mForeground, mEnvironment);
        // Before its first record was made a signal ends it at once, as any program.
        ASSERT_TRUE(waitUntil([&] {
            return lIsRunning ? isLocked() : std::filesystem::exists(mDirectory / "zt-test.log");
        })) << lSystem.getErr();
        for (int lNumber = 0; lNumber < 300; ++lNumber) {
            constexpr int lSignals[] = {SIGHUP, SIGHUP, SIGPIPE, SIGTERM, SIGINT, SIGHUP};
            kill(lSystem.getProcess(), lSignals[lNumber % 6]);
            std::this_thread::yield();
        }
        EXPECT_EQ(lSystem.waitForEnd(), 0);
        EXPECT_FALSE(std::filesystem::exists(mPidFile));
        EXPECT_TRUE(log().ends_with(": Ending in order\n")) << log();
        std::filesystem::remove(mDirectory / "zt-test.log");
    }
}
