// Which queue depths have changed.
#include "../FcTest.h"
#include "ScsiDepths.h"

namespace {

struct ZTSFcTestDepths {
    std::string look() {
        std::vector<ZTSScsiDepthChange> lChanges;
        mDepths.look(lChanges);
        std::string lText;
        for (const ZTSScsiDepthChange& lrChange : lChanges) {
            lText += std::to_string(lrChange.mHost) + ":" + std::to_string(lrChange.mChannel) + ":" +
                     std::to_string(lrChange.mTarget) + ":" + std::to_string(lrChange.mLun) + " " +
                     std::to_string(lrChange.mOld) + " " + std::to_string(lrChange.mNow) + ";";
        }
        return lText;
    }
    void add(const std::string& acrLun, const std::string& acrDepth) const {
        mTree.add("scsi_device/" + acrLun, {{"device/queue_depth", acrDepth}});
    }
    std::string set(const std::string& acrLun, const std::string& acrDepth) {
        mTree.set("scsi_device/" + acrLun + "/device/queue_depth", acrDepth + "\n");
        return look();
    }

    explicit ZTSFcTestDepths(ZTCScsiDepths::Clock::duration aListing = std::chrono::hours(1))
        : mDepths(mTree.getPath(), 256, aListing) {}

    ZTCFcTestTree mTree;
    ZTCScsiDepths mDepths;
};

TEST(ScsiDepths, TellsWhatHasChanged) {
    ZTSFcTestDepths lStand;
    lStand.mTree.addHost(3);
    constexpr const char* sLast = "3:0:1:18446744073709551615";
    for (const char* const lpLun : {"3:0:1:2", sLast, "4:0:1:2", "3:0:1:18446744073709551616", "3:0:1",
                                    "3:0:1:x", "3:0:1:2:3", "target3:0:1"}) {
        lStand.add(lpLun, "32");
    }
    EXPECT_EQ(lStand.look(), "");
    const std::tuple<const char*, const char*, const char*> lSteps[] = {
        {"3:0:1:2", "16", "3:0:1:2 32 16;"},
        {"3:0:1:2", "16", ""},
        {"4:0:1:2", "16", ""},  // no Fibre Channel
        {"3:0:1:2", "x", ""},
        {"3:0:1:2", "4294967296", ""},
        {"3:0:1:2", "-1", ""},
        {"3:0:1:2", "", ""},
        {"3:0:1:2", "17", "3:0:1:2 16 17;"},
        {sLast, "4294967295", "3:0:1:18446744073709551615 32 4294967295;"}};
    for (const auto& [lpLun, lpDepth, lpChanges] : lSteps) {
        EXPECT_EQ(lStand.set(lpLun, lpDepth), lpChanges) << lpLun << " " << lpDepth;
    }
    lStand.add("3:0:1:3", "1");
    EXPECT_EQ(lStand.look() + lStand.set("3:0:1:3", "2"), "");  // nobody has told of it
    lStand.mDepths.noteChange();
    EXPECT_EQ(lStand.look(), "");
    EXPECT_EQ(lStand.set("3:0:1:3", "3"), "3:0:1:3 2 3;");
    lStand.mTree.add("scsi_device/3:0:1:3", {{"device/queue_depth", "9"}});
    lStand.mDepths.noteChange();
    EXPECT_EQ(lStand.look(), "");
    EXPECT_EQ(lStand.set("3:0:1:3", "8"), "3:0:1:3 9 8;");
    lStand.mTree.set("scsi_device/3:0:1:2/device/queue_depth", "5\n");
    lStand.mTree.remove("fc_host/host3");
    lStand.mDepths.noteChange();
    EXPECT_EQ(lStand.look(), "");
}

TEST(ScsiDepths, InTurns) {
    ZTSFcTestDepths lStand(std::chrono::seconds(0));
    constexpr unsigned int sLuns = 1100;
    lStand.mTree.addHost(3);
    for (unsigned int lLun = 0; lLun < sLuns; ++lLun) {
        lStand.add("3:0:" + std::to_string(lLun % 3) + ":" + std::to_string(lLun), "32");
    }
    EXPECT_EQ(lStand.look() + lStand.look(), "");
    for (unsigned int lLun = 0; lLun < sLuns; ++lLun) {
        lStand.mTree.set("scsi_device/3:0:" + std::to_string(lLun % 3) + ":" + std::to_string(lLun) +
                             "/device/queue_depth",
                         "31\n");
    }
    EXPECT_EQ(countIn(lStand.look(), " 32 31;"), 1024U);
    EXPECT_EQ(countIn(lStand.look(), " 32 31;"), sLuns - 1024);
    EXPECT_EQ(lStand.look(), "");
}

}  // namespace
