// What becomes of a SCSI command that has failed.
#include <numeric>

#include "ScsiTest.h"

namespace {

using Time = ZTCScsiTeller::Time;
using std::chrono::milliseconds;

struct ZTSTellerStand : ZTSScsiTestStand {
    using ZTSScsiTestStand::ZTSScsiTestStand;

    std::string tell(ZTSScsiFailure aFailure, std::uint64_t aCount = 1) {
        aFailure.mCount = aCount;
        mTeller.tell(aFailure, mNow);
        return takeCalls();
    }
    std::string settle() {
        mTeller.settle(mNow, false);
        return takeCalls();
    }

    ZTCScsiTeller mTeller{mSettings, mBoards, mRegistrations, mStatistics};
    Time mNow{};
};

TEST(ScsiTeller, WhatBecomesWhat) {
    constexpr int sRead = 1, sShort = 2, sLate = 4;
    const struct {
        std::uint32_t mResult;
        int mSense;
        int mFlags;
        std::string mId;     // category and subcategory; empty: it is only counted
        std::string mWords;  // behind the logical unit
        ZTEFcFigure mFigure;
    } lCases[] = {
        {0x28, -1, 0, "4/1", "", ZTFF_ToldQueueFull},
        {0x08, -1, 0, "4/2", "", ZTFF_ToldDeviceBusy},
        {0x02, 0x052000, 0, "4/4", "2a000000050000000020000007000000", ZTFF_ToldCheckCondition},
        {0x02, -1, 0, "4/4", "2a000000000000000000000007000000", ZTFF_ToldCheckCondition},
        {0x02, 0x062903, 0, "4/8", "", ZTFF_ToldLunReset},
        {0x02, 0x062900, 0, "4/16", "", ZTFF_ToldTargetReset},
        {0x02, 0x062901, 0, "4/16", "", ZTFF_ToldTargetReset},
        {0x02, 0x062902, 0, "4/16", "", ZTFF_ToldTargetReset},
        {0x02, 0x062904, 0, "4/16", "", ZTFF_ToldTargetReset},
        {0x02, 0x062905, 0, "4/4", "2a000000060000000529000007000000", ZTFF_ToldCheckCondition},
        {0x02, 0x052903, 0, "4/4", "2a000000050000000329000007000000", ZTFF_ToldCheckCondition},
        {0x02, 0x0b1001, sRead, "2/4", "2a00000000000000", ZTFF_ToldFcpReadCheckError},
        {0x02, 0x0b1001, 0, "4/4", "2a0000000b0000000110000007000000", ZTFF_ToldCheckCondition},
        {0x00, -1, sRead | sShort, "", "", ZTFF_Failures},
        {0x070000, -1, sRead | sShort, "2/4", "2a00000000020000", ZTFF_ToldFcpReadCheckError},
        {0x050000, -1, sRead | sShort, "", "", ZTFF_Failures},
        {0x070000, -1, 0, "", "", ZTFF_Failures},
        {0x18, -1, 0, "", "", ZTFF_Failures},
        {0x010000, -1, 0, "", "", ZTFF_Unreached},
        {0x0e0000, -1, 0, "", "", ZTFF_Unreached},
        {0x0f0002, 0x062903, 0, "", "", ZTFF_Unreached},
        {0x140028, -1, 0, "", "", ZTFF_Unreached},
        {0x28, -1, sLate, "", "", ZTFF_TimeOuts},
    };
    ZTSTellerStand lStand;
    auto lFigures = lStand.getFigures();
    for (const auto& lrCase : lCases) {
        SCOPED_TRACE(testing::Message() << std::hex << lrCase.mResult << " " << lrCase.mSense);
        ZTSScsiFailure lFailure = scsiFailure(lrCase.mResult, lrCase.mSense);
        lFailure.mKey.mIsRead = (lrCase.mFlags & sRead) != 0;
        lFailure.mKey.mResidual = (lrCase.mFlags & sShort) != 0 ? 512 : 0;
        lFailure.mKey.mTrace = (lrCase.mFlags & sLate) != 0 ? ZTST_TimedOut : ZTST_Done;
        const auto lSubcategory =
            static_cast<unsigned>(atoi(lrCase.mId.substr(lrCase.mId.find('/') + 1).c_str()));
        const std::string lPayload =
            digitsOf(&lSubcategory, 4) + "50060160bb20110c" + "05000000" + lrCase.mWords;
        EXPECT_EQ(lStand.tell(lFailure), lrCase.mId.empty()
                                             ? ""
                                             : lrCase.mId + " board0 2000000000000003 " +
                                                   std::to_string(lPayload.size() / 2) + " " + lPayload);
        ++lFigures[lrCase.mFigure];
        EXPECT_EQ(lStand.getFigures(), lFigures);
    }
    EXPECT_EQ(lStand.getOfLun(ZTFL_Failures), 4U);
    EXPECT_EQ(lStand.getOfLun(ZTFL_Unreached), 4U);
    EXPECT_EQ(lStand.getOfLun(ZTFL_TimeOuts), 1U);
    lStand.mTeller.tell(ZTSScsiDepthChange{3, 0, 1, 5, 32, 16}, lStand.mNow);
    EXPECT_EQ(takeCalls(),
              "4/64 board0 2000000000000003 24 4000000050060160bb20110c050000002000000010000000");
}

// Every command is called back for or counted, one that nobody has registered for neither.
TEST(ScsiTeller, WhatIsBeyondTheRateIsCounted) {
    for (const std::uint32_t lRate : {1U, 3U, 9999U, 10000U}) {
        ZTCScsiRate lLimit(lRate);
        const Time lNow{std::chrono::hours(1)};
        EXPECT_EQ(lLimit.take(ZTSK_QueueFull, 2 * lRate, lNow), lRate);
        EXPECT_EQ(lLimit.take(ZTSK_QueueFull, 1, lNow), 0U);
        EXPECT_EQ(lLimit.take(ZTSK_DeviceBusy, 1, lNow), 1U);
        EXPECT_EQ(lLimit.take(ZTSK_QueueFull, 1, lNow + milliseconds(999)), 0U);
        EXPECT_EQ(lLimit.take(ZTSK_QueueFull, UINT64_MAX, lNow + milliseconds(1000)), lRate);
    }
    ZTSTellerStand lStand(1100);
    std::uint64_t lSent = 0;
    for (const std::uint64_t lCount : {1UL, 2UL, 1000UL, 1'000'000UL, 1'000'000'000'000UL}) {
        lStand.tell(scsiFailure(ZTTestQueueFull), lCount);
        lSent += lCount;
        EXPECT_EQ(ZTTestCalls.mCount, std::min<std::uint64_t>(lSent, 1100));
        EXPECT_EQ(ZTTestCalls.mCount, lStand.mStatistics.get(ZTFF_ToldQueueFull));
        EXPECT_EQ(ZTTestCalls.mCount + lStand.mStatistics.get(ZTFF_BeyondQueueFull), lSent);
        EXPECT_EQ(lStand.getOfLun(ZTFL_Beyond), lStand.mStatistics.get(ZTFF_BeyondQueueFull));
    }
    lStand.mRegistrations.remove(0, 4, false);  // the fourth: queue full with board 0
    const auto lFigures = lStand.getFigures();
    lStand.tell(scsiFailure(ZTTestQueueFull), 5);
    EXPECT_EQ(lStand.getFigures(), lFigures);
}

TEST(ScsiTeller, NamesAreRemembered) {
    const ZTCFcTestTree lTree;
    ZTCScsiTargets lTargets(lTree.getPath());
    Time lNow{};
    const auto lPort = [&](const ZTSScsiTarget& acrTarget, std::uint64_t aIdentity = 1) {
        lNow += std::chrono::seconds(1);
        return lTargets.getPort(acrTarget, aIdentity, lNow);
    };
    const std::string lFolder = "fc_transport/target3:0:1";
    lTree.add(lFolder, {{"port_name", "0x11"}});
    EXPECT_EQ(lPort({3, 0, 1}), 0x11U);
    for (const char* const lpText :
         {"", "0x", "11", "0x0", "0xffffffffffffffff", "0x1g", "0x11111111111111111"}) {
        lTree.set(lFolder + "/port_name", lpText + std::string("\n"));
        EXPECT_EQ(lPort({3, 0, 1}), 0x11U) << lpText;
    }
    lTree.set(lFolder + "/port_name", "0x22\n");
    EXPECT_EQ(lTargets.getPort({3, 0, 1}, 1, lNow), 0x11U);  // not looked at again yet
    EXPECT_EQ(lPort({3, 0, 1}), 0x22U);
    lTree.remove(lFolder);
    EXPECT_EQ(lPort({3, 0, 1}), 0x22U);
    EXPECT_EQ(lPort({3, 0, 1}, 2), 0U);  // another host under the same number
    lTree.add("fc_remote_ports/rport-3:0-9", {{"port_name", "0x33"}, {"scsi_target_id", "1"}});
    lTree.add("fc_remote_ports/rport-3:1-9", {{"port_name", "0x44"}, {"scsi_target_id", "1"}});
    lTree.add("fc_remote_ports/rport-3:0-8", {{"port_name", "0x55"}, {"scsi_target_id", "-1"}});
    lTree.add("fc_remote_ports/rport-3:0-7", {{"scsi_target_id", "2"}});
    for (const char* const lpName : {"rport-", "rport-3", "rport-3:", "rport-3:0", "rport-:-", "x"}) {
        lTree.add(std::string("fc_remote_ports/") + lpName, {{"port_name", "0x66"}, {"scsi_target_id", "0"}});
    }
    EXPECT_EQ(lPort({3, 0, 1}, 2), 0x33U);
    EXPECT_EQ(lPort({3, 1, 1}, 2), 0x44U);
    EXPECT_EQ(lPort({3, 0, 2}, 2) + lPort({3, 0, 0}, 2) + lPort({3, 0, UINT32_MAX}, 2), 0U);
    for (std::uint32_t lTarget = 0; lTarget < 20000; ++lTarget) {
        lTargets.getPort({lTarget % 9, lTarget / 4, lTarget}, 2, lNow);  // more than are remembered
    }
    EXPECT_EQ(lPort({3, 0, 1}, 2), 0x33U);
}

TEST(ScsiTeller, HostsThatNoLookHasFound) {
    ZTSTellerStand lStand;
    const ZTSScsiFailure lFailure = scsiFailure(ZTTestQueueFull, -1, 9);
    const auto lLost = [&] { return lStand.mStatistics.get(ZTFF_LostUnknownHost); };
    EXPECT_EQ(lStand.tell(lFailure, 3), "");  // there is none
    EXPECT_EQ(lLost(), 3U);
    lStand.mTree.add("scsi_host/host9", {});
    EXPECT_EQ(lStand.tell(lFailure, 5), "");  // none of Fibre Channel
    EXPECT_EQ(lLost(), 3U);
    lStand.mTree.addHost(9);
    lStand.mNow += std::chrono::seconds(1);
    EXPECT_EQ(lStand.tell(lFailure) + lStand.settle(), "");
    lStand.look();
    EXPECT_TRUE(lStand.settle().starts_with("4/1 board2 2000000000000009 16 "));
    EXPECT_FALSE(lStand.mTeller.isKeeping());
    lStand.mTree.addHost(10);
    for (unsigned int lAt = 0; lAt < 1030; ++lAt) {
        EXPECT_EQ(lStand.tell(scsiFailure(ZTTestQueueFull, -1, 10), 2), "");
    }
    EXPECT_EQ(lLost(), 3U + 2 * 6);  // there is room for 1024
    lStand.mNow += std::chrono::seconds(2);
    EXPECT_EQ(lStand.settle(), "");
    EXPECT_EQ(lLost(), 3U + 2 * 1030);
    EXPECT_FALSE(lStand.mTeller.isKeeping());
    EXPECT_EQ(lStand.tell(scsiFailure(ZTTestQueueFull, -1, 10)), "");
    lStand.mTeller.settle(lStand.mNow, true);
    EXPECT_EQ(lLost(), 4U + 2 * 1030);
    // One that has gone is known still, until another gets its number: of another kind, or a new one.
    const ZTSScsiFailure lOfOld = scsiFailure(ZTTestQueueFull, -1, 7);
    lStand.mTree.remove("fc_host/host7");
    EXPECT_NE(lStand.tell(lOfOld), "");
    lStand.look();
    EXPECT_NE(lStand.tell(lOfOld), "");
    lStand.mTree.add("scsi_host/host7", {});
    EXPECT_EQ(lStand.tell(lOfOld), "");
    EXPECT_EQ(lLost(), 4U + 2 * 1030);
    lStand.mTree.addHost(7);
    lStand.mTeller.noteChange();
    EXPECT_EQ(lStand.tell(lOfOld) + lStand.settle(), "");
    EXPECT_TRUE(lStand.mTeller.isKeeping());
    lStand.look();
    EXPECT_TRUE(lStand.settle().starts_with("4/1 board1 2000000000000007 16 "));
}

TEST(ScsiTeller, NothingIsLostSilentlyForWantOfMemory) {
    bool lHasFailed = true;
    for (unsigned int lFailing = 1; lHasFailed; ++lFailing) {
        static unsigned int sCalls;  // by a callback that needs no memory
        sCalls = 0;
        ZTSTellerStand lStand(2, [](std::uint32_t, HBA_wwn, std::uint32_t, std::uint32_t, void*,
                                    const ZT_event*) { ++sCalls; });
        lStand.mTree.addHost(9);
        lHasFailed = false;
        for (const std::uint32_t lHost : {3U, 9U}) {
            ZTSScsiFailure lFailure = scsiFailure(ZTTestQueueFull, -1, lHost);
            lFailure.mCount = 5;
            FailingAllocator lAllocator(lFailing);
            lStand.mTeller.tell(lFailure, lStand.mNow);
            lAllocator.stop();
            lHasFailed = lHasFailed || lAllocator.hasFailed();
        }
        lStand.mTeller.settle(lStand.mNow, true);
        const auto lFigures = lStand.getFigures();
        EXPECT_EQ(sCalls, lFigures[ZTFF_ToldQueueFull]);
        EXPECT_EQ(std::accumulate(lFigures.begin(), lFigures.begin() + ZTFF_NetlinkLost, 0UL), 10U)
            << lFailing;
    }
}

}  // namespace
