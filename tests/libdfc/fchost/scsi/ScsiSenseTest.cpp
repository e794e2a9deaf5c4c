// Sense data of both formats, and which CDBs are reads, at each length.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ScsiSense.h"

namespace {

// "key/asc/ascq" in decimal, or "-".
std::string read(const std::vector<unsigned char>& acrBytes) {
    const std::vector<unsigned char> lExact(acrBytes);  // a sanitizer sees its end
    ZTSScsiSense lSense{};
    if (ZTReadScsiSense(lExact.data(), static_cast<__u32>(lExact.size()), &lSense) == 0) {
        return "-";
    }
    return std::to_string(lSense.mKey) + "/" + std::to_string(lSense.mAsc) + "/" +
           std::to_string(lSense.mAscq);
}

TEST(ScsiSense, BothFormatsAndWhatIsCutShort) {
    const std::vector<unsigned char> lFixed{0xf1, 0, 0xf6, 0, 0, 0, 0, 10, 0, 0, 0, 0, 41, 3, 0, 0, 0, 0};
    for (std::size_t lSize = 0; lSize <= lFixed.size(); ++lSize) {
        EXPECT_EQ(read({lFixed.begin(), lFixed.begin() + static_cast<std::ptrdiff_t>(lSize)}),
                  lSize < 4    ? "-"
                  : lSize < 13 ? "6/0/0"
                  : lSize < 14 ? "6/41/0"
                               : "6/41/3");
    }
    for (const auto& [lBehind, lRead] :
         {std::pair<unsigned char, const char*>{4, "6/0/0"}, {5, "6/41/0"}, {6, "6/41/3"}, {255, "6/41/3"}}) {
        std::vector<unsigned char> lClaims(lFixed);
        lClaims[7] = lBehind;
        EXPECT_EQ(read(lClaims), lRead) << +lBehind;
    }
    for (const unsigned char lFormat : {0x72, 0x73, 0xf2}) {
        EXPECT_EQ(read({lFormat, 0x15, 36, 1}), "5/36/1");
        EXPECT_EQ(read({lFormat, 0x15, 36}), "-");
    }
    for (const unsigned char lFormat : {0, 0x6f, 0x74, 0x7f, 0xff}) {
        EXPECT_EQ(read({lFormat, 5, 36, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}), "-") << +lFormat;
    }
}

TEST(ScsiSense, WhichCdbIsARead) {
    for (unsigned int lCode = 0; lCode < 256; ++lCode) {
        std::vector<unsigned char> lCdb{static_cast<unsigned char>(lCode), 0, 0, 0, 0, 0, 0, 0, 0, 9};
        const bool lIsShort = lCode == 0x08;
        const bool lIsRead = lIsShort || lCode == 0x28 || lCode == 0x88 || lCode == 0xa8 || lCode == 0x7f;
        EXPECT_EQ(ZTIsScsiRead(lCdb.data(), 10) != 0, lIsRead) << lCode;
        EXPECT_EQ(ZTIsScsiRead(lCdb.data(), 6) != 0, lIsShort) << lCode;
        lCdb[9] = 0x0b;  // of 0x7f, WRITE
        EXPECT_EQ(ZTIsScsiRead(lCdb.data(), 10) != 0, lIsRead && lCode != 0x7f) << lCode;
    }
}

}  // namespace
