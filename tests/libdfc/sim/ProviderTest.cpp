// The simulated library, by the table that it exports and the socket that it takes lines from.
#include <sys/stat.h>

#include "Language.h"
#include "ProviderCalls.h"

namespace {

std::string word(uint32_t aWord) {
    return digitsOf(&aWord, sizeof aWord);
}

/// The library, told with a scenario, and its socket.
class Library : public ZTCTestSim {
  public:
    explicit Library(const std::string& acrScenario = "")
        : ZTCTestSim(acrScenario),
          mpTable(loadProvider(ZT_DFC_SIM, getEnvironment())),
          mStatus(mpTable->init()) {}
    ~Library() { mpTable->close(); }
    Library(const Library&) = delete;
    const ZT_libdfc_provider* operator->() const { return mpTable; }
    int getStatus() const { return mStatus; }
    uint32_t add(const ZTSSimEventId& acrId, uint32_t aBoard, uint32_t* apHandle) const {
        HBA_wwn lNode{}, lPort{};
        mpTable->adapter_info(aBoard, &lNode, &lPort);
        if (acrId.mMask == 0) {
            static char sContext[] = "context";
            return mpTable->ztapi_reg_event(aBoard, lPort, acrId.mCategory, acrId.mSubcategory, sContext,
                                            apHandle, onTestEvent);
        }
        *apHandle = mpTable->dfc_reg_event(aBoard, acrId.mMask, 0xFFFF, 1024, onTestMask);
        return *apHandle != 0 ? 0 : 1;
    }
    uint32_t remove(const ZTSSimEventId& acrId, uint32_t aBoard, uint32_t aHandle) const {
        return acrId.mMask == 0 ? mpTable->ztapi_unreg_event(aBoard, {}, aHandle)
                                : mpTable->dfc_unreg_event(aBoard, aHandle);
    }
    void addAll() const {
        uint32_t lHandle = 0;
        for (uint32_t lBoard = 0; lBoard < mpTable->number_of_adapters(); ++lBoard) {
            for (const ZTSSimKind& lrKind : getSimKinds()) {
                EXPECT_EQ(add(lrKind.mId, lBoard, &lHandle), 0U) << lrKind.mpName;
            }
        }
    }

  private:
    const ZT_libdfc_provider* const mpTable;
    const int mStatus;
};

auto timeClose(const Library& acrLibrary) {
    const auto lStart = std::chrono::steady_clock::now();
    acrLibrary->close();
    return std::chrono::steady_clock::now() - lStart;
}

constexpr ZTSSimEventId sPlogi{0, 1, 1};

}  // namespace

TEST(SimLibrary, EventsAreDeliveredAsTheyAreDocumented) {
    const std::string lOfPort0 = " context0 10000025b5010000 ";
    const std::pair<const char*, std::string> lRows[] = {
        {"plogi to=0x0102030405060708",
         "1/1" + lOfPort0 + "20 " + word(1) + "500601603b2000010102030405060708"},
        {"fabric-busy", "2/1" + lOfPort0 + "0 null"},
        {"link board=1", "mask 1 168 10000025b5010001" + std::string(320, '0')},
        {"rscn pages=0x010203,0x03000000", "mask 0 12 6104000c0001020303000000"},
        {"raw category=99 subcategory=1 bytes=0aff", "99/1" + lOfPort0 + "2 0aff"},
        {"raw category=1 subcategory=1 bytes=01 total-length=5000", "1/1" + lOfPort0 + "4980 lie"},
        {"raw category=1 subcategory=1 total-length=24 no-descriptor", "1/1" + lOfPort0 + "4 null"},
        {"raw mask=2 bytes=6104 length=1", "mask 0 1 61"},
        {"raw mask=2 length=40", "mask 0 40 null"},
        {"raw mask=64 bytes=61", ""},
        {"logo board=77",
         "1/16 context77 10000025b501004d 20 " + word(16) + "500601603b20000150060160bb200001"},
    };
    const Library lLibrary;
    lLibrary.addAll();
    for (const auto& [lpLine, lrExpected] : lRows) {
        lLibrary.play(lpLine);
        EXPECT_EQ(takeCalls(), lrExpected) << lpLine;
    }
    const size_t lCount = std::size(lRows);
    EXPECT_TRUE(contains(lLibrary.ask("report"),
                         "events sent=" + std::to_string(lCount) +
                             " delivered=" + std::to_string(lCount - 1) +
                             " unregistered=1\nstorms running=0\nregistration board=0 "
                             "port=10:00:00:25:b5:01:00:00 category=1 subcategory=1 handle=1\n"));
}

