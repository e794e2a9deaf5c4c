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
const std::vector<ZTSFcFpin> sRead = {{ZTFP_LinkIntegrity, 2, 7, 5, sDetecting, sAttached},
                                      {ZTFP_Delivery, 1, 0, 0, sDetecting, sAttached},
                                      {ZTFP_PeerCongestion, 3, 8, 0, sDetecting, sAttached},
                                      {ZTFP_Congestion, 1, 9},
                                      {ZTFP_Other, 0x20007}};

// Whether it is whole, and has these descriptors.
void expect(const std::string& acrBytes, bool aIsWhole, const std::vector<ZTSFcFpin>& acrRead) {
    const std::vector<unsigned char> lExact(acrBytes.begin(), acrBytes.end());
    std::vector<ZTSFcFpin> lRead;
    EXPECT_EQ(readFpin(lExact, [&](const ZTSFcFpin& acrOne) { lRead.push_back(acrOne); }), aIsWhole);
    EXPECT_EQ(lRead, acrRead);
}

TEST(FcFpin, EveryDescriptorCutAnywhere) {
    std::string lWhole = els(sEach[0] + sEach[1] + sEach[2] + sEach[3] + sEach[4]);
    std::vector<ZTSFcFpin> lRead;
    for (std::size_t lSize = 0, lNext = 8 + sEach[0].size(); lSize <= lWhole.size(); ++lSize) {
        SCOPED_TRACE(lSize);
        if (lSize == lNext) {
            lRead.push_back(sRead[lRead.size()]);
            lNext += lRead.size() < sEach.size() ? sEach[lRead.size()].size() : 0;
        }
        expect(lWhole.substr(0, lSize), lSize == lWhole.size(), lRead);
    }
    expect(lWhole + "filler", true, sRead);
    expect("\x17" + lWhole.substr(1), false, {});
}

// The lengths of the ELS, of a descriptor, and of its list of ports.
TEST(FcFpin, LengthsThatLie) {
    const struct {
        std::size_t mDescriptor, mAt;
        std::uint32_t mValue;
        bool mIsRead;
    } lLies[] = {{0, 4, ~0U, true},  {0, 4, 7, false}, {0, 12, ~0U, false},
                 {0, 12, 49, false}, {0, 44, 3, true}, {0, 44, ~0U, true},
                 {1, 12, 19, false}, {2, 40, 2, true}, {3, 12, ~3U, false}};
    for (const auto& [lDescriptor, lAt, lValue, lIsRead] : lLies) {
        SCOPED_TRACE(std::to_string(lDescriptor) + " " + std::to_string(lAt) + " " + std::to_string(lValue));
        std::string lBytes = els(sEach[lDescriptor]);
        expect(lBytes.replace(lAt, 4, sent({{lValue, 4}})), false,
               lIsRead ? std::vector{sRead[lDescriptor]} : std::vector<ZTSFcFpin>());
    }
    for (std::size_t lOne = 0; lOne < 4;
         ++lOne) {  // one that is too short for what it is leaves the next one
        expect(els(sEach[lOne].substr(0, 4) + sent({{4, 4}}) + "none" + sEach[4]), false, {sRead[4]});
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
