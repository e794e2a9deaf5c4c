// The library over the kernel's transport, by the table that it exports; and an agent that has loaded it.
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include "AgentStatistics.h"
#include "FcTest.h"
#include "ProviderCalls.h"
#include "TestDisk.h"

namespace {

std::set<std::string> pathsIn(const char* apDirectory) {
    std::set<std::string> lPaths;
    for (const auto& lrEntry : std::filesystem::directory_iterator(apDirectory)) {
        lPaths.insert(lrEntry.path());
    }
    return lPaths;
}

// The library, with host 3.
struct ZTSFcTestStand {
    explicit ZTSFcTestStand(const char* apPeriod = "0.02") {
        mTree.addHost(3);
        mEnvironment = {"ZT_LIBDFC_FCHOST_SYSFS=" + mTree.getPath(),
                        "ZT_LIBDFC_FCHOST_NETLINK=" + mSender.getSetting(),
                        std::string("ZT_LIBDFC_FCHOST_PERIOD=") + apPeriod,
                        "ZT_LIBDFC_FCHOST_SCSI=none",
                        "ZT_LIBDFC_FCHOST_RATE=10000",
                        "ZT_LIBDFC_FCHOST_LOG=" + mTree.getPath() + "/log",
                        "ZT_LIBDFC=" ZT_DFC_FCHOST};
        mpTable = loadProvider(ZT_DFC_FCHOST, mEnvironment);
    }
    std::string getLog() const { return readFile(mTree.getPath() + "/log"); }
    std::uint32_t registerKind(std::uint32_t aBoard, std::uint32_t aCategory) const {
        std::uint32_t lHandle = 0;
        mpTable->ztapi_reg_event(aBoard, {}, aCategory, 1, const_cast<char*>("board"), &lHandle, onTestEvent);
        return lHandle;
    }
    std::uint32_t registerMask(std::uint32_t aBoard, std::uint32_t aMask) const {
        return mpTable->dfc_reg_event(aBoard, aMask, 0, 0, onTestMask);
    }
    // Waits for one callback, and no other.
    static void expect(const std::string& acrText) {
        std::string lTaken;
        EXPECT_TRUE(waitUntil([&] { return !(lTaken = takeCalls()).empty(); }));
        EXPECT_EQ(lTaken, acrText);
    }

    ZTCFcTestTree mTree;
    ZTCFcTestSender mSender;
    ZTCTestAgent::Options mEnvironment;
    const ZT_libdfc_provider* mpTable = nullptr;
};

// The kernel refuses it to this thread, and to those that it starts.
TEST(FcProvider, SaysThatRightsCannotBeGivenUp) {
    std::thread([] {
        sock_filter lRefuse[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                                 BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_capset, 0, 1),
                                 BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
                                 BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
        const sock_fprog lProgram{std::size(lRefuse), lRefuse};
        EXPECT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
        EXPECT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &lProgram), 0);
        const ZTSFcTestStand lStand;
        EXPECT_EQ(lStand.mpTable->init(), 0);
        lStand.mpTable->close();
        const bool lHasRights = geteuid() == 0;  // as this thread does
        EXPECT_EQ(countIn(lStand.getLog(), "the rights stay in effect: capset: Operation not permitted\n"),
                  lHasRights ? 1U : 0U);
    }).join();
}

