#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <list>

#include "Exception.h"
#include "FileLock.h"
#include "ProcessInstanceManager.h"
#include "TestSupport.h"

// The linker leads the calls of syscall in this program here.
extern "C" {
long __real_syscall(long, ...);
long __wrap_syscall(long, long, long, long, long, long, long);
}

namespace {

// Called before a process is held by its number.
std::function<void(pid_t)> sBeforeHolding;

const ZTCTestChild::Arguments sStart{ZT_TEST_SYSTEM, "-D", "false"};
const ZTCTestChild::Arguments sStop{ZT_TEST_SYSTEM, "-s"};

class ProcessInstanceManagerTest : public ::testing::Test {
  protected:
    bool isRunning(const ZTCTestChild& acrInstance) const {
        return readFile(mPidFile) == std::to_string(acrInstance.getProcess()) + "\n";
    }

    void expectNoInstance() const {
        const ZTSTestEnd lEnd = runChild(sStop, mEnvironment);
        EXPECT_EQ(lEnd.mStatus, 1);
        EXPECT_EQ(lEnd.mErr, "zt-test-system: No instance is running\n");
    }

    void expectStops(ZTCTestChild& arInstance) const {
        const ZTSTestEnd lEnd = runChild(sStop, mEnvironment);
        EXPECT_EQ(lEnd.mStatus, 0);
        EXPECT_EQ(lEnd.mErr, "");
        EXPECT_EQ(arInstance.waitForEnd(), 0);
        EXPECT_FALSE(std::filesystem::exists(mPidFile));
    }

    const ZTCTestDirectory mDirectory;
    const std::string mPidFile = mDirectory / "zt-test.pid";
    const ZTCTestChild::Arguments mEnvironment{"ZT_VRX_SENSOR_DIR=" + mDirectory.getPath()};
};

bool sLock(int aFile, int aCommand, short aType, off_t aLength) {
    struct flock lLock {};
    lLock.l_type = aType;
    lLock.l_len = aLength;
    return fcntl(aFile, aCommand, &lLock) == 0;
}

// The locks that a bystander may hold on a pid file: the mode that lets him, and how he takes it. One that
// only we may open is taken by one of our own user.
struct ZTSLock {
    const char* mpName;
    mode_t mMode;
    bool (*mTake)(int aFile);
};
constexpr ZTSLock sLocks[] = {
    {"flock", 0644, [](int aFile) { return flock(aFile, LOCK_EX) == 0; }},
    {"of a process, to read", 0644, [](int aFile) { return sLock(aFile, F_SETLK, F_RDLCK, 0); }},
    {"to read", 0644, [](int aFile) { return sLock(aFile, F_OFD_SETLK, F_RDLCK, 0); }},
    {"of a process, to write", 0666, [](int aFile) { return sLock(aFile, F_SETLK, F_WRLCK, 0); }},
    {"of a process of ours, to write", 0600, [](int aFile) { return sLock(aFile, F_SETLK, F_WRLCK, 0); }},
    {"of a part", 0666, [](int aFile) { return sLock(aFile, F_OFD_SETLK, F_WRLCK, 9); }},
    {"an instance's, another user's", 0666, [](int aFile) { return sLock(aFile, F_OFD_SETLK, F_WRLCK, 0); }},
};

std::string sSayRunning(pid_t aProcess) {
    return "Another instance is running: process " + std::to_string(aProcess) + "\n";
}

}  // namespace

TEST_F(ProcessInstanceManagerTest, BelievesTheLockAndNotTheNumber) {
    ZTCTestChild lBystander([] { pause(); });
    for (const std::string& lrText :
         {std::string(), std::string("-1\n"), std::to_string(lBystander.getProcess()) + "\n"}) {
        SCOPED_TRACE(lrText);
        writeFile(mPidFile, lrText);
        expectNoInstance();
        EXPECT_EQ(readFile(mPidFile), lrText);
        ZTCTestChild lInstance(sStart, mEnvironment);
        ASSERT_TRUE(waitUntil([&] { return isRunning(lInstance); })) << lInstance.getErr();
        writeFile(mPidFile, lrText);
        const ZTSTestEnd lSecond = runChild(sStart, mEnvironment);
        EXPECT_EQ(lSecond.mStatus, 0);
        EXPECT_TRUE(contains(lSecond.mErr, sSayRunning(lInstance.getProcess()))) << lSecond.mErr;
        expectStops(lInstance);
    }
    EXPECT_TRUE(lBystander.isAlive());
}

