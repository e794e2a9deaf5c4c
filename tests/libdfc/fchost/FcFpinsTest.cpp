// Fabrics that tell of their performance again and again.
#include "FcFpins.h"
#include "FcTest.h"

namespace {

// A storm of them is some lines, and rows.
TEST(FcFpins, CountedApartAndToldInWords) {
    const ZTCTestDirectory lDirectory;
    const std::string lLog = lDirectory / "log";
    ZTCFcStatistics lStatistics("", lDirectory / "other");
    ZTCFcFpins lFpins(lStatistics, lLog);
    const auto lTake = [&](const std::string& acrBytes) {
        lFpins.take(3, {reinterpret_cast<const unsigned char*>(acrBytes.data()), acrBytes.size()});
    };
    for (int lTimes = 0; lTimes < 99; ++lTimes) {
        lTake(fcEls(FcEach[0]));
    }
    lTake(fcEls(FcEach[3] + FcEach[4]) + "filler");
    lTake(fcEls(fcDescriptor(0x20002, FcBoth + fcSent({{9, 4}})) + "bad"));
    const std::string lOf = "libdfc-fchost: FPIN of host3: ";
    const std::string lAt = ", found by port 2001000000000001, at port 50060160bb20110c, modifier ";
    const std::string lLink = lOf + "link integrity, loss of synchronization" + lAt + "7, count 5, ";
    EXPECT_EQ(readFile(lLog),
              lLink + "1 so far\n" + lLink + "10 so far\n" + lOf +
                  "congestion, lost credit, modifier 9, count 0, 1 so far\n" + lOf +
                  "a descriptor with tag 0x20007, 1 so far\n" + lOf + "delivery, number 9" + lAt +
                  "0, count 0, 1 so far\n" +
                  "libdfc-fchost: FPINs that are not what their lengths say: 1 so far, the last of host3\n");
    EXPECT_EQ(lStatistics.get(ZTFF_Fpins), 102U);
    EXPECT_EQ(lStatistics.countFor(ZTFK_LinkIntegrity, 3, FcAttached, 2), 100U);
    EXPECT_EQ(lStatistics.countFor(ZTFK_Congestion, 3, 0, 1), 2U);
}

}  // namespace
