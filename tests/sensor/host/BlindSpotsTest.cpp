// What a host cannot see, from what it has been seen to have.
#include <gtest/gtest.h>

#include "BlindSpots.h"

namespace {

ZTSHostPorts hostPorts(const char* apDriver, const char* apFabric = "left", const char* apHost = "host3") {
    ZTSHostPorts lPorts;
    lPorts.mLocal.push_back({{{}, *ZTSWwn::fromText("1000000000000001")}, apHost, "", "", "", {}, apFabric});
    lPorts.mLocal[0].mDriver = apDriver;
    return lPorts;
}

TEST(BlindSpots, EachIsARow) {
    using Make = std::function<void(ZTSSight&)>;
    const Make lAll = [](ZTSSight&) {};
    const Make lNoFpin = [](ZTSSight& arSight) { arSight.mFpins = 0; };
    const Make lOther = [](ZTSSight& arSight) { arSight.mLibrary.reset(); };
    const Make lMany = [](ZTSSight& arSight) {
        arSight.mHasDiskStats = false;
        arSight.mNoUevents = "no socket";
        arSight.mCounters = {{"counters", "", "the driver has none"}};
    };
    const struct {
        Make mMake;
        ZTSHostPorts mPorts;
        std::string mSpots;  // what, where, whether it is sure, and how it begins
    } lCases[] = {
        {lAll, hostPorts("any 1.0"), ""},
        {lAll, {}, ""},
        {[](auto& arSight) { arSight.mIsAgentHere = false; }, {}, "scsi_errors@ no agent"},
        {[](auto& arSight) { arSight.mLibrary->clear(); }, {}, "scsi_errors@ the agent's library has no way"},
        {[](auto& arSight) { arSight.mLibrary->begin()->second = 0; },
         {},
         "scsi_errors@ the agent's library"},
        {lOther, {}, "scsi_errors@? none has come"},
        {[&](auto& arSight) { lOther(arSight), arSight.mHasCheckConditions = true; }, {}, ""},
        {lNoFpin, hostPorts("any"), "fpins@? none has come"},
        {lNoFpin, {}, ""},
        {lAll, hostPorts("fcoe 0.1"), "fpins@01 the driver posts none"},
        {lAll, hostPorts("fcoexist"), ""},
        {[](auto& arSight) { arSight.mNoTransport = "no right"; }, hostPorts("fcoe"), "fpins@ no right"},
        {lAll, hostPorts("any", ""), "names@01 its fabric"},
        {lAll, hostPorts("", "left", ""), "counters@01 the kernel does not show"},
        {[](auto& arSight) { arSight.mMaps = 0; }, {}, "paths@ there is no multipath"},
        {[](auto& arSight) { arSight.mMaps = arSight.mLuns = 0; }, {}, ""},
        {[](auto& arSight) { arSight.mNoMultipathd = "none"; }, {}, ""},
        {[](auto& arSight) { arSight.mNoMultipathd = "none", arSight.mInferredMaps = 1; },
         {},
         "paths@? how some stand is inferred: none"},
        {lMany, {}, "counters@ the driver|stalls@ /proc/diskstats|uevents@ no socket"},
    };
    for (const auto& lrCase : lCases) {
        SCOPED_TRACE(lrCase.mSpots);
        ZTSSight lSight;  // of a host that sees all
        lSight.mIsAgentHere = true;
        lSight.mLibrary = {{"way{name=\"bpf\"}", 1}, {"way{name=\"perf\"}", 0}};
        lSight.mFpins = lSight.mMaps = lSight.mLuns = 1;
        lrCase.mMake(lSight);
        std::string lRest = lrCase.mSpots;
        for (const ZTSBlindSpot& lrSpot : listBlindSpots(lSight, lrCase.mPorts)) {
            const std::string lWhere = lrSpot.mWhere.empty() ? "" : lrSpot.mWhere.substr(21);
            const std::string lBegin = lRest.substr(0, lRest.find('|'));
            EXPECT_EQ(
                (lrSpot.mWhat + "@" + lWhere + (lrSpot.mIsSure ? " " : "? ") + lrSpot.mWhy).find(lBegin), 0U);
            EXPECT_FALSE(lBegin.empty()) << lrSpot.mWhy;
            lRest.erase(0, lBegin.size() + 1);
        }
        EXPECT_EQ(lRest, "");
    }
}

}  // namespace
