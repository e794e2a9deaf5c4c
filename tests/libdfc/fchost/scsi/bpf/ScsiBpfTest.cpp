// The BPF program, run by hand on commands that lie in a page of the kernel's memory.
#include <linux/capability.h>

#include <atomic>
#include <optional>
#include <sstream>

#include "FailingAllocator.h"
#include "FakeCommand.h"
#include "Rights.h"
#include "ScsiBpf.h"
#include "SmallBtf.h"
#include "TestSupport.h"

namespace {

constexpr std::size_t sCommand = 512, sSense = 1024, sDevice = 2048;  // places in the page

class ScsiBpf : public ::testing::Test {
  protected:
    void SetUp() override try {
        mPage.emplace();
        putFakeDevice(*mPage, mLayout, sDevice, "fc_host");
        put("scsi_cmnd.device", mPage->at(sDevice));
        put("scsi_cmnd.sense_buffer", mPage->at(sSense));
        mPage->put(sCommand - FakeRequestSize + mLayout["request.tag"], 99U);
    } catch (const std::runtime_error& lrError) {
        GTEST_SKIP() << lrError.what();
    }

    template <class Value>
    void put(const char* apMember, Value aValue) {
        mPage->put(sCommand + mLayout[apMember], aValue);
    }
    void putCommand(std::uint32_t aResult, const std::string& acrCdb, std::uint32_t aResidual = 0,
                    const std::string& acrSense = "") {
        put("scsi_cmnd.result", aResult);
        put("scsi_cmnd.resid_len", aResidual);
        mPage->putBytes(sCommand + mLayout["scsi_cmnd.cmnd"], acrCdb + std::string(32 - acrCdb.size(), '\0'));
        mPage->putBytes(sSense, acrSense + std::string(32 - acrSense.size(), '\0'));
    }

    std::string writeBtf(const ZTFakeLayout& acrLayout) const {
        const std::string lPath = mDirectory / "btf";
        writeFakeBtf(lPath, acrLayout);
        return lPath;
    }
    ZTCScsiBpf load(ZTCScsiBpf::Setup aSetup = {}) const {
        aSetup.mpDone = aSetup.mpLate = nullptr;
        return {ZTCScsiBpf::Way::Raw, ZTCSmallBtf(writeBtf(mLayout), mDirectory / "none"), aSetup};
    }
    static void run(int aProgram, std::uint64_t aCommand) {
        bpf_test_run_opts lRun{};
        lRun.sz = sizeof lRun;
        lRun.ctx_in = &aCommand;
        lRun.ctx_size_in = sizeof aCommand;
        EXPECT_EQ(bpf_prog_test_run_opts(aProgram, &lRun), 0) << strerror(errno);
    }
    void end(const ZTCScsiBpf& acrBpf) const { run(acrBpf.getDoneProgram(), mPage->at(sCommand)); }
    void endWithRights(const ZTCScsiBpf& acrBpf) const {
        const ZTCFcRaisedRights lRaised;
        end(acrBpf);
    }

