// Incidents as vrx-scope lists, shows and asks for them, and the records that are theirs.
#include <filesystem>
#include <nlohmann/json.hpp>
#include <regex>
#include <thread>

#include "ScopeProgram.h"
#include "StoreFile.h"
#include "StoredIncidents.h"
#include "TestPages.h"

namespace {

using Json = nlohmann::json;
using Arguments = ZTCTestChild::Arguments;

struct Stand : ZTSStoredIncidents {
    Stand() { write(); }
    // What is new: from the second time on incidents alone.
    void write() {
        mWriter->write(mBatch);
        ZTSStoreBatch lNext;
        lNext.mIncidents = mBatch.mIncidents;
        mBatch = lNext;
    }
    Arguments commandOf(const Arguments& acrArguments) const { return commandOnStore(mPath, acrArguments); }
    std::string ask(const Arguments& acrArguments) const {
        return askScope(mDirectory.getPath(), commandOf(acrArguments));
    }
    // Times become T, how long something lasts D, blanks in a row one, and none begins a line.
    std::string shown(const Arguments& acrArguments) const {
        const std::string lText =
            std::regex_replace(ask(acrArguments), std::regex("\\d{4}-\\d\\d-\\d\\d [0-9:.]+ UTC"), "T");
        return std::regex_replace(
            std::regex_replace(lText, std::regex("\\d+ (d \\d+ h|h \\d+ min|min \\d+ s)"), "D"),
            std::regex("(\n?) +"), "$1 ");
    }
    std::string idsOf(Arguments aArguments) const {
        aArguments.emplace_back("--ndjson");
        std::string lIds;
        std::istringstream lLines(ask(aArguments));
        for (std::string lLine; std::getline(lLines, lLine);) {
            const Json lOne = Json::parse(lLine);
            lIds += lOne.contains("type") && lOne["type"] != "record" ? ""
                                                                      : std::to_string(lOne["id"].get<int>());
        }
        return lIds;
    }
    // What a command refuses with; it prints nothing else.
    std::string refusalOf(const Arguments& acrArguments, int aStatus) const {
        const ZTSScopeResult lEnd = runScope(mDirectory.getPath(), commandOf(acrArguments));
        EXPECT_EQ(lEnd.mStatus, aStatus) << lEnd.mErr;
        EXPECT_EQ(lEnd.mOut, "");
        EXPECT_EQ(countIn(lEnd.mErr, "\n"), 1U) << lEnd.mErr;
        return lEnd.mErr;
    }

