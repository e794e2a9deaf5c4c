// What the live view says of how fast events come.
#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "TestSupport.h"
#include "TimeText.h"
#include "WatchView.h"

namespace {

using namespace std::chrono_literals;

// A view, and a clock that goes from fetch to fetch.
class Watched {
  public:
    void fetch(std::chrono::milliseconds aLater, std::uint32_t aEvents, std::uint8_t aSubcategory = 1) {
        mTime += aLater;
        ZTSFetched lFetched{mTime, {{{}, {}}}};
        if (aEvents != 0) {
            lFetched.mData[0].mRecords.push_back(
                {aEvents, toSensorTime(mTime - 300ms), toSensorTime(mTime - 200ms), 8, aSubcategory, {}, {}});
        }
        mView.add(lFetched);
    }
    // What a row of the live view shows behind the number of events.
    std::string getRate(const char* apKind) const {
        std::istringstream lLines(mView.toText(true));
        for (std::string lLine; std::getline(lLines, lLine);) {
            std::istringstream lWords(lLine);
            std::string lKind, lPort, lEvents, lRate;
            if (lWords >> lKind >> lPort >> lEvents >> lRate && lKind == apKind) {
                return lRate;
            }
        }
        return "no row";
    }
    std::string getSums() const { return mView.toText(false); }

  private:
    ZTCWatchView mView{true};
    ZTSFetched::Time mTime = ZTSFetched::Time(std::chrono::seconds(1'700'000'000));
};

constexpr char sPort[] = "port_interrupt_error";

// A burst has one rate as long as it is in the window, and none before there is a whole one or behind it.
TEST(WatchView, TellsTheRateOfTheLastFetches) {
    for (const auto lPeriod : {100ms, 1000ms, 4990ms, 5000ms, 60000ms}) {
        SCOPED_TRACE(lPeriod.count());
        Watched lWatched;
        lWatched.fetch(0ms, 1'000'000);  // collected since nobody knows when
        lWatched.fetch(lPeriod, 50);
        std::map<std::string, unsigned int> lSeen;
        for (unsigned int lFetch = 0; lFetch < 200; ++lFetch) {
            ++lSeen[lWatched.getRate(sPort)];
            lWatched.fetch(lPeriod, 0);
        }
        lSeen.erase("-");
        EXPECT_TRUE(lSeen.size() == 2 && lSeen.rbegin()->first != "0.0") << lSeen.rbegin()->first;
        const double lRate = std::stod(lSeen.rbegin()->first);
        EXPECT_NEAR(lRate, 50 / std::max(4.5, static_cast<double>(lPeriod.count()) / 1000), 1.2);
        lWatched.fetch(lPeriod, 7, 2);
        EXPECT_EQ(lWatched.getRate(sPort), "0.0");
        EXPECT_NE(lWatched.getRate("link"), "0.0");
    }
}

TEST(WatchView, KeepsARateThroughJitterAndAClockThatIsSetBack) {
    Watched lWatched;
    for (unsigned int lFetch = 0; lFetch < 40; ++lFetch) {
        if (lFetch == 20) {
            lWatched.fetch(-3'600'000ms, 100);
            EXPECT_EQ(lWatched.getRate(sPort), "-");
        }
        const auto lLater = lFetch % 2 == 0 ? 980ms : 1020ms;
        lWatched.fetch(lLater, static_cast<std::uint32_t>(lLater.count() / 10));
        if (lFetch % 20 > 5) {
            EXPECT_EQ(lWatched.getRate(sPort), "100.0");
        }
    }
}

TEST(WatchView, LeavesSumsWithoutARate) {
    Watched lWatched;
    lWatched.fetch(0ms, 2);
    lWatched.fetch(10000ms, 3);
    EXPECT_TRUE(contains(lWatched.getSums(),
                         "5 events in 2 records, last fetch 2023-11-14 22:13:30.000 UTC\n"
                         "\ninitiator 00:00:00:00:00:00:00:00, node 00:00:00:00:00:00:00:00\n"
                         "  kind                  remote port  events  first         last\n"
                         "  port_interrupt_error  -                 5  22:13:19.700  22:13:29.800\n"))
        << lWatched.getSums();
}

}  // namespace
