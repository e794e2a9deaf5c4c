// LUNs and the paths to them, as vrx-scope shows them.
#include <functional>
#include <nlohmann/json.hpp>
#include <regex>

#include "ScopeProgram.h"
#include "StoredHost.h"
#include "TestPages.h"

namespace {

using Json = nlohmann::json;
using Arguments = ZTCTestChild::Arguments;

struct Stand {
    Stand() {
        ZTAddHostPorts(mBatch);
        ZTAddHostStorage(mBatch);
        write();
    }
    void write() { mWriter.write(mBatch); }
    ZTSHostStorage& storage() { return *mBatch.mHost.mStorage; }
    // Takes these paths of mpatha away, or says that they have failed.
    void remove(const std::function<bool(const ZTSLun&)>& acrIsMeant) {
        std::erase_if(storage().mMaps[0].mPaths,
                      [&](const ZTSPath& acrPath) { return acrIsMeant(*storage().findDisk(acrPath.mDisk)); });
        std::erase_if(storage().mLuns,
                      [&](const ZTSLun& acrLun) { return acrLun.mLun == 0 && acrIsMeant(acrLun); });
    }
    void fail(const std::function<bool(const ZTSLun&)>& acrIsMeant) {
        for (ZTSPath& lrPath : storage().mMaps[0].mPaths) {
            lrPath.mIsUsable = !acrIsMeant(*storage().findDisk(lrPath.mDisk));
        }
    }
    void stall(const char* apDisk, const char* apName, const char* apHits) {
        const ZTNanoseconds lNow = ZTSecond * time(nullptr);
        mBatch.mHost.mStalls.push_back(
            {lNow - 34 * ZTSecond, lNow - 4 * ZTSecond, false, apDisk, apName, apHits, 12, "volume"});
    }

    Arguments commandOf(Arguments aArguments) const {
        aArguments.insert(aArguments.begin(), "paths");
        return commandOnStore(mPath, aArguments);
    }
    // Times become T, how long something lasts N.
    std::string ask(const Arguments& acrArguments = {}) const {
        const std::string lText = askScope(mDirectory.getPath(), commandOf(acrArguments));
        return std::regex_replace(
            std::regex_replace(lText, std::regex("\\d{4}-\\d\\d-\\d\\d [0-9:.]+ UTC"), "T"),
            std::regex("for \\d+ s"), "for N s");
    }
    std::string mapsOf(Arguments aArguments) const {
        aArguments.emplace_back("--ndjson");
        std::string lMaps;
        for (const ZTTestTexts& lrMap : matchesIn(ask(aArguments), "\"map\":\"mpath(.)\"")) {
            lMaps += lrMap[0];
        }
        std::sort(lMaps.begin(), lMaps.end());
        return lMaps;
    }