TEST(SimLibrary, RegistrationsEndAndReturnWhatTheyAreToldTo) {
    const ZTSSimEventId lLink{ZT_DFC_LINK, 0, 0};
    const Library lLibrary(
        "on-register status=9 kind=plogi times=2\non-register status=5 kind=logo\n"
        "on-register status=3 kind=link board=1\non-unregister status=4 kind=link");
    uint32_t lHandle = 0;
    waitUntil([&] { return lLibrary.add(lLink, 1, &lHandle) != 0; });  // the last rule but one is in force
    EXPECT_EQ(lHandle, 0U);
    lLibrary.play("on-unregister status=4 kind=link");
    EXPECT_EQ(lLibrary.add(sPlogi, 0, &lHandle), 9U);
    EXPECT_EQ(lHandle, 0U);
    EXPECT_EQ(lLibrary.add(sPlogi, 1, &lHandle), 9U);
    EXPECT_EQ(lLibrary.add(sPlogi, 1, &lHandle), 0U);
    EXPECT_EQ(lLibrary.add({0, 1, 16}, 0, &lHandle), 5U);  // made all the same
    lLibrary.play("logo");
    EXPECT_EQ(ZTTestCalls.mCount, 1U);
    EXPECT_NE(lLibrary.remove(lLink, 0, lHandle), 0U);  // not of that sort
    EXPECT_EQ(lLibrary.remove({0, 1, 16}, 0, lHandle), 0U);
    EXPECT_NE(lLibrary.remove({0, 1, 16}, 0, lHandle), 0U);
    lLibrary.play("logo");
    EXPECT_EQ(ZTTestCalls.mCount, 1U);

    EXPECT_EQ(lLibrary.add(lLink, 0, &lHandle), 0U);
    EXPECT_EQ(lLibrary.remove(lLink, 0, lHandle), 4U);
    lLibrary.play("on-register status=0\non-unregister status=0\nlink");
    EXPECT_EQ(ZTTestCalls.mCount, 1U);
    EXPECT_EQ(lLibrary.add(lLink, 1, &lHandle), 0U);
    EXPECT_EQ(lLibrary.remove(lLink, 1, lHandle), 0U);
}

TEST(SimLibrary, AnUnregistrationWaitsForItsCallback) {
    const Library lLibrary("wait registrations=1\nstorm plogi for=60s");
    uint32_t lHandle = 0;
    ZTTestCalls.mHold = true;
    EXPECT_EQ(lLibrary.add(sPlogi, 0, &lHandle), 0U);
    ASSERT_TRUE(waitUntil([] { return ZTTestCalls.mInside == 1; }));
    expectToWaitForItsCallback([&] { return lLibrary.remove(sPlogi, 0, lHandle); });
}