TEST(FcProvider, DeliversToWhoIsRegistered) {
    inOwnNetwork([] {
        ZTSFcTestStand lStand;
        const ZT_libdfc_provider& lrTable = *lStand.mpTable;
        lStand.mTree.addHost(11);
        const auto lBefore = pathsIn("/proc/self/fd");
        ASSERT_EQ(lrTable.init(), 0);
        HBA_wwn lNames[2]{};
        EXPECT_EQ(lrTable.number_of_adapters(), 2U);
        EXPECT_EQ(lrTable.adapter_info(1, lNames, lNames + 1), 0);
        EXPECT_EQ(digitsOf(lNames, sizeof lNames), "100000000000000b200000000000000b");
        EXPECT_NE(lrTable.adapter_info(2, lNames, lNames + 1), 0);
        EXPECT_EQ(lStand.registerMask(2, ZT_DFC_LINK) + lStand.registerMask(0, 3) + lStand.registerKind(2, 8),
                  0U);
        const std::uint32_t lLink = lStand.registerMask(1, ZT_DFC_LINK);
        const std::uint32_t lError = lStand.registerKind(0, 8);
        EXPECT_NE(lStand.registerMask(1, ZT_DFC_RSCN), 0U);
        EXPECT_NE(lStand.registerKind(1, 16), 0U);

        const std::string lContext = "mask 1 168 200000000000000b" + std::string(320, '0');
        lStand.mSender.send(3, 1);      // nobody is registered
        ZTCFcTestSender().send(11, 1);  // of somebody else
        lStand.mSender.sendBytes("no message");
        lStand.mSender.send(11, 3);
        lStand.expect(lContext);
        lStand.mSender.send(11, 5, 0x01020304);
        lStand.expect("mask 1 8 6104000801020304");
        lStand.mTree.add("fc_remote_ports/rport-11:0-0", {{"port_id", "0x1"}});  // its driver tells by itself
        lStand.mTree.set("fc_host/host3/statistics/link_failure_count", "0x6\n");
        lStand.expect("8/1 board0 2000000000000003 0 null");
        lStand.mTree.addHost(12);
        lStand.expect("16/1 board1 200000000000000c 0 null");
        EXPECT_EQ(lrTable.number_of_adapters(), 3U);
        EXPECT_NE(lStand.registerKind(2, 8), 0U);
        lStand.mTree.set("fc_host/host12/statistics/link_failure_count", "0x6\n");
        lStand.expect("8/1 board2 200000000000000c 0 null");
        for (const unsigned int lCode : {0x501U, 0xffffU, 0xffffU, 0xffffU}) {
            lStand.mSender.send(3, lCode);
        }
        lStand.mSender.send(4, 1);  // no such host

        EXPECT_EQ(lrTable.ztapi_unreg_event(0, {}, lError), 0U);
        EXPECT_NE(lrTable.ztapi_unreg_event(0, {}, lError), 0U);
        EXPECT_NE(lrTable.ztapi_unreg_event(1, {}, lLink), 0U);  // by mask it was
        EXPECT_NE(lrTable.dfc_unreg_event(0, lLink), 0U);
        ZTTestCalls.mHold = true;
        lStand.mSender.send(11, 4);
        lStand.expect(lContext);
        expectToWaitForItsCallback([&] { return lrTable.dfc_unreg_event(1, lLink); });
        lStand.mSender.send(11, 4);
        lStand.mSender.send(11, 5, 7);
        lStand.expect("mask 1 8 6104000800000007");
        lrTable.close();
        std::string lLog = lStand.getLog();
        for (std::size_t lAt = 0; (lAt = lLog.find("libdfc-fchost: ", lAt)) != std::string::npos;) {
            lLog.erase(lAt, 15);
        }
        EXPECT_TRUE(
            lLog.ends_with("1 events with code 0x501 had no kind\n3 events with code 0xffff had no kind\n"
                           "1 events were of hosts that are not there, or not yet\n"
                           "1 messages were malformed\n1 messages were not the kernel's\n"))
            << lLog;
        EXPECT_EQ(countIn(lLog, "1 messages were malformed\n"), 2U) << lLog;  // told when it came, too
        lStand.mTree.remove("fc_host");
        ASSERT_EQ(lrTable.init(), 0);
        EXPECT_EQ(lrTable.number_of_adapters(), 0U);
        lrTable.close();
        EXPECT_EQ(pathsIn("/proc/self/fd"), lBefore);
    });
}

TEST(FcProvider, LooksForAHostThatItHearsOf) {
    inOwnNetwork([] {
        ZTSFcTestStand lStand("3600");
        ASSERT_EQ(lStand.mpTable->init(), 0);
        lStand.registerKind(0, 16);
        lStand.mTree.addHost(4);
        lStand.mSender.send(4, 2);
        lStand.expect("16/1 board0 2000000000000004 0 null");
        lStand.mpTable->close();
    });
}

