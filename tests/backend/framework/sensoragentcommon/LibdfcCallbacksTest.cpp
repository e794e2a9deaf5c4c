// What the vendor library's threads meet: lengths that lie, callbacks that throw, and the gate. What is
// logged in a child shows on its standard error.
#include <latch>

#include "AgentClient.h"
#include "LibdfcAbs.h"
#include "LibdfcCallbacks.h"
#include "ScopeAgentLosses.h"

namespace {

constexpr HBA_wwn sPort = {{0x10, 0, 0, 0x25, 0xb5, 0, 0, 9}};

unsigned int sCalls;
ZTCScopeAgentLosses sLosses;
std::string sSeen;  // the bytes that a callback by mask was given
const ZT_event* spEvent;
int sThrown;

void takeGeneric(std::uint32_t aBoard, HBA_wwn aPort, std::uint32_t aCategory, std::uint32_t aSubcategory,
                 void* apContext, const ZT_event* apEvent) {
    ++sCalls;
    EXPECT_TRUE(aBoard == 3 && memcmp(&aPort, &sPort, sizeof sPort) == 0 && aCategory == 4);
    EXPECT_TRUE(aSubcategory == 64 && apContext == &sCalls && apEvent == spEvent);
}

void takeDfc(std::uint32_t aBoard, const void* apData, std::uint32_t aLength) {
    ++sCalls;
    EXPECT_EQ(aBoard, 3U);
    sSeen.assign(static_cast<const char*>(apData), aLength);
}

template <class... Arguments>
void throwIt(Arguments...) {
    if (sThrown == 0) {
        throw ZTCInvalidEx("broken", 6);
    }
    throw sThrown;
}

// The end of memory that may be read: one byte more is deadly.
unsigned char* endOfMemory() {
    constexpr std::size_t lSize = 65536;
    static auto* const spMemory = static_cast<unsigned char*>(
        mmap(nullptr, 2 * lSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect(spMemory + lSize, lSize, PROT_NONE);
    return spMemory + lSize;
}

// An RSCN of so many bytes, the two of its length field and others.
std::string rscnOf(unsigned int aClaimed, unsigned int aLength) {
    std::string lRscn = "a" + wordOf(aClaimed).substr(1);
    while (lRscn.size() < aLength) {
        lRscn += static_cast<char>(lRscn.size() * 7);
    }
    return lRscn;
}

// Runs the work in a child, with the gate open, and returns what it logged.
std::string logOf(const std::function<void()>& acrWork) {
    const ZTSTestEnd lEnd = runChild([&] {
        LibdfcGate().open();
        acrWork();
    });
    EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mOut << lEnd.mErr;
    return lEnd.mErr;
}

void callGeneric(ZT_generic_callback apCallback, void* apContext) {
    static constexpr ZT_event sEvent{1, ZT_EVENT_HEADER, nullptr};
    LibdfcWrap(apCallback)(3, sPort, 4, 64, apContext, &sEvent);
}

}  // namespace

TEST(LibdfcCallbacks, DropRecordsThatClaimWhatCannotBe) {
    static constexpr ZT_event_descriptor sNone{1, nullptr};
    static const ZT_event_descriptor sSome{1, endOfMemory()};  // not read
    // Whether it is taken without a descriptor, with a payload, with a null one.
    constexpr struct {
        unsigned int mLength;
        bool mIsTaken[3];
    } lRows[] = {{0, {true}},           {19, {true}},    {20, {true, true, true}}, {21, {true, true}},
                 {65556, {true, true}}, {65557, {true}}, {0xffffffffU, {true}}};
    const std::string lLog = logOf([&] {
        const ZT_generic_callback lpCall = LibdfcWrap(takeGeneric);
        unsigned int lTaken = 0;
        for (const auto& lrRow : lRows) {
            for (std::size_t lAt = 0; lAt < 3; ++lAt) {
                const ZT_event_descriptor* const lpDescriptors[] = {nullptr, &sSome, &sNone};
                const ZT_event lEvent{1, lrRow.mLength, lpDescriptors[lAt]};
                spEvent = &lEvent;
                lpCall(3, sPort, 4, 64, &sCalls, &lEvent);
                lTaken += lrRow.mIsTaken[lAt] ? 1 : 0;
                EXPECT_EQ(sCalls, lTaken) << lrRow.mLength << ", " << lAt;
                EXPECT_EQ(sLosses.take()[ZTSAL_Malformed], lrRow.mIsTaken[lAt] ? 0U : 1U);
            }
        }
        lpCall(3, sPort, 4, 64, &sCalls, nullptr);
        lpCall(3, sPort, 4, 64, &sCalls, nullptr);
        EXPECT_EQ(sCalls, lTaken);
        EXPECT_EQ(sLosses.take()[ZTSAL_Malformed], 2U);
    });
    EXPECT_EQ(countIn(lLog, "Event (4, 64) of board 3 is dropped"), 12U) << lLog;
}

TEST(LibdfcCallbacks, HandOnTheRscnPagesThatCame) {
    logOf([] {
        const ZT_dfc_callback lpCall = LibdfcWrap(ZT_DFC_RSCN, takeDfc);
        for (const unsigned int lLength : {4U, 8U, 10U, 12U, 1024U}) {
            for (const unsigned int lClaimed : {0U, 4U, 6U, 12U, 65535U}) {
                SCOPED_TRACE(std::to_string(lClaimed) + " of " + std::to_string(lLength));
                const std::string lRscn = rscnOf(lClaimed, lLength);
                void* const lpPayload = memcpy(endOfMemory() - lLength, lRscn.data(), lLength);
                lpCall(3, lpPayload, lLength);
                EXPECT_EQ(memcmp(lpPayload, lRscn.data(), lLength), 0);
                const bool lIsKept = lLength < 8 || lClaimed / 4 <= lLength / 4;  // below 8 it has no page
                const unsigned int lWhole = lLength / 4 * 4;
                EXPECT_EQ(sSeen, lIsKept ? lRscn : rscnOf(lWhole, lWhole));
            }
        }
        for (const unsigned int lLength : {0U, 8U, 65535U}) {
            lpCall(3, nullptr, lLength);
            EXPECT_EQ(sSeen, "");
        }
        EXPECT_EQ(sCalls, 28U);
        EXPECT_EQ(sLosses.take()[ZTSAL_Malformed], 0U);
    });
}

TEST(LibdfcCallbacks, HandOnALinkContextOrZeros) {
    logOf([] {
        const ZT_dfc_callback lpCall = LibdfcWrap(ZT_DFC_LINK, takeDfc);
        memset(endOfMemory() - 200, 'x', 200);
        for (const unsigned int lLength : {0U, 167U, 1168U}) {
            lpCall(3, lLength < 1000 ? endOfMemory() - lLength : nullptr, lLength % 1000);
            EXPECT_EQ(sSeen, std::string(168, '\0')) << lLength;
        }
        for (const unsigned int lLength : {168U, 200U}) {
            lpCall(3, endOfMemory() - lLength, lLength);
            EXPECT_EQ(sSeen, std::string(lLength, 'x'));
        }
        EXPECT_EQ(sCalls, 5U);
        EXPECT_THROW(LibdfcWrap(4, takeDfc), ZTCInvalidEx);
    });
}

TEST(LibdfcCallbacks, LetNothingThrownOut) {
    const std::string lLog = logOf([] {
        const std::string lPayload = rscnOf(65535, 12);
        for (sThrown = 0; sThrown < 2; ++sThrown) {
            callGeneric(throwIt, nullptr);
            for (const unsigned int lMask : {ZT_DFC_LINK, ZT_DFC_RSCN, ZT_DFC_TEMPERATURE}) {
                LibdfcWrap(lMask, throwIt)(3, lPayload.data(), 12);
            }
            EXPECT_EQ(sLosses.take()[ZTSAL_NoMemory], 4U) << sThrown;
        }
        LibdfcGate().shut();
        EXPECT_EQ(LibdfcGate().waitUntilEmpty({}), 0U);
    });
    EXPECT_EQ(countIn(lLog, "An event is lost: broken"), 4U) << lLog;
    EXPECT_EQ(countIn(lLog, "An event is lost: unknown exception"), 4U) << lLog;
}

// More threads than have a slot of their own, one call inside the other, and then others in their slots.
TEST(LibdfcCallbacks, AreCountedByTheHundredAndInsideOneAnother) {
    constexpr unsigned int lThreads = 100;
    LibdfcGate().open();
    for (unsigned int lRound = 0; lRound < 3; ++lRound) {
        std::latch lAreInside(lThreads);
        std::latch lAreCounted(1);
        inThreads(lThreads, [&](unsigned int aThread) {
            const ZTCCallbackGate::Passage lOuter(LibdfcGate());
            { const ZTCCallbackGate::Passage lInner(LibdfcGate()); }
            lAreInside.arrive_and_wait();
            if (aThread == 0) {
                EXPECT_EQ(LibdfcGate().countInside(), lThreads);
                lAreCounted.count_down();
            }
            lAreCounted.wait();
        });
        EXPECT_EQ(LibdfcGate().countInside(), 0U);
    }
    LibdfcGate().shut();
}

TEST(LibdfcCallbacks, AreOutsideWhenTheGateIsSaidToBeEmpty) {
    static std::atomic<unsigned int> sInside;
    static std::atomic<unsigned int> sPassed;
    std::atomic<bool> lIsOver{false};
    const auto lpPass = [](std::uint32_t, HBA_wwn, std::uint32_t, std::uint32_t, void*, const ZT_event*) {
        ++sInside;
        ++sPassed;
        std::this_thread::yield();
        --sInside;
    };
    inThreads(9, [&](unsigned int aThread) {
        while (aThread != 0 && !lIsOver) {
            callGeneric(lpPass, nullptr);
        }
        for (unsigned int lRound = 0; lRound < ZTTestRounds(30U, 1000U) && aThread == 0; ++lRound) {
            const unsigned int lBefore = sPassed;
            LibdfcGate().open();
            while (sPassed == lBefore) {
                std::this_thread::yield();
            }
            LibdfcGate().shut();
            unsigned int lInside = 0;
            for (unsigned int lWait = 0; lWait < 16; ++lWait) {  // who is turned away is not inside
                lInside += LibdfcGate().waitUntilEmpty(std::chrono::minutes(1));
            }
            EXPECT_EQ(lInside, 0U) << lRound;
            EXPECT_EQ(sInside, 0U);
        }
        lIsOver = lIsOver || aThread == 0;
    });
}
