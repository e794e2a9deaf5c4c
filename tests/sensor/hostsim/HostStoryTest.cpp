// vrx-sn on a made-up host: what the host tells is in the store.
#include "MadeUpHostProgram.h"
#include "SensorProgram.h"

namespace {

using Texts = std::vector<std::string>;

// All that the names file may be wrong in; then a line that is right.
const Texts sMistakes = {"no-name first", "10:00:00:25:b5:01:00:00", "10:00:00:25:b5:01:00:0g bad",
                         "\"open quote", "10:00:00:25:b5:01:00:00 twice planet=mars"};
constexpr char sNamed[] = "50:06:01:60:3b:20:11:0c \"<b>of \\\" a lab</b>\" array=array1 controller=A\n";

class HostStory : public testing::Test {
  protected:
    Texts options() const { return {"--root", mHost.getRoot(), "--names", mNames}; }
    /// Whether the query gives that number some time.
    bool waitFor(std::int64_t aNumber, const std::string& acrQuery) const {
        return waitUntil([&] { return mStand.ask(acrQuery) == aNumber; });
    }
    bool waitForPaths(const char* apMap, int aUsable, int aTotal) const {
        return waitFor(1, std::string("SELECT count(*) FROM maps WHERE name = '") + apMap +
                              "' AND usable = " + std::to_string(aUsable) +
                              " AND total = " + std::to_string(aTotal));
    }