TEST_F(ProcessInstanceManagerTest, ALockOfAnotherKindIsNoInstance) {
    chmod(mDirectory.getPath().c_str(), 0755);
    for (const ZTSLock& lrLock : sLocks) {
        if (lrLock.mMode == 0666 && geteuid() != 0) {
            continue;  // whose it is, counts
        }
        SCOPED_TRACE(lrLock.mpName);
        const ZTCDescriptor lIsLocked(eventfd(0, EFD_CLOEXEC));
        eventfd_t lCount = 0;
        writeFile(mPidFile, "");
        chmod(mPidFile.c_str(), lrLock.mMode);
        ZTCTestChild lBystander([&] {
            if (lrLock.mMode != 0600 && geteuid() == 0) {  // another user where there can be one
                ASSERT_TRUE(setgid(65534) == 0 && setuid(65534) == 0);
            }
            const ZTCDescriptor lFile(open(mPidFile.c_str(), lrLock.mMode == 0644 ? O_RDONLY : O_RDWR));
            ASSERT_TRUE(lrLock.mTake(lFile.get()));
            eventfd_write(lIsLocked.get(), 1);
            pause();
        });
        ASSERT_EQ(eventfd_read(lIsLocked.get(), &lCount), 0);
        expectNoInstance();
        // One of our own user that is before the instance, in whatever order they are looked at.
        std::list<ZTCTestChild> lOurs;
        lOurs.emplace_back([&] {
            ASSERT_TRUE(waitUntil([&] { return !readFile(mPidFile).empty(); }));
            const ZTCDescriptor lFile(open(mPidFile.c_str(), O_RDWR));
            ASSERT_EQ(flock(lFile.get(), LOCK_EX), 0);
            eventfd_write(lIsLocked.get(), 1);
            pause();
        });
        ZTCTestChild lInstance(sStart, mEnvironment);
        ASSERT_TRUE(waitUntil([&] { return isRunning(lInstance); })) << lInstance.getErr();
        EXPECT_EQ(std::filesystem::status(mPidFile).permissions(), std::filesystem::perms{0600});
        ASSERT_EQ(eventfd_read(lIsLocked.get(), &lCount), 0);
        EXPECT_TRUE(contains(runChild(sStart, mEnvironment).mErr, sSayRunning(lInstance.getProcess())));
        expectStops(lInstance);
        EXPECT_TRUE(lBystander.isAlive() && lOurs.front().isAlive());
    }
}

