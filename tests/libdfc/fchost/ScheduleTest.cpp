// When the hosts are looked at.
#include <gtest/gtest.h>

#include "Schedule.h"

using std::chrono_literals::operator""ms;

TEST(FcSchedule, ALookIsHastenedAndPutOffOnce) {
    ZTCFcSchedule lSchedule(1000ms);
    const auto lPeriodic = lSchedule.getNext();
    lSchedule.hasten();
    EXPECT_EQ(lSchedule.getNext(), lPeriodic - 950ms);
    EXPECT_TRUE(lSchedule.putOff());
    lSchedule.hasten();
    EXPECT_EQ(lSchedule.getNext(), lPeriodic - 950ms);
    EXPECT_FALSE(lSchedule.putOff());
    lSchedule.settle();
    EXPECT_EQ(lSchedule.getNext(), lPeriodic);
    EXPECT_TRUE(lSchedule.putOff());
    EXPECT_EQ(lSchedule.getNext(), lPeriodic - 950ms);

    EXPECT_TRUE(lSchedule.takeLookBetween());
    EXPECT_FALSE(lSchedule.takeLookBetween());
    lSchedule.begin();
    EXPECT_TRUE(lSchedule.takeLookBetween());
    const ZTCFcSchedule lShort(20ms);
    EXPECT_LE(lShort.getNext(), ZTCFcSchedule::Clock::now() + 20ms);
}
