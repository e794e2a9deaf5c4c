// What a host cannot see, from what it has been seen to have.
#include <gtest/gtest.h>

#include "BlindSpots.h"

namespace {

ZTSHostPorts hostPorts(const char* apDriver, const char* apFabric = "left") {
    ZTSHostPorts lPorts;
    lPorts.mLocal.push_back({{{}, *ZTSWwn::fromText("1000000000000001")}, "host3", "", "", "", {}, apFabric});
    lPorts.mLocal[0].mDriver = apDriver;
    return lPorts;
}

const std::map<std::string, std::uint64_t> sBpf{{"way{name=\"bpf\"}", 1}, {"way{name=\"perf\"}", 0}};
const std::map<std::string, std::uint64_t> sNoWay{{"way{name=\"bpf\"}", 0}, {"way{name=\"perf\"}", 0}};

// A host that sees all.
ZTSSight sight() {
    ZTSSight lSight;
    lSight.mIsAgentHere = true;
    lSight.mLibrary = sBpf;
    lSight.mFpins = 1;
    lSight.mMaps = lSight.mLuns = 4;
    return lSight;
}

TEST(BlindSpots, EachIsARow) {
    const struct {
        std::function<void(ZTSSight&)> mMake;
        ZTSHostPorts mPorts;
        std::string mSpots;
    } lCases[] = {
        {[](ZTSSight&) {}, hostPorts("any 1.0"), ""},
        {[](ZTSSight&) {}, {}, ""},
        {[](ZTSSight& arSight) { arSight.mIsAgentHere = false; }, {}, "scsi_errors@ no agent"},
        {[](ZTSSight& arSight) { arSight.mLibrary = sNoWay; },
         {},
         "scsi_errors@ the agent's library has no way"},
        {[](ZTSSight& arSight) { arSight.mLibrary.reset(); }, {}, "scsi_errors@? none has come"},
        {[](ZTSSight& arSight) {
             arSight.mLibrary.reset();
             arSight.mHasCheckConditions = true;
         },
         {},
         ""},
        {[](ZTSSight& arSight) { arSight.mFpins = 0; }, hostPorts("any"), "fpins@? none has come"},
        {[](ZTSSight& arSight) { arSight.mFpins = 0; }, {}, ""},
        {[](ZTSSight&) {}, hostPorts("fcoe 0.1"), "fpins@01 the driver posts none"},
        {[](ZTSSight&) {}, hostPorts("fcoexist"), ""},
        {[](ZTSSight& arSight) { arSight.mNoTransport = "no right"; }, hostPorts("fcoe"), "fpins@ no right"},
        {[](ZTSSight&) {}, hostPorts("any", ""), "names@01 its fabric"},
        {[](ZTSSight& arSight) { arSight.mMaps = 0; }, {}, "paths@ there is no multipath"},
        {[](ZTSSight& arSight) { arSight.mMaps = arSight.mLuns = 0; }, {}, ""},
        {[](ZTSSight& arSight) { arSight.mNoMultipathd = "it does not run"; },
         {},
         "paths@ how they stood at the start is inferred of the ports: it does not run"},
        {[](ZTSSight& arSight) {
             arSight.mHasDiskStats = false;
             arSight.mNoUevents = "no socket";
             arSight.mCounters = {{"counters", "", "the driver has none"}};
         },
         {},
         "counters@ the driver|stalls@ /proc/diskstats|uevents@ no socket"},
    };
    for (const auto& lrCase : lCases) {
        SCOPED_TRACE(lrCase.mSpots);
        ZTSSight lSight = sight();
        lrCase.mMake(lSight);
        std::string lRest = lrCase.mSpots;
        for (const ZTSBlindSpot& lrSpot : listBlindSpots(lSight, lrCase.mPorts)) {
            const std::string lText = lrSpot.mWhat + "@" +
                                      (lrSpot.mWhere.empty() ? "" : lrSpot.mWhere.substr(21)) +
                                      (lrSpot.mIsSure ? " " : "? ") + lrSpot.mWhy;
            const std::string lExpected = lRest.substr(0, lRest.find('|'));
            EXPECT_EQ(lText.substr(0, lExpected.size()), lExpected);
            EXPECT_FALSE(lExpected.empty()) << lText;
            lRest.erase(0, lExpected.size() + 1);
        }
        EXPECT_EQ(lRest, "");
    }
    ZTSHostPorts lPorts = hostPorts("");
    lPorts.mLocal[0].mHost = "";
    EXPECT_EQ(listBlindSpots(sight(), lPorts).at(0).mWhy, "the kernel does not show this port");
}

}  // namespace