    ZTSStoreBatch mBatch;
    const ZTCTestDirectory mDirectory;
    const std::string mPath = mDirectory / "history.db";
    ZTCStoreWriter mWriter{ZTHostStoreOptions(mPath)};
};

bool isLeft(const ZTSLun& acrLun) {
    return acrLun.mFabric == "left";
}
bool isOfA(const ZTSLun& acrLun) {
    return acrLun.mAccess == "active/optimized";
}
bool isAny(const ZTSLun&) {
    return true;
}

TEST(Paths, TellWhatIsHitAndWhatIsMissing) {
    Stand lStand;
    EXPECT_EQ(lStand.ask(),
              "db7: 3 LUNs, each with all its paths\n"
              "\n"
              "  paths   LUN     on it         trouble\n"
              "  8 of 8  mpatha  /data, /logs\n"
              "  8 of 8  mpathb  /home\n"
              "  8 of 8  mpathc  -\n");
    // One port of the left fabric has been taken out, the paths through the other one fail.
    lStand.remove([](const ZTSLun& acrLun) { return acrLun.mInitiator == ZTHostPort(0); });
    lStand.fail(isLeft);
    lStand.stall("dm-5", "vg0-data", "/data");
    lStand.stall("nvme0n1", "nvme0n1", "/");
    lStand.mBatch.mPorts->mLocal[2].mState = "Linkdown";
    lStand.mBatch.mHost.mBlindSpots = {{"fpins", "", "the driver posts none", true},
                                       {"paths", "", "multipathd does not run", true}};
    lStand.write();
    EXPECT_EQ(lStand.ask(),
              "db7: 3 LUNs, 2 standing still, 1 with paths missing\n"
              "missing: 4 of 24 paths, 4 on fabric left\n"
              "stands still since T: / (nvme0n1): 12 commands, none completes\n"
              "cannot see paths: multipathd does not run\n"
              "\n"
              "  paths   LUN     on it         trouble\n"
              "  4 of 8  mpatha  /data, /logs  STANDS STILL for N s; missing: all of fabric left\n"
              "  8 of 8  mpathb  /home\n"
              "  8 of 8  mpathc  -\n"
              "\n"
              "mpatha: 4 of 8 paths, since T\n"
              "  mounts   /data, /logs\n"
              "  volumes  vg0-data, vg0-logs\n"
              "  WWID     naa.600601603b201a2f0000000000000000\n"
              "  serial   APM0\n"
              "  device   VRX ARRAY\n"
              "  stall    since T: /data (vg0-data, dm-5): 12 commands, none completes\n"
              "  path     disk  initiator  target          fabric  access         why\n"
              "  MISSING  sde   hba2       array1-A-left   left    optimized      initiator Linkdown\n"
              "  MISSING  sdf   hba2       array1-B-left   left    non-optimized  initiator Linkdown\n"
              "  MISSING  -     hba0       array1-A-left   left    optimized      removed\n"
              "  MISSING  -     hba0       array1-B-left   left    non-optimized  removed\n"
              "  usable   sdc   hba1       array1-A-right  right   optimized\n"
              "  usable   sdd   hba1       array1-B-right  right   non-optimized\n"
              "  usable   sdg   hba3       array1-A-right  right   optimized\n"
              "  usable   sdh   hba3       array1-B-right  right   non-optimized\n");
    lStand.mWriter.finish();
}

TEST(Paths, OfEachTroubleInItsOwnWords) {
    const struct {
        std::function<void(Stand&)> mMake;
        std::vector<std::string> mSays;
    } lRows[] = {
        {[](Stand& arStand) { arStand.fail(isOfA); },
         {"1 with paths missing, 1 without an optimized path\n",
          "4 of 8  mpatha  /data, /logs  missing: all of array1/A; no optimized path left\n",
          "optimized      failed"}},
        {[](Stand& arStand) {
             arStand.fail([](const ZTSLun& acrLun) { return isOfA(acrLun) && isLeft(acrLun); });
         },
         {"missing: 2 of 24 paths, 2 on fabric left\n", "missing: all of array1-A-left\n"}},
        {[](Stand& arStand) { arStand.fail(isAny); },
         {"1 without any path", "0 of 8  mpatha  /data, /logs  NO PATH LEFT\n"}},
        {[](Stand& arStand) {
             arStand.remove(isAny);
             arStand.storage().mMaps.erase(arStand.storage().mMaps.begin());
         },
         {"2 LUNs, each with all its paths; 1 gone\n\n",
          "  8 of 8  mpathc  -\n  0 of 8  mpatha  -      gone\n", "mpatha: 0 of 8 paths, gone, last seen T\n",
          "  MISSING  -     hba3       array1-B-right  right   non-optimized  removed\n"}},
        // Nobody has told of any path, and one port is gone.
        {[](Stand& arStand) {
             arStand.storage().mMaps[0].mPaths[2] = {"sdc", false, ZTEPathSource::Ports};
             arStand.mBatch.mPorts->mRemote.erase(arStand.mBatch.mPorts->mRemote.begin() + 4);
         },
         {"  7 of 8 (inferred)  mpatha",
          "  MISSING  sdc   hba1       array1-A-right  right   optimized      target gone\n"}},
        // Without maps: what has one WWID is one LUN, the rest each its own. Of a map that has gone, and of a
        // disk, nothing tells which LUN it is.
        {[](Stand& arStand) {
             arStand.storage().mMaps[2].mWwid = "SVRX";
             arStand.write();
             arStand.storage().mMaps.clear();
             arStand.storage().mVolumes.clear();
             arStand.storage().mMounts = {{"/x", "sdd", "xfs"}};
             ZTSLun lLocal;
             lLocal.mAddress = "0:0:0:0";
             lLocal.mDisk = "sdz";
             arStand.storage().mLuns.push_back(lLocal);
             arStand.mBatch.mHost.mStorage->mLuns[3].mState = "offline";
         },
         {"4 LUNs, 1 with paths missing, 3 not multipathed; 1 gone\n", "  local              sdz     -\n",
          "missing: 1 of 24 paths, hba1 to array1-B-right\n",
          "  7 of 8 (inferred)  sda     /x     missing: hba1 to array1-B-right; not multipathed: map mpatha has gone"}},
        // A path that nobody ever saw.
        {[](Stand& arStand) { arStand.storage().mMaps[0].mTotal = 9; },
         {"  8 of 9  mpatha", "  MISSING  1 path that nobody has seen\n"}},
        {[](Stand& arStand) {
             arStand.storage().mMounts[0].mPoint = "/da\x1b[31mta <b>\n" + std::string(200, 'm');
             arStand.storage().mMaps[1].mName =
                 "\xff"
                 "path & co";
         },
         {"\\xffpath & co  /home\n", "/da\\x1b[31mta <b>\\x0a" + std::string(200, 'm') + ", /logs\n"}},
    };
    for (std::size_t lRow = 0; lRow < std::size(lRows); ++lRow) {
        SCOPED_TRACE(lRow);
        Stand lStand;
        lRows[lRow].mMake(lStand);
        lStand.write();
        const std::string lText = lStand.ask() + lStand.ask({"--full"});
        for (const std::string& lrPart : lRows[lRow].mSays) {
            EXPECT_NE(lText.find(lrPart), std::string::npos) << lrPart << "\n" << lText;
        }
    }
}

TEST(Paths, AreFoundByWhateverTheyAreCalled) {
    Stand lStand;
    const std::pair<Arguments, const char*> lRows[] = {
        {{}, "abc"},
        {{"--map", "mpathb"}, "b"},
        {{"--map", "/logs", "--map", "APM2"}, "ac"},
        {{"--map", "vg0-data"}, "a"},
        {{"--map", "sdi"}, "b"},
        {{"--map", "naa.600601603b201a2f0000000000000001"}, "b"},
        {{"--map", "3600601603b201a2f0000000000000001"}, "b"},
        {{"--target", "array1/B"}, "ab"},
        {{"--target", "array2", "--map", "mpatha"}, ""},
        {{"--target", "array2-A-left"}, "c"},
        {{"--target", "50:06:01:60:3b:01:00:01"}, "ab"},
        {{"--initiator", "hba3", "--fabric", "left"}, ""},
        {{"--initiator", "hba3", "--fabric", "right"}, "abc"},
        {{"--map", "/dat"}, nullptr},
        {{"--map", ""}, nullptr},
        {{"--target", "array3"}, nullptr},
        {{"--target", "array1/"}, nullptr},
        {{"--initiator", "\x1b[31m"}, nullptr},
        {{"--fabric", "middle"}, nullptr},
        {{"--limit", "1"}, nullptr}};
    for (const auto& [lrArguments, lpMaps] : lRows) {
        SCOPED_TRACE(lrArguments.empty() ? "" : lrArguments[0] + " " + lrArguments.back());
        if (lpMaps != nullptr) {
            EXPECT_EQ(lStand.mapsOf(lrArguments), lpMaps);
            continue;
        }
        const ZTSScopeResult lEnd = runScope(lStand.mDirectory.getPath(), lStand.commandOf(lrArguments));
        EXPECT_EQ(lEnd.mStatus, 2);
        EXPECT_EQ(lEnd.mOut, "");
        EXPECT_EQ(countIn(lEnd.mErr, "\n"), 1U) << lEnd.mErr;
        EXPECT_EQ(countIn(lEnd.mErr, "\x1b"), 0U);
    }
    // Where many are in trouble, each path of each is told to who asks.
    for (ZTSMap& lrMap : lStand.storage().mMaps) {
        lrMap.mTotal = 9;
    }
    for (int lMore = 0; lMore < 4; ++lMore) {
        lStand.storage().mMaps.push_back(
            {"dm-1" + std::to_string(lMore), "more" + std::to_string(lMore), "", {}, 1});
    }
    lStand.write();
    EXPECT_EQ(countIn(lStand.ask(), "MISSING"), 0U);
    EXPECT_EQ(countIn(lStand.ask({"--full"}), "MISSING"), 7U);
    EXPECT_EQ(countIn(lStand.ask({"--map", "mpathb"}), "MISSING"), 1U);
    // Of a vrx-sn that has gone it is not as of now.
    EXPECT_TRUE(Json::parse(lStand.ask({"--json"}))["now"].get<bool>());
}

TEST(Paths, AsJson) {
    Stand lStand;
    lStand.remove(isLeft);
    lStand.fail(isOfA);
    lStand.stall("dm-0", "mpatha", "/data, /logs");
    lStand.stall("nvme0n1", "nvme0n1", "/");
    lStand.mBatch.mHost.mBlindSpots = {{"paths", "", "multipathd does not run", true}};
    lStand.write();
    const Json lAll = Json::parse(lStand.ask({"--json"}));
    const Json& lrLun = lAll["luns"][0];
    EXPECT_EQ(lrLun["map"], "mpatha");
    EXPECT_EQ(lrLun["usable"], 2);
    EXPECT_EQ(lrLun["total"], 8);
    EXPECT_EQ(lrLun["mounts"], Json({"/data", "/logs"}));
    EXPECT_EQ(lrLun["stalls"][0]["in_flight"], 12);
    ASSERT_EQ(lrLun["paths"].size(), 8U);
    const Json& lrFirst = lrLun["paths"][0];
    EXPECT_EQ(lrFirst["source"], "kernel");
    EXPECT_EQ(lrFirst["target"]["controller"], "A");
    EXPECT_EQ(lrFirst["initiator"]["switch_port"], "sw 1/1");
    EXPECT_EQ(lrLun["paths"][2]["here"], false);
    EXPECT_EQ(lrLun["paths"][2]["source"], nullptr);
    EXPECT_EQ(lrLun["paths"][2]["why"], "removed");
    EXPECT_EQ(lAll["stalls"][0]["disk"], "nvme0n1");
    // Each line can be read alone.
    std::string lTypes;
    std::istringstream lLines(lStand.ask({"--ndjson"}));
    for (std::string lLine; std::getline(lLines, lLine);) {
        const Json lOne = Json::parse(lLine);
        lTypes += lOne["type"].get<std::string>() + " ";
        EXPECT_EQ(lOne["now"], true);
        EXPECT_EQ(lOne["host"], "db7");
    }
    EXPECT_EQ(lTypes, "lun lun lun stall blind_spot ");
}

}  // namespace
