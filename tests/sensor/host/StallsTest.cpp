// Disks that stand still are told in time, and no others.
#include <queue>
#include <random>

#include "FailingAllocator.h"
#include "Stalls.h"
#include "TestSupport.h"

namespace {

using Clock = ZTCStalls::Clock;
using namespace std::chrono_literals;

constexpr ZTNanoseconds sBegin = 1'700'000'000 * ZTSecond;

/// A disk with commands that begin and end; seconds since the begin.
class MadeUpDisk {
  public:
    MadeUpDisk(std::string aName, unsigned int aSeed) : mName(std::move(aName)), mRandom(aSeed) {}

    ZTSDiskStats lookAt(double aTime) {
        while (!mStands && std::min(mNext, getEnd()) <= aTime) {
            if (getEnd() <= mNext) {
                mEnds.pop();
                ++mCompleted;
            } else {
                begin();
            }
        }
        return {mName, mCompleted, 0, mEnds.size()};
    }
    /// From now on nothing completes, and there is something that waits.
    void stand(double aTime) {
        lookAt(aTime);
        mStands = true;
        if (mEnds.empty()) {
            mEnds.push(aTime);
        }
    }
    void goOn() { mStands = false; }

  private:
    using Ends = std::priority_queue<double, std::vector<double>, std::greater<>>;
    double getEnd() const { return mEnds.empty() ? 1e9 : mEnds.top(); }
    double pick(double aLeast, double aMost) {
        return std::uniform_real_distribution<>(aLeast, aMost)(mRandom);
    }
    void send(unsigned int aCommands, double aLeast, double aMost, double aPause) {
        for (unsigned int lCommand = 0; lCommand < aCommands; ++lCommand) {
            mEnds.push(mNext + pick(aLeast, aMost));
        }
        mNext += aPause;
    }
    void begin() {
        if (mNext >= mChanges) {
            mWhat = static_cast<unsigned int>(pick(0, 6));
            mChanges = mNext + pick(1, 600);
        }
        switch (mWhat) {
            case 0:
                mNext = mChanges;
                break;  // idle
            case 1:
                send(1, 0.001, 0.05, pick(0, 0.2));
                break;  // at random
            case 2:
                send(64, 0.001, 1, pick(0, 12));
                break;  // bursts
            case 3:
                send(1, 4, 4, pick(0, 8));
                break;  // slow single ones
            case 4:
                send(1, 3, 4, mEnds.empty() ? 0 : 4 + pick(0, 3));
                break;  // flushes
            default:
                send(1, 0.1, 1.5, 0.05);
                break;  // a backup
        }
    }

    const std::string mName;
    std::mt19937 mRandom;
    Ends mEnds;
    double mNext = 0, mChanges = 0;
    unsigned int mWhat = 0;
    std::uint64_t mCompleted = 0;
    bool mStands = false;
};

ZTSHostStorage storage() {
    ZTSLun lLun;
    lLun.mAddress = "3:0:1:2";
    lLun.mDisk = "sdb";
    return {{lLun},
            {{"dm-0", "mpatha", "36", {{"sdb", true, {}}, {"sdc", true, {}}}, 2}},
            {{"dm-1", "vg0-data", {"dm-0"}}},
            {{"/data", "dm-1", "xfs"}, {"/", "vda", "ext4"}}};
}

std::string toText(const std::vector<ZTSStall>& acrStalls) {
    std::string lText;
    for (const ZTSStall& lrStall : acrStalls) {
        const auto lSeconds = [](ZTNanoseconds aTime) {
            return std::to_string(static_cast<double>(aTime - sBegin) / 1e9).substr(0, 5);
        };
        lText += lrStall.mDisk + " " + lrStall.mKind + " " + lrStall.mName + " " + lrStall.mHits + " " +
                 lSeconds(lrStall.mFirst) + " " + lSeconds(lrStall.mLast) + " " +
                 std::to_string(lrStall.mInFlight) + (lrStall.mIsOver ? " over" : "") + "\n";
    }
    return lText;
}

class Stalls : public testing::Test {
  protected:
    std::vector<ZTSStall> lookAt(double aTime, const std::vector<ZTSDiskStats>& acrStats) {
        const auto lTime = std::chrono::nanoseconds(static_cast<ZTNanoseconds>(aTime * 1e9));
        return mStalls.look(acrStats, mStorage, sBegin + mClockIsAhead + lTime.count(),
                            Clock::time_point(1000s) + lTime);
    }
    std::string look(double aTime, const std::vector<ZTSDiskStats>& acrStats) {
        return toText(lookAt(aTime, acrStats));
    }