TEST(SimLibrary, StormsAreExactOverThreadsAndBoards) {
    const Library lLibrary(
        "adapters count=3\nwait registrations\nstorm plogi times=20001 threads=4 boards=3");
    lLibrary.addAll();
    ASSERT_TRUE(waitUntil([] { return ZTTestCalls.mCount > 0; }));
    lLibrary.play("storm rscn board=2 rate=5000 times=100 threads=3\nwait storms");
    EXPECT_EQ(ZTTestCalls.mCount, 20101U);
    EXPECT_EQ(countCalls(0), 6667U);
    EXPECT_EQ(countCalls(2), 6767U);
    const auto lStart = std::chrono::steady_clock::now();
    lLibrary.play("storm temperature rate=2000 for=100ms threads=2\nwait storms");
    EXPECT_GE(std::chrono::steady_clock::now() - lStart, std::chrono::milliseconds(100));
    EXPECT_LE(ZTTestCalls.mCount, 20301U);  // a machine that stands still meanwhile sees fewer than 200
    EXPECT_TRUE(contains(lLibrary.ask("storm link for=60s rate=1\nreport"), "storms running=1\n"));
}

TEST(SimLibrary, AdaptersAreAsTheScenarioHasThem) {
    HBA_wwn lNode{}, lPort{};
    uint32_t lHandle = 0;
    {
        const Library lLibrary("report\nadapters count=3 node=20000025b50100ff old-driver");
        EXPECT_EQ(lLibrary->number_of_adapters(), 3U);
        EXPECT_EQ(lLibrary->ztapi_supported(), 0);
        EXPECT_EQ(lLibrary->adapter_info(2, &lNode, &lPort), 0);
        EXPECT_EQ(digitsOf(lNode.wwn, 8) + digitsOf(lPort.wwn, 8), "20000025b501010110000025b5010002");
        EXPECT_NE(lLibrary->adapter_info(3, &lNode, &lPort), 0);
        EXPECT_NE(lLibrary.add(sPlogi, 0, &lHandle), 0U);
        lLibrary.play("adapters count=4 fail=info");
        EXPECT_EQ(lLibrary->number_of_adapters(), 4U);
        EXPECT_NE(lLibrary->ztapi_supported(), 0);
        EXPECT_NE(lLibrary->adapter_info(0, &lNode, &lPort), 0);
        EXPECT_EQ(lLibrary.add(sPlogi, 3, &lHandle), 0U);
    }
    EXPECT_NE(Library("adapters count=1 fail=init").getStatus(), 0);
    EXPECT_NE(Library("\nadapters").getStatus(), 0);
    EXPECT_EQ(Library()->number_of_adapters(), 2U);
}

TEST(SimLibrary, TheControlSocketIsPrivateAndEndsWithTheLibrary) {
    const mode_t lMask = umask(0);
    const Library lLibrary;
    umask(lMask);
    const std::string lSocket = getenv("ZT_LIBDFC_SIM_CONTROL");
    struct stat lState {};
    ASSERT_EQ(stat(lSocket.c_str(), &lState), 0);
    EXPECT_EQ(lState.st_mode, S_IFSOCK | 0600U);
    EXPECT_TRUE(
        contains(lLibrary.ask("report\nfly"), "control:2: unknown verb 'fly', expected one of plogi"));
    EXPECT_TRUE(contains(lLibrary.ask("fault stuck-callback"), "control: fault stuck-callback without"));
    lLibrary.play("");
    const auto lSend = [&](const char* apLine) {
        return ZTCTestChild::Arguments{ZT_VRX_SIM, "send", "-s", lSocket, "plogi", apLine};
    };
    EXPECT_EQ(ZTCTestChild(lSend("report"), {}).waitForEnd(), 0);
    {
        // A line that is being played when the library closes is answered.
        ZTCTestChild lChild(lSend("adapters count=5\nwait 600s"), {});
        ASSERT_TRUE(waitUntil([&] { return lLibrary->number_of_adapters() == 5; }));
        lLibrary->close();
        EXPECT_EQ(lChild.waitForEnd(), 1);
        EXPECT_EQ(lChild.getOut(), "ok\n");
        EXPECT_TRUE(contains(lChild.getErr(), "control: ended, as the library was closed"));
    }
    EXPECT_FALSE(std::filesystem::exists(lSocket));

    sockaddr_un lAddress{AF_UNIX, ""};
    lSocket.copy(lAddress.sun_path, sizeof lAddress.sun_path - 1);
    testing::internal::CaptureStderr();
    {
        const ZTCDescriptor lOther(socket(AF_UNIX, SOCK_DGRAM, 0));
        ASSERT_EQ(bind(lOther.get(), reinterpret_cast<const sockaddr*>(&lAddress), sizeof lAddress), 0);
        EXPECT_NE(lLibrary->init(), 0);  // somebody listens
    }
    EXPECT_EQ(lLibrary->init(), 0);  // what is left of a dead process is replaced
    lLibrary->close();
    writeFile(lSocket, "data");
    EXPECT_NE(lLibrary->init(), 0);
    EXPECT_EQ(readFile(lSocket), "data");
    const std::string lErrors = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(contains(lErrors, lSocket + ": is in use, expected")) << lErrors;
    EXPECT_TRUE(contains(lErrors, lSocket + ": is there and no socket, expected")) << lErrors;
}