    ZTCTestHost mHost;
    const std::string mNames = mHost / "etc/vrx-sca/names";
    ZTCSnStand mStand{options()};
};

TEST_F(HostStory, PathsFpinsAndChangesAreKept) {
    ASSERT_TRUE(waitForPaths("mpathb", 8, 8));
    EXPECT_EQ(mStand.ask("SELECT count(*) FROM luns WHERE here = 1 AND fabric = 'left' AND initiator = "
                         "'10:00:00:25:b5:01:00:00'"),
              6);
    mHost.play("path-fail sdb\npath-gone sdd");
    EXPECT_TRUE(waitForPaths("mpathb", 6, 8));
    mHost.play("firmware host1 5.0.1\nlink-down host1\nlink-down host3");
    EXPECT_TRUE(waitForPaths("mpatha", 4, 8));
    EXPECT_TRUE(waitFor(1,
                        "SELECT count(*) FROM changes WHERE attribute = 'firmware' AND before = '4.2.1' AND "
                        "after = '5.0.1'"));
    // What has been removed is missed also by the next vrx-sn, which nobody tells of it.
    EXPECT_EQ(mStand.endSensor(), 0);
    mHost.play(
        "link-up host1\nlink-up host3\npath-gone mpathc\nlun-back mpathc\npath-gone sde\nmultipathd off");
    mStand.startSensor();
    EXPECT_TRUE(waitForPaths("mpathc", 7, 8));
    EXPECT_TRUE(waitForPaths("mpatha", 8, 8));
    // Twice the same within a moment is one row; another descriptor is another one.
    const char* const lpFpin =
        "fpin host2 link-integrity port=array1-A1 event=loss_of_signal count=5 congestion "
        "event=credit_stall severity=alarm";
    mHost.play(lpFpin);
    mHost.play(lpFpin);
    EXPECT_TRUE(waitFor(2, "SELECT count(*) FROM fpins WHERE times = 2 AND fabric = 'right'"));
    EXPECT_EQ(mStand.ask("SELECT count FROM fpins WHERE event = 'loss_of_signal' AND attached = "
                         "'50:06:01:61:3b:20:11:0c'"),
              10);
    mHost.play("mount /more vda1 xfs\numount /scratch");
    EXPECT_EQ(mStand.endSensor(), 0);
}

// Both fabrics give out the same address: a port is named from its own one.
TEST_F(HostStory, AnRscnNamesThePortOfItsFabric) {
    ASSERT_TRUE(waitForPaths("mpathc", 8, 8));
    mStand.play("rscn board=0 pages=0x010a00\nrscn board=1 pages=0x010a00");
    for (const auto& [lpFabric, lpPort] :
         {std::pair("left", "50:06:01:60:3b:20:11:0c"), std::pair("right", "50:06:01:61:3b:20:11:0c")}) {
        EXPECT_TRUE(waitFor(1, std::string("SELECT count(*) FROM series WHERE kind = 'rscn' AND fabric = '") +
                                   lpFabric + "' AND remote = '" + lpPort + "'"))
            << lpFabric;
    }
}

TEST_F(HostStory, ANamesFileWithMistakesNamesTheRest) {
    const auto lReload = [&](const std::string& acrText) {
        const std::size_t lBefore = countIn(mStand.getSensor().getErr(), "ports named: ");
        writeFile(mNames, acrText);
        mStand.getSensor().sendSignal(SIGHUP);
        EXPECT_TRUE(waitUntil([&] {
            return countIn(mStand.getSensor().getErr(), "ports named: ") == lBefore + 1;
        })) << mStand.getSensor().getErr();
    };
    ASSERT_TRUE(waitUntil([&] { return contains(mStand.getSensor().getErr(), "ports named: 12"); }));
    std::string lText;
    for (const std::string& lrMistake : sMistakes) {
        lText += lrMistake + "\n";
    }
    lReload(lText + sNamed);
    for (std::size_t lLine = 1; lLine <= sMistakes.size(); ++lLine) {
        EXPECT_EQ(countIn(mStand.getSensor().getErr(), "names:" + std::to_string(lLine) + ": "), 1U)
            << mStand.getSensor().getErr();
    }
    EXPECT_TRUE(contains(mStand.getSensor().getErr(), "ports named: 1"));
    // Half of it is written when the signal comes: what is there is taken, and all of it with the next one.
    const std::string lWhole = makeHostNames(readHostSite(getDefaultHostSite(), "site"));
    lReload(lWhole.substr(0, lWhole.size() / 2));
    lReload(lWhole);
    EXPECT_EQ(countIn(mStand.getSensor().getErr(), "ports named: 12"), 2U) << mStand.getSensor().getErr();
    EXPECT_EQ(mStand.endSensor(), 0);
}

// Of each kind at once. The looks are seconds apart, so that it takes as long.
TEST_F(HostStory, AStallOfEachKindIsToldWithinTenSeconds) {
    if (ZTTestRounds(0, 1) == 0) {
        GTEST_SKIP() << "it takes half a minute";
    }
    ASSERT_TRUE(waitForPaths("mpathc", 8, 8));
    mHost.play("rate mpatha 0\nstall sdb\nstall dm-2\nstall dm-8\nstall vda");
    const auto lBegin = std::chrono::steady_clock::now();
    const char* const lpAll = "SELECT count(DISTINCT kind) FROM stalls";
    EXPECT_TRUE(waitFor(4, lpAll));
    EXPECT_LT(std::chrono::steady_clock::now() - lBegin, std::chrono::seconds(12));  // with the store's part
    EXPECT_EQ(mStand.ask("SELECT count(*) FROM stalls WHERE disk = 'dm-0' OR disk = 'sdd'"), 0);
    EXPECT_EQ(mStand.ask("SELECT count(*) FROM stalls WHERE disk = 'vda' AND hits = '/scratch'"), 1);
    mHost.play("go-on sdb\ngo-on dm-2\ngo-on dm-8\ngo-on vda");
    EXPECT_TRUE(waitFor(0, "SELECT count(*) FROM stalls WHERE over = 0"));
    // Sums of LUNs are kept back for a minute: at the end they are there too.
    EXPECT_EQ(mStand.endSensor(), 0);
    const auto lSum = [&](const char* apWhose) {
        return mStand.ask(std::string("SELECT coalesce(sum(value), 0) FROM measure_hours WHERE measure = "
                                      "(SELECT id FROM measure WHERE name = 'commands') AND measured IN "
                                      "(SELECT id FROM measured WHERE lun ") +
                          apWhose + " '')");
    };
    EXPECT_GT(lSum("="), 0);
    EXPECT_EQ(lSum("<>"), lSum("="));
}

// 1,024 LUNs by eight paths; vrx-sn has a minute for a round.
TEST(HostStoryLarge, AThousandLunsComeAndGo) {
    if (ZTTestRounds(0, 1) == 0) {
        GTEST_SKIP() << "it takes minutes";
    }
    std::string lSite;
    std::istringstream lDefault(getDefaultHostSite());
    for (std::string lLine; std::getline(lDefault, lLine);) {
        if (lLine.starts_with("fabric") || lLine.starts_with("port") || lLine.starts_with("target")) {
            lSite += lLine + "\n";
        }
    }
    lSite += "kernel 6.1\nlun array1 0-1023 map=big wwid=600601603b20110c0000000000000000 serial=BIG io=2\n";
    const ZTCTestHost lHost(lSite);
    ZTCSnStand lStand({"--root", lHost.getRoot()});
    const auto lWaitFor = [&](int aMaps, int aUsable) {
        const std::string lQuery =
            "SELECT count(*) FROM maps WHERE total = 8 AND usable = " + std::to_string(aUsable);
        EXPECT_TRUE(waitUntil([&] { return lStand.ask(lQuery) == aMaps; }, 150))
            << lQuery << lHost.ask("report");
    };
    lWaitFor(1024, 8);
    const std::pair<const char*, int> lRows[] = {{"link-down host1\nlink-down host3", 4},
                                                 {"link-up host1\nlink-up host3", 8},
                                                 {"target-gone array1/A", 4},
                                                 {"target-back array1/A", 8}};
    for (const auto& [lpLines, lUsable] : lRows) {
        lHost.play(lpLines);
        lWaitFor(1024, lUsable);
    }
    EXPECT_TRUE(contains(lHost.ask("report"), " 0 lost"));
    EXPECT_TRUE(
        waitUntil([&] { return lStand.ask("SELECT count(*) FROM luns WHERE here = 1") == 8192; }, 150));
}

}  // namespace