    const ZTCTestDirectory mDirectory;
    const std::string mPath = mDirectory / "history.db";
    std::optional<ZTCStoreWriter> mWriter{std::in_place, ZTHostStoreOptions(mPath)};
};

TEST(Incidents, AreListedWithWhatIsNotOverFirst) {
    Stand lStand;
    EXPECT_EQ(
        lStand.shown({"incidents"}),
        "db7: 2 incidents not over, 1 over\n"
        "\n"
        " id state since for class paths what\n"
        " 3 quiet, in maintenance T D link_flap - The link of hba2 flaps\n"
        " 1 open, acknowledged T D redundancy_lost 0 of 8 All paths of /data and /logs are gone: 4 of 8 by a "
        "change in fabric right, the rest by a reboot of array1/A\n"
        " 2 closed T D target_errors - array2/B was rebooted\n");
    const std::pair<Arguments, const char*> lRows[] = {
        {{}, "312"},
        {{"--all"}, "3124"},
        {{"--limit", "1"}, "3"},
        {{"--state", "open", "--state", "closed"}, "12"},
        {{"--class", "link_flap", "--all"}, "34"},
        {{"--since", "-30d"}, "3124"},
        {{"--until", "-10d"}, "4"},
        {{"--since", "-84h", "--until", "-60h"}, "12"},
        {{"--state", "merged"}, nullptr},
        {{"--class", "flap"}, nullptr},
        {{"--since", "soon"}, nullptr},
        {{"0"}, nullptr},
        {{"1x"}, nullptr},
        {{"-1"}, nullptr},
        {{"1", "--all"}, nullptr},
        {{"1", "2"}, nullptr},
        {{"keep"}, nullptr},
        {{"keep", "1", "2"}, nullptr},
        {{"2", "keep", "1"}, nullptr},
        {{"export", "1", "--all"}, nullptr},
        {{"keep", "x"}, nullptr},
        {{"acknowledge", "1", "--note", "two\nlines"}, nullptr},
        {{"export", "1", "--json"}, nullptr}};
    for (auto [lArguments, lpIds] : lRows) {
        lArguments.insert(lArguments.begin(), "incidents");
        SCOPED_TRACE(lArguments.back());
        if (lpIds != nullptr) {
            EXPECT_EQ(lStand.idsOf(lArguments), lpIds);
        } else {
            lStand.refusalOf(lArguments, 2);
        }
    }
    const Json lAll = Json::parse(lStand.ask({"incidents", "--json"}));
    EXPECT_EQ(lAll["now"], true);
    EXPECT_EQ(lAll["incidents"][1]["paths"]["total"], 8);
    lStand.mWriter.reset();
    EXPECT_EQ(countIn(lStand.ask({"incidents"}), "vrx-sn does not run: this is as it was at 2"), 1U);
}

TEST(Incidents, OneIsToldToWhoeverIsWokenByIt) {
    Stand lStand;
    EXPECT_EQ(
        lStand.shown({"incidents", "1"}),
        "All paths of /data and /logs are gone: 4 of 8 by a change in fabric right, the rest by a reboot of "
        "array1/A\n"
        "\n"
        " incident 1 of db7: redundancy_lost, open\n"
        " since T, for D; IT GOES ON, the last sign was at T\n"
        " began with likely: the fabric told of a change: hba1, fabric right, T\n"
        " then possibly: the target was not ready: array1-A-left from hba0, fabric left, T\n"
        " paths left 0 of 8, where the fewest are left\n"
        " mounts /data, /logs\n"
        " volumes vg0-data, vg0-logs\n"
        " maps mpatha\n"
        " LUNs naa.600601603b201a2f0000000000000000\n"
        " initiators hba0, hba1\n"
        " targets array1-B-right\n"
        " fabrics left, right\n"
        " events 5,264: vrx-scope history --incident 1\n"
        " lost 77 events meanwhile: there is more than is told here\n"
        " acknowledged by schmidt, T: db7 is moved\n"
        " look next Look at the zoning of fabric right, and at array1/A.\n"
        "\n"
        "What happened\n"
        " time for events what\n"
        " T 1 the fabric told of a change: hba1, fabric right <- first cause\n"
        " T D 4 the target logged out\n"
        " T D 2 paths were lost\n"
        " T the target was not ready: array1-A-left from hba0, fabric left <- possible later cause\n"
        "\n"
        "What changed in the seven days before\n"
        " T note by mueller about array1: new zoning for db7\n");
    const std::string lFlap = lStand.shown({"incidents", "3"});
    for (const char* const lpPart : {"NOT AS IT WAS", "maintenance new optics", "1 more like it, 4 of T"}) {
        EXPECT_NE(lFlap.find(lpPart), std::string::npos) << lpPart << lFlap;
    }
    EXPECT_TRUE(
        lStand.ask({"incidents", "5"}).starts_with("Incident 5 has become part of incident 1:\nAll paths"));
    const Json lOne = Json::parse(lStand.ask({"incidents", "1", "--json"}));
    EXPECT_EQ(lOne["evidence"], Json({1, 2, 3, 4}));
    EXPECT_EQ(lOne["first_cause"]["initiator"]["name"], "hba1");
    EXPECT_EQ(Json::parse(lStand.ask({"incidents", "5", "--ndjson"}))["merged"], 1);
    // Whatever somebody else has named stays in its line.
    lStand.one(2).mTitle = "\x1b[31mred\nline";
    lStand.one(2).mHits.mMounts = {"/a\n", "/b"};
    lStand.write();
    const std::string lText = lStand.ask({"incidents", "2"});
    EXPECT_EQ(countIn(lText, "\x1b"), 0U);
    EXPECT_NE(lText.find("\\x1b[31mred\\x0aline\n"), std::string::npos);
    EXPECT_NE(lText.find("/a\\x0a, /b\n"), std::string::npos);
}

TEST(Incidents, TheirRecordsSayWhoseTheyAre) {
    const Stand lStand;
    const auto lOf = [&](const Arguments& acrArguments) {
        std::string lIncidents;
        const Json lAll = Json::parse(lStand.ask(acrArguments));
        for (const Json& lrRecord : lAll["records"]) {
            lIncidents +=
                lrRecord["incident"].is_null() ? "-" : std::to_string(lrRecord["incident"].get<int>());
        }
        return lIncidents;
    };
    EXPECT_EQ(lOf({"history", "--json"}), "1111-");
    EXPECT_EQ(lOf({"history", "--json", "--incident", "1"}), "1111");
    const std::pair<Arguments, const char*> lRows[] = {{{"1"}, "1234"},
                                                       {{"5"}, "1234"},
                                                       {{"1", "--limit", "2"}, "34"},
                                                       {{"1", "--kind", "logo"}, "23"},
                                                       {{"1", "--initiator", "hba0"}, "4"},
                                                       {{"2"}, ""}};
    for (auto [lArguments, lpIds] : lRows) {
        lArguments.insert(lArguments.begin(), {"history", "--incident"});
        EXPECT_EQ(lStand.idsOf(lArguments), lpIds) << lArguments.back();
    }
    lStand.refusalOf({"history", "--incident", "1", "--follow"}, 2);
    lStand.refusalOf({"history", "--incident", "7"}, 1);
}

TEST(Incidents, WhatIsAskedOfOneIsDoneOrRefusedInOneLine) {
    Stand lStand;
    const std::pair<Arguments, const char*> lRefused[] = {
        {{"99"}, "there is no incident 99"},     {{"keep", "18446744073709551615"}, "there is no incident"},
        {{"acknowledge", "2"}, "is over since"}, {{"accept", "2"}, "is over since"},
        {{"accept", "3"}, "misses no paths"},    {{"keep", "5"}, "has become part of incident 1"},
    };
    for (auto [lArguments, lpSays] : lRefused) {
        lArguments.insert(lArguments.begin(), "incidents");
        EXPECT_NE(lStand.refusalOf(lArguments, 1).find(lpSays), std::string::npos) << lpSays;
    }
    // As vrx-sn does what is asked for.
    const auto lAskAndDo = [&](const Arguments& acrArguments, const auto& acrDo) {
        std::thread lTaker([&] {
            waitUntil([&] {
                const std::vector<ZTSStoreRequest> lRequests = lStand.mWriter->takeRequests();
                for (const ZTSStoreRequest& lrRequest : lRequests) {
                    acrDo(lrRequest, lStand.one(std::stoul(lrRequest.mSubject)));
                    lStand.write();
                }
                return !lRequests.empty();
            });
        });
        const std::string lSays = lStand.ask(acrArguments);
        lTaker.join();
        return lSays;
    };
    EXPECT_EQ(lAskAndDo({"incidents", "acknowledge", "3", "--note", "on my way"},
                        [](const ZTSStoreRequest& acrRequest, ZTSIncident& arIncident) {
                            EXPECT_EQ(acrRequest.mWhat, "acknowledge");
                            arIncident.mAcknowledged = {acrRequest.mWho, acrRequest.mTime, acrRequest.mText};
                        }),
              "incident 3: acknowledged\n");
    EXPECT_NE(lStand.ask({"incidents", "3"}).find(": on my way\n"), std::string::npos);
    EXPECT_EQ(lAskAndDo({"incidents", "keep", "2", "--json"},
                        [](const ZTSStoreRequest&, ZTSIncident& arIncident) { arIncident.mIsKept = true; }),
              "{\"schema\":1,\"command\":\"incidents keep\",\"done\":true}\n");
    lAskAndDo({"incidents", "accept", "1"}, [](const ZTSStoreRequest& acrRequest, ZTSIncident&) {
        EXPECT_EQ(acrRequest.mWhat + acrRequest.mSubject, "accept1");
    });
    if (geteuid() == 0) {
        std::filesystem::permissions(lStand.mDirectory.getPath(), std::filesystem::perms(0755));
        for (const auto& lrFile : std::filesystem::directory_iterator(lStand.mDirectory.getPath())) {
            std::filesystem::permissions(lrFile.path(), std::filesystem::perms(0644));
        }
        const ZTSTestEnd lEnd =
            runChild(Arguments{"/usr/bin/setpriv", "--reuid", "65534", "--clear-groups", ZT_VRX_SCOPE,
                               "incidents", "keep", "1", "--store", lStand.mPath},
                     Arguments{"TZ=UTC"});
        EXPECT_EQ(lEnd.mStatus, 1);
        EXPECT_NE(lEnd.mErr.find("as root"), std::string::npos) << lEnd.mErr;
    }
    lStand.mWriter.reset();
    EXPECT_NE(lStand.refusalOf({"incidents", "keep", "1"}, 1).find("vrx-sn does not run"), std::string::npos);
}

TEST(Incidents, AStoreWithoutAnySaysSo) {
    const ZTCTestDirectory lDirectory;
    const std::string lPath = lDirectory / "history.db";
    std::optional<ZTCStoreWriter> lWriter{std::in_place, ZTHostStoreOptions(lPath)};
    EXPECT_EQ(askScope(lDirectory.getPath(), commandOnStore(lPath, {"incidents"})), "db7: no incidents\n");
    // One of the version before knows of none.
    lWriter.reset();
    openStoreAgain(lPath).exec("PRAGMA user_version = 2");
    const ZTSScopeResult lEnd = runScope(lDirectory.getPath(), commandOnStore(lPath, {"incidents"}));
    EXPECT_EQ(lEnd.mStatus, 1);
    EXPECT_NE(lEnd.mErr.find("older version"), std::string::npos) << lEnd.mErr;
    EXPECT_EQ(countIn(lEnd.mErr, "\n"), 1U);
}

}  // namespace
