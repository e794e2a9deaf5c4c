// What a fabric tells of its performance, and what only claims to be that.
#include <gtest/gtest.h>

#include <sstream>

#include "FpinDescriptor.h"
#include "KernelBytes.h"

namespace {

// All that a descriptor says: the tag, the two ports, then numbers and texts in the order of the structure.
std::string textOf(const ZTSFpinDescriptor& acrOne) {
    const auto lOr = [](const char* apText) { return apText != nullptr ? apText : "-"; };
    std::ostringstream lText;
    lText << std::hex << acrOne.mTag << " " << acrOne.mDetecting << " " << acrOne.mAttached << std::dec << " "
          << lOr(getFpinText(acrOne.mKind)) << ", " << lOr(acrOne.getEventText()) << " " << acrOne.mModifier
          << " " << acrOne.mThreshold << " " << acrOne.mCount << " " << acrOne.mPeriod << " "
          << lOr(acrOne.getSeverityText());
    for (std::size_t lAt = 0; lAt < acrOne.countPorts(); ++lAt) {
        lText << " " << acrOne.getPort(lAt);
    }
    return lText.str();
}

const std::string sBoth = "2001000000000001 50060160bb20110c ";
const std::vector<std::string> sRead = {
    "20001 " + sBoth + "link integrity, loss of synchronization 7 1000 5 0 - 1 2",
    "20002 " + sBoth + "delivery, timeout 0 0 0 0 -",
    "20003 " + sBoth + "peer congestion, oversubscription 8 0 0 2000 - 1",
    "20004 0 0 congestion, lost credit 9 0 0 3000 warning",
    "20007 0 0 -, - 0 0 0 0 -",
};

// Whether it is whole, and has these descriptors.
void expect(const std::string& acrBytes, bool aIsWhole, const std::vector<std::string>& acrRead) {
    const std::vector<unsigned char> lExact(acrBytes.begin(), acrBytes.end());
    std::vector<std::string> lRead;
    EXPECT_EQ(readFpin(lExact, [&](const auto& acrOne) { lRead.push_back(textOf(acrOne)); }), aIsWhole);
    EXPECT_EQ(lRead, acrRead);
}

TEST(Fpin, EveryDescriptorCutAnywhere) {
    std::string lWhole = fcEls(FcEach[0] + FcEach[1] + FcEach[2] + FcEach[3] + FcEach[4]);
    std::vector<std::string> lRead;
    for (std::size_t lSize = 0, lNext = 8 + FcEach[0].size(); lSize <= lWhole.size(); ++lSize) {
        SCOPED_TRACE(lSize);
        if (lSize == lNext) {
            lRead.push_back(sRead[lRead.size()]);
            lNext += lRead.size() < FcEach.size() ? FcEach[lRead.size()].size() : 0;
        }
        expect(lWhole.substr(0, lSize), lSize == lWhole.size(), lRead);
    }
    expect(lWhole + "filler", true, sRead);
    expect("\x17" + lWhole.substr(1), false, {});
}

// The lengths of the ELS, of a descriptor, and of its list of ports.
TEST(Fpin, LengthsThatLie) {
    const struct {
        std::size_t mDescriptor, mAt;
        std::uint32_t mValue;
        bool mIsRead;
    } lLies[] = {{0, 4, ~0U, true},  {0, 4, 7, false}, {0, 12, ~0U, false},
                 {0, 12, 49, false}, {0, 44, 3, true}, {0, 44, ~0U, true},
                 {1, 12, 19, false}, {2, 40, 2, true}, {3, 12, ~3U, false}};
    for (const auto& [lDescriptor, lAt, lValue, lIsRead] : lLies) {
        SCOPED_TRACE(std::to_string(lDescriptor) + " " + std::to_string(lAt) + " " + std::to_string(lValue));
        std::string lBytes = fcEls(FcEach[lDescriptor]);
        expect(lBytes.replace(lAt, 4, fcSent({{lValue, 4}})), false,
               lIsRead ? std::vector{sRead[lDescriptor]} : std::vector<std::string>());
    }
    for (std::size_t lOne = 0; lOne < 4;
         ++lOne) {  // one that is too short for what it is leaves the next one
        expect(fcEls(FcEach[lOne].substr(0, 4) + fcSent({{4, 4}}) + "none" + FcEach[4]), false, {sRead[4]});
    }
}

}  // namespace
