// The simulated library, by the table that it exports and the socket that it takes lines from.
#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <atomic>
#include <map>
#include <mutex>

#include "Language.h"
#include "TestSupport.h"
#include "libdfc_provider.h"

namespace {

// What the callbacks have been given. It lives on: a fault may call back late.
struct Record {
    std::mutex mMutex;
    std::string mLast;
    std::map<uint32_t, unsigned int> mOfBoard;
    std::atomic<unsigned int> mByMaskEntered{0};
    std::atomic<unsigned int> mCount{0};
    std::atomic<unsigned int> mInside{0};
    std::atomic<bool> mHold{false};
};
Record& srRecord = *new Record;

std::string hexOf(const void* apBytes, size_t aSize) {
    std::string lText;
    for (size_t lAt = 0; lAt < aSize; ++lAt) {
        const uint8_t lByte = static_cast<const uint8_t*>(apBytes)[lAt];
        lText += {"0123456789abcdef"[lByte >> 4], "0123456789abcdef"[lByte & 15]};
    }
    return lText;
}

std::string word(uint32_t aWord) {
    return hexOf(&aWord, sizeof aWord);
}

void record(uint32_t aBoard, const std::string& acrText) {
    ++srRecord.mInside;
    std::unique_lock<std::mutex> lLock(srRecord.mMutex);
    srRecord.mLast = acrText;
    ++srRecord.mOfBoard[aBoard];
    lLock.unlock();
    ++srRecord.mCount;
    while (srRecord.mHold) {
        std::this_thread::yield();
    }
    --srRecord.mInside;
}

std::string takeLast() {
    const std::lock_guard<std::mutex> lLock(srRecord.mMutex);
    return std::exchange(srRecord.mLast, "");
}

unsigned int countOf(uint32_t aBoard) {
    const std::lock_guard<std::mutex> lLock(srRecord.mMutex);
    return srRecord.mOfBoard[aBoard];
}

void onGeneric(uint32_t aBoard, HBA_wwn aPort, uint32_t aCategory, uint32_t aSubcategory, void* apContext,
               const ZT_event* apEvent) {
    const uint32_t lPayload = apEvent->total_length - ZT_EVENT_HEADER;
    record(aBoard, std::to_string(aCategory) + "/" + std::to_string(aSubcategory) + " " +
                       static_cast<const char*>(apContext) + std::to_string(aBoard) + " " +
                       hexOf(aPort.wwn + 7, 1) + " " + std::to_string(lPayload) + " " +
                       (apEvent->descriptor == nullptr ? "null"
                        : lPayload > 1024              ? "lie"
                                                       : hexOf(apEvent->descriptor->payload, lPayload)));
}

void onMask(uint32_t aBoard, const void* apData, uint32_t aLength) {
    ++srRecord.mByMaskEntered;
    record(aBoard, "mask " + std::to_string(aBoard) + " " + std::to_string(aLength) + " " +
                       (apData == nullptr ? "null" : hexOf(apData, aLength)));
}

/// The library, told with a scenario.
class Library {
  public:
    explicit Library(const std::string& acrScenario = "") {
        void* const lpLibrary = dlopen(ZT_DFC_SIM, RTLD_NOW | RTLD_LOCAL);
        EXPECT_NE(lpLibrary, nullptr) << dlerror();
        const auto lpEntry =
            reinterpret_cast<const ZT_libdfc_provider* (*)(uint32_t)>(dlsym(lpLibrary, ZT_LIBDFC_ENTRY));
        EXPECT_EQ(lpEntry(ZT_LIBDFC_ABI + 1), nullptr);
        mpTable = lpEntry(ZT_LIBDFC_ABI);
        writeFile(mDirectory / "scenario", acrScenario);
        setenv("ZT_LIBDFC_SIM", (mDirectory / "scenario").c_str(), 1);
        setenv("ZT_LIBDFC_SIM_CONTROL", getSocket().c_str(), 1);
        srRecord.mOfBoard.clear();
        srRecord.mByMaskEntered = 0;
        srRecord.mCount = 0;
        mStatus = mpTable->init();
    }
    ~Library() { mpTable->close(); }
    Library(const Library&) = delete;
    const ZT_libdfc_provider* operator->() const { return mpTable; }
    int getStatus() const { return mStatus; }
    std::string getSocket() const { return mDirectory / "socket"; }
    uint32_t add(const ZTSSimEventId& acrId, uint32_t aBoard, uint32_t* apHandle) const {
        HBA_wwn lNode{}, lPort{};
        mpTable->adapter_info(aBoard, &lNode, &lPort);
        if (acrId.mMask == 0) {
            static char sContext[] = "context";
            return mpTable->ztapi_reg_event(aBoard, lPort, acrId.mCategory, acrId.mSubcategory, sContext,
                                            apHandle, onGeneric);
        }
        *apHandle = mpTable->dfc_reg_event(aBoard, acrId.mMask, 0xFFFF, 1024, onMask);
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
    std::string ask(const std::string& acrLine) const {
        const ZTSTestEnd lEnd =
            runChild(ZTCTestChild::Arguments{ZT_VRX_SIM, "send", "-s", getSocket(), acrLine},
                     ZTCTestChild::Arguments{});
        EXPECT_EQ(lEnd.mStatus, contains(lEnd.mErr, "expected") ? 1 : 0) << acrLine << ": " << lEnd.mErr;
        return lEnd.mOut + lEnd.mErr;
    }

  private:
    ZTCTestDirectory mDirectory;
    const ZT_libdfc_provider* mpTable = nullptr;
    int mStatus = 0;
};

auto timeClose(const Library& acrLibrary) {
    const auto lStart = std::chrono::steady_clock::now();
    acrLibrary->close();
    return std::chrono::steady_clock::now() - lStart;
}

constexpr ZTSSimEventId sPlogi{0, 1, 1};

}  // namespace

TEST(SimLibrary, EachKindIsDeliveredAsItIsDocumented) {
    const std::string lFirst = "500601603b200001";
    const std::string lSecond = "50060160bb200001";
    const struct {
        const char* mpLine;
        std::string mExpected;
    } lRows[] = {
        {"plogi to=0x0102030405060708", "1/1 context0 00 20 " + word(1) + lFirst + "0102030405060708"},
        {"adisc board=1", "1/4 context1 01 20 " + word(4) + lFirst + lSecond},
        {"logo", "1/16 context0 00 20 " + word(16) + lFirst + lSecond},
        {"prlo", "1/2 context0 00 12 " + word(2) + lFirst},
        {"ls-rjt command=3 reason=9 explanation=0x29",
         "1/8 context0 00 24 " + word(8) + lFirst + word(3) + word(9) + word(0x29)},
        {"fabric-busy", "2/1 context0 00 0 null"},
        {"port-busy", "2/2 context0 00 12 " + word(2) + lFirst},
        {"fcp-read-check-error lun=3 command=0x28 residual=512",
         "2/4 context0 00 24 " + word(4) + lFirst + word(3) + word(0x28) + word(512)},
        {"queue-full lun=all", "4/1 context0 00 16 " + word(1) + lFirst + "ffffffff"},
        {"device-busy lun=7", "4/2 context0 00 16 " + word(2) + lFirst + word(7)},
        {"check-condition lun=1 command=0x2a sense=6/29/04 queue-tag=9",
         "4/4 context0 00 32 " + word(4) + lFirst + word(1) + word(0x2a) + word(6) + word(0x2904) + word(9)},
        {"lun-reset lun=2", "4/8 context0 00 16 " + word(8) + lFirst + word(2)},
        {"target-reset", "4/16 context0 00 16 " + word(16) + lFirst + word(0)},
        {"bus-reset", "4/32 context0 00 0 null"},
        {"queue-depth-change lun=1 old=32 new=16",
         "4/64 context0 00 24 " + word(64) + lFirst + word(1) + word(32) + word(16)},
        {"port-interrupt-error", "8/1 context0 00 0 null"},
        {"adapter-arrival", "16/1 context0 00 0 null"},
        {"link board=1", "mask 1 168 10000025b5010001" + std::string(320, '0')},
        {"rscn pages=0x010203,0x03000000", "mask 0 12 6104000c0001020303000000"},
        {"temperature", "mask 0 0 null"},
        {"raw category=99 subcategory=1 bytes=0aff", "99/1 context0 00 2 0aff"},
        {"raw category=1 subcategory=1 bytes=01 total-length=5000", "1/1 context0 00 4980 lie"},
        {"raw category=1 subcategory=1 total-length=24 no-descriptor", "1/1 context0 00 4 null"},
        {"raw category=1 subcategory=1", "1/1 context0 00 0 "},
        {"raw mask=2 bytes=6104 length=1", "mask 0 1 61"},
        {"raw mask=2 length=40", "mask 0 40 null"},
        {"raw mask=64 bytes=61", ""},
        {"logo board=77", "1/16 context77 4d 20 " + word(16) + lFirst + lSecond},
    };
    const Library lLibrary;
    lLibrary.addAll();
    for (const auto& lrRow : lRows) {
        takeLast();
        EXPECT_EQ(lLibrary.ask(lrRow.mpLine), "ok\n");
        EXPECT_EQ(takeLast(), lrRow.mExpected) << lrRow.mpLine;
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
    lLibrary.ask("on-unregister status=4 kind=link");
    EXPECT_EQ(lLibrary.add(sPlogi, 0, &lHandle), 9U);
    EXPECT_EQ(lHandle, 0U);
    EXPECT_EQ(lLibrary.add(sPlogi, 1, &lHandle), 9U);
    EXPECT_EQ(lLibrary.add(sPlogi, 1, &lHandle), 0U);
    EXPECT_EQ(lLibrary.add({0, 1, 16}, 0, &lHandle), 5U);  // made all the same
    EXPECT_EQ(lLibrary.ask("logo"), "ok\n");
    EXPECT_EQ(srRecord.mCount, 1U);
    EXPECT_NE(lLibrary.remove(lLink, 0, lHandle), 0U);  // not of that sort
    EXPECT_EQ(lLibrary.remove({0, 1, 16}, 0, lHandle), 0U);
    EXPECT_NE(lLibrary.remove({0, 1, 16}, 0, lHandle), 0U);
    EXPECT_EQ(lLibrary.ask("logo"), "ok\n");
    EXPECT_EQ(srRecord.mCount, 1U);

    EXPECT_EQ(lLibrary.add(lLink, 0, &lHandle), 0U);
    EXPECT_EQ(lLibrary.remove(lLink, 0, lHandle), 4U);
    lLibrary.ask("on-register status=0\non-unregister status=0\nlink");
    EXPECT_EQ(srRecord.mCount, 1U);
    EXPECT_EQ(lLibrary.add(lLink, 1, &lHandle), 0U);
    EXPECT_EQ(lLibrary.remove(lLink, 1, lHandle), 0U);
}

TEST(SimLibrary, AnUnregistrationWaitsForItsCallback) {
    const Library lLibrary("wait registrations=1\nstorm plogi for=60s");
    uint32_t lHandle = 0;
    srRecord.mHold = true;
    EXPECT_EQ(lLibrary.add(sPlogi, 0, &lHandle), 0U);
    ASSERT_TRUE(waitUntil([] { return srRecord.mInside == 1; }));
    std::atomic<bool> lHasReturned{false};
    std::thread lThread([&] {
        EXPECT_EQ(lLibrary.remove(sPlogi, 0, lHandle), 0U);
        EXPECT_EQ(srRecord.mInside, 0U);
        lHasReturned = true;
    });
    // It has left the list of what is held, and waits.
    ASSERT_TRUE(waitUntil([&] { return !contains(lLibrary.ask("report"), "handle="); }));
    EXPECT_FALSE(lHasReturned);
    srRecord.mHold = false;
    lThread.join();
}

TEST(SimLibrary, StormsAreExactOverThreadsAndBoards) {
    const Library lLibrary(
        "adapters count=3\nwait registrations\nstorm plogi times=20001 threads=4 boards=3");
    lLibrary.addAll();
    ASSERT_TRUE(waitUntil([] { return srRecord.mCount > 0; }));
    lLibrary.ask("storm rscn board=2 rate=5000 times=100 threads=3\nwait storms");
    EXPECT_EQ(srRecord.mCount, 20101U);
    EXPECT_EQ(countOf(0), 6667U);
    EXPECT_EQ(countOf(2), 6767U);
    const auto lStart = std::chrono::steady_clock::now();
    lLibrary.ask("storm temperature rate=2000 for=100ms threads=2\nwait storms");
    EXPECT_GE(std::chrono::steady_clock::now() - lStart, std::chrono::milliseconds(100));
    EXPECT_LE(srRecord.mCount, 20301U);  // a machine that stands still meanwhile sees fewer than 200
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
        EXPECT_EQ(hexOf(lNode.wwn, 8) + hexOf(lPort.wwn, 8), "20000025b501010110000025b5010002");
        EXPECT_NE(lLibrary->adapter_info(3, &lNode, &lPort), 0);
        EXPECT_NE(lLibrary.add(sPlogi, 0, &lHandle), 0U);
        lLibrary.ask("adapters count=4 fail=info");
        EXPECT_EQ(lLibrary->number_of_adapters(), 4U);
        EXPECT_NE(lLibrary->ztapi_supported(), 0);
        EXPECT_NE(lLibrary->adapter_info(0, &lNode, &lPort), 0);
        EXPECT_EQ(lLibrary.add(sPlogi, 3, &lHandle), 0U);
    }
    EXPECT_NE(Library("adapters count=1 fail=init").getStatus(), 0);
    testing::internal::CaptureStderr();
    EXPECT_NE(Library("\nadapters").getStatus(), 0);
    EXPECT_TRUE(
        contains(testing::internal::GetCapturedStderr(), "/scenario:2: adapters without count, expected"));
    EXPECT_EQ(Library()->number_of_adapters(), 2U);
}

TEST(SimLibrary, TheControlSocketIsPrivateAndEndsWithTheLibrary) {
    const mode_t lMask = umask(0);
    const Library lLibrary;
    umask(lMask);
    const std::string lSocket = lLibrary.getSocket();
    struct stat lState {};
    ASSERT_EQ(stat(lSocket.c_str(), &lState), 0);
    EXPECT_EQ(lState.st_mode, S_IFSOCK | 0600U);
    EXPECT_TRUE(
        contains(lLibrary.ask("report\nfly"), "control:2: unknown verb 'fly', expected one of plogi"));
    EXPECT_TRUE(contains(lLibrary.ask("fault stuck-callback"), "control: fault stuck-callback without"));
    EXPECT_EQ(lLibrary.ask(""), "ok\n");
    {
        // A line that is being played when the library closes is answered.
        ZTCTestChild lChild(
            std::vector<std::string>{ZT_VRX_SIM, "send", "-s", lSocket, "adapters count=5\nwait 600s"},
            std::vector<std::string>{});
        ASSERT_TRUE(waitUntil([&] { return lLibrary->number_of_adapters() == 5; }));
        lLibrary->close();
        EXPECT_EQ(lChild.waitForEnd(), 1);
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
        const unsigned int lBefore = srRecord.mCount;
        ASSERT_TRUE(waitUntil([&] { return srRecord.mCount > lBefore; }));
        lLibrary->close();
        const unsigned int lCount = srRecord.mCount;
        EXPECT_NE(lLibrary.remove(sPlogi, 0, 1), 0U);  // the close has ended it
        ASSERT_EQ(lLibrary->init(), 0);
        EXPECT_EQ(srRecord.mCount, lCount);
    }
}

// Each in a process of its own, since what a fault starts may go on.
TEST(SimLibrary, FaultsAreAsTheyAreNamed) {
    const struct {
        const char* mpFault;
        void (*mCheck)(const Library& acrLibrary);
    } lRows[] = {
        {"late-callbacks",
         [](const Library& acrLibrary) {
             EXPECT_EQ(acrLibrary.remove(sPlogi, 0, 1), 0U);
             EXPECT_NE(acrLibrary.remove(sPlogi, 0, 1), 0U);
             acrLibrary.ask("plogi times=3");
             EXPECT_EQ(srRecord.mCount, 3U);
         }},
        {"callbacks-during-close",
         [](const Library& acrLibrary) {
             EXPECT_GE(timeClose(acrLibrary), std::chrono::milliseconds(100));
             EXPECT_GT(countOf(0), 0U);
             EXPECT_GT(countOf(1), 0U);
         }},
        {"callbacks-after-close for=60s",
         [](const Library& acrLibrary) {
             acrLibrary->close();
             const unsigned int lCount = srRecord.mCount;
             EXPECT_TRUE(waitUntil([&] { return srRecord.mCount > lCount + 10; }));
         }},
        {"stuck-callback",
         [](const Library& acrLibrary) {
             EXPECT_TRUE(waitUntil([] { return srRecord.mByMaskEntered == 1; }));
             acrLibrary.ask("rscn");  // others are not held up
             acrLibrary->close();
             EXPECT_EQ(srRecord.mByMaskEntered, 2U);
             EXPECT_EQ(srRecord.mCount, 1U);
         }},
        {"slow-close for=150ms",
         [](const Library& acrLibrary) { EXPECT_GE(timeClose(acrLibrary), std::chrono::milliseconds(150)); }},
    };
    for (const auto& lrRow : lRows) {
        const ZTSTestEnd lEnd = runChild([&] {
            const Library lLibrary;
            lLibrary.addAll();
            EXPECT_EQ(lLibrary.ask(std::string("fault ") + lrRow.mpFault), "ok\n");
            lrRow.mCheck(lLibrary);
        });
        EXPECT_EQ(lEnd.mStatus, 0) << lrRow.mpFault << "\n" << lEnd.mOut << lEnd.mErr;
    }
}
