// The library over the kernel's transport, by the table that it exports; and an agent that has loaded it.
#include <dlfcn.h>
#include <sys/inotify.h>

#include <atomic>
#include <mutex>

#include "FcTest.h"
#include "SimClient.h"
#include "libdfc_provider.h"

namespace {

// What the callbacks have been given.
struct {
    std::mutex mMutex;
    std::vector<std::string> mTaken;
    std::atomic<unsigned int> mCount{0};
    std::atomic<bool> mHold{false}, mIsInside{false};
} sRecord;

void take(const std::string& acrText) {
    sRecord.mIsInside = true;
    std::unique_lock<std::mutex> lLock(sRecord.mMutex);
    sRecord.mTaken.push_back(acrText);
    lLock.unlock();
    for (++sRecord.mCount; sRecord.mHold;) {
        std::this_thread::yield();
    }
    sRecord.mIsInside = false;
}
std::string bytesFrom(const void* apBytes, std::size_t aSize) {
    return digitsOf(std::string(static_cast<const char*>(apBytes), aSize));
}
void onMask(std::uint32_t aBoard, const void* apData, std::uint32_t aLength) {
    take(std::to_string(aBoard) + " " + bytesFrom(apData, aLength));
}
void onGeneric(std::uint32_t aBoard, HBA_wwn aPort, std::uint32_t aCategory, std::uint32_t, void* apContext,
               const ZT_event* apEvent) {
    take(std::to_string(aBoard) + " " + std::to_string(aCategory) + static_cast<const char*>(apContext) +
         bytesFrom(aPort.wwn, 8) + " " + std::to_string(apEvent->total_length));
}

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
                        "ZT_LIBDFC_FCHOST_LOG=" + mTree.getPath() + "/log", "ZT_LIBDFC=" ZT_DFC_FCHOST};
        for (const std::string& lrEntry : mEnvironment) {
            const std::size_t lAt = lrEntry.find('=');
            setenv(lrEntry.substr(0, lAt).c_str(), lrEntry.c_str() + lAt + 1, 1);
        }
        void* const lpEntry = dlsym(dlopen(ZT_DFC_FCHOST, RTLD_NOW), ZT_LIBDFC_ENTRY);
        mpTable = reinterpret_cast<decltype(&zt_libdfc_provider)>(lpEntry)(ZT_LIBDFC_ABI);
        sRecord.mTaken.clear();
        sRecord.mCount = 0;
    }
    std::string getLog() const { return readFile(mTree.getPath() + "/log"); }
    std::uint32_t registerKind(std::uint32_t aBoard, std::uint32_t aCategory) const {
        std::uint32_t lHandle = 0;
        mpTable->ztapi_reg_event(aBoard, {}, aCategory, 1, const_cast<char*>("/1 "), &lHandle, onGeneric);
        return lHandle;
    }
    std::uint32_t registerMask(std::uint32_t aBoard, std::uint32_t aMask) const {
        return mpTable->dfc_reg_event(aBoard, aMask, 0, 0, onMask);
    }
    // Waits for one callback, and no other.
    static void expect(const std::string& acrText) {
        std::vector<std::string> lTaken;
        EXPECT_TRUE(waitUntil([&] {
            const std::lock_guard<std::mutex> lLock(sRecord.mMutex);
            lTaken.swap(sRecord.mTaken);
            return !lTaken.empty();
        }));
        EXPECT_EQ(lTaken, std::vector<std::string>{acrText});
    }

    ZTCFcTestTree mTree;
    ZTCFcTestSender mSender;
    ZTCTestAgent::Options mEnvironment;
    const ZT_libdfc_provider* mpTable = nullptr;
};

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
        EXPECT_EQ(bytesFrom(lNames, sizeof lNames), "100000000000000b200000000000000b");
        EXPECT_NE(lrTable.adapter_info(2, lNames, lNames + 1), 0);
        EXPECT_EQ(lStand.registerMask(2, ZT_DFC_LINK) + lStand.registerMask(0, 3) + lStand.registerKind(2, 8),
                  0U);
        const std::uint32_t lLink = lStand.registerMask(1, ZT_DFC_LINK);
        const std::uint32_t lError = lStand.registerKind(0, 8);
        EXPECT_NE(lStand.registerMask(1, ZT_DFC_RSCN), 0U);
        EXPECT_NE(lStand.registerKind(1, 16), 0U);

        const std::string lContext = "1 200000000000000b" + std::string(320, '0');
        lStand.mSender.send(3, 1);      // nobody is registered
        ZTCFcTestSender().send(11, 1);  // of somebody else
        lStand.mSender.sendBytes("no message");
        lStand.mSender.send(11, 3);
        lStand.expect(lContext);
        lStand.mSender.send(11, 5, 0x01020304);
        lStand.expect("1 6104000801020304");
        lStand.mTree.add("fc_remote_ports/rport-11:0-0", {{"port_id", "0x1"}});  // its driver tells by itself
        lStand.mTree.set("fc_host/host3/statistics/link_failure_count", "0x6\n");
        lStand.expect("0 8/1 2000000000000003 20");
        lStand.mTree.addHost(12);
        lStand.expect("1 16/1 200000000000000c 20");
        EXPECT_EQ(lrTable.number_of_adapters(), 3U);
        EXPECT_NE(lStand.registerKind(2, 8), 0U);
        lStand.mTree.set("fc_host/host12/statistics/link_failure_count", "0x6\n");
        lStand.expect("2 8/1 200000000000000c 20");
        for (const unsigned int lCode : {0x501U, 0xffffU, 0xffffU, 0xffffU}) {
            lStand.mSender.send(3, lCode);
        }
        lStand.mSender.send(4, 1);  // no such host

        EXPECT_EQ(lrTable.ztapi_unreg_event(0, {}, lError), 0U);
        EXPECT_NE(lrTable.ztapi_unreg_event(0, {}, lError), 0U);
        EXPECT_NE(lrTable.ztapi_unreg_event(1, {}, lLink), 0U);  // by mask it was
        EXPECT_NE(lrTable.dfc_unreg_event(0, lLink), 0U);
        sRecord.mHold = true;
        lStand.mSender.send(11, 4);
        lStand.expect(lContext);
        std::atomic<pid_t> lThread{0};
        std::atomic<bool> lHasReturned{false};
        std::thread lEnd([&] {
            lThread = gettid();
            EXPECT_EQ(lrTable.dfc_unreg_event(1, lLink), 0U);
            EXPECT_FALSE(sRecord.mIsInside);
            lHasReturned = true;
        });
        EXPECT_TRUE(waitUntil([&] {
            const std::string lStat = readFile("/proc/self/task/" + std::to_string(lThread) + "/stat");
            return lHasReturned || contains(lStat, ") S ");
        }));
        sRecord.mHold = false;
        lEnd.join();
        lStand.mSender.send(11, 4);
        lStand.mSender.send(11, 5, 7);
        lStand.expect("1 6104000800000007");
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
        EXPECT_TRUE(lLog.starts_with("1 messages were malformed\n")) << lLog;  // told when it came
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
        lStand.expect("0 16/1 2000000000000004 20");
        lStand.mpTable->close();
    });
}

