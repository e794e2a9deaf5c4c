// The vendor library from its load to its close: over the smallest provider that there is, and over one that
// misbehaves. What is logged in a child shows on its standard error.
#include <dlfcn.h>

#include "AgentClient.h"
#include "LibdfcAbs.h"
#include "LibdfcCallbacks.h"
#include "ScopeAgentLosses.h"

namespace {

const unsigned char sPort[] = {0x10, 0, 0, 0x25, 0xb5, 0, 0, 1};

// What has been delivered as it should be.
std::atomic<unsigned long> sGeneric;
std::atomic<unsigned long> sLink;

void takeGeneric(std::uint32_t aBoard, HBA_wwn, std::uint32_t aCategory, std::uint32_t aSubcategory,
                 void* apContext, const ZT_event* apEvent) {
    sGeneric += aBoard == 2 && aCategory == 4 && aSubcategory == 1 && apContext == &sGeneric &&
                apEvent->descriptor->payload[0] == 0x10;
}

void takeLink(std::uint32_t aBoard, const void* apData, std::uint32_t aLength) {
    sLink += aBoard == 2 && aLength == ZT_DFC_LINK_CONTEXT && *static_cast<const char*>(apData) == 0x10;
}

template <class Result>
Result askBad(const char* apFunction) {
    void* const lpLibrary = dlopen(ZT_PROVIDER_BAD, RTLD_NOW);
    const auto lpFunction = reinterpret_cast<Result (*)()>(dlsym(lpLibrary, apFunction));
    dlclose(lpLibrary);  // it stays
    return lpFunction();
}

class LibdfcAbs : public ::testing::Test {
  protected:
    void load(const char* apFile, const char* apWords) {
        setenv("ZT_LIBDFC", apFile, 1);
        setenv("ZT_BAD", apWords, 1);
        mLibrary.LIBDFC_LoadLibrary();
        mLibrary.LIBDFC_Init();
    }
    void registerBoth() {
        const unsigned int lStatus =
            mLibrary.LIBDFC_ZtapiRegEvent(2, mPort, mEvent, &sGeneric, &mHandle, takeGeneric);
        EXPECT_EQ(lStatus, 0U);
        EXPECT_EQ(mLibrary.LIBDFC_DfcRegEvent(2, ZT_DFC_LINK, 0xffff, 168, takeLink), ZT_DFC_LINK);
    }
    // Both kinds are delivered; once the close has returned, nothing is, although the storm goes on.
    void closeInStorm() {
        EXPECT_TRUE(waitUntil(
            [&, lGeneric = +sGeneric, lLink = +sLink] { return sGeneric > lGeneric && sLink > lLink; }));
        mLibrary.LIBDFC_Close();
        const unsigned long lDelivered = sGeneric + sLink;
        mLibrary.LIBDFC_FreeLibrary();
        const auto lCalls = askBad<unsigned long>("zt_bad_calls");
        EXPECT_TRUE(waitUntil([&] { return askBad<unsigned long>("zt_bad_calls") > lCalls + 100; }));
        EXPECT_EQ(sGeneric + sLink, lDelivered);
        askBad<void>("zt_bad_join");
        EXPECT_EQ(ZTGetStatistic(ZTRowOf(ZTS_Lost, ZTSAL_Malformed)), 0U);
    }

    ZTCLibdfcAbs mLibrary;
    const ZTCPointer<ZTCWorldWideName> mPort{makePointer<ZTCWorldWideName>(sPort)};
    const ZTCPointer<ZTCScopeEvent> mEvent{
        makePointer<ZTCScopeEvent>(static_cast<unsigned char>(4), static_cast<unsigned char>(1))};
    unsigned int mHandle = 0;
};

}  // namespace

TEST_F(LibdfcAbs, UsesTheProviderOfThePage) {
    const std::string lPage = readFile(ZT_SOURCE_DIR "/docs/provider.md");
    const std::size_t lFrom = lPage.find("```c\n") + 5;
    EXPECT_LT(countIn(lPage.substr(lFrom, lPage.find("```\n", lFrom) - lFrom), "\n"), 80U);

    load(ZT_PROVIDER_MINIMAL, "");
    EXPECT_EQ(mLibrary.LIBDFC_GetNumberOfAdapters(), 1U);
    EXPECT_TRUE(mLibrary.LIBDFC_IsZtapiSupported());
    static std::string sNames;
    const auto lpTake = [](std::uint32_t aBoard, const void* apData, std::uint32_t aLength) {
        sNames +=
            std::to_string(aBoard) + std::string(static_cast<const char*>(apData), aLength).substr(0, 8);
    };
    const unsigned int lHandle = mLibrary.LIBDFC_DfcRegEvent(0, ZT_DFC_LINK, 0xffff, 168, lpTake);
    EXPECT_EQ(mLibrary.LIBDFC_DfcUnregEvent(0, lHandle), 0U);  // waits for its thread
    EXPECT_EQ(sNames, "0" + std::string(sPort, sPort + sizeof sPort));
    mLibrary.LIBDFC_Close();
}

TEST_F(LibdfcAbs, BelievesNoMoreAdaptersThanThereCanBe) {
    const ZTSTestEnd lEnd = runChild([&] {
        load(ZT_PROVIDER_BAD, "countless");
        EXPECT_EQ(mLibrary.LIBDFC_GetNumberOfAdapters(), 65536U);
    });
    EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mErr;
    EXPECT_TRUE(contains(lEnd.mErr, "tells of 4294967295 adapters: 65536 are taken\n")) << lEnd.mErr;
}

TEST_F(LibdfcAbs, WaitsForASlowCloseAndNotForOneThatHangs) {
    const ZTSTestEnd lEnd = runChild([&] {
        load(ZT_PROVIDER_BAD, "close-slow");
        mLibrary.LIBDFC_Close();
        fputs("returned\n", stderr);
        load(ZT_PROVIDER_BAD, "close-hangs");
        const ZTCTestPeriod lPeriod(ZTP_LibraryClose);
        const auto lStart = std::chrono::steady_clock::now();
        mLibrary.LIBDFC_Close();
        EXPECT_GE(std::chrono::steady_clock::now() - lStart, ZTPeriod(ZTP_LibraryClose));
    });
    EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mErr;
    EXPECT_EQ(lEnd.mErr.find("closed\nreturned\n"), 0U) << lEnd.mErr;
    EXPECT_EQ(countIn(lEnd.mErr, "close does not return: going on without it\n"), 1U) << lEnd.mErr;
}

// Nothing of all this is worth a word in the log.
TEST_F(LibdfcAbs, RegistersAndClosesInAStorm) {
    const ZTSTestEnd lEnd = runChild([&] {
        load(ZT_PROVIDER_BAD, "storm");
        for (unsigned int lRound = 0; lRound < ZTTestRounds(300U, 10000U); ++lRound) {
            registerBoth();
            EXPECT_EQ(mLibrary.LIBDFC_ZtapiUnregEvent(2, mPort, mHandle), 0U);
            EXPECT_EQ(mLibrary.LIBDFC_DfcUnregEvent(2, ZT_DFC_LINK), 0U);
        }
        registerBoth();
        closeInStorm();
        for (unsigned int lRound = 0; lRound < ZTTestRounds(60U, 1000U) && !HasFailure(); ++lRound) {
            load(ZT_PROVIDER_BAD, "storm");
            registerBoth();
            closeInStorm();
        }
    });
    EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mOut;
    EXPECT_EQ(lEnd.mErr, "");
}
