#include <gtest/gtest.h>

#include <latch>
#include <thread>
#include <vector>

#include "WorldWideName.h"

namespace {

constexpr unsigned char sBytes[] = {0x20, 0, 0, 0x25, 0xb5, 1, 0, 0x0a};
constexpr char sText[] = "20:00:00:25:b5:01:00:0a";

void expectTheName(const ZTCWorldWideName& acrName, const char* apText) {
    EXPECT_TRUE(acrName == ZTCWorldWideName(sBytes)) << apText;
    EXPECT_STREQ(acrName.getStringForm().get(), sText) << apText;
}

}  // namespace

TEST(WorldWideNameTest, ReadsItsFormsAndPrintsOne) {
    const char* const lpTexts[] = {sText, "20:00:00:25:B5:01:00:0A", "20000025b501000a", "0x20000025B501000a",
                                   "0X20000025b501000A"};
    for (const char* const lpText : lpTexts) {
        ZTCWorldWideName lName;
        lName.setStringForm(lpText);
        expectTheName(lName, lpText);
    }
}

TEST(WorldWideNameTest, RefusesOtherTextAndStaysAsItWas) {
    const char* const lpTexts[] = {
        // Without colons.
        "", "0x", "20", "20000025b501000", "20000025b501000a0", " 20000025b501000a", "20000025b501000a ",
        "20000025b501000g", "20000025b501000@", "2x000025b501000a", "0x20000025b5010000a",
        "0x0x20000025b50100",
        // With them.
        "20:00:00:25:b5:01:00", "20:00:00:25:b5:01:00:", "20:00:00:25:b5:01:00:0",
        "20:00:00:25:b5:01:00:0a:", "20:00:00:25:b5:01:00:0a:00", "2:00:00:25:b5:01:00:0a",
        "20-00-00-25-b5-01-00-0a", "20::00:00:25:b5:01:00:0a", "2000:0025:b501:000a",
        "0x20:00:00:25:b5:01:00:0a", "20:00:00:25:b5:01:00:\xe1\xe2"};
    ZTCWorldWideName lName(sBytes);
    for (const char* const lpText : lpTexts) {
        EXPECT_THROW(lName.setStringForm(lpText), ZTCInvalidEx) << lpText;
        expectTheName(lName, lpText);
    }
}

TEST(WorldWideNameTest, PrintsWhatWasSetLast) {
    ZTCWorldWideName lName;
    EXPECT_STREQ(lName.getStringForm().get(), "");
    EXPECT_STREQ(ZTCWorldWideName(lName).getStringForm().get(), "");
    constexpr unsigned char lZeros[sizeof sBytes]{};
    lName.setBinaryForm(lZeros);
    EXPECT_STREQ(lName.getStringForm().get(), "00:00:00:00:00:00:00:00");
    lName.setBinaryForm(sBytes);
    expectTheName(lName, "set");
    lName = ZTCWorldWideName();
    EXPECT_STREQ(lName.getStringForm().get(), "");
    lName = ZTCWorldWideName(sBytes);
    expectTheName(lName, "assigned");
}

TEST(WorldWideNameTest, IsPrintedOnceForAllThreads) {
    for (int lRound = 0; lRound < 100; ++lRound) {
        const ZTCWorldWideName lName(sBytes);
        const void* lpTexts[4]{};
        std::latch lStart(4);
        std::vector<std::jthread> lThreads;
        for (const void*& lrpText : lpTexts) {
            lThreads.emplace_back([&] {
                lStart.arrive_and_wait();
                lrpText = lName.getStringForm().get();
            });
        }
        lThreads.clear();
        EXPECT_EQ(std::vector(4, lpTexts[0]), std::vector(lpTexts, lpTexts + 4));
        expectTheName(lName, "printed");
    }
}