TEST(FcProvider, CountsWhatIsLostToTheLast) {
    inOwnNetwork([] {
        ZTSFcTestStand lStand;
        ASSERT_EQ(lStand.mpTable->init(), 0);
        lStand.registerMask(0, ZT_DFC_LINK);
        sRecord.mHold = true;
        while (lStand.mSender.getSent() < 20000) {
            lStand.mSender.send(3, 1);
        }
        EXPECT_TRUE(waitUntil([] { return sRecord.mCount == 1; }));
        sRecord.mHold = false;
        std::uint64_t lLost = 0;
        EXPECT_TRUE(waitUntil([&] {
            lStand.mSender.send(3, 1);  // the next one that arrives tells of those before it
            const std::string lLog = lStand.getLog();
            const std::size_t lAt = lLog.rfind("lost, ");
            lLost = lAt == std::string::npos ? 0 : std::strtoull(lLog.c_str() + lAt + 6, nullptr, 10);
            return lLost != 0;
        }));
        EXPECT_TRUE(waitUntil([&] { return lLost + sRecord.mCount == lStand.mSender.getSent(); })) << lLost;
        lStand.mpTable->close();
        EXPECT_TRUE(
            contains(lStand.getLog(), " " + std::to_string(lLost) + " events of the kernel were lost\n"));
    });
}

TEST(FcProvider, RefusesWhatItCannotUse) {
    const std::pair<std::string, std::vector<const char*>> lBad[] = {
        {"SYSFS", {"", "sys", "./sys"}},
        {"NETLINK", {"", "x", "-1", "2:", "2:x", "2:-1", ":5", "2:5:", "2:5:6", "2 ", "99999999999"}},
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
        const ZTSFcTestStand lStand("0.1");
        const auto lOthers = pathsIn("/proc/self/task");
        ASSERT_EQ(lStand.mpTable->init(), 0);
        const auto lStart = std::chrono::steady_clock::now();
        const ZTCDescriptor lOpens(inotify_init1(IN_CLOEXEC));
        inotify_add_watch(lOpens.get(), lStand.mTree.pathOf("fc_host/host3/port_state").c_str(), IN_OPEN);
        EXPECT_EQ(readBytes(lOpens, sLooks * sizeof(inotify_event)).size(), sLooks * sizeof(inotify_event));
        EXPECT_GT(std::chrono::steady_clock::now() - lStart, std::chrono::milliseconds(100) * (sLooks - 1));
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
        lStand.mTree.addHost(11);
        const ZTCTestDirectory lDirectory;
        ZTCTestAgent lAgent(lDirectory, {}, lStand.mEnvironment);
        const ZTCTestSensor lSensor(lDirectory);
        EXPECT_EQ(lSensor.ask(messageOf(1, '\0' + wordOf(65536))), successOf(1));
        const auto lExpect = [&](const std::string& acrRecords) {
            std::string lText;
            EXPECT_TRUE(waitUntil([&] {
                const ZTCTestFetch lFetch(lSensor.ask(messageOf(1, "\x01")).substr(12));
                for (const ZTSTestList& lrList : lFetch.getLists()) {
                    for (const ZTSTestRecord& lrRecord : lrList.mRecords) {
                        lText += lrList.mLabel.substr(21, 3) + lrRecord.mDigits;
                    }
                }
                return !lText.empty();
            }));
            EXPECT_EQ(lText, acrRecords);
        };
        lStand.mTree.set("fc_host/host3/port_state", "Linkdown\n");
        lExpect("03.00000001TT0802000000000401000000");
        lStand.mSender.send(11, 5, 0x010203);
        lExpect("0b.00000001TT012000000000080100000003020100");
        lStand.mTree.set("fc_host/host11/statistics/link_failure_count", "0x6\n");
        lExpect("0b.00000001TT0801000000000401000000");
        lStand.mTree.addHost(12);
        lExpect("03.00000001TT1001000000000401000000");
        lStand.mSender.send(3, 5, 0x010203);
        lExpect("03.00000001TT012000000000080100000003020100");
        lAgent.stop();
    });
}

}  // namespace
