// What of a history is a sign of a problem, and of which.
#include <gtest/gtest.h>

#include "SignReader.h"
#include "SignStory.h"
#include "TimeText.h"

namespace {

std::string named(const ZTPortLabels& acrLabels, const ZTSWwn& acrPort) {
    const auto lAt = acrLabels.find(acrPort);
    return acrPort == ZTSWwn() ? "" : " " + (lAt != acrLabels.end() ? lAt->second.mName : acrPort.toText());
}

// "link_down hba0 on A (Linkdown)", with all that is not as it is for most.
std::string textOf(const ZTSSign& acrSign, const ZTPortLabels& acrLabels, ZTNanoseconds aBegin) {
    const auto lSecond = [=](ZTNanoseconds aTime) { return std::to_string((aTime - aBegin) / ZTSecond); };
    std::string lText = rowOf(acrSign.mSign).mpName + named(acrLabels, acrSign.mInitiator) +
                        named(acrLabels, acrSign.mRemote);
    lText += acrSign.mFabric.empty() ? "" : " on " + acrSign.mFabric;
    lText += acrSign.mDetail.empty() ? "" : " (" + acrSign.mDetail + ")";
    lText += acrSign.mDisk.empty() ? "" : " disk " + acrSign.mDisk;
    for (const std::string& lrMap : acrSign.mMaps) {
        lText += " over " + lrMap;
    }
    lText += acrSign.mTotal == 0
                 ? ""
                 : " " + std::to_string(acrSign.mLeft) + " of " + std::to_string(acrSign.mTotal);
    lText += acrSign.mEvents == 1 ? "" : " x" + std::to_string(acrSign.mEvents);
    lText +=
        acrSign.mFirst == acrSign.mLast ? "" : " " + lSecond(acrSign.mFirst) + "-" + lSecond(acrSign.mLast);
    return lText + "\n";
}

// Of one array with a port on each of two fabrics.
std::string signsOf(const std::string& acrRows) {
    const ZTCSignStory lStory(
        "host hba0 fabric=A\nhost hba1 fabric=B\n"
        "target t0 fabric=A array=a controller=A\ntarget t1 fabric=B array=a controller=B\n"
        "map mpatha array=a volume=vg0-root mount=/\n"
        "at 2026-11-17 10:00\n" +
        acrRows);
    std::string lText;
    for (const ZTSSign& lrSign : lStory.listSigns()) {
        lText += textOf(lrSign, lStory.getSite().getLabels(), lStory.getBegin());
    }
    return lText;
}

void expectSigns(const std::vector<std::pair<std::string, std::string>>& acrCases) {
    for (const auto& [lrRows, lrSigns] : acrCases) {
        EXPECT_EQ(signsOf(lrRows), lrSigns) << lrRows;
    }
}

std::vector<ZTSSign> signsOf(const ZTSChange& acrChange) {
    ZTCSignReader lReader;
    ZTCSignReader::Signs lSigns;
    lReader.read(acrChange, lSigns);
    return lSigns;
}

TEST(SignReader, RecordsAreSignsByTheirKindAndWhatTheirBlocksSay) {
    const std::string lAt = " hba0 t0 on A ";
    const auto lCheck = [](const char* apSense) {
        return "+0s check_condition host=hba0 from=t0 sense=" + std::string(apSense) + "\n";
    };
    expectSigns({
        {"+0s logo host=hba1 from=t1 x4 for=3s\n", "logo hba1 t1 on B (logo) x4 0-3\n"},
        {"+0s rscn host=hba0 from=t0\n", "rscn hba0 t0 on A (port 010a00)\n"},
        {"+0s link host=hba0\n", "link hba0 on A\n"},
        {"+0s device_busy host=hba0 from=t0\n", "busy" + lAt + "(device_busy)\n"},
        {"+0s ls_rjt host=hba0 from=t0 command=32\n",
         "login_reject" + lAt + "(PRLI: unable to perform command request)\n"},
        {"+0s ls_rjt host=hba0 from=t0 command=123\n", ""},  // no login
        {lCheck("2/04/0a"), "not_ready" + lAt + "(2/04/0a)\n"},
        {lCheck("2/04/0b"), "check_condition" + lAt + "(2/04/0b)\n"},
        {lCheck("2/3a/00"), "check_condition" + lAt + "(2/3a/00)\n"},
        {lCheck("3/11/00"), "medium_error" + lAt + "(3/11/00)\n"},
        {lCheck("1/5d/00"), "medium_error" + lAt + "(1/5d/00)\n"},
        {lCheck("4/44/00"), "hardware_error" + lAt + "(4/44/00)\n"},
        {lCheck("b/47/00"), "aborted_command" + lAt + "(b/47/00)\n"},
        {lCheck("6/29/00"), "unit_attention" + lAt + "(6/29/00)\n"},
        {lCheck("1/17/01"), "recovered_error" + lAt + "(1/17/01)\n"},
        {lCheck("5/24/00"), "check_condition" + lAt + "(5/24/00)\n"},
    });
    // Of a block that is cut off, or of another form, the kind is known; of a kind that is not known,
    // nothing.
    ZTCSignReader lReader;
    ZTCSignReader::Signs lSigns;
    ZTSRecord lRecord;
    lRecord.mOccurrences = 1;
    for (const auto& [lCategory, lSubcategory] : {std::pair(4, 4), {1, 8}, {1, 32}, {4, 128}, {0, 0}}) {
        lRecord.mSeries.mCategory = static_cast<std::uint8_t>(lCategory);
        lRecord.mSeries.mSubcategory = static_cast<std::uint8_t>(lSubcategory);
        for (std::uint8_t lSize = 0; lSize < 20; ++lSize) {
            lRecord.mData.assign(lSize, static_cast<std::uint8_t>(lSize % 2));
            lReader.read(lRecord, lSigns);
        }
    }
    EXPECT_EQ(lSigns.size(), 60U);
    EXPECT_EQ(lSigns.front().mDetail, "");
}

TEST(SignReader, StatesAreLostAndComeBack) {
    expectSigns({
        {"+0s port-down host=hba0\n+1s port-down host=hba0 state=Offline\n+2s port-up host=hba0\n",
         "link_down hba0 on A (Linkdown)\nlink_up hba0 on A (Online)\n"},
        {"+0s port-gone host=hba0\n+1s port-back host=hba0\n",
         "port_gone hba0 on A (Online)\nport_back hba0 on A (Online)\n"},
        // Gone for good, behind a while: it was lost before.
        {"+0s target-lost host=hba0 from=t0\n+30s target-lost host=hba0 from=t0 state=gone\n"
         "+60s target-back host=hba0 from=t0\n",
         "target_lost hba0 t0 on A (Blocked)\ntarget_back hba0 t0 on A (Online)\n"},
        {"+0s target-lost host=hba0 from=t0 state=gone\n", "target_lost hba0 t0 on A (gone)\n"},
        {"+0s target-lost host=hba0 from=t0 state=Marginal\n+1s target-back host=hba0 from=t0\n", ""},
        {"+0s target-lost host=hba0 from=t0 state=\"Not Present\"\n+1s target-lost host=hba0 from=t0 state=Marginal\n",
         "target_lost hba0 t0 on A (Not Present)\ntarget_back hba0 t0 on A (Marginal)\n"},
        {"+0s port-down host=hba0 state=Unknown\n", ""},
        {"+0s luns host=hba0 from=t0 state=offline\n+1s luns host=hba0 from=t0 state=running\n"
         "+2s luns host=hba0 from=t0 access=standby\n",
         "lun_state hba0 t0 on A (offline)\naccess_changed hba0 t0 on A (active/optimized > standby)\n"},
        {"+0s paths-lost host=hba0 from=t0\n+1s paths-back host=hba0 from=t0\n",
         "path_lost disk mpatha 1 of 2\npath_lost hba0 t0 on A disk mpatha\n"
         "path_back disk mpatha 2 of 2\npath_back hba0 t0 on A disk mpatha\n"},
        {"+0s paths-removed host=hba0 from=t0\n+1s paths-lost host=hba1 from=t1\n+2s paths-back from=*\n",
         "lun_state hba0 t0 on A (gone)\n"
         "path_lost disk mpatha 1 of 2\npath_lost hba0 t0 on A disk mpatha\n"
         "path_lost disk mpatha 0 of 2\npath_lost hba1 t1 on B disk mpatha\n"
         "path_back disk mpatha 2 of 2\npath_back hba0 t0 on A disk mpatha\npath_back hba1 t1 on B disk mpatha\n"},
        {"+0s paths-lost host=hba0 from=t0\n+1s accept\n",
         "path_lost disk mpatha 1 of 2\npath_lost hba0 t0 on A disk mpatha\n"
         "path_back disk mpatha 1 of 1\npath_back hba0 t0 on A disk mpatha\n"},
        {"+0s change port hba0 port_id 0x010100 0x010200\n",
         "fabric_changed hba0 on A (0x010100 > 0x010200)\n"},
        // The names file calls it something else; and a link that is down has no address.
        {"+0s change port hba0 fabric 10:00:00:05:33:6c:00:01 left\n+0s change port hba0 port_id 0x010100 \"\"\n",
         ""},
        {"+0s change note root \"\" \"\" text\n+0s change host \"\" booted \"\" 6.1\n+0s change map 3\\ more x y z\n",
         ""},
    });
}

TEST(SignReader, EverythingElseThatAHostTells) {
    expectSigns({
        {"+0s fpin peer_congestion credit_stall host=hba0 attached=t0 x3\n",
         "fpin_congestion hba0 t0 on A (credit_stall) x3\n"},
        {"+0s fpin congestion clear host=hba0\n+0s fpin delivery timeout host=hba0\n",
         "fpin_delivery hba0 on A (timeout)\n"},
        // Of the host's own link, whichever of its ports is told.
        {"+0s fpin link_integrity invalid_crc host=hba0 attached=hba1\n",
         "fpin_link_integrity hba1 on A (invalid_crc)\n"},
        {"+70s count invalid_crc_count 12 host=hba0\n",
         "link_errors hba0 on A (invalid_crc_count) x12 -10-50\n"},
        {"+0s count iotmo 2 host=hba0 from=t0\n", "timeout hba0 t0 on A (iotmo) x2 0-60\n"},
        {"+0s count fpin_li 3 host=hba0\n+0s count commands 99 host=hba0 from=t0\n", ""},
        {"+0s stall vg0-root\n+75s stall-over vg0-root\n",
         "stall (volume) disk vg0-root over mpatha 0-10\nstall (volume) disk vg0-root over mpatha\n"
         "stall (volume) disk vg0-root over mpatha\nstall_over (volume) disk vg0-root over mpatha\n"},
        {"+0s loss agent/limit x500 for=4s\n", "events_lost (agent/limit) x500 0-4\n"},
        {"+0s change sensor buffer lost_fpins 0 7\n", "events_lost (lost_fpins) x7\n"},
        {"+0s agent-gone killed\n+5s agent-back\n", "agent_gone (killed)\nagent_back\n"},
        {"+0s sensor-gone ended\n+9s sensor-back\n", "sensor_gone (ended) 0-9\n"},
        {"+0s sensor-gone unknown\n+9s sensor-back\n", "sensor_gone (unknown)\n"},
    });
    // What a stall waits for, where that is a path; and what no row of the history is.
    ZTCSignReader lReader;
    ZTCSignReader::Signs lSigns;
    ZTSStall lStall;
    lStall.mName = "50:06:01:60:3b:20:11:00 LUN 2 seen from 10:00:00:10:9b:00:00:01";
    lReader.read(lStall, lSigns);
    EXPECT_EQ(lSigns.at(0).mRemote.toText() + lSigns.at(0).mInitiator.toText(),
              "50:06:01:60:3b:20:11:0010:00:00:10:9b:00:00:01");
    for (const char* const lpText :
         {"", "4", "4 of", "4 of 8 ", "-1 of 8", "4 of 99999999999", "5 of 8, 3"}) {
        EXPECT_TRUE(signsOf({1, "map", "m", "changed", "paths", "8 of 8", lpText}).empty()) << lpText;
    }
    for (const char* const lpText :
         {"", " ", ">", "10:00:00:10:9b:00:00:01>", ">50:06:01:60:3b:20:11:00", "+", "a b"}) {
        EXPECT_TRUE(signsOf({1, "map", "m", "changed", "missing", lpText, lpText}).empty()) << lpText;
        EXPECT_TRUE(signsOf({1, "remote_port", lpText, "went", "", "Online", ""}).empty()) << lpText;
        EXPECT_TRUE(signsOf({1, "port", lpText, "went", "", "Online", ""}).empty()) << lpText;
    }
}

// Another host that is booted, or a port of the switch itself, is no target.
TEST(SignReader, OnlyTargetsAreLost) {
    ZTSHostPorts lPorts = ZTCSignStory("at 2026-11-17 10:00\n+0s end\n").getSite().makePorts();
    const ZTSChange lWent{
        1,
        "remote_port",
        lPorts.mRemote[0].mNames.mPort.toText() + " seen from " + lPorts.mRemote[0].mInitiator.toText(),
        "went",
        "",
        "Online",
        ""};
    for (const auto& [lrpRoles, lIsLost] : {std::pair("FCP Target, FCP Initiator", true),
                                            {"FCP Initiator", false},
                                            {"Directory Server", false},
                                            {"", true}}) {
        ZTCSignReader lReader;
        lPorts.mRemote[0].mRoles = lrpRoles;
        lReader.takePorts(lPorts);
        lReader.takePorts({});  // it has gone by now
        ZTCSignReader::Signs lSigns;
        lReader.read(lWent, lSigns);
        EXPECT_EQ(!lSigns.empty(), lIsLost) << lrpRoles;
    }
}

// In whatever order its end and its begin are read; and the ends of others are not its own.
TEST(SignReader, ASensorIsGoneFromItsEndToTheNextBegin) {
    std::vector<ZTSChange> lChanges;
    for (ZTNanoseconds lTime = 1; lTime <= 8; ++lTime) {
        const bool lIsEnd = lTime % 2 == 0;
        lChanges.push_back(
            {lTime * ZTSecond, "sensor", "vrx-sn", lIsEnd ? "went" : "came", "", "", lIsEnd ? "ended" : ""});
    }
    for (unsigned int lRound = 0; lRound < 2; ++lRound) {
        ZTCSignReader lReader;
        ZTCSignReader::Signs lSigns;
        for (const ZTSChange& lrChange : lChanges) {
            lReader.read(lrChange, lSigns);
        }
        ASSERT_EQ(lSigns.size(), 3U);
        EXPECT_TRUE(std::ranges::all_of(lSigns, [](const ZTSSign& acrSign) {
            return acrSign.mLast - acrSign.mFirst == ZTSecond && acrSign.mFirst / ZTSecond % 2 == 0;
        }));
        std::ranges::reverse(lChanges);
    }
    // One that was killed: from when the history was last written, which the next one says.
    ZTCSignReader lReader;
    ZTCSignReader::Signs lSigns;
    const ZTNanoseconds lSeen = 100 * ZTSecond;
    for (const std::string& lrBefore :
         {isoText(toSensorTime(lSeen)), std::string("yesterday's"), std::string()}) {
        lReader.read({900 * ZTSecond, "sensor", "vrx-sn, process 7", "went", "", lrBefore, "unknown"},
                     lSigns);
        EXPECT_EQ(lSigns.back().mFirst, lrBefore.ends_with('Z') ? lSeen : 900 * ZTSecond);
        EXPECT_EQ(lSigns.back().mLast, 900 * ZTSecond);
        EXPECT_EQ(lSigns.back().mDetail, "unknown");
    }
}

}  // namespace
