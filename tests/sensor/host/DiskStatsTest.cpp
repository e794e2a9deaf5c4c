// What disks have done, from the kernel's text, and how long their commands take.
#include "DiskStats.h"
#include "DiskTimes.h"
#include "FailingAllocator.h"
#include "TestSupport.h"

namespace {

TEST(DiskStats, OfDisksAlone) {
    const std::string lText =
        "   8       0 sda 1 2 3 4 10 20 30 40 7 50 60 100 200 300 400 1000 4000\n"
        "   8       1 sda1 1 2 3 4 10 20 30 40 7 50 60 100 200 300 400 1000 4000\n"
        " 259       0 sda16 1 2 3 4 10 20 30 40 7 50 60\n"
        "   8      16 sdaa 1 2 3 4 10 20 30 40 7 50 60 100 200 300 400\n"
        " 253       1 dm-1 1 2 3 4 10 20 30 40 0 50 60\n"
        " 253      10 dm-10 1 2 3 4 10 20 30 40 4294967295 50 60\n"
        " 259       1 nvme0n1 1 2 3 4 10 20 30 40 18446744073709551615 50 60\n"
        " 259       2 nvme0n1p2 1 2 3 4 10 20 30 40 7 50 60\n"
        " 259       3 nvme0n11 1 2 3 4 10 20 30 40 7 50 60\n"
        "   7       0 loop0 1 2 3 4 10 20 30 40 7 50 60\n"
        "   1       0 ram0 1 2 3 4 10 20 30 40 7 50 60\n"
        "  11       0 sr0 1 2 3 4 10 20 30 40 7 50 60\n"
        " 253       0 zram0 1 2 3 4 10 20 30 40 7 50 60\n"
        " 202       1 xvda1 1 2 3 4 10 20 30 40 7 50 60 1 2 3 4 5 6 what a later kernel adds\n"
        "   8      32 sdc 1 2 3 4 10 20 30 40 7 50\n"
        "   8      32 sdc 1 2 3 4 10 20 -30 40 7 50 60\n"
        "   8      32 sdc 1 2 3 4 10 20 30 4x 7 50 60\n"
        "   8      32 sdc 1 2 3 4 10 20 30 99999999999999999999 7 50 60\n"
        "   x      32 sdc 1 2 3 4 10 20 30 40 7 50 60\n"
        "\n \n8\n8 0\n8 0 sdd\n\xff\n"
        "   8      48 sdd 1 2 3 4 10 20 30 40 7 50 60";
    std::string lRead;
    for (const ZTSDiskStats& lrStats : readDiskStats(lText)) {
        lRead += lrStats.mDisk + " " + std::to_string(lrStats.mCompleted) + " " +
                 std::to_string(lrStats.mMilliseconds) + " " + std::to_string(lrStats.mInFlight) + "\n";
    }
    EXPECT_EQ(lRead,
              "sda 1111 4444 7\nsdaa 111 444 7\ndm-1 11 44 0\ndm-10 11 44 0\nnvme0n1 11 44 0\n"
              "nvme0n11 11 44 7\nxvda1 17 54 7\nsdd 11 44 7\n");
}

TEST(DiskStats, WhateverIsInTheFilesPlace) {
    const ZTCTestDirectory lRoot;
    const std::string lPath = lRoot / "proc/diskstats";
    const char* const lWays[] = {"true", "mkdir", "mkfifo", "ln -s /dev/zero", "truncate -s 1G"};
    for (const std::string lWay : lWays) {
        std::filesystem::remove_all(lRoot / "proc");
        std::filesystem::create_directory(lRoot / "proc");
        EXPECT_EQ(system((lWay + " " + lPath).c_str()), 0);
        EXPECT_FALSE(readDiskStatsFile(lRoot.getPath())) << lWay;
    }
    std::filesystem::remove(lPath);
    for (const std::size_t lSize : {0U, 1U, 1000000U}) {
        writeFile(lPath, std::string(lSize, 'x'));
        EXPECT_EQ(readDiskStatsFile(lRoot.getPath()), std::string(lSize, 'x'));
    }
    EXPECT_TRUE(readDiskStatsFile("/"));
}

ZTSWwn wwn(std::uint8_t aNumber) {
    ZTSWwn lName;
    lName.mBytes.fill(aNumber);
    return lName;
}

ZTSLun lun(const std::string& acrDisk, std::uint8_t aInitiator, std::uint8_t aTarget,
           const std::string& acrWwid) {
    ZTSLun lLun;
    lLun.mDisk = acrDisk;
    lLun.mAddress = "0:0:" + std::to_string(aInitiator) + ":" + std::to_string(aTarget);
    lLun.mWwid = acrWwid;
    if (aInitiator != 0) {
        lLun.mInitiator = wwn(aInitiator);
        lLun.mTarget = wwn(aTarget);
    }
    return lLun;
}

class DiskTimes : public testing::Test {
  protected:
    static constexpr ZTNanoseconds sHour = 1'700'002'800 * ZTSecond;