// Two hold the lock together, until one lets go of it just as it is to be asked to end.
TEST_F(ProcessInstanceManagerTest, AsksNobodyToEndWhoHoldsTheLockNoMore) {
    const ZTCDescriptor lLetGo(eventfd(0, EFD_CLOEXEC));
    const ZTCDescriptor lDone(eventfd(0, EFD_CLOEXEC));
    eventfd_t lCount = 0;
    ZTCDescriptor lFile(open(mPidFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_TRUE(OsLockFile(lFile.get()));
    ZTCTestChild lFirst([&] {
        eventfd_read(lLetGo.get(), &lCount);
        lFile.close();
        eventfd_write(lDone.get(), 1);
        pause();
    });
    ZTCTestChild lSecond([] { pause(); });
    lFile.close();
    sBeforeHolding = [&](pid_t aProcess) {
        if (aProcess == lFirst.getProcess()) {
            eventfd_write(lLetGo.get(), 1);
            eventfd_read(lDone.get(), &lCount);
        }
    };
    ZTCProcessInstanceManager(mPidFile.c_str()).killRunningInstance();
    sBeforeHolding = nullptr;
    EXPECT_TRUE(lFirst.isAlive());
    EXPECT_EQ(lSecond.waitForEnd(), 128 + SIGTERM);
}

TEST_F(ProcessInstanceManagerTest, KeepsItsLockWhateverElseUsesTheFileAndRemovesNoOther) {
    const ZTSTestEnd lEnd = runChild([&] {
        ZTCProcessInstanceManager lManager(mPidFile.c_str());
        EXPECT_FALSE(lManager.isAnInstanceRunning());
        lManager.markAsRunning();
        EXPECT_FALSE(lManager.isAnInstanceRunning());
        lManager.markAsRunning();
        lManager.getProcStatus(mPidFile.c_str());
        close(open(mPidFile.c_str(), O_RDWR));
        utimensat(AT_FDCWD, mPidFile.c_str(), nullptr, 0);
        { EXPECT_TRUE(ZTCProcessInstanceManager(mPidFile.c_str()).isAnInstanceRunning()); }
        EXPECT_EQ(readFile(mPidFile), std::to_string(getpid()) + "\n");
        const ZTSTestEnd lOther = runChild(sStart, mEnvironment);
        EXPECT_TRUE(contains(lOther.mErr, sSayRunning(getpid()))) << lOther.mErr;
        lManager.exitInstanceManagement();
        EXPECT_FALSE(std::filesystem::exists(mPidFile));
        expectNoInstance();
        lManager.markAsRunning();
        std::filesystem::remove(mPidFile);
        writeFile(mPidFile, "somebody else's\n");
        lManager.exitInstanceManagement();
        lManager.exitInstanceManagement();
        EXPECT_EQ(readFile(mPidFile), "somebody else's\n");
    });
    EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mOut;
}

// Each holds it only for a moment, so that one often opens the file that another is about to remove.
TEST_F(ProcessInstanceManagerTest, IsNeverHeldByTwo) {
    constexpr int lTimes = 300;
    std::list<ZTCTestChild> lAll;
    const ZTCTestChild lBystander([&] {
        // Now and then it has a lock on the file of one that is gone.
        std::list<ZTCDescriptor> lFiles;
        for (;;) {
            lFiles.emplace_back(open(mPidFile.c_str(), O_RDONLY));
            sLock(lFiles.back().get(), F_OFD_SETLK, F_RDLCK, 0);
            if (lFiles.size() == 8) {
                lFiles.pop_front();
            }
        }
    });
    for (int lProcess = 0; lProcess < 4; ++lProcess) {
        lAll.emplace_back([&] {
            for (int lHeld = 0; lHeld < lTimes;) {
                ZTCProcessInstanceManager lManager(mPidFile.c_str());
                try {
                    lManager.markAsRunning();
                } catch (const ZTCExitConditionEx&) {
                    continue;
                }
                const ZTCDescriptor lAlone(open((mDirectory / "alone").c_str(), O_CREAT | O_EXCL, 0600));
                ASSERT_TRUE(lAlone.isOpen()) << "two hold it";
                unlink((mDirectory / "alone").c_str());
                lManager.exitInstanceManagement();
                ++lHeld;
            }
        });
    }
    for (ZTCTestChild& lrChild : lAll) {
        EXPECT_EQ(lrChild.waitForEnd(), 0) << lrChild.getOut();
    }
}

TEST_F(ProcessInstanceManagerTest, TellsWhetherTheProcessOfAPidFileLives) {
    const ZTCTestChild lLiving([] { pause(); });
    ZTCTestChild lZombie([] {});
    ASSERT_TRUE(waitUntil([&] { return !lZombie.isAlive(); }));
    pid_t lGone = 0;
    {
        const ZTCTestChild lShort([] {});
        lGone = lShort.getProcess();
    }
    const std::string lLive = std::to_string(lLiving.getProcess());
    const std::string lOwn = std::to_string(getpid());
    const std::string lAlive[] = {lLive + "\n", lLive, lLive + "\r\n", lLive + " \t", lOwn + "\n"};
    const std::string lZombies = std::to_string(lZombie.getProcess()) + "\n";
    const std::string lNone[] = {lZombies,
                                 std::to_string(lGone) + "\n",
                                 "",
                                 "0\n",
                                 "-" + lLive + "\n",
                                 lLive + "garbage\n",
                                 lLive + " 2\n",
                                 "garbage\n",
                                 "99999999999999999999\n"};
    ZTCProcessInstanceManager lManager((mDirectory / "own.pid").c_str());
    const auto lIsAlive = [&](const std::string& acrPath) {
        try {
            lManager.getProcStatus(acrPath.c_str());
            return true;
        } catch (const ZTCClibGetProcStatusFailedEx& lrException) {
            EXPECT_TRUE(contains(lrException.what(), acrPath)) << lrException.what();
            return false;
        }
    };
    for (const std::string& lrText : lAlive) {
        writeFile(mPidFile, lrText);
        EXPECT_TRUE(lIsAlive(mPidFile)) << lrText;
    }
    for (const std::string& lrText : lNone) {
        writeFile(mPidFile, lrText);
        EXPECT_FALSE(lIsAlive(mPidFile)) << lrText;
    }
    EXPECT_FALSE(lIsAlive(mDirectory / "missing.pid"));
    EXPECT_FALSE(lIsAlive(mDirectory.getPath()));
}

long __wrap_syscall(long aNumber, long aFirst, long aSecond, long aThird, long aFourth, long aFifth,
                    long aSixth) {
    if (aNumber == SYS_pidfd_open && sBeforeHolding) {
        sBeforeHolding(static_cast<pid_t>(aFirst));
    }
    return __real_syscall(aNumber, aFirst, aSecond, aThird, aFourth, aFifth, aSixth);
}
