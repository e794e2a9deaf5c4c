#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include "Daemon.h"
#include "FileLock.h"
#include "TestSupport.h"

namespace {

class DaemonTest : public ::testing::Test {
  protected:
    std::string log() const { return readFile(mDirectory / "zt-test.log"); }
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

TEST_F(DaemonTest, TellsWhyItDoesNotStart) {
    constexpr std::pair<const char*, mode_t> lMade[] = {
        {"open", 0777}, {"group", 0770}, {"others", 0702}, {"sticky", 01777}, {"sticky/zt-test.pid", 0700}};
    for (const auto& [lpName, lMode] : lMade) {
        mkdir((mDirectory / lpName).c_str(), 0700);
        chmod((mDirectory / lpName).c_str(), lMode);
    }
    writeFile(mDirectory / "file", "");
    const struct {
        const char *mpDirectory, *mpTold;
    } lRows[] = {
        {"open", "/open is refused: others may write in it"},
        {"group", "/group is refused: others may write in it"},
        {"others", "/others is refused: others may write in it"},
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
    EXPECT_TRUE(std::filesystem::is_empty(mDirectory / "open"));
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
    // By an abstract address; one of a path is the watch's test.
    sockaddr_un lAddress{AF_UNIX, ""};
    const std::string lName = mDirectory / "notify";
    lName.copy(lAddress.sun_path + 1, sizeof lAddress.sun_path - 1);
    const ZTCDescriptor lSocket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const auto lSize = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + lName.size());
    ASSERT_EQ(bind(lSocket.get(), reinterpret_cast<const sockaddr*>(&lAddress), lSize), 0);
    for (const bool lIsThere : {true, false}) {
        ZTCTestChild lSystem(mForeground,
                             {mEnvironment[0], "NOTIFY_SOCKET=" + (lIsThere ? "@" + lName : lName)});
        pollfd lPoll{lSocket.get(), POLLIN, 0};
        char lText[64]{};
        EXPECT_TRUE(!lIsThere || poll(&lPoll, 1, 60000) == 1) << lSystem.getErr();
        EXPECT_TRUE(waitUntil([&] { return isLocked(); })) << lSystem.getErr();
        recv(lSocket.get(), lText, sizeof lText - 1, MSG_DONTWAIT);
        EXPECT_STREQ(lText, lIsThere ? "READY=1" : "");
        kill(lSystem.getProcess(), SIGTERM);
        EXPECT_EQ(lSystem.waitForEnd(), 0);
    }
}