    ZTCTestDirectory mDirectory;
    ZTFakeLayout mLayout = fakeLayout();
    std::optional<ZTCKernelPage> mPage;
};

std::string text(const ZTScsiFailures& acrFailures) {
    std::ostringstream lText;
    for (const auto& [lrKey, lTag, lCount] : acrFailures) {
        lText << std::hex << lrKey.mHost << ":" << lrKey.mChannel << ":" << lrKey.mTarget << ":" << lrKey.mLun
              << " " << lrKey.mResult << " op " << +lrKey.mOperationCode << (lrKey.mIsRead != 0 ? "r" : "");
        if (lrKey.mHasSense != 0) {
            lText << " sense " << +lrKey.mSenseKey << "/" << +lrKey.mAsc << "/" << +lrKey.mAscq;
        }
        lText << (lrKey.mTrace == ZTST_TimedOut ? " late" : "") << " left " << lrKey.mResidual << " tag "
              << std::dec << lTag << " x" << lCount << "\n";
    }
    return lText.str();
}

std::string take(ZTCScsiSource& arSource) {
    ZTScsiFailures lFailures;
    arSource.take(lFailures);
    return text(lFailures);
}

std::string takeRepeats(ZTCScsiSource& arSource) {
    ZTScsiFailures lFailures;
    arSource.takeRepeats(lFailures);
    return text(lFailures);
}

std::uint64_t sum(const ZTScsiFailures& acrFailures) {
    std::uint64_t lSum = 0;
    for (const ZTSScsiFailure& lrFailure : acrFailures) {
        lSum += lrFailure.mCount;
    }
    return lSum;
}

TEST_F(ScsiBpf, TellsOfEachWhatItsCommandSays) {
    ZTCScsiBpf lBpf = load();
    const std::string lRead32("\x7f\0\0\0\0\0\0\x18\0\x09", 10);
    const std::string lWrite32("\x7f\0\0\0\0\0\0\x18\0\x0b", 10);
    const std::string lFixed("\xf0\0\x06\0\0\0\0\x0a\0\0\0\0\x29\x03", 14);
    const struct {
        std::uint32_t mResult;
        std::string mCdb;
        std::uint32_t mResidual;
        std::string mSense;
        std::string mTold;  // behind host, channel, target and LUN, and before the tag
    } lRows[] = {
        {0x28, "\x2a", 512, lFixed, "28 op 2a left 0"},
        {0x02, "\x28", 512, lFixed, "2 op 28r sense 6/29/3 left 0"},
        {0x02, lRead32, 0, "\x72\x05\x24\x01", "2 op 7fr sense 5/24/1 left 0"},
        {0x02, "\x12", 0, "", "2 op 12 left 0"},
        {0x08070008, "\x88", 0, "", "70008 op 88r left 0"},
        {0x00070000, lRead32, 0x1000, "", "70000 op 7fr left 1000"},
        {0x00070000, lWrite32, 0x1000, "", "70000 op 7f left 0"},
    };
    for (const auto& [lResult, lrCdb, lResidual, lrSense, lrTold] : lRows) {
        putCommand(lResult, lrCdb, lResidual, lrSense);
        end(lBpf);
        EXPECT_EQ(take(lBpf), "d:2:7:102030405060708 " + lrTold + " tag 99 x1\n");
    }
    putCommand(0, "\x28", 512);
    end(lBpf);
    EXPECT_EQ(take(lBpf), "") << "it succeeded";
    run(lBpf.getLateProgram(), mPage->at(sCommand));
    EXPECT_EQ(take(lBpf), "d:2:7:102030405060708 0 op 28r late left 0 tag 99 x1\n");
    putCommand(0x28, "\x28");
    putFakeDevice(*mPage, mLayout, sDevice, "fc_hosts");
    end(lBpf);
    EXPECT_EQ(take(lBpf), "") << "of another class";
    EXPECT_EQ(lBpf.takeLost(), 0U);
    put("scsi_cmnd.device", std::uint64_t{4096});  // cannot be read
    end(lBpf);
    EXPECT_EQ(lBpf.takeLost(), 1U);
    EXPECT_EQ(lBpf.takeLost(), 0U);
    EXPECT_EQ(take(lBpf) + takeRepeats(lBpf), "");
}

TEST_F(ScsiBpf, TellsTheFirstAtOnceAndCountsTheOthersUntilTheyAreTaken) {
    ZTCScsiBpf lBpf = load();
    pollfd lPoll{lBpf.getFile(), POLLIN, 0};
    EXPECT_EQ(poll(&lPoll, 1, 0), 0);
    const auto lTold = [](const std::string& acrCount) {
        return "d:2:7:102030405060708 28 op 28r left 0 tag " + acrCount + "\n";
    };
    putCommand(0x28, "\x28");
    const ZTCFcRaisedRights lRestoredAtTheEnd;
    giveUpFcRights();  // what the source does takes none
    for (const char* const lpRound : {"the first look", "the other map", "the first one again"}) {
        endWithRights(lBpf);
        EXPECT_EQ(poll(&lPoll, 1, 0), 1) << lpRound;
        EXPECT_EQ(take(lBpf), lTold("99 x1")) << lpRound;
        EXPECT_EQ(poll(&lPoll, 1, 0), 0) << lpRound;
        for (const unsigned int lTag : {5U, 6U, 7U}) {
            mPage->put(sCommand - FakeRequestSize + mLayout["request.tag"], lTag);
            endWithRights(lBpf);
        }
        EXPECT_EQ(take(lBpf), "") << lpRound;
        EXPECT_EQ(takeRepeats(lBpf), lTold("7 x3")) << lpRound;
        mPage->put(sCommand - FakeRequestSize + mLayout["request.tag"], 99U);
    }
    EXPECT_FALSE(hasFcRight(CAP_BPF));
    EXPECT_EQ(takeRepeats(lBpf), "");
    EXPECT_EQ(lBpf.takeLost(), 0U);
}

TEST_F(ScsiBpf, WhatFindsNoRoomIsCounted) {
    ZTCScsiBpf::Setup lSetup;
    lSetup.mKeys = 100;
    lSetup.mRingBytes = 4096;  // 73 records
    ZTCScsiBpf lBpf = load(lSetup);
    putCommand(0x28, "\x28");
    for (std::uint64_t lLun = 0; lLun < 150; ++lLun) {
        mPage->put(sDevice + mLayout["scsi_device.lun"], lLun);
        end(lBpf);
    }
    ZTScsiFailures lFirsts, lRepeats;
    for (unsigned int lFailing = 1;; ++lFailing) {  // memory, one allocation after the other
        FailingAllocator lNoMemory(lFailing);
        try {
            lBpf.take(lFirsts);
            lBpf.takeRepeats(lRepeats);
            lNoMemory.stop();
            break;
        } catch (const std::bad_alloc&) {
        }
    }
    EXPECT_EQ(sum(lFirsts), 73U);
    EXPECT_EQ(sum(lRepeats), 27U);
    EXPECT_EQ(lBpf.takeLost(), 50U);
}

TEST_F(ScsiBpf, LosesNothingWhenTheCountsAreTakenMeanwhile) {
    ZTCScsiBpf lBpf = load();
    const auto lEach = ZTTestRounds(3000U, 300000U);
    putCommand(0x28, "\x28");
    std::atomic<unsigned int> lRunning{2};
    std::vector<std::thread> lThreads;
    for (unsigned int lAt = lRunning; lAt > 0; --lAt) {
        lThreads.emplace_back([&, lAt] {
            for (unsigned int lLeft = lEach; lLeft > 0; --lLeft) {
                if (lAt == 1) {  // one of them changes it for both
                    mPage->put(sDevice + fakeLayout()["scsi_device.lun"], std::uint64_t{lLeft % 7});
                }
                end(lBpf);
            }
            --lRunning;
        });
    }
    ZTScsiFailures lAll;
    for (bool lIsLast = false; !lIsLast;) {
        lIsLast = lRunning == 0;
        lBpf.take(lAll);
        lBpf.takeRepeats(lAll);
    }
    for (std::thread& lrThread : lThreads) {
        lrThread.join();
    }
    EXPECT_EQ(sum(lAll) + lBpf.takeLost(), 2 * lEach);
}

TEST_F(ScsiBpf, SaysWhatTheKernelHasNot) {
    for (const auto& [lpMember, lMissing] : {std::pair{"request.tag", "tags"},
                                             {"scsi_cmnd.sense_buffer", "sense data"},
                                             {"scsi_cmnd.resid_len", "residuals"},
                                             {"class.name", "transport classes"}}) {
        mLayout.erase(lpMember);
        ZTCScsiBpf lBpf = load();
        EXPECT_EQ(lBpf.describe(), "BPF, raw_tp; this kernel does not tell of " + std::string(lMissing));
        mLayout = fakeLayout();
        putCommand(0x02, "\x28", 512, "\x72\x05\x24\x01");
        end(lBpf);
        const bool lHasSense = strcmp(lpMember, "scsi_cmnd.sense_buffer") != 0;
        EXPECT_EQ(take(lBpf), "d:2:7:102030405060708 2 op 28r" +
                                  std::string(lHasSense ? " sense 5/24/1" : "") + " left 0 tag " +
                                  (strcmp(lpMember, "request.tag") == 0 ? "0" : "99") + " x1\n");
    }
    for (const auto& [lpMember, lpReason] :
         {std::pair{"scsi_cmnd.result", "this kernel's scsi_cmnd has no result"},
          {"scsi_cmnd.cmnd", "this kernel's scsi_cmnd has no cmnd"}}) {
        ZTFakeLayout lLayout(mLayout);
        lLayout.erase(lpMember);
        try {
            ZTCSmallBtf(writeBtf(lLayout), mDirectory / "none");
            ADD_FAILURE() << lpMember;
        } catch (const ZTCScsiNotAvailable& lrReason) {
            EXPECT_STREQ(lrReason.what(), lpReason);
        }
    }
}

}  // namespace
