// What stands above a disk, and what becomes of LUNs, maps and mounts.
#include <gtest/gtest.h>

#include "Storage.h"
#include "StorageChanges.h"

namespace {

ZTSHostStorage made() {
    ZTSHostStorage lStorage;
    lStorage.mLuns.resize(2);
    lStorage.mLuns[0].mAddress = "3:0:0:1";
    lStorage.mLuns[0].mDisk = "sdb";
    lStorage.mLuns[0].mState = "running";
    lStorage.mLuns[0].mLun = 1;
    lStorage.mLuns[0].mInitiator.mBytes[7] = 1;
    lStorage.mLuns[0].mTarget.mBytes[7] = 2;
    lStorage.mLuns[1].mAddress = "3:0:1:1";
    lStorage.mMaps = {{"dm-0", "mpatha", "36", {{"sdb", true}, {"sdc", false, ZTEPathSource::Kernel}}, 4}};
    lStorage.mVolumes = {{"dm-1", "vg0-data", {"dm-0", "sdx"}},
                         {"dm-2", "vg0-log", {"dm-0"}},
                         {"sda1", "sda1", {"sda"}},
                         // What is above itself, if it could be.
                         {"md1", "md1", {"md2"}},
                         {"md2", "md2", {"md1"}}};
    lStorage.mMounts = {
        {"/data", "dm-1", "xfs"}, {"/log", "dm-2", "xfs"}, {"/", "sda1", "ext4"}, {"/md", "md2", "xfs"}};
    return lStorage;
}

std::string rowsOf(const ZTSHostStorage& acrBefore, const ZTSHostStorage& acrAfter) {
    std::string lText;
    for (const ZTSChange& lrRow : listStorageChanges(acrBefore, acrAfter, 5)) {
        EXPECT_EQ(lrRow.mTime, 5);
        lText += lrRow.mWhat + " " + lrRow.mName + " " + lrRow.mEvent + " " + lrRow.mAttribute + " " +
                 lrRow.mBefore + ">" + lrRow.mAfter + "\n";
    }
    return lText;
}

// The ports of a path of made() or many().
std::string missing(unsigned int aPath) {
    ZTSWwn lInitiator, lTarget;
    lInitiator.mBytes[7] = 1;
    lTarget.mBytes[7] = static_cast<std::uint8_t>(2 + aPath);
    return lInitiator.toText() + ">" + lTarget.toText();
}

// A map of so many paths through one port, to a port each.
ZTSHostStorage many(unsigned int aPaths) {
    ZTSHostStorage lStorage;
    lStorage.mMaps = {{"dm-0", "mpatha", "36", {}, aPaths}};
    for (unsigned int lPath = 0; lPath < aPaths; ++lPath) {
        ZTSLun& lrLun = lStorage.mLuns.emplace_back();
        lrLun.mDisk = "sd" + std::to_string(lPath);
        lrLun.mInitiator.mBytes[7] = 1;
        lrLun.mTarget.mBytes[7] = static_cast<std::uint8_t>(2 + lPath);
        lStorage.mMaps[0].mPaths.push_back({lrLun.mDisk, true});
    }
    return lStorage;
}

TEST(Storage, WhatADiskHitsIsAllThatStandsAboveIt) {
    const ZTSHostStorage lStorage = made();
    const std::pair<const char*, const char*> lCases[] = {{"sdb", "/data, /log"},
                                                          {"sdc", "/data, /log"},
                                                          {"dm-0", "/data, /log"},
                                                          {"dm-1", "/data"},
                                                          {"sdx", "/data"},
                                                          {"sda", "/"},
                                                          {"sda1", "/"},
                                                          {"md1", "/md"},
                                                          {"", ""},
                                                          {"sdz", ""}};
    for (const auto& [lrpDisk, lrpHit] : lCases) {
        EXPECT_EQ(lStorage.hitBy(lrpDisk).toText(), lrpHit) << lrpDisk;
    }
    ZTSHostStorage lLess = lStorage;
    lLess.mMounts.clear();
    EXPECT_EQ(lLess.hitBy("sdc").toText(), "vg0-data, vg0-log");
    lLess.mVolumes.clear();
    EXPECT_EQ(lLess.hitBy("dm-0").toText(), "mpatha");
    ZTSHit lMany;
    lMany.mMounts.assign(11, "/m");
    EXPECT_EQ(lMany.toText(), "/m, /m, /m, /m, /m, /m, /m, /m and 3 more");
    EXPECT_EQ(lStorage.findDisk("sdb"), &lStorage.mLuns[0]);
    EXPECT_EQ(lStorage.findDisk(""), nullptr);
    EXPECT_EQ(lStorage.findMap("sdc")->countUsable(), 1U);
    EXPECT_TRUE(lStorage.findMap("dm-0")->isInferred());
}

TEST(Storage, WhatHasBecomeOfItIsARowEach) {
    const ZTSHostStorage lBefore = made();
    const std::string lLun = "lun 00:00:00:00:00:00:00:02 LUN 1 seen from 00:00:00:00:00:00:00:01 ";
    EXPECT_EQ(rowsOf(lBefore, lBefore), "");
    ZTSHostStorage lAfter = lBefore;
    lAfter.mLuns[0].mAddress = "9:0:0:1";  // numbered anew, it is the same
    lAfter.mLuns[0].mQueueDepth = 32;
    lAfter.mLuns[0].mState = "offline";
    lAfter.mLuns[1].mAddress = "3:0:1:2";
    lAfter.mMaps[0].mPaths[0].mIsUsable = false;
    lAfter.mVolumes[0].mDisk = "dm-9";
    lAfter.mVolumes[1].mName = "vg0-logs";
    lAfter.mMounts.pop_back();
    EXPECT_EQ(rowsOf(lBefore, lAfter), "lun 3:0:1:1 went  >\nlun 3:0:1:2 came  >\n" + lLun +
                                           "changed state running>offline\n" + lLun +
                                           "changed queue_depth >32\n"
                                           "map mpatha changed paths 1 of 4>0 of 4\n"
                                           "map mpatha changed missing +3>" +
                                           missing(0) +
                                           " +3\n"
                                           "volume vg0-log went  >\nvolume vg0-logs came  >\n"
                                           "mount /md went  xfs>\n");
    // Another disk at the same point, one swap of two, a disk more beneath; but a new number is no change.
    ZTSHostStorage lMoved = lBefore;
    lMoved.mMounts = {{"/data", "dm-2", "xfs"}, {"/log", "dm-7", "xfs"}, {"[swap]", "sda1", "swap"}};
    ZTSHostStorage lFrom = lMoved;
    lFrom.mMounts = {{"/data", "dm-1", "xfs"},
                     {"/log", "dm-2", "xfs"},
                     {"[swap]", "sda1", "swap"},
                     {"[swap]", "sdb1", "swap"}};
    lMoved.mVolumes[1].mDisk = "dm-7";
    lMoved.mVolumes[1].mOver = {"dm-8", "sdy"};
    lMoved.mMaps[0].mDisk = "dm-8";
    lMoved.mVolumes[0].mOver[0] = "dm-8";
    EXPECT_EQ(rowsOf(lFrom, lMoved),
              "volume vg0-log changed over mpatha>mpatha sdy\n"
              "mount /data went  xfs>\nmount [swap] went  swap>\n"
              "mount /data came  >xfs\n");
    // Too many to be told each.
    for (unsigned int lNew = 0; lNew < 1000; ++lNew) {
        lAfter.mMounts.push_back({"/m" + std::to_string(lNew), "sda1", "xfs"});
    }
    const auto lRows = listStorageChanges(lBefore, lAfter, 5);
    EXPECT_EQ(lRows.back().mName, "745 more");
    EXPECT_EQ(lRows.back().mEvent, "came");
    EXPECT_EQ(lRows[lRows.size() - 2].mWhat, "mount");
}

// What of a map is missing has names, also when its paths have been taken away with their LUNs; and as long
// as somebody knows them.
TEST(Storage, WhichPathsAreMissingHasARowOfItsOwn) {
    const auto lMissing = [](const ZTSHostStorage& acrBefore, const ZTSHostStorage& acrAfter) {
        const std::string lRows = rowsOf(acrBefore, acrAfter);
        const std::string lHead = "map mpatha changed missing ";
        const std::size_t lAt = lRows.find(lHead);
        return lAt == std::string::npos
                   ? ""
                   : lRows.substr(lAt + lHead.size(), lRows.size() - lAt - lHead.size() - 1);
    };
    const ZTSHostStorage lWhole = many(4);
    ZTSHostStorage lFailed = lWhole;
    lFailed.mMaps[0].mPaths[1].mIsUsable = lFailed.mMaps[0].mPaths[3].mIsUsable = false;
    const std::string lPair = missing(1) + " " + missing(3);
    EXPECT_EQ(lMissing(lWhole, lFailed), ">" + lPair);
    EXPECT_EQ(lMissing(lFailed, lWhole), lPair + ">");
    ZTSHostStorage lRemoved = lFailed;
    std::erase_if(lRemoved.mMaps[0].mPaths, [](const ZTSPath& acrPath) { return !acrPath.mIsUsable; });
    std::erase_if(lRemoved.mLuns,
                  [](const ZTSLun& acrLun) { return acrLun.mDisk == "sd1" || acrLun.mDisk == "sd3"; });
    EXPECT_EQ(lMissing(lFailed, lRemoved), "") << "the same are missing";
    EXPECT_EQ(lMissing(lWhole, lRemoved), ">" + lPair);
    EXPECT_EQ(lMissing(lRemoved, lWhole), lPair + ">") << "one that comes was one of them";
    ZTSHostStorage lOther = lRemoved;
    lOther.mMaps[0].mPaths[0].mIsUsable = false;
    EXPECT_EQ(lMissing(lRemoved, lOther), "+2>" + missing(0) + " +2");
    EXPECT_EQ(lMissing({}, lFailed), ">" + lPair) << "a map that comes without them";
    ZTSHostStorage lAccepted = lRemoved;
    lAccepted.mMaps[0].mTotal = 2;
    EXPECT_EQ(lMissing(lFailed, lAccepted), lPair + ">");
    // Bounded.
    ZTSHostStorage lNone = many(40);
    for (ZTSPath& lrPath : lNone.mMaps[0].mPaths) {
        lrPath.mIsUsable = false;
    }
    const std::string lText = lMissing(many(40), lNone);
    EXPECT_EQ(lText.substr(0, lPair.size() / 2 + 1), ">" + missing(0));
    EXPECT_TRUE(lText.ends_with(missing(31) + " +8")) << lText;
}

}  // namespace
