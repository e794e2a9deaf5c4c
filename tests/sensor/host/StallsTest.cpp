// Disks that stand still are told in time, and no others.
#include <ctime>
#include <limits>
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
        for (double lStands = 0; lStands < sEvery; lStands += 0.25) {
            MadeUpDisk lDisk(lrDisk, 1);
            mStalls = {};
            EXPECT_EQ(look(0, {lDisk.lookAt(0)}), "");
            lDisk.stand(lStands);
            std::vector<ZTSStall> lTold;
            for (double lTime = sEvery; lTime <= lStands + 10; lTime += sEvery) {
                const auto lMore = lookAt(lTime, {lDisk.lookAt(lTime)});
                lTold.insert(lTold.end(), lMore.begin(), lMore.end());
            }
            ASSERT_EQ(lTold.size(), 1U) << lrDisk << lStands;
            EXPECT_TRUE(toText(lTold).starts_with(lrDisk + " " + lrKind + " "));
            EXPECT_EQ(mStalls.countStalled(), 1U);
            lDisk.goOn();
            EXPECT_TRUE(look(20, {lDisk.lookAt(20)}).ends_with("over\n"));
            EXPECT_EQ(mStalls.countStalled(), 0U);
        }
    }
}

TEST_F(Stalls, TenHoursOfOrdinaryCommandsAreNone) {
    constexpr double lEnd = 36000;
    const unsigned int lDisks = ZTTestRounds(4U, 200U);
    std::vector<MadeUpDisk> lMadeUp;
    for (unsigned int lDisk = 0; lDisk < lDisks; ++lDisk) {
        lMadeUp.emplace_back("sd" + std::to_string(lDisk), lDisk);
    }
    std::uint64_t lWaiting = 0;
    const auto lStatsAt = [&](double aTime) {
        std::vector<ZTSDiskStats> lStats;
        for (MadeUpDisk& lrDisk : lMadeUp) {
            lStats.push_back(lrDisk.lookAt(aTime));
            lWaiting += lStats.back().mInFlight != 0 ? 1U : 0U;
        }
        return lStats;
    };
    std::mt19937 lRandom(1);
    double lTime = 0;
    for (; lTime < lEnd; lTime += sEvery + static_cast<double>(lRandom() % 200) / 1000) {
        EXPECT_EQ(look(lTime, lStatsAt(lTime)), "");
    }
    EXPECT_GT(lWaiting, lDisks * 1000);  // they were not idle
    for (MadeUpDisk& lrDisk : lMadeUp) {
        lrDisk.stand(lTime);
    }
    lookAt(lTime, lStatsAt(lTime));
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
    bool lHasFailed = true;
    for (unsigned int lFailing = 1; lHasFailed; ++lFailing) {
        mStalls = {};
        lHasFailed = false;
        std::string lTold;
        for (const double lTime : {0, 1, 5, 6, 10, 11}) {  // what fails is tried again
            FailingAllocator lAllocator(static_cast<int>(lTime) % 5 == 0 ? lFailing : 1U << 30U);
            try {
                for (const ZTSStall& lrStall : lookAt(lTime, {{"dm-1", lTime < 10 ? 5U : 6U, 0, 1}})) {
                    lTold += lrStall.mIsOver ? "over" : lrStall.mKind;
                }
            } catch (const std::bad_alloc&) {
            }
            lAllocator.stop();
            lHasFailed |= lAllocator.hasFailed();
        }
        EXPECT_EQ(lTold, "volumeover") << lFailing;
    }
}

// A fabric fails, and everything stands: no look may take long.
TEST_F(Stalls, ThousandsAtOnceCostNoMoreEach) {
    const auto lCost = [this](unsigned int aMaps) {
        mStorage = {};
        std::vector<ZTSDiskStats> lStats;
        for (unsigned int lMap = 0; lMap < aMaps; ++lMap) {
            const std::string lName = std::to_string(lMap);
            mStorage.mMaps.push_back({"dm-" + lName, "mpath" + lName, "", {}, 8});
            for (const char lPath : std::string("abcdefgh")) {
                mStorage.mLuns.emplace_back().mDisk = lPath + lName;
                mStorage.mMaps.back().mPaths.push_back({lPath + lName, true, {}});
                lStats.push_back({lPath + lName, 1, 0, 1});
            }
            mStorage.mVolumes.push_back({"v" + lName, "vg" + lName, {"dm-" + lName}});
            mStorage.mMounts.push_back({"/" + lName, "v" + lName, "xfs"});
        }
        auto lBest = std::numeric_limits<clock_t>::max();
        for (unsigned int lRound = 0; lRound < 3; ++lRound) {
            mStalls = {};
            lookAt(0, lStats);
            const clock_t lBegin = clock();
            EXPECT_EQ(lookAt(5, lStats).size(), lStats.size());
            lBest = std::min(lBest, clock() - lBegin);
        }
        return lBest;
    };
    const clock_t lFew = lCost(64);
    EXPECT_LT(lCost(512), 8 * 4 * lFew);
}

}  // namespace
