// What a fabric tells of its performance, and what only claims to be that.
#include "FcTest.h"
#include "Fpin.h"

namespace {

constexpr std::uint64_t sDetecting = 0x2001000000000001;
constexpr std::uint64_t sAttached = 0x50060160bb20110c;

// Numbers, each with its width in bytes, as they are sent.
std::string sent(std::initializer_list<std::pair<std::uint64_t, unsigned int>> aNumbers) {
    std::string lBytes;
    for (const auto& [lNumber, lWidth] : aNumbers) {
        for (unsigned int lByte = lWidth; lByte > 0; --lByte) {
            lBytes += static_cast<char>(lNumber >> 8 * (lByte - 1));
        }
    }
    return lBytes;
}

std::string descriptor(std::uint32_t aTag, const std::string& acrValue) {
    return sent({{aTag, 4}, {acrValue.size(), 4}}) + acrValue;
}

std::string els(const std::string& acrDescriptors) {
    return sent({{0x16000000, 4}, {acrDescriptors.size(), 4}}) + acrDescriptors;
}

const std::string sPorts = sent({{sDetecting, 8}, {sAttached, 8}});
const std::vector<std::string> sEach = {
    descriptor(0x20001, sPorts + sent({{2, 2}, {7, 2}, {1000, 4}, {5, 4}, {2, 4}, {1, 8}, {2, 8}})),
    descriptor(0x20002, sPorts + sent({{1, 4}, {0, 4}})),
    descriptor(0x20003, sPorts + sent({{3, 2}, {8, 2}, {1000, 4}, {1, 4}, {1, 8}})),
    descriptor(0x20004, sent({{1, 2}, {9, 2}, {1000, 4}, {0xf1000000, 4}})),
    descriptor(0x20007, "what"),
};
const std::vector<std::string> sRead = {"0 2 7 5 with ports, ", "1 1 0 0 with ports, ",
                                        "2 3 8 0 with ports, ", "3 1 9 0 alone, ", "4 131079 0 0 alone, "};

std::string read(const std::string& acrBytes) {
    const std::vector<unsigned char> lExact(acrBytes.begin(), acrBytes.end());
    std::string lText;
    const bool lIsWhole = readFpin(lExact, [&](const ZTSFcFpin& acrOne) {
        const bool lHasPorts = acrOne.mDetecting == sDetecting && acrOne.mAttached == sAttached;
        for (const std::uint32_t lNumber :
             {std::uint32_t{acrOne.mFigure}, acrOne.mNumber, acrOne.mModifier, acrOne.mCount}) {
            lText += std::to_string(lNumber) + " ";
        }
        lText += lHasPorts ? "with ports, " : "alone, ";
    });
    return lText + (lIsWhole ? "whole" : "bad");
}

TEST(FcFpin, EveryDescriptorCutAnywhere) {
    std::string lAll;
    std::vector<std::size_t> lEnds;
    for (const std::string& lrOne : sEach) {
        lEnds.push_back(8 + (lAll += lrOne).size());
    }
    const std::string lWhole = els(lAll);
    for (std::size_t lSize = 0; lSize <= lWhole.size(); ++lSize) {
        std::string lExpected;
        for (std::size_t lOne = 0; lOne < lEnds.size() && lEnds[lOne] <= lSize; ++lOne) {
            lExpected += sRead[lOne];
        }
        EXPECT_EQ(read(lWhole.substr(0, lSize)), lExpected + (lSize == lWhole.size() ? "whole" : "bad"))
            << lSize;
    }
    EXPECT_EQ(read(lWhole + "filler"), sRead[0] + sRead[1] + sRead[2] + sRead[3] + sRead[4] + "whole");
    EXPECT_EQ(read("\x17" + lWhole.substr(1)), "bad");
}

// The lengths of the ELS, of a descriptor, and of its list of ports.
TEST(FcFpin, LengthsThatLie) {
    const struct {
        std::size_t mDescriptor, mAt;
        std::uint32_t mValue;
        std::string mRead;
    } lLies[] = {
        {0, 4, 0xffffffff, sRead[0] + "bad"},
        {0, 4, 0, "whole"},
        {0, 4, 7, "bad"},
        {0, 12, 0xffffffff, "bad"},
        {0, 12, 49, "bad"},
        {0, 44, 3, sRead[0] + "bad"},
        {0, 44, 0xffffffff, sRead[0] + "bad"},
        {2, 40, 2, sRead[2] + "bad"},
        {3, 12, 0xfffffffc, "bad"},
        {1, 12, 19, "bad"},
    };
    for (const auto& lrLie : lLies) {
        std::string lBytes = els(sEach[lrLie.mDescriptor]);
        lBytes.replace(lrLie.mAt, 4, sent({{lrLie.mValue, 4}}));
        EXPECT_EQ(read(lBytes), lrLie.mRead) << lrLie.mDescriptor << " " << lrLie.mAt << " " << lrLie.mValue;
    }
    for (std::size_t lOne = 0; lOne < 4;
         ++lOne) {  // one that is too short for what it is leaves the next one
        const std::string lShort = sEach[lOne].substr(0, 4) + sent({{4, 4}}) + "none";
        EXPECT_EQ(read(els(lShort + sEach[4])), sRead[4] + "bad");
    }
}

// A storm of them is some lines, and rows.
TEST(FcFpin, CountedApartAndToldInWords) {
    const ZTCTestDirectory lDirectory;
    const std::string lLog = lDirectory / "log";
    ZTCFcStatistics lStatistics("", lDirectory / "other");
    ZTCFcFpins lFpins(lStatistics, lLog);
    const auto lTake = [&](const std::string& acrBytes) {
        lFpins.take(3, {reinterpret_cast<const unsigned char*>(acrBytes.data()), acrBytes.size()});
    };
    for (int lTimes = 0; lTimes < 99; ++lTimes) {
        lTake(els(sEach[0]));
    }
    lTake(els(sEach[3] + sEach[4]) + "filler");
    lTake(els(descriptor(0x20002, sPorts + sent({{9, 4}})) + "bad"));
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
    EXPECT_EQ(lStatistics.countFor(ZTFP_LinkIntegrity, 3, sAttached, 2), 100U);
    EXPECT_EQ(lStatistics.countFor(ZTFP_Congestion, 3, 0, 1), 2U);
}

}  // namespace
