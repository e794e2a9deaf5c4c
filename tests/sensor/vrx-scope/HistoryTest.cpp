// The history and the ports as vrx-scope shows them.
#include <nlohmann/json.hpp>

#include "LossText.h"
#include "ScopeProgram.h"
#include "TestPages.h"
#include "TestStore.h"

namespace {

using Json = nlohmann::ordered_json;
using Arguments = ZTCTestChild::Arguments;

constexpr char sQueueFull[] =
    "x'01000000500601603b20110c000100000810000000000000000000000000000000000000000000000000000000000000'";

// A store with two ports and what happened to them from 2026-11-18 11:06:40 UTC on.
struct Stand {
    Stand() {
        mStore.addSeries(1, "queue_full", 4, 1, "00", "0c");
        mStore.addSeries(2, "rscn", 1, 32, "01", "", "B");
        mStore.addRecord(1, 1, Begin + 1, Begin + 4, 1200, sQueueFull);
        mStore.addRecord(2, 2, Begin + 2, Begin + 2, 1, "x'0100000000000301'");
        mStore.addRecord(3, 1, Begin + 20, Begin + 21, 3, sQueueFull);
        mStore.closeTo(2);
        mStore.exec(
            "INSERT INTO names VALUES ('50:06:01:60:3b:20:11:0c', 'array\xc3\xa9 \"1\"', '', '', '', '');"
            "INSERT INTO losses VALUES (1, 1795000010000000000, 1795000012000000000, 'agent', 'limit', 1234,"
            " NULL), (2, 1795000013000000000, 1795000013000000000, 'agent', 'killed', NULL, 77);"
            "INSERT INTO changes VALUES (1, 1795000000000000000, 'agent', 'vrx-sca, process 12', 'came', '', '',"
            " ''), (2, 1795000015000000000, 'port', '10:00:00:25:b5:01:00:00', 'changed', 'state', 'Linkdown',"
            " 'Online');"
            "INSERT INTO ports (port, node, host, state, speed, type, port_id, fabric, seen, here, since) VALUES ("
            "'10:00:00:25:b5:01:00:00', '20:00:00:25:b5:01:00:00', 'host3', 'Online',"
            " '16 Gbit', 'NPort', 66051, 'A', 1795000015000000000, 1, 1795000015000000000), ('10:00:00:25:b5:01:00:01',"
            " '20:00:00:25:b5:01:00:01', 'host4', 'Linkdown', '', '', NULL, 'B', 1795000000000000000, 0, 0);"
            "INSERT INTO remote_ports (initiator, port, node, state, roles, port_id, fabric, seen, here) VALUES ("
            "'10:00:00:25:b5:01:00:00', '50:06:01:60:3b:20:11:0c',"
            " '50:06:01:60:bb:20:11:0c', 'Online', 'FCP Target', 131332, 'A', 1795000015000000000, 1),"
            " ('10:00:00:25:b5:01:00:00', '50:06:01:60:3b:20:11:0e', '50:06:01:60:bb:20:11:0e', 'Online',"
            " 'FCP Target', 131333, 'A', 1795000000000000000, 0)");
    }
    Arguments commandOf(const Arguments& acrArguments) const { return commandOnStore(mPath, acrArguments); }
    std::string ask(const Arguments& acrArguments) const {
        return askScope(mDirectory.getPath(), commandOf(acrArguments));
    }
    // The ids of records, as --ndjson has them.
    std::string idsOf(Arguments aArguments) const {
        aArguments.insert(aArguments.begin(), "history");
        aArguments.push_back("--ndjson");
        std::string lIds;
        for (const ZTTestTexts& lrId : matchesIn(ask(aArguments), "\"id\":(\\d+)")) {
            lIds += lrId[0];
        }
        return lIds;
    }