TEST(SimLibrary, OpensAndClosesAgainAndAgain) {
    const Library lLibrary("wait registrations\nstorm plogi threads=2 boards=2 for=60s\nwait 60s");
    for (unsigned int lRound = 0; lRound < 50; ++lRound) {
        lLibrary.addAll();
        const unsigned int lBefore = ZTTestCalls.mCount;
        ASSERT_TRUE(waitUntil([&] { return ZTTestCalls.mCount > lBefore; }));
        lLibrary->close();
        const unsigned int lCount = ZTTestCalls.mCount;
        EXPECT_NE(lLibrary.remove(sPlogi, 0, 1), 0U);  // the close has ended it
        ASSERT_EQ(lLibrary->init(), 0);
        EXPECT_EQ(ZTTestCalls.mCount, lCount);
    }
}

// Each in a process of its own, since what a fault starts may go on.
TEST(SimLibrary, FaultsAreAsTheyAreNamed) {
    const auto lWith = [](const char* apFault, void (*apCheck)(const Library& acrLibrary)) {
        const ZTSTestEnd lEnd = runChild([&] {
            const Library lLibrary;
            lLibrary.addAll();
            lLibrary.play(std::string("fault ") + apFault);
            apCheck(lLibrary);
        });
        EXPECT_EQ(lEnd.mStatus, 0) << apFault << "\n" << lEnd.mOut << lEnd.mErr;
    };
    lWith("late-callbacks", [](const Library& acrLibrary) {
        EXPECT_EQ(acrLibrary.remove(sPlogi, 0, 1), 0U);
        EXPECT_NE(acrLibrary.remove(sPlogi, 0, 1), 0U);
        acrLibrary.play("plogi times=3");
        EXPECT_EQ(ZTTestCalls.mCount, 3U);
    });
    lWith("callbacks-during-close", [](const Library& acrLibrary) {
        EXPECT_GE(timeClose(acrLibrary), std::chrono::milliseconds(100));
        EXPECT_GT(countCalls(0), 0U);
        EXPECT_GT(countCalls(1), 0U);
    });
    lWith("callbacks-after-close for=60s", [](const Library& acrLibrary) {
        acrLibrary->close();
        const unsigned int lCount = ZTTestCalls.mCount;
        EXPECT_TRUE(waitUntil([&] { return ZTTestCalls.mCount > lCount + 10; }));
    });
    lWith("stuck-callback", [](const Library& acrLibrary) {
        EXPECT_TRUE(waitUntil([] { return ZTTestCalls.mByMaskEntered == 1; }));
        acrLibrary.play("rscn");  // others are not held up
        acrLibrary->close();
        EXPECT_EQ(ZTTestCalls.mByMaskEntered, 2U);
        EXPECT_EQ(ZTTestCalls.mCount, 1U);
    });
    lWith("slow-close for=150ms", [](const Library& acrLibrary) {
        EXPECT_GE(timeClose(acrLibrary), std::chrono::milliseconds(150));
    });
}