TEST(FcProvider, CountsWhatIsLostToTheLast) {
    inOwnNetwork([] {
        ZTSFcTestStand lStand;
        ASSERT_EQ(lStand.mpTable->init(), 0);
        lStand.registerMask(0, ZT_DFC_LINK);
        ZTTestCalls.mHold = true;
        while (lStand.mSender.getSent() < 20000) {
            lStand.mSender.send(3, 1);
        }
        EXPECT_TRUE(waitUntil([] { return ZTTestCalls.mCount == 1; }));
        ZTTestCalls.mHold = false;
        EXPECT_TRUE(waitUntil([&] { return contains(lStand.getLog(), "more to tell than there was room"); }));
        const auto lLost = [&] {
            const std::string lLog = lStand.getLog();
            const std::size_t lAt = lLog.rfind("lost, ");
            return lAt == std::string::npos ? 0 : std::strtoull(lLog.c_str() + lAt + 6, nullptr, 10);
        };
        EXPECT_TRUE(waitUntil([&] {
            lStand.mSender.send(3, 1);  // the next one that arrives tells of those before it
            return lLost() != 0;
        }));
        EXPECT_TRUE(waitUntil([&] { return lLost() + ZTTestCalls.mCount == lStand.mSender.getSent(); }))
            << lLost();
        lStand.mpTable->close();
        EXPECT_TRUE(
            contains(lStand.getLog(), " " + std::to_string(lLost()) + " events of the kernel were lost\n"));
    });
}

TEST(FcProvider, RefusesWhatItCannotUse) {
    const std::pair<std::string, std::vector<const char*>> lBad[] = {
        {"SYSFS", {"", "sys", "./sys"}},
        {"NETLINK", {"", "x", "-1", "2:", "2:x", "2:-1", ":5", "2:5:", "2:5:6", "2 ", "99999999999"}},
        {"SCSI", {"", "all", "bpf,perf", "none "}},
        {"RATE", {"", "0", "-1", "10001", "1.5", "10:"}},
        {"PERIOD", {"", "0", "0.009", "3601", "nan", "inf", "-1", "1:", "1 ", "1s", "1e99"}}};
    ZTSFcTestStand lStand;
    const auto lBefore = pathsIn("/proc/self/fd");
    const auto lExpectRefusal = [&](const std::string& acrWhat) {
        testing::internal::CaptureStderr();
        EXPECT_NE(lStand.mpTable->init(), 0);
        const std::string lErr = testing::internal::GetCapturedStderr();
        EXPECT_EQ(lErr.find("libdfc-fchost: " + acrWhat), 0U) << lErr;
        EXPECT_EQ(lErr.find('\n') + 1, lErr.size()) << lErr;
    };
    for (const auto& [lrVariable, lrValues] : lBad) {
        const std::string lName = "ZT_LIBDFC_FCHOST_" + lrVariable;
        const std::string lGood = getenv(lName.c_str());
        for (const char* const lpValue : lrValues) {
            SCOPED_TRACE(lName + "=" + lpValue);
            setenv(lName.c_str(), lpValue, 1);
            lExpectRefusal(lName + ": not ");
        }
        setenv(lName.c_str(), lGood.c_str(), 1);
    }
    lStand.mTree.remove("fc_host");
    lStand.mTree.set("fc_host", "");
    lExpectRefusal("the Fibre Channel hosts below ");
    EXPECT_EQ(lStand.mpTable->number_of_adapters(), 0U);
    EXPECT_EQ(pathsIn("/proc/self/fd"), lBefore);
}

TEST(FcProvider, IsIdleBetweenLooks) {
    inOwnNetwork([] {
        constexpr int sLooks = 10;
        const ZTSFcTestStand lStand("0.02");
        const auto lOthers = pathsIn("/proc/self/task");
        ASSERT_EQ(lStand.mpTable->init(), 0);
        const auto lStart = std::chrono::steady_clock::now();
        const ZTCDescriptor lReads(inotify_init1(IN_CLOEXEC));
        inotify_add_watch(lReads.get(), lStand.mTree.pathOf("fc_host/host3/port_state").c_str(), IN_ACCESS);
        EXPECT_EQ(readBytes(lReads, sLooks * sizeof(inotify_event)).size(), sLooks * sizeof(inotify_event));
        EXPECT_GT(std::chrono::steady_clock::now() - lStart, std::chrono::milliseconds(20) * (sLooks - 1));
        const std::string lLabel = "\nvoluntary_ctxt_switches:";
        for (const std::string& lrThread : pathsIn("/proc/self/task")) {
            const std::string lStatus = readFile(lrThread + "/status");
            const char* const lpSleeps = lStatus.c_str() + lStatus.find(lLabel) + lLabel.size();
            EXPECT_TRUE(lOthers.count(lrThread) != 0 || std::atoi(lpSleeps) < 10 * sLooks) << lpSleeps;
        }
        lStand.mpTable->close();
    });
}

