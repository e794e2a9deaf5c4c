// Error counters of ports: what is added to them, whatever stands in their place.
#include "FailingAllocator.h"
#include "FcTree.h"
#include "PortCounters.h"

namespace {

constexpr char sLocal[] = "fc_host/host3/statistics/";
constexpr char sRemote[] = "fc_remote_ports/rport-3:0-1/statistics/";

class PortCounters : public testing::Test {
  protected:
    PortCounters() {
        mPorts.mLocal.push_back(
            {{{}, *ZTSWwn::fromText("1000000000000001")}, "host3", "Online", "", "", {}, ""});
        mPorts.mLocal.push_back(
            {{{}, *ZTSWwn::fromText("1000000000000009")}, "", "", "", "", {}, ""});  // the agent's
        for (const char* const lpName : {"link_failure_count", "invalid_crc_count", "fpin_li", "fpin_cn"}) {
            set(sLocal, lpName, "0x5");
        }
        addRemote(1);
    }
    void addRemote(unsigned int aNumber) {
        mTree.add("fc_remote_ports/rport-3:0-" + std::to_string(aNumber),
                  {{"port_name", fcDigits(0x5000000000000000 + aNumber)},
                   {"statistics/fpin_li", "0x5"},
                   {"statistics/fpin_li_link_failure_count", "0x5"}});
    }
    void set(const std::string& acrFolder, const char* apName, const std::string& acrValue) {
        std::filesystem::create_directories(mTree.pathOf(acrFolder));
        mTree.set(acrFolder + apName, acrValue);
    }
    // What a round adds: whose, which, how much.
    std::string round() {
        ZTCMeasures lMeasures;
        for (unsigned int lCall = 0; lCall < ZTCPortCounters::CallsARound; ++lCall) {
            mCounters.step(mPorts, 125 * ZTSecond, lMeasures);
        }
        std::string lText;
        for (const auto& [lrKey, lValue] : lMeasures.getValues()) {
            EXPECT_EQ(lrKey.mTime, 120);
            EXPECT_NE(findMeasure(lrKey.mName), nullptr) << lrKey.mName;
            lText += lrKey.mWhose.mInitiator.toText().substr(21) + ">" +
                     lrKey.mWhose.mRemote.toText().substr(21) + " " + lrKey.mName + " " +
                     std::to_string(lValue) + "\n";
        }
        return lText;
    }