    ZTSHostStorage mStorage = storage();
    ZTNanoseconds mClockIsAhead = 0;  // of the steady one
    ZTCStalls mStalls;
};

constexpr double sEvery = static_cast<double>(ZTCStalls::Every.count()) / 1000;

TEST_F(Stalls, EachKindIsToldInTime) {
    const std::pair<std::string, std::string> lKinds[] = {{"sdb", "path 3:0:1:2 /data"},
                                                          {"dm-0", "map mpatha /data"},
                                                          {"dm-1", "volume vg0-data /data"},
                                                          {"vda", "disk vda /"},
                                                          {"vdb", "disk vdb "}};
    for (const auto& [lrDisk, lrKind] : lKinds) {
        for (double lStands = 100; lStands < 100 + sEvery; lStands += 0.1) {
            SCOPED_TRACE(lrDisk + " " + std::to_string(lStands));
            MadeUpDisk lDisk(lrDisk, 1);
            ZTCStalls lFresh;
            std::swap(mStalls, lFresh);
            std::vector<ZTSStall> lTold;
            double lTime = 0;
            for (bool lStood = false; lTold.empty() && lTime < lStands + 20; lTime += sEvery) {
                if (lTime > lStands && !std::exchange(lStood, true)) {
                    lDisk.stand(lStands);
                }
                lTold = lookAt(lTime, {lDisk.lookAt(lTime)});
            }
            ASSERT_EQ(lTold.size(), 1U);
            EXPECT_LE(lTime - sEvery, lStands + 10);
            EXPECT_GE(lTold[0].mFirst, sBegin + static_cast<ZTNanoseconds>(lStands * 1e9));
            EXPECT_TRUE(toText(lTold).starts_with(lrDisk + " " + lrKind + " "));
            EXPECT_EQ(mStalls.countStalled(), 1U);
            lDisk.goOn();
            lTold = lookAt(lTime, {lDisk.lookAt(lTime)});
            ASSERT_EQ(lTold.size(), 1U);
            EXPECT_TRUE(lTold[0].mIsOver);
            EXPECT_EQ(mStalls.countStalled(), 0U);
        }
    }
}

TEST_F(Stalls, TenHoursOfOrdinaryCommandsAreNone) {
    constexpr double lEnd = 36000;
    const unsigned int lDisks = ZTTestRounds(8U, 200U);
    std::vector<MadeUpDisk> lMadeUp;
    for (unsigned int lDisk = 0; lDisk < lDisks; ++lDisk) {
        lMadeUp.emplace_back("sd" + std::to_string(lDisk), lDisk);
    }
    const auto lStatsAt = [&](double aTime) {
        std::vector<ZTSDiskStats> lStats;
        for (MadeUpDisk& lrDisk : lMadeUp) {
            lStats.push_back(lrDisk.lookAt(aTime));
        }
        return lStats;
    };
    std::mt19937 lRandom(1);
    std::uint64_t lWaiting = 0;
    double lTime = 0;
    for (; lTime < lEnd; lTime += sEvery + static_cast<double>(lRandom() % 200) / 1000) {
        const auto lStats = lStatsAt(lTime);
        EXPECT_EQ(look(lTime, lStats), "");
        lWaiting += static_cast<std::uint64_t>(std::count_if(
            lStats.begin(), lStats.end(), [](const auto& acrStats) { return acrStats.mInFlight != 0; }));
    }
    EXPECT_GT(lWaiting, lDisks * 1000);  // they were not idle
    for (MadeUpDisk& lrDisk : lMadeUp) {
        lrDisk.stand(lTime);
    }
    EXPECT_EQ(look(lTime, lStatsAt(lTime)), "");
    EXPECT_EQ(lookAt(lTime + sEvery, lStatsAt(lTime)).size(), lDisks);
}

TEST_F(Stalls, WhatIsToldOfOne) {
    EXPECT_EQ(look(0, {{"vda", 5, 0, 2}, {"idle", 5, 0, 0}}), "");
    EXPECT_EQ(look(3, {{"vda", 5, 0, 9}, {"idle", 5, 0, 0}}), "");
    EXPECT_EQ(look(5, {{"vda", 5, 0, 3}, {"idle", 5, 0, 0}}), "vda disk vda / 0.000 5.000 9\n");
    for (double lTime = 10; lTime < 60; lTime += 5) {
        EXPECT_EQ(look(lTime, {{"vda", 5, 0, 3}}), "");
    }
    EXPECT_EQ(look(65, {{"vda", 5, 0, 3}}), "vda disk vda / 0.000 65.00 9\n");
    // One command of several, and the rest wait on.
    EXPECT_EQ(look(70, {{"vda", 6, 0, 2}}), "vda disk vda / 0.000 70.00 9 over\n");
    EXPECT_EQ(look(75, {{"vda", 6, 0, 2}}), "vda disk vda / 70.00 75.00 2\n");
    // All were given up, and no number says so.
    EXPECT_EQ(look(80, {{"vda", 6, 0, 0}}), "vda disk vda / 70.00 80.00 2 over\n");
    // Where it stands is not known at first.
    mStorage = {};
    look(85, {{"sdb", 1, 0, 1}});
    EXPECT_EQ(look(90, {{"sdb", 1, 0, 1}}), "sdb disk sdb  85.00 90.00 1\n");
    mStorage = storage();
    for (double lTime = 95; lTime < 150; lTime += 5) {
        EXPECT_EQ(look(lTime, {{"sdb", 1, 0, 1}}), "");
    }
    EXPECT_EQ(look(150, {{"sdb", 1, 0, 1}}), "sdb path 3:0:1:2 /data 85.00 150.0 1\n");
    // It goes, and is there again under its name.
    mStorage = {};
    EXPECT_EQ(look(155, {}), "sdb path 3:0:1:2 /data 85.00 155.0 1 over\n");
    EXPECT_EQ(look(160, {{"sdb", 1, 0, 1}}), "");
}

TEST_F(Stalls, NobodyLookedOrTheClockWasSet) {
    const std::vector<ZTSDiskStats> lWaits{{"vda", 5, 0, 1}}, lWent{{"vda", 6, 0, 1}};
    // The process was stopped, or the host slept: steady time stands then.
    look(0, lWaits);
    EXPECT_EQ(look(100, lWaits), "");
    mClockIsAhead = 3600 * ZTSecond;
    EXPECT_EQ(look(102, lWaits), "");
    mClockIsAhead = 0;
    // Set back, it hides nothing; the begin is by what it says now.
    EXPECT_EQ(look(107, lWaits), "vda disk vda / 102.0 107.0 1\n");
    mClockIsAhead = -3600 * ZTSecond;
    EXPECT_EQ(look(112, lWaits), "");
    mClockIsAhead = 0;
    EXPECT_EQ(look(117, lWaits), "");
    // What ended meanwhile, ended nobody knows when.
    EXPECT_EQ(look(217, lWent), "vda disk vda / 102.0 117.0 1 over\n");
    EXPECT_EQ(look(222, lWent), "vda disk vda / 217.0 222.0 1\n");
}

TEST_F(Stalls, ThoseOfAnEarlierRunGoOnOrAreOver) {
    const auto lStart = [](const char* apDisk, double aFirst, double aLast) {
        const auto lTime = [](double aSeconds) {
            return sBegin + static_cast<ZTNanoseconds>(aSeconds * 1e9);
        };
        return ZTSStall{lTime(aFirst), lTime(aLast), false, apDisk, "name", "hits", 4, "map"};
    };
    mStalls.setStart({lStart("on", -100, -5), lStart("ended", -100, -5), lStart("went", -100, -5),
                      lStart("old", -1000, -500), lStart("ahead", 100, 100)});
    const std::vector<ZTSDiskStats> lWaits{
        {"on", 5, 0, 1}, {"ended", 5, 0, 0}, {"went", 5, 0, 1}, {"old", 5, 0, 1}};
    EXPECT_EQ(look(0, lWaits),
              "ahead map name hits 100.0 100.0 4 over\nold map name hits -1000 -500. 4 over\n"
              "ended map name hits -100. -5.00 4 over\n");
    EXPECT_EQ(mStalls.countStalled(), 2U);
    EXPECT_EQ(look(5, {{"on", 5, 0, 1}, {"went", 6, 0, 1}}), "went map name hits -100. -5.00 4 over\n");
    EXPECT_EQ(look(10, {{"on", 6, 0, 1}}), "on map name hits -100. 10.00 4 over\n");
}

TEST_F(Stalls, ShortOfMemoryEachIsToldOnce) {
    for (unsigned int lFailing = 1;; ++lFailing) {
        ZTCStalls lFresh;
        std::swap(mStalls, lFresh);
        std::string lTold;
        bool lHasFailed = false;
        const auto lLook = [&](double aTime, const std::vector<ZTSDiskStats>& acrStats) {
            for (const double lTime : {aTime, aTime + 1}) {  // what fails is tried again
                FailingAllocator lAllocator(lTime == aTime ? lFailing : 1U << 30U);
                std::vector<ZTSStall> lStalls;
                try {
                    lStalls = lookAt(lTime, acrStats);
                } catch (const std::bad_alloc&) {
                    lHasFailed = true;
                }
                lAllocator.stop();
                for (const ZTSStall& lrStall : lStalls) {
                    lTold += lrStall.mDisk + lrStall.mKind + (lrStall.mIsOver ? " over " : " ");
                }
            }
        };
        lLook(0, {{"dm-1", 5, 0, 1}});
        lLook(5, {{"dm-1", 5, 0, 1}});
        lLook(10, {{"dm-1", 6, 0, 1}, {"a disk with a long name", 5, 0, 1}});
        EXPECT_EQ(lTold, "dm-1volume dm-1volume over ") << lFailing;
        if (!lHasFailed) {
            break;
        }
    }
}

// A fabric fails, and everything stands: no look may take long.
TEST_F(Stalls, ThousandsAtOnceCostNoMoreEach) {
    const auto lCost = [this](std::size_t aMaps) {
        mStorage = {};
        std::vector<ZTSDiskStats> lStats;
        for (std::size_t lMap = 0; lMap < aMaps; ++lMap) {
            const std::string lName = "dm-" + std::to_string(lMap);
            ZTSMap lPaths{lName, "mpath" + lName, "", {}, 8};
            for (std::size_t lPath = 0; lPath < 8; ++lPath) {
                ZTSLun lLun;
                lLun.mDisk = "sd" + std::to_string(lMap * 8 + lPath);
                lPaths.mPaths.push_back({lLun.mDisk, true, {}});
                lStats.push_back({lLun.mDisk, 1, 0, 1});
                mStorage.mLuns.push_back(std::move(lLun));
            }
            mStorage.mMaps.push_back(std::move(lPaths));
            mStorage.mVolumes.push_back({"v" + lName, "vg-" + lName, {lName}});
            mStorage.mMounts.push_back({"/" + lName, "v" + lName, "xfs"});
            lStats.push_back({lName, 1, 0, 1});
        }
        const auto lNow = [] {
            timespec lTime{};
            clock_gettime(CLOCK_THREAD_CPUTIME_ID, &lTime);
            return std::chrono::seconds(lTime.tv_sec) + std::chrono::nanoseconds(lTime.tv_nsec);
        };
        auto lBest = std::chrono::nanoseconds::max();
        for (unsigned int lRound = 0; lRound < 3; ++lRound) {
            ZTCStalls lFresh;
            std::swap(mStalls, lFresh);
            lookAt(0, lStats);
            const auto lBegin = lNow();
            EXPECT_EQ(lookAt(5, lStats).size(), lStats.size());
            lBest = std::min(lBest, lNow() - lBegin);
        }
        RecordProperty("us_" + std::to_string(aMaps), std::to_string(lBest.count() / 1000));
        return lBest;
    };
    const auto lFew = lCost(128);
    EXPECT_LT(lCost(1024), 8 * 4 * lFew);
}

}  // namespace