    // What a look adds; "m" and the ports of a minute's, "h" and the LUN of an hour's.
    std::string look(const std::vector<ZTSDiskStats>& acrStats) {
        ZTCMeasures lMeasures;
        mTime += 5 * ZTSecond;
        mTimes.look(acrStats, mStorage, mTime, lMeasures);
        mTimes.end(mTime, lMeasures);
        std::string lText;
        for (const auto& [lrKey, lValue] : lMeasures.getValues()) {
            EXPECT_EQ(lrKey.mTime, (lrKey.mIsHour ? sHour : mTime - mTime % (60 * ZTSecond)) / ZTSecond);
            lText += (lrKey.mIsHour ? "h" + lrKey.mWhose.mLun
                                    : "m" + std::to_string(lrKey.mWhose.mInitiator.mBytes[0]) +
                                          std::to_string(lrKey.mWhose.mRemote.mBytes[0])) +
                     " " + lrKey.mName + " " + std::to_string(lValue) + "\n";
        }
        return lText;
    }

    ZTNanoseconds mTime = sHour + 600 * ZTSecond;
    ZTSHostStorage mStorage{
        {lun("sda", 1, 5, "one"), lun("sdb", 1, 5, "two"), lun("", 1, 5, "tape"), lun("sdc", 0, 0, "")},
        {},
        {},
        {}};
    ZTCDiskTimes mTimes;
};

TEST_F(DiskTimes, ByPathAndByPort) {
    EXPECT_EQ(look({{"sda", 1000, 5000, 1}, {"sdb", 7, 7, 0}, {"vda", 1, 1, 0}}), "");
    EXPECT_EQ(look({{"sda", 1000, 5000, 1}, {"sdb", 7, 7, 0}, {"vda", 5, 5, 0}, {"sdc", 1, 1, 1}}), "");
    EXPECT_EQ(look({{"sda", 1010, 5020, 1}, {"sdb", 17, 47, 0}, {"vda", 9, 9, 0}, {"sdc", 3, 9, 1}}),
              "h0:0:0:0 command_us 8000\nh0:0:0:0 commands 2\nh0:0:0:0 slowest_us 4000\n"
              "hone command_us 20000\nhone commands 10\nhone slowest_us 2000\n"
              "htwo command_us 40000\nhtwo commands 10\nhtwo slowest_us 4000\n"
              "m15 command_us 60000\nm15 commands 20\nm15 slowest_us 3000\n");
}

TEST_F(DiskTimes, CountersThatGoBack) {
    constexpr std::uint64_t lEnd = std::uint64_t{1} << 32U;
    const std::string lTen =
        "hone command_us 20000\nhone commands 10\nhone slowest_us 2000\n"
        "m15 command_us 20000\nm15 commands 10\nm15 slowest_us 2000\n";
    const struct {
        const char* mpWhat;
        ZTSDiskStats mBefore, mNow;
        bool mIsCounted;
    } lCases[] = {
        {"one of four parts wraps", {"sda", 50, 3 * lEnd - 5, 0}, {"sda", 60, 2 * lEnd + 15, 0}, true},
        {"the only one wraps", {"sda", 50, lEnd - 5, 0}, {"sda", 60, 15, 0}, true},
        {"commands wrap on a host of 32 bits", {"sda", lEnd - 4, 0, 0}, {"sda", 6, 20, 0}, true},
        {"another disk, which did less", {"sda", 50, 500, 0}, {"sda", 10, 20, 0}, false},
        {"another disk, which did more", {"sda", 50, 500, 0}, {"sda", 60, 20, 0}, false},
        {"a disk that had done much", {"sda", 50, 500, 0}, {"sda", 1'000'000'000, 500, 0}, false}};
    for (const auto& lrCase : lCases) {
        look({lrCase.mBefore});
        EXPECT_EQ(look({lrCase.mNow}), lrCase.mIsCounted ? lTen : "") << lrCase.mpWhat;
        look({});
    }
    // Another LUN under the name, of which the counters alone tell nothing.
    look({{"sda", 50, 500, 0}});
    look({{"sda", 51, 501, 0}});
    mStorage.mLuns[0].mTarget = wwn(6);
    EXPECT_EQ(look({{"sda", 60, 520, 0}}), "");
    EXPECT_TRUE(contains(look({{"sda", 70, 540, 0}}), "m16 commands 10"));
}

TEST_F(DiskTimes, ShortOfMemoryNothingIsLost) {
    mStorage.mLuns[0].mWwid = "naa.600601603b201a2f600601603b201a2f";
    look({{"sda", 0, 0, 0}});
    std::uint64_t lCommands = 0;
    ZTCMeasures lMeasures;
    for (bool lHasFailed = true; lHasFailed;) {
        lCommands += 10;
        const std::string lOther = "sdb" + std::to_string(lCommands);
        const std::vector<ZTSDiskStats> lStats{{"sda", lCommands, 0, 0}, {lOther, 0, 0, 0}};
        FailingAllocator lAllocator(static_cast<unsigned int>(lCommands / 10));
        try {
            mTimes.look(lStats, mStorage, sHour, lMeasures);
        } catch (const std::bad_alloc&) {
        }
        lAllocator.stop();
        lHasFailed = lAllocator.hasFailed();
    }
    EXPECT_GT(lCommands, 30U);
    mTimes.look({}, mStorage, sHour, lMeasures);  // it goes, and nothing is kept back any more
    lMeasures.coarsen();
    for (const auto& [lrKey, lValue] : lMeasures.getValues()) {
        EXPECT_EQ(lValue, lCommands) << lrKey.mName;
    }
    EXPECT_EQ(lMeasures.getValues().size(), 2U);
}

// The most of all is kept, all others are added.
TEST_F(DiskTimes, SumsAreJoined) {
    ZTCMeasures lMeasures;
    for (const std::uint64_t lMinute : {0U, 1U, 59U, 60U}) {
        const ZTNanoseconds lTime = sHour + static_cast<ZTNanoseconds>(lMinute) * 60 * ZTSecond;
        ZTCMeasures lMore;
        lMore.add(lTime, {}, "slowest_us", 100 - lMinute);
        lMore.add(lTime, {}, "commands", 1);
        lMore.add(lTime, {}, "command_us", 0);
        lMore.addToHour(lTime, {}, "commands", 10);
        lMeasures.join(lMore);
        lMeasures.join(std::move(lMore));
    }
    EXPECT_EQ(lMeasures.getValues().size(), 10U);
    lMeasures.coarsen();
    std::vector<std::uint64_t> lValues;
    for (const auto& [lrKey, lValue] : lMeasures.getValues()) {
        lValues.push_back(lValue);
    }
    EXPECT_EQ(lValues, (std::vector<std::uint64_t>{66, 100, 22, 40}));
}

}  // namespace
