// What LUNs say of themselves, and what is mounted, byte by byte.
#include "MountTable.h"
#include "StorageTree.h"
#include "VitalData.h"

namespace {

using Tree = ZTCStorageTestTree;

std::string wwidOf(const std::string& acrPage) {
    const std::vector<unsigned char> lExact(acrPage.begin(), acrPage.end());
    return readWwid(lExact);
}

TEST(VitalData, TheBestNameOfTheLunItselfIsTaken) {
    const std::string lEui = Tree::designator(1, 2, std::string("\x00\x25\x38\x5b\x71\xb0\x0a\x3c", 8));
    const std::string lShort = Tree::designator(1, 3, std::string("\x50\x06\x01\x60\x00\x00\x00\x01", 8));
    const std::string lOfThePort = Tree::designator(1, 0x13, std::string(16, '\x61'));
    const std::string lT10 = Tree::designator(2, 1, "VENDOR  \x1b LUN 7  ");
    const std::string lOdd = Tree::designator(1, 3, "abc");
    const std::pair<std::string, const char*> lCases[] = {
        {lT10 + lEui + lShort + Tree::naa(5) + lOfThePort, "naa.60060160000000000000000000000005"},
        {lOfThePort + lShort + lEui, "naa.5006016000000001"},
        {lOdd + lT10 + lEui, "eui.0025385b71b00a3c"},
        {lOfThePort + lT10 + lOdd, "t10.VENDOR  \\x1b LUN 7"},
        {lOfThePort, ""},
        {"", ""},
        // A designator that is longer than the page.
        {lEui + std::string("\x01\x03\x00\xff\x60", 5), "eui.0025385b71b00a3c"},
        {std::string("\x01\x03\x00\x10\x60", 5), ""}};
    for (const auto& [lrDesignators, lrpName] : lCases) {
        const std::string lPage = Tree::page(0x83, lrDesignators);
        EXPECT_EQ(wwidOf(lPage), lrpName);
        EXPECT_EQ(wwidOf(lPage + "and more"), lrpName);
        for (std::size_t lSize = 0; lSize < lPage.size(); ++lSize) {
            wwidOf(lPage.substr(0, lSize));  // under a sanitizer
        }
    }
    EXPECT_EQ(wwidOf(Tree::page(0x80, Tree::naa(5))), "");
    const std::string lSerial = Tree::page(0x80, std::string("  AB\xff\x31 \0", 8));
    EXPECT_EQ(readSerial(std::span(reinterpret_cast<const unsigned char*>(lSerial.data()), lSerial.size())),
              "AB\\xff1");
}

TEST(MountTable, ALineIsAMountOrNothing) {
    std::size_t lLeftOut = 0;
    const auto lMounts = readMountInfo(
        "1 0 8:1 / / rw - ext4 /dev/sda1 rw\n"
        "2 1 0:44 /sub /my\\040data\\011\\134x rw a:1 b:2 - btrfs /dev/mapper/b\\040c rw\n"
        "3 1 0:45 / /tmp rw - tmpfs tmpfs rw\n"
        "garbage\n\n4 1 8:x / /bad rw - xfs /dev/none rw\n"
        "5 1 8:2 / relative rw - xfs x\n6 1 8:2 / /nodash rw xfs x y z\n"
        "7 1 8:3 / /end rw -",
        3, lLeftOut);
    ASSERT_EQ(lMounts.size(), 3U);
    EXPECT_EQ(lMounts[0], (ZTSMounted{ZTDeviceNumber{8} << 32 | 1, "/dev/sda1", "/", "ext4"}));
    EXPECT_EQ(lMounts[1], (ZTSMounted{0, "/dev/mapper/b c", "/my data\\x09\\x", "btrfs"}));
    EXPECT_EQ(lMounts[2].mPoint, "/bad");
    EXPECT_EQ(lLeftOut, 1U);
    const auto lSwaps = readSwaps(
        "Filename Type\n/dev/dm-1 partition 1\n/my\\040data/s file 1\n/dev/x file 1\nzram\n"
        "/my\\040database file\n",
        {{0, "a", "/", ""}, {7, "b", "/my data", ""}});
    std::string lText;
    for (const ZTSMounted& lrSwap : lSwaps) {
        lText += lrSwap.mSource + std::to_string(lrSwap.mDevice) + lrSwap.mPoint + lrSwap.mType + " ";
    }
    EXPECT_EQ(lText, "/dev/dm-10[swap]swap b7[swap]swap a0[swap]swap a0[swap]swap ");
}

}  // namespace