    const ZTCFcTestTree mTree{"sys/class/"};
    ZTSHostPorts mPorts;
    ZTCPortCounters mCounters{mTree.getPath()};
};

TEST_F(PortCounters, OnlyWhatIsAddedCounts) {
    EXPECT_EQ(round(), "");  // whatever there was before
    // Reset, no value in 64 and in 32 bits, garbage, too much, wrapped.
    const std::pair<const char*, std::uint64_t> lSteps[] = {{"0x7", 2},
                                                            {"0x7", 0},
                                                            {"0x3", 0},
                                                            {"0x4", 1},
                                                            {"0xffffffffffffffff", 0},
                                                            {"0x6", 2},
                                                            {"0xffffffff", 0},
                                                            {"", 0},
                                                            {"seven", 0},
                                                            {"0x12345678901234567", 0},
                                                            {"-1", 0},
                                                            {"9", 3},
                                                            {"0xfffffffffffffffe", 0},
                                                            {"0x1", 0}};
    for (const auto& [lpValue, lAdded] : lSteps) {
        set(sLocal, "invalid_crc_count", lpValue);
        set(sRemote, "fpin_li", lpValue);
        EXPECT_EQ(round(), lAdded == 0 ? ""
                                       : "01>00 invalid_crc_count " + std::to_string(lAdded) +
                                             "\n01>01 fpin_li " + std::to_string(lAdded) + "\n")
            << lpValue;
    }
    // The parts of a remote port's sum are looked at when that has moved.
    set(sRemote, "fpin_li", "0x2");
    set(sRemote, "fpin_li_link_failure_count", "0x6");
    EXPECT_EQ(round(), "01>01 fpin_li 1\n01>01 fpin_li_link_failure_count 1\n");
    // Another port with the same number begins anew, here and there.
    mPorts.mLocal[0].mNames.mPort = *ZTSWwn::fromText("1000000000000002");
    set(sLocal, "link_failure_count", "0x50");
    set(sRemote, "fpin_li", "0x50");
    EXPECT_EQ(round(), "");
    mTree.set("fc_remote_ports/rport-3:0-1/port_name", "0x5000000000000003");
    set(sRemote, "fpin_li", "0x51");
    EXPECT_EQ(round(), "");
    set(sLocal, "link_failure_count", "0x51");
    set(sRemote, "fpin_li", "0x52");
    EXPECT_EQ(round(), "02>00 link_failure_count 1\n02>03 fpin_li 1\n");
}

TEST_F(PortCounters, EachMayBeAnythingAndTheOthersCount) {
    unsigned int lValue = 5;
    const std::string lNames[] = {"fc_host/host3/statistics", "fc_remote_ports/rport-3:0-1/statistics",
                                  "fc_remote_ports/rport-3:0-1/port_name", std::string(sLocal) + "fpin_li",
                                  std::string(sRemote) + "fpin_li"};
    round();
    for (const std::string& lrBelow : lNames) {
        for (const auto& lrWay : fcBadWays()) {
            const std::filesystem::path lKept = mTree.getPath() + "/kept";
            std::filesystem::rename(mTree.pathOf(lrBelow), lKept);
            lrWay(mTree.pathOf(lrBelow));
            EXPECT_EQ(round(), "") << lrBelow;
            mTree.remove(lrBelow);
            std::filesystem::rename(lKept, mTree.pathOf(lrBelow));
            const std::string lNow = fcDigits(++lValue);
            set(sLocal, "link_failure_count", lNow);
            set(sRemote, "fpin_li", lNow);
            EXPECT_EQ(round(), "01>00 link_failure_count 1\n01>01 fpin_li 1\n") << lrBelow;
        }
    }
}

TEST_F(PortCounters, TheRoundIsSpread) {
    for (unsigned int lPort = 1; lPort <= 120; ++lPort) {
        addRemote(lPort);
    }
    round();
    for (unsigned int lPort = 1; lPort <= 120; ++lPort) {
        mTree.set("fc_remote_ports/rport-3:0-" + std::to_string(lPort) + "/statistics/fpin_li", "0x6");
    }
    std::size_t lSeen = 0;
    for (unsigned int lCall = 0; lCall < ZTCPortCounters::CallsARound; ++lCall) {
        ZTCMeasures lMeasures;
        mCounters.step(mPorts, 0, lMeasures);
        EXPECT_LE(lMeasures.getValues().size(), 3U);
        lSeen += lMeasures.getValues().size();
    }
    EXPECT_EQ(lSeen, 120U);
}

TEST_F(PortCounters, WhatIsNotCountedIsSaid) {
    EXPECT_TRUE(mCounters.listBlindSpots().empty());  // nobody knows yet
    round();
    const std::vector<ZTSBlindSpot> lSpots = mCounters.listBlindSpots();
    ASSERT_EQ(lSpots.size(), 1U);
    EXPECT_EQ(lSpots[0].mWhat + " " + lSpots[0].mWhere, "counters 10:00:00:00:00:00:00:01");
    EXPECT_EQ(lSpots[0].mWhy,
              "the driver has no loss_of_sync_count, loss_of_signal_count, prim_seq_protocol_err_count, "
              "invalid_tx_word_count, lip_count, nos_count, error_frames, dumped_frames");
    mTree.remove("fc_host/host3/statistics");
    ZTCPortCounters lAnew(mTree.getPath());
    ZTCMeasures lMeasures;
    lAnew.step(mPorts, 0, lMeasures);
    ASSERT_EQ(lAnew.listBlindSpots().size(), 1U);
    EXPECT_EQ(lAnew.listBlindSpots()[0].mWhy, "the driver has none");
}

TEST_F(PortCounters, ShortOfMemoryNothingIsCountedTwiceOrLost) {
    round();
    unsigned int lValue = 5;
    for (unsigned int lFailing = 1; lFailing < 200; ++lFailing) {
        set(sLocal, "link_failure_count", fcDigits(++lValue));
        ZTCMeasures lMeasures;
        const FailingAllocator lAllocator(lFailing);
        for (unsigned int lCall = 0; lCall < 2 * ZTCPortCounters::CallsARound; ++lCall) {
            try {
                mCounters.step(mPorts, 0, lMeasures);
            } catch (const std::bad_alloc&) {
                // Its turn comes again.
            }
        }
        ASSERT_EQ(lMeasures.getValues().size(), 1U) << lFailing;
        EXPECT_EQ(lMeasures.getValues().begin()->second, 1U) << lFailing;
    }
}

}  // namespace
