// What the host told, as vrx-scope shows it: FPINs and stalls in the history, changes, notes, and the ports.
#include <filesystem>
#include <nlohmann/json.hpp>
#include <regex>
#include <thread>

#include "PortText.h"
#include "ScopeProgram.h"
#include "StoredHost.h"
#include "TestPages.h"

namespace {

using Json = nlohmann::json;
using Arguments = ZTCTestChild::Arguments;

constexpr ZTNanoseconds sBegin = 1'795'000'000 * ZTSecond;  // 2026-11-18 11:06:40 UTC

// A path of a port of the host to array1's controller A, as changes and stalls call it.
std::string pathOf(unsigned int aPort) {
    return ZTArrayPort(1, 0, aPort).toText() + " LUN 0 seen from " + ZTHostPort(aPort).toText();
}

struct Stand {
    Stand() {
        ZTAddHostPorts(mBatch);
        ZTAddHostStorage(mBatch);
        ZTSHostNews& lrHost = mBatch.mHost;
        lrHost.mFpins = {{sBegin + ZTSecond,
                          sBegin + 3 * ZTSecond,
                          2,
                          ZTHostPort(0),
                          "left",
                          "link_integrity",
                          "loss_of_signal",
                          "",
                          ZTHostPort(9),
                          ZTArrayPort(1, 0, 0),
                          0,
                          1000,
                          0,
                          17,
                          {ZTArrayPort(1, 0, 0), ZTArrayPort(2, 1, 0)}},
                         {sBegin + 20 * ZTSecond,
                          sBegin + 20 * ZTSecond,
                          1,
                          ZTHostPort(1),
                          "right",
                          "congestion",
                          "oversubscription",
                          "alarm",
                          {},
                          {},
                          0,
                          0,
                          500,
                          0,
                          {}}};
        lrHost.mStalls = {
            {sBegin + 2 * ZTSecond, sBegin + 97 * ZTSecond, true, "dm-5", "vg0-data", "/data\x1b", 1200,
             "volume"},
            {sBegin + 4 * ZTSecond, sBegin + 9 * ZTSecond, false, "sda", pathOf(0), "/data", 1, "path"},
            {sBegin + 5 * ZTSecond, sBegin + 10 * ZTSecond, true, "nvme0n1", "nvme0n1", "/", 1, "disk"}};
        lrHost.mWindows = {{"array1/A", sBegin, sBegin + 3 * ZTSecond, "new <b>firmware</b>"},
                           {"fabric=left", sBegin + 7 * ZTSecond, sBegin + 8 * ZTSecond, ""}};
        lrHost.mBlindSpots = {{"fpins", ZTHostPort(1).toText(), "the driver posts none", true},
                              {"scsi_errors", "", "none has come yet", false}};
        mBatch.mChanges = {
            {sBegin, "remote_port", ZTArrayPort(1, 0, 0).toText() + " seen from " + ZTHostPort(0).toText(),
             "changed", "state", "Online", "Blocked"},
            {sBegin + 2 * ZTSecond, "lun", pathOf(0), "came", "", "", "running"},
            {sBegin + 7 * ZTSecond, "map", "mpatha", "changed", "paths", "8 of 8", "4 of 8"},
            {sBegin + 8 * ZTSecond, "note", "root", "noted", "array1", "", "new \x1b[1mcable"}};
        const ZTNanoseconds lNow = ZTSecond * time(nullptr);
        lrHost.mMeasures.add(lNow, {ZTHostPort(0), {}, ""}, "invalid_crc_count", 1234);
        lrHost.mMeasures.add(lNow, {ZTHostPort(0), ZTArrayPort(1, 0, 0), ""}, "fpin_li", 5);
        lrHost.mMeasures.add(lNow, {ZTHostPort(0), ZTArrayPort(1, 0, 0), ""}, "commands", 99);
        mWriter->write(mBatch);
    }
    Arguments commandOf(const Arguments& acrArguments) const { return commandOnStore(mPath, acrArguments); }
    std::string ask(const Arguments& acrArguments) const {
        return askScope(mDirectory.getPath(), commandOf(acrArguments));
    }
    // What a command refuses with; it prints nothing else.
    std::string refusalOf(const Arguments& acrArguments, int aStatus) const {
        const ZTSScopeResult lEnd = runScope(mDirectory.getPath(), commandOf(acrArguments));
        EXPECT_EQ(lEnd.mStatus, aStatus) << acrArguments.back();
        EXPECT_EQ(lEnd.mOut, "");
        EXPECT_EQ(countIn(lEnd.mErr, "\n"), 1U) << lEnd.mErr;
        EXPECT_EQ(countIn(lEnd.mErr, "\x1b"), 0U);
        return lEnd.mErr;
    }