TEST(FcProvider, AnAgentRecordsItsEvents) {
    inOwnNetwork([] {
        ZTSFcTestStand lStand;
        const ZTCTestDirectory lDirectory;
        ZTCTestAgent lAgent(lDirectory, {}, lStand.mEnvironment);
        const ZTCTestSensor lSensor(lDirectory);
        EXPECT_EQ(lSensor.ask(messageOf(1, '\0' + wordOf(65536))), successOf(1));
        lStand.mTree.set("fc_host/host3/port_state", "Linkdown\n");
        lStand.mTree.set("fc_host/host3/statistics/link_failure_count", "0x6\n");
        lStand.mTree.addHost(12);
        lStand.mSender.send(3, 5, 0x010203);
        std::set<std::string> lRecords;
        EXPECT_TRUE(waitUntil([&] {
            const ZTCTestFetch lFetch(lSensor.ask(messageOf(1, "\x01")).substr(12));
            for (const ZTSTestRecord& lrRecord : lFetch.of(0)) {
                lRecords.insert(lrRecord.mDigits);
            }
            return lRecords.size() >= 4;
        }));
        EXPECT_EQ(lRecords,
                  (std::set<std::string>{
                      "00000001TT012000000000080100000003020100", "00000001TT0801000000000401000000",
                      "00000001TT0802000000000401000000", "00000001TT1001000000000401000000"}));
        lAgent.stop();
    });
}

// On tmpfs at once, elsewhere with the next turn. A signal ends the agent without a close.
TEST(FcProvider, TheFiguresOfAnAgentsLibrary) {
    inOwnNetwork([] {
        for (const char* const lpParent : {"/dev/shm", "/tmp"}) {
            ZTSFcTestStand lStand;
            const ZTCTestDirectory lDirectory(lpParent);
            ZTCTestAgent lAgent(lDirectory, {}, lStand.mEnvironment);
            const ZTCTestSensor lSensor(lDirectory);
            const std::string lFpin("\x16\0\0\0\0\0\0\x14\0\2\0\4\0\0\0\x0c\0\1\0\0\0\0\0\0\0\0\0\0", 28);
            lStand.mSender.sendBytes(fcMessage(3, 1, 0x501, lFpin));
            EXPECT_TRUE(waitUntil([&] {
                try {
                    const ZTCAgentStatistics lFigures(lDirectory.getPath(), ZTWireLibraryStatistics);
                    EXPECT_EQ(lFigures.getProcess(), lAgent.getProcess());
                    return lFigures.read().get("fpin_cn{host=\"3\",event=\"1\"}") == 1;
                } catch (const ZTCNoAgentError&) {
                    return false;
                }
            })) << lpParent;
            lAgent.sendSignal(SIGTERM);
            EXPECT_EQ(lAgent.waitForEnd(), 0);
            EXPECT_FALSE(std::filesystem::exists(lDirectory.getPath() + ZTWireLibraryStatistics));
        }
    });
}

TEST(FcProvider, ADiskThatStandsStillHoldsUpNoEnd) {
    if (ZTIsSanitized) {
        GTEST_SKIP() << "the sanitizers are in the place of what is preloaded";
    }
    for (const bool lIsFromTheStart : {true, false}) {
        ZTSFcTestStand lStand;
        const ZTCTestDisk lDisk("libdfc-fchost.stats");
        const ZTCTestDirectory lDirectory;
        lIsFromTheStart ? lDisk.stand() : void();
        std::ranges::copy(lDisk.getEnvironment(), std::back_inserter(lStand.mEnvironment));
        ZTCTestAgent lAgent(lDirectory, {}, lStand.mEnvironment);
        const ZTCTestSensor lSensor(lDirectory);
        const std::string lFile = lDirectory.getPath() + ZTWireLibraryStatistics;
        EXPECT_TRUE(waitUntil([&] { return std::filesystem::exists(lFile) || lIsFromTheStart; }));
        lDisk.stand();
        lAgent.sendSignal(SIGTERM);
        EXPECT_EQ(lAgent.waitForEnd(ZTTestSoon), 0);
        EXPECT_EQ(std::filesystem::exists(lFile), !lIsFromTheStart);
    }
}

}  // namespace
