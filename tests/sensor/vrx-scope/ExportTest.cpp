// An incident in one file for a ticket, with a site's names or without any of them.
#include <sys/stat.h>
#include <sys/timex.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <regex>

#include "HostClock.h"
#include "Pseudonyms.h"
#include "ScopeProgram.h"
#include "StoredIncidents.h"
#include "TestPages.h"

namespace {

using Json = nlohmann::json;
using Arguments = ZTCTestChild::Arguments;

struct Stand : ZTSStoredIncidents {
    Stand() { mWriter.write(mBatch); }
    ZTSScopeResult run(const Arguments& acrMore, const char* apZone = "UTC") const {
        Arguments lArguments{ZT_VRX_SCOPE, "incidents", "export", "1", "--store", mPath};
        lArguments.insert(lArguments.end(), acrMore.begin(), acrMore.end());
        return runChild(lArguments, Arguments{"TZ=" + std::string(apZone)});
    }
    std::string ask(const Arguments& acrMore, const char* apZone = "UTC") const {
        const ZTSScopeResult lEnd = run(acrMore, apZone);
        EXPECT_EQ(lEnd.mStatus, 0) << lEnd.mErr;
        return lEnd.mOut;
    }

    const ZTCTestDirectory mDirectory;
    const std::string mPath = mDirectory / "history.db";
    ZTCStoreWriter mWriter{ZTHostStoreOptions(mPath)};
};

std::vector<Json> linesOf(const std::string& acrText) {
    std::vector<Json> lLines;
    std::istringstream lText(acrText);
    for (std::string lLine; std::getline(lText, lLine);) {
        if (lLine.starts_with("{")) {
            lLines.push_back(Json::parse(lLine));
        }
    }
    return lLines;
}

TEST(IncidentExport, HasAllOfItInOneFile) {
    Stand lStand;
    const std::string lText = lStand.ask({}, "CET-1CEST,M3.5.0,M10.5.0/3");
    for (const char* const lpPart : {"\nAll paths of /data and /logs are gone", "What happened\n",
                                     "note by mueller about array1: new zoning for db7\n", " UTC (2",
                                     "local zone    CE", "host's clock  ", "  logo  "}) {
        EXPECT_NE(lText.find(lpPart), std::string::npos) << lpPart << "\n" << lText;
    }
    std::string lTypes;
    const std::vector<Json> lLines = linesOf(lText);
    for (const Json& lrLine : lLines) {
        lTypes += lrLine.contains("type") ? lrLine["type"].get<std::string>()[0] : '/';
    }
    EXPECT_EQ(lTypes, "//crrcccfrrs");  // of the change nine days before nothing
    EXPECT_TRUE(lLines[0].contains("clock"));
    EXPECT_EQ(lLines[1]["evidence"], Json({1, 2, 3, 4}));
    EXPECT_EQ(linesOf(lStand.ask({"--ndjson"})).size(), lLines.size());
    // A file is made, and nothing is written over.
    const std::string lFile = lStand.mDirectory / "ticket";
    EXPECT_EQ(lStand.ask({"--out", lFile}), "");
    EXPECT_EQ(std::filesystem::status(lFile).permissions(), std::filesystem::perms(0600));
    EXPECT_GT(std::filesystem::file_size(lFile), 1000U);
    EXPECT_EQ(lStand.run({"--out", lFile}).mStatus, 1);
    EXPECT_EQ(lStand.run({"--out", "/dev/full/x"}).mStatus, 1);
}

TEST(IncidentExport, WithPseudonymsLeaksNoName) {
    Stand lStand;
    const std::string lText = lStand.ask({"--pseudonyms"});
    // In whatever form.
    std::vector<std::string> lNames{"db7",     "/data",   "/logs",      "vg0",     "mpath",   "array1",
                                    "array2",  "hba",     "sw 1",       "6006016", "600601",  "APM",
                                    "mueller", "schmidt", "zoning for", "moved",   "payroll", "right"};
    const auto lAddPort = [&](const ZTSWwn& acrPort) {
        lNames.push_back(acrPort.toText());
        lNames.push_back(std::regex_replace(acrPort.toText(), std::regex(":"), ""));
    };
    for (unsigned int lPort = 0; lPort < 4; ++lPort) {
        lAddPort(ZTHostPort(lPort));
        lAddPort(ZTArrayPort(1, 0, lPort));
        lAddPort(ZTArrayPort(1, 1, lPort));
    }
    for (const std::string& lrName : lNames) {
        EXPECT_EQ(countIn(lText, lrName), 0U) << lrName << " in\n" << lText;
    }
    // The same port is the same everywhere: in words, in a field, in an event and in its bytes.
    const std::vector<Json> lLines = linesOf(lText);
    const Json& lrIncident = lLines.at(1);
    const std::string lTarget = lrIncident["targets"][0]["port_name"];
    const Json& lrLogout = lLines.at(4);
    EXPECT_EQ(lrLogout["remote_port_name"], lTarget);
    EXPECT_EQ(lrLogout["event"]["remote_port_name"], lTarget);
    EXPECT_NE(lrLogout["data"].get<std::string>().find(std::regex_replace(lTarget, std::regex(":"), "")),
              std::string::npos);
    EXPECT_EQ(lrLogout["names"]["target"], lrIncident["targets"][0]["name"]);
    EXPECT_EQ(lrLogout["fabric"], lrIncident["first_cause"]["fabric"]);
    EXPECT_EQ(lLines.back()["name"], lrIncident["hits"]["volumes"][0]);
    EXPECT_NE(lText.find("All paths of " + lrIncident["hits"]["mounts"][0].get<std::string>() + " and "),
              std::string::npos);
    EXPECT_EQ(lLines.at(10)["data"], "");  // of a kind that nobody knows
}

TEST(IncidentExport, PseudonymsStandForNamesWhereverTheseAre) {
    ZTCPseudonyms lNames;
    lNames.learnPort(ZTHostPort(1), "hba1");
    const std::string lHost = lNames.of(ZTENamed::Host, "db7.site");
    lNames.learnAlias("db7", lHost);
    for (const auto& [lWhat, lpName] :
         {std::pair(ZTENamed::Map, "data"), std::pair(ZTENamed::Mount, "/data"),
          std::pair(ZTENamed::Volume, "vg-data"), std::pair(ZTENamed::Array, "array"),
          std::pair(ZTENamed::Fabric, "A"), std::pair(ZTENamed::Fabric, "B"),
          std::pair(ZTENamed::Volume, "map-1"), std::pair(ZTENamed::User, "\xc3\xa4\xc3\xa4h")}) {
        lNames.of(lWhat, lpName);
    }
    const std::pair<const char*, const char*> lRows[] = {
        {"", ""},
        {"A reboot of array/A, fabrics A and B", "A reboot of array-1/A, fabrics F1 and F2"},
        {"/data, vg-data, data, database, /database", "/mount-1, volume-1, map-1, database, /database"},
        {"db7.site db7 db71 db7-fs", "host-1 host-1 db71 host-1-fs"},
        {"hba1: 10:00:00:25:B5:01:00:01 100000 0x10000025b5010001,",
         "port-1: ff:00:00:00:00:00:00:01 100000 0xff00000000000001,"},
        {"naa.600601603b201a2f0000000000000001 \xc3\xa4\xc3\xa4 \xc3\xa4\xc3\xa4h",
         "naa.lun-1 \xc3\xa4\xc3\xa4 user-1"},
        {"50:06:01:60:3b:01:00:0", "50:06:01:60:3b:01:00:0"}};
    for (const auto& [lpText, lpDisguised] : lRows) {
        EXPECT_EQ(lNames.inText(lpText), lpDisguised);
    }
    EXPECT_EQ(lNames.of(ZTENamed::Mount, "/"), "/");
    EXPECT_EQ(lNames.of(ZTENamed::Volume, "map-1"), "volume-2");
    EXPECT_EQ(lNames.of(ZTSWwn()), ZTSWwn());
    EXPECT_EQ(lNames.of(ZTENamed::Fabric, ZTHostPort(1).toText()), "ff:00:00:00:00:00:00:01");
}

TEST(IncidentExport, TellsWhetherTheClockCanBeBelieved) {
    timex lTime{};
    lTime.maxerror = 12345;
    EXPECT_EQ(clockText(toHostClock(lTime, TIME_OK)), "synchronised, wrong by 12.3 ms at most");
    EXPECT_TRUE(clockText(toHostClock(lTime, TIME_ERROR)).starts_with("NOT SYNCHRONISED"));
    lTime.status = STA_UNSYNC;
    EXPECT_FALSE(toHostClock(lTime, TIME_OK).mIsSynchronised);
    EXPECT_TRUE(clockText({}).starts_with("not known"));
}

}  // namespace