    ZTSStoreBatch mBatch;
    const ZTCTestDirectory mDirectory;
    const std::string mPath = mDirectory / "history.db";
    std::optional<ZTCStoreWriter> mWriter{std::in_place, ZTHostStoreOptions(mPath)};
};

// Blanks in a row become one.
std::string packed(const std::string& acrText) {
    return std::regex_replace(acrText, std::regex(" +"), " ");
}

TEST(HostHistory, StandsAmongTheRowsInTheOrderOfTime) {
    const Stand lStand;
    EXPECT_EQ(
        packed(lStand.ask({"history"})),
        "-- 2026-11-18 11:06:40.000 UTC: remote port array1-A-left seen from hba0: state was Online, is Blocked, in "
        "maintenance (new <b>firmware</b>)\n"
        " first last kind events initiator remote port what\n"
        " 2026-11-18 11:06:41.000 UTC 11:06:43.000 fpin 2 hba0 array1-A-left link integrity: loss of signal, 17 "
        "errors, found by 10:00:00:25:b5:01:00:09, affects array1-A-left, array2-B-left, in maintenance (new "
        "<b>firmware</b>)\n"
        " 2026-11-18 11:06:42.000 UTC 11:08:17.000 stall - - - /data\\x1b (vg0-data, dm-5): stood still for 1 min 35 "
        "s, 1,200 commands, in maintenance (new <b>firmware</b>)\n"
        "-- 2026-11-18 11:06:42.000 UTC: lun array1-A-left LUN 0 seen from hba0 came: running, in maintenance (new "
        "<b>firmware</b>)\n"
        " 2026-11-18 11:06:44.000 UTC 11:06:49.000 stall - - - a path of /data (array1-A-left LUN 0 seen from hba0, sda): 1 "
        "command, none completes, still under way, in maintenance\n"
        " 2026-11-18 11:06:45.000 UTC 11:06:50.000 stall - - - / (nvme0n1): stood still for 5 s, 1 command\n"
        "-- 2026-11-18 11:06:47.000 UTC: map mpatha: paths was 8 of 8, is 4 of 8, in maintenance\n"
        "-- 2026-11-18 11:06:48.000 UTC: note by root about array1: new \\x1b[1mcable, in maintenance\n"
        " 2026-11-18 11:07:00.000 UTC 11:07:00.000 fpin 1 hba1 - congestion: oversubscription, alarm\n");
    EXPECT_EQ(
        packed(lStand.ask({"changes"})),
        " time what name change before after\n"
        " 2026-11-18 11:06:40.000 UTC remote port array1-A-left seen from hba0 state Online Blocked, in "
        "maintenance (new <b>firmware</b>)\n"
        " 2026-11-18 11:06:42.000 UTC lun array1-A-left LUN 0 seen from hba0 came - running, in maintenance "
        "(new <b>firmware</b>)\n"
        " 2026-11-18 11:06:47.000 UTC map mpatha paths 8 of 8 4 of 8, in maintenance\n"
        " 2026-11-18 11:06:48.000 UTC note root noted: array1 - new \\x1b[1mcable, in maintenance\n");
    const std::string lPorts = packed(lStand.ask({"ports"}));
    for (
        const char* const lpPart :
        {" VRX-32, firmware 12.6.0, switch port sw 1/0\n in the last hour 1,234 frames with a wrong check sum "
         "(invalid_crc_count)\n remote port name array id roles errors, 1 h state\n"
         " 50:06:01:60:3b:01:00:00 array1-A-left array1/A 020102 FCP Target 5 Online\n",
         "\ncannot see FPINs of hba1: the driver posts none\nmay not see SCSI errors: none has come yet\n"}) {
        EXPECT_NE(lPorts.find(lpPart), std::string::npos) << lPorts;
    }
}

TEST(HostHistory, IsFoundByKindPortAndTime) {
    Stand lStand;
    const std::pair<Arguments, const char*> lRows[] = {
        {{"--kind", "fpin"}, "f1f2"},
        {{"--kind", "stall"}, "s1s2s3"},
        {{"--kind", "fpin", "--kind", "stall", "--limit", "1"}, "s3f2"},
        {{"--limit", "1"}, "s3f2"},
        {{"--kind", "queue_full"}, ""},
        {{"--kind", "stall", "--target", "array1/A"}, "s1s2"},
        {{"--initiator", "hba1"}, "s1f2"},
        {{"--target", "array2/B"}, "f1"},
        {{"--fabric", "right", "--kind", "stall"}, "s1"},
        {{"--since", "@1795000030"}, "s1s2"},
        {{"--until", "@1795000001"}, "f1"}};
    const auto lIdsOf = [&](const Arguments& acrArguments) {
        Arguments lArguments{"history", "--ndjson"};
        lArguments.insert(lArguments.end(), acrArguments.begin(), acrArguments.end());
        std::string lIds;
        for (const ZTTestTexts& lrId :
             matchesIn(lStand.ask(lArguments), "\"type\":\"([fs])\\w+\",\"id\":(\\d)")) {
            lIds += lrId[0] + lrId[1];
        }
        return lIds;
    };
    for (const auto& [lrArguments, lpIds] : lRows) {
        EXPECT_EQ(lIdsOf(lrArguments), lpIds) << lrArguments[0] << " " << lrArguments.back();
    }
    const auto lCount = [&](Arguments aArguments) {
        aArguments.insert(aArguments.begin(), {"changes", "--ndjson"});
        return countIn(lStand.ask(aArguments), "\n");
    };
    EXPECT_EQ(lCount({"--what", "note", "--what", "map"}), 2U);
    EXPECT_EQ(lCount({"--target", "array1"}), 4U);  // with the map above it, and the note about it
    EXPECT_EQ(lCount({"--target", "array2"}), 0U);
    EXPECT_EQ(lCount({"--limit", "3"}), 3U);
    EXPECT_EQ(lCount({"--since", "@1795000008"}), 1U);
    for (const Arguments& lrArguments :
         {Arguments{"changes", "--what", "plague\x1b"}, Arguments{"changes", "--until", "noon"},
          Arguments{"changes", "--target", "array9"}, Arguments{"changes", "--limit", "0"},
          Arguments{"history", "--summary", "--kind", "stall"}, Arguments{"ports", "--map", "mpatha"}}) {
        lStand.refusalOf(lrArguments, 2);
    }
    const Json lAll = Json::parse(lStand.ask({"history", "--json"}));
    EXPECT_EQ(lAll["fpins"][0]["attached"]["controller"], "A");
    EXPECT_EQ(lAll["fpins"][0]["window"], "new <b>firmware</b>");
    EXPECT_EQ(lAll["fpins"][1]["attached"], nullptr);
    EXPECT_EQ(lAll["stalls"][0]["hits"], "/data\x1b");
    EXPECT_EQ(lAll["stalls"][1]["over"], false);
    EXPECT_EQ(lAll["changes"][0]["ports"][1]["name"], "hba0");
    const Json lPorts = Json::parse(lStand.ask({"ports", "--json"}));
    EXPECT_EQ(lPorts["ports"][0]["errors_last_hour"]["invalid_crc_count"], 1234);
    EXPECT_EQ(lPorts["ports"][0]["firmware"], "12.6.0");
    EXPECT_EQ(lPorts["ports"][0]["remote_ports"][0]["array"], "array1");
    EXPECT_EQ(lPorts["blind_spots"].size(), 2U);
    // What has gone still lies where it did.
    ZTSHostNews& lrHost = lStand.mBatch.mHost;
    lrHost.mStalls = {
        {sBegin + 30 * ZTSecond, sBegin + 40 * ZTSecond, true, "dm-1", "mpathb", "/home", 1, "map"}};
    lrHost.mStorage->mMaps.clear();
    lrHost.mStorage->mLuns.clear();
    lStand.mWriter->write(lStand.mBatch);
    EXPECT_EQ(lIdsOf({"--kind", "stall", "--target", "array1/A", "--fabric", "left"}), "s2s4");
}

TEST(HostHistory, ANoteIsWrittenDownOrRefusedInOneLine) {
    Stand lStand;
    std::thread lTaker([&] { waitUntil([&] { return !lStand.mWriter->takeRequests().empty(); }); });
    EXPECT_EQ(lStand.ask({"note", "new", "cable", "--about", "hba0"}), "noted\n");
    lTaker.join();
    EXPECT_NE(packed(lStand.ask({"changes", "--since", "-1h"})).find("noted: hba0 - new cable\n"),
              std::string::npos);
    for (const Arguments& lrArguments :
         {Arguments{"note"}, Arguments{"note", ""}, Arguments{"note", std::string(1001, 'x')},
          Arguments{"note", "two\nlines"}, Arguments{"note", "\xff"},
          Arguments{"note", "a", "--about", "\x1b"},
          Arguments{"note", "a", "--about", std::string(201, 'x')}}) {
        lStand.refusalOf(lrArguments, 2);
    }
    if (geteuid() == 0) {
        std::filesystem::permissions(lStand.mDirectory.getPath(), std::filesystem::perms(0755));
        for (const auto& lrFile : std::filesystem::directory_iterator(lStand.mDirectory.getPath())) {
            std::filesystem::permissions(lrFile.path(), std::filesystem::perms(0644));
        }
        const ZTSTestEnd lEnd = runChild(Arguments{"/usr/bin/setpriv", "--reuid", "65534", "--clear-groups",
                                                   ZT_VRX_SCOPE, "note", "x", "--store", lStand.mPath},
                                         Arguments{"TZ=UTC"});
        EXPECT_EQ(lEnd.mStatus, 1);
        EXPECT_NE(lEnd.mErr.find("as root"), std::string::npos) << lEnd.mErr;
    }
    lStand.mWriter.reset();
    EXPECT_NE(lStand.refusalOf({"note", "x"}, 1).find("vrx-sn does not run"), std::string::npos);
    EXPECT_EQ(countIn(lStand.ask({"paths"}), "vrx-sn does not run: this is as it was at 2"), 1U);
    std::filesystem::remove(lStand.mPath);
    EXPECT_NE(lStand.refusalOf({"note", "x"}, 1).find("there is no history"), std::string::npos);
}

TEST(PortText, FindsPortsByNameArrayAndController) {
    const ZTSWwn lFirst = ZTHostPort(1);
    const ZTSWwn lSecond = ZTHostPort(2);
    const ZTPortLabels lLabels{{lFirst, {"one", "two", "A", "", ""}}, {lSecond, {"two", "two", "", "", ""}}};
    EXPECT_EQ(findPorts(lLabels, "two"), std::vector{lSecond});  // a name comes before an array
    EXPECT_EQ(findPorts(lLabels, "two/A"), std::vector{lFirst});
    EXPECT_EQ(findPorts(lLabels, "two/"), std::vector<ZTSWwn>());
    EXPECT_EQ(findPorts(lLabels, ""), std::vector<ZTSWwn>());
    EXPECT_EQ(findPorts({}, "0x100000e0b5010009").size(), 1U);
    EXPECT_EQ(
        nameThePortsIn(lLabels, lFirst.toText() + lSecond.toText() + " 10:00 " + ZTHostPort(7).toText()),
        "onetwo 10:00 " + ZTHostPort(7).toText());
}

}  // namespace