    static constexpr double Begin = 1795000000;
    const ZTCTestDirectory mDirectory;
    const std::string mPath = mDirectory / "history.db";
    ZTCTestStore mStore{mPath};
};

TEST(History, ShowsRecordsLossesAndChangesInTheirOrder) {
    const Stand lStand;
    EXPECT_EQ(
        lStand.ask({"history"}),
        "-- 2026-11-18 11:06:40.000 UTC: agent vrx-sca, process 12 came\n"
        "  first                        last          kind         events  initiator                remote "
        "port              what\n"
        "  2026-11-18 11:06:41.000 UTC  11:06:44.000  queue_full    1,200  10:00:00:25:b5:01:00:00  "
        "array\xc3\xa9 \"1\"               luns 3,12\n"
        "  2026-11-18 11:06:42.000 UTC  11:06:42.000  rscn              1  10:00:00:25:b5:01:00:01  030000   "
        "                address format area, port id 030000\n"
        "-- 2026-11-18 11:06:50.000 UTC to 11:06:52.000: 1,234 events lost by the agent: it held as much as it "
        "may, and nobody fetched in time\n"
        "-- 2026-11-18 11:06:53.000 UTC to 11:06:53.000: up to 77 events lost by the agent: it was killed with "
        "what it held\n"
        "-- 2026-11-18 11:06:55.000 UTC: port 10:00:00:25:b5:01:00:00: state was Linkdown, is Online\n"
        "  2026-11-18 11:07:00.000 UTC  11:07:01.000  queue_full        3  10:00:00:25:b5:01:00:00  "
        "array\xc3\xa9 \"1\"               luns 3,12, still open\n");
    EXPECT_EQ(lStand.ask({"history", "--since", "@1795000100"}), "no events\n");
    EXPECT_EQ(
        lStand.ask({"ports"}),
        "10:00:00:25:b5:01:00:00, host3, id 010203, fabric A: Online, 16 Gbit, since 2026-11-18 "
        "11:06:55.000 UTC\n"
        "  remote port              name        id      roles       state\n"
        "  50:06:01:60:3b:20:11:0c  array\xc3\xa9 \"1\"  020104  FCP Target  Online\n"
        "  50:06:01:60:3b:20:11:0e  -           020105  FCP Target  gone, last seen 2026-11-18 "
        "11:06:40.000 UTC\n\n"
        "10:00:00:25:b5:01:00:01, host4, id -, fabric B: gone, last seen 2026-11-18 11:06:40.000 UTC\n");
}

TEST(History, ItsJsonIsThatOfARecordAndMore) {
    const Stand lStand;
    const Json lAll = Json::parse(lStand.ask({"history", "--json"}));
    EXPECT_EQ(lAll["command"], "history");
    EXPECT_EQ(lAll["host"], "db7");
    const Json& lrLast = lAll["records"][2];
    EXPECT_EQ(lrLast["id"], 3);
    EXPECT_EQ(lrLast["open"], true);
    EXPECT_EQ(lrLast["names"]["target"], "array\xc3\xa9 \"1\"");
    EXPECT_EQ(lrLast["event"]["luns"], Json({3, 12}));
    EXPECT_EQ(lAll["records"][1]["remote_port_name"], nullptr);
    EXPECT_EQ(lAll["losses"][1]["events"], nullptr);
    EXPECT_EQ(lAll["losses"][1]["at_most"], 77);
    EXPECT_EQ(lAll["changes"][1]["after"], "Online");
    // The same as lines, in the order of time.
    std::string lTypes;
    std::istringstream lLines(lStand.ask({"history", "--ndjson"}));
    for (std::string lLine; std::getline(lLines, lLine);) {
        const Json lObject = Json::parse(lLine);
        lTypes += lObject["type"].get<std::string>()[0];
        EXPECT_TRUE(std::all_of(lLine.begin(), lLine.end(), [](char aSign) { return aSign >= ' '; }));
    }
    EXPECT_EQ(lTypes, "crrllcr");
    const Json lSums = Json::parse(lStand.ask({"history", "--summary", "--json", "--kind", "queue_full"}));
    EXPECT_EQ(lSums["events"], 1203);
    EXPECT_EQ(lSums["targets"][0]["name"], "array\xc3\xa9 \"1\"");
    EXPECT_EQ(lSums["initiators"][0]["last"], "2026-11-18T11:07:01.000000000Z");
    EXPECT_EQ(Json::parse(lStand.ask({"history", "--summary", "--json", "--until", "@1795000003"}))["events"],
              1201);
    EXPECT_TRUE(lStand.ask({"history", "--summary", "--since", "@1795000000"})
                    .starts_with("1,204 events in 3 records, 1,234 lost, an unknown number lost once\n"));
    const Json lPorts = Json::parse(lStand.ask({"ports", "--json"}));
    EXPECT_EQ(lPorts["ports"][0]["remote_ports"][1]["here"], false);
    EXPECT_EQ(lPorts["ports"][0]["port_id"], "010203");
}

TEST(History, EveryOptionTakesWhatItSays) {
    const Stand lStand;
    const std::pair<Arguments, const char*> lRows[] = {
        {{}, "123"},
        {{"--since", "2026-11-18 11:06:45"}, "3"},
        {{"--since", "2026-11-18 12:06:43 +0100", "--until", "2026-11-18T11:06:59Z"}, "1"},
        {{"--until", "@1795000001.5"}, "1"},
        {{"--since", "-2h", "--until", "-1h"}, ""},
        {{"--kind", "rscn"}, "2"},
        {{"--kind", "rscn", "--kind", "4,1"}, "123"},
        {{"--initiator", "1000002 5b5010000"}, nullptr},
        {{"--initiator", "10000025B5010000"}, "13"},
        {{"--target", "array\xc3\xa9 \"1\""}, "13"},
        {{"--target", "50:06:01:60:3b:20:11:0d"}, ""},
        {{"--fabric", "B"}, "2"},
        {{"--fabric", "A", "--host", "db7", "--limit", "1"}, "3"},
        {{"--limit", "2"}, "23"},
        {{"--limit", "9"}, "123"},
        {{"--kind", "plague"}, nullptr},
        {{"--kind", "4,256"}, nullptr},
        {{"--fabric", "C"}, nullptr},
        {{"--host", "db8"}, nullptr},
        {{"--since", "noon"}, nullptr},
        {{"--since", "tomorrow", "--until", "yesterday"}, nullptr},
        {{"--limit", "0"}, nullptr},
        {{"--follow", "--json"}, nullptr},
        {{"--follow", "--summary"}, nullptr},
        {{"--summary", "--limit", "2"}, nullptr}};
    for (const auto& [lrArguments, lpIds] : lRows) {
        SCOPED_TRACE(lrArguments.empty() ? "" : lrArguments[0] + " " + lrArguments.back());
        if (lpIds != nullptr) {
            EXPECT_EQ(lStand.idsOf(lrArguments), lpIds);
            continue;
        }
        Arguments lArguments = lrArguments;
        lArguments.insert(lArguments.begin(), "history");
        const ZTSScopeResult lEnd = runScope(lStand.mDirectory.getPath(), lStand.commandOf(lArguments));
        EXPECT_EQ(lEnd.mStatus, 2);
        EXPECT_EQ(lEnd.mOut, "");
        EXPECT_EQ(countIn(lEnd.mErr, "\n"), 1U) << lEnd.mErr;
    }
    const ZTSScopeResult lNone = runScope("/", {"history", "--store", lStand.mPath + "x"});
    EXPECT_EQ(lNone.mStatus, 1);
    EXPECT_EQ(countIn(lNone.mErr, "\n"), 1U) << lNone.mErr;
    EXPECT_FALSE(std::filesystem::exists(lStand.mPath + "x"));
}

// Who reads the first of many lines gets it at once, and the program ends as it should.
TEST(History, AClosedPipeIsNoError) {
    Stand lStand;
    const int lRecords = ZTTestRounds(100'000, 10'000'000);
    lStand.mStore.exec(
        "WITH RECURSIVE n(i) AS (SELECT 10 UNION ALL SELECT i + 1 FROM n WHERE i < " +
        std::to_string(lRecords) +
        ") INSERT INTO records SELECT i, 2, 1795000100000000000 + i, 1795000100000000000 + i, 1,"
        " x'0100000000000301' FROM n");
    const ZTSTestEnd lEnd =
        runChild(Arguments{"/bin/bash", "-c",
                           "set -o pipefail; \"$0\" history --store \"$1\" --ndjson --kind rscn | head -n 4",
                           ZT_VRX_SCOPE, lStand.mPath},
                 Arguments{"TZ=UTC"});
    EXPECT_EQ(lEnd.mStatus, 0);
    EXPECT_EQ(lEnd.mErr, "");
    EXPECT_EQ(countIn(lEnd.mOut, "\n"), 4U);
}

TEST(History, FollowsAcrossARestartAndASetAsideStore) {
    auto lStand = std::make_unique<Stand>();
    ZTCScopeRun lRun(lStand->mDirectory.getPath(), lStand->commandOf({"history", "--follow", "--ndjson"}));
    const auto lIsShown = [&](const char* apPart, std::size_t aTimes = 1) {
        return waitUntil([&] { return countIn(lRun.getOut(), apPart) == aTimes; });
    };
    EXPECT_TRUE(lIsShown("\"id\":3,\"open\":true"));
    lStand->mStore.addRecord(4, 2, Stand::Begin + 30, Stand::Begin + 30, 1);
    EXPECT_TRUE(lIsShown("\"id\":4,\"open\":true"));
    lStand->mStore.closeTo(4);
    EXPECT_TRUE(lIsShown("\"id\":3,\"open\":false"));
    EXPECT_TRUE(lIsShown("\"id\":4,\"open\":false"));
    lStand->mStore.exec("INSERT INTO losses VALUES (3, 0, 1, 'sensor', 'store', NULL, NULL)");
    EXPECT_TRUE(lIsShown("\"type\":\"loss\"", 3));
    // Another file in its place: all that it has is new.
    const std::string lPath = lStand->mPath;
    const std::string lAside = lPath + ".damaged";
    std::filesystem::rename(lPath, lAside);
    std::filesystem::remove(lPath + "-shm");
    std::filesystem::remove(lPath + "-wal");
    {
        ZTCTestStore lStore(lAside + "2");
        lStore.addSeries(1, "rscn", 1, 32, "01", "", "B");
        lStore.addRecord(1, 1, Stand::Begin + 40, Stand::Begin + 40, 77);
        lStore.exec("PRAGMA wal_checkpoint(TRUNCATE)");
    }
    std::filesystem::rename(lAside + "2", lPath);
    EXPECT_TRUE(lIsShown("\"occurrences\":77"));
    EXPECT_TRUE(lRun.isAlive());
    lRun.interrupt();
    EXPECT_EQ(lRun.waitForEnd(), 0);
    EXPECT_EQ(countIn(lRun.getOut(), "\"id\":2,"), 1U);
}

}  // namespace
