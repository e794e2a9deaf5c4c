// Who says how a path stands.
#include "StorageFixture.h"

namespace {

TEST_F(HostStorage, APathIsAsWhoKnowsBestSays) {
    EXPECT_EQ(pathsOf(4), "sdb+p sdc+p");
    mPorts.mRemote[1].mState = "Blocked";
    EXPECT_EQ(pathsOf(), "sdb+p sdc-p");
    mPorts.mLocal[0].mState = "Linkdown";
    EXPECT_EQ(pathsOf(), "sdb-p sdc-p");
    mPorts.mLocal[0].mState = mPorts.mRemote[1].mState = "Online";
    for (const char* const lpAccess : {"unavailable", "standby"}) {
        mTree.set(mTree.lunAt("3:0:0:1/access_state"), lpAccess);
        tell("/3:0:0:1", "change");
        EXPECT_EQ(pathsOf(), lpAccess[0] == 'u' ? "sdb-p sdc+p" : "sdb+p sdc+p");
    }
    mStorage.lookAnew();
    answer({{"sdb", "mpatha", true}, {"sdc", "mpatha", false}, {"sdz", "other", false}});
    EXPECT_EQ(pathsOf(), "sdb+m sdc-m");
    tellOfPath("PATH_FAILED", "8:16", "0");
    EXPECT_EQ(pathsOf(), "sdb-k sdc-m");
    // An answer is older than what device mapper told behind the question, and newer than what it told
    // before.
    mStorage.lookAnew();
    tellOfPath("PATH_FAILED", "8:32", "1");
    answer({{"sdb", "mpatha", true}, {"sdc", "mpatha", true}});
    EXPECT_EQ(pathsOf(20), "sdb+m sdc-k");
    // Nobody answers: what was told counts for a while, then what the ports say.
    mStorage.lookAnew();
    EXPECT_EQ(pathsOf(10), "sdb+m sdc-k");
    EXPECT_EQ(pathsOf(10), "sdb+p sdc+p");
    // How many are left says of the others what they are.
    mPorts.mLocal[0].mState = "Linkdown";
    tellOfPath("PATH_FAILED", "8:16", "1");
    EXPECT_EQ(pathsOf(), "sdb-k sdc+k");
    tellOfPath("PATH_FAILED", "8:32", "0");
    tellOfPath("PATH_REINSTATED", "8:16", "1");
    EXPECT_EQ(pathsOf(), "sdb+k sdc-k");
    mPorts.mLocal[0].mState = "Online";
    // Another disk with the number of one that had failed.
    tell("/devices/x/block/sdc", "remove", {{"MAJOR", "8"}, {"MINOR", "32"}});
    // The number that was told is of the table before.
    tell("/devices/virtual/block/dm-0", "change", {{"DM_COOKIE", "23068672"}});
    EXPECT_EQ(pathsOf(), "sdb+k sdc+p");
    tellOfPath("PATH_REINSTATED", "8:16", "2");
    EXPECT_EQ(pathsOf(), "sdb+k sdc+k");
    // A map without paths is one: they are missing.
    mTree.addMapped("dm-0", "mpatha", "mpath-36006", {});
    EXPECT_TRUE(contains(look(60), "mpatha dm-0 36006:\n"));
}

/// Two paths of a map, both usable as multipathd says.
class HostPaths : public HostStorage {
  protected:
    HostPaths() {
        look(4);
        mStorage.takePaths(mBoth, 0);
        EXPECT_EQ(pathsOf(), "sdb+m sdc+m");
    }
    void tellOfTable(const std::vector<std::string>& acrPaths) {
        mTree.remove("sys/block/dm-0/slaves");
        for (const std::string& lrPath : acrPaths) {
            std::filesystem::create_directories(mTree / "sys/block/dm-0/slaves/" + lrPath);
        }
        tell("/devices/virtual/block/dm-0", "change", {{"DM_COOKIE", "1"}});
    }
    void removeDisk() {
        mTree.removeLun("3:0:1:1", "sdc");
        tell("/devices/x/3:0:1:1/block/sdc", "remove", {{"MAJOR", "8"}, {"MINOR", "32"}});
        tell("/devices/x/3:0:1:1", "remove", {{"DEVTYPE", "scsi_device"}});
    }
    unsigned int countQuestions(unsigned int aSteps) {
        unsigned int lCount = 0;
        for (unsigned int lStep = 0; lStep < aSteps; ++lStep) {
            step(mStorage);
            lCount += mStorage.takeQuestion() ? 1 : 0;
        }
        return lCount;
    }

    const std::vector<ZTSMultipathdPath> mBoth{{"sdb", "mpatha", true}, {"sdc", "mpatha", true}};
};

TEST_F(HostPaths, OneThatWasGivenUpComesBack) {
    tellOfPath("PATH_FAILED", "8:32", "1");
    EXPECT_EQ(pathsOf(), "sdb+m sdc-k");
    removeDisk();
    EXPECT_EQ(pathsOf(), "sdb+m sdc-p");  // in the table still, though device mapper says no more of it
    EXPECT_EQ(mStorage.getStorage().mMaps[0].mTotal, 1U);
    tellOfTable({"sdb"});
    EXPECT_EQ(pathsOf(), "sdb+m");
    mTree.addLun("3:0:1:1", "sdc", "8:32", 1);
    tell("/devices/x/3:0:1:1", "add", {{"DEVTYPE", "scsi_device"}});
    tell("/devices/x/3:0:1:1/block/sdc", "add");
    tellOfTable({"sdb", "sdc"});
    EXPECT_EQ(pathsOf(2), "sdb+m sdc+p");
    answer(mBoth);
    EXPECT_EQ(pathsOf(), "sdb+m sdc+m");
    // Out of the table and in again, without a word of device mapper; what somebody else makes up is no
    // table.
    tellOfPath("PATH_FAILED", "8:32", "1");
    tell("/devices/virtual/block/dm-0", "change", {{"SYNTH_UUID", "0"}});
    countQuestions(60);
    answer(mBoth);
    EXPECT_EQ(pathsOf(), "sdb+m sdc-k");
    tellOfTable({"sdb"});
    EXPECT_EQ(pathsOf(), "sdb+m");
    tellOfTable({"sdb", "sdc"});
    EXPECT_EQ(pathsOf(), "sdb+m sdc-k");  // until multipathd says how it is
    answer(mBoth);
    EXPECT_EQ(pathsOf(), "sdb+m sdc+m");
    // Gone before any command to it has failed.
    removeDisk();
    EXPECT_EQ(pathsOf(), "sdb+m sdc-p");
    ZTCHostStorage lAnew(mTree.getPath());
    for (unsigned int lStep = 0; lStep < 4; ++lStep) {
        step(lAnew);
    }
    EXPECT_TRUE(contains(textOf(lAnew.getStorage()), "sdb+p sdc-p"));
}

TEST_F(HostPaths, MultipathdIsAskedAsLongAsTheKernelHasNotTold) {
    EXPECT_GE(countQuestions(30), 1U);  // it follows some seconds behind
    EXPECT_EQ(countQuestions(300), 5U);
    // The kernel's number is newer than any answer.
    tellOfPath("PATH_FAILED", "8:32", "0");
    EXPECT_EQ(pathsOf(), "sdb-k sdc-k");
    tellOfPath("PATH_REINSTATED", "8:16", "1");
    countQuestions(60);
    EXPECT_EQ(countQuestions(300), 0U);
    // Messages are lost while a question is under way: its answer ends no doubt.
    mStorage.doubtPaths();
    step(mStorage);
    const auto lQuestion = mStorage.takeQuestion();
    ASSERT_TRUE(lQuestion);
    mStorage.doubtPaths();
    mStorage.takePaths(mBoth, *lQuestion);
    EXPECT_EQ(pathsOf(), "sdb+k sdc-k");
    mStorage.takePaths(mBoth, *lQuestion + 1);
    EXPECT_EQ(pathsOf(20), "sdb+m sdc+m");
    // Nobody tells of changes, and nobody answers.
    mStorage.doubtPaths();
    EXPECT_EQ(pathsOf(20), "sdb+p sdc+p");
}

TEST_F(HostPaths, AMapThatIsBeingMadeHasNotLostItsPaths) {
    mTree.addMapped("dm-7", "mpathb", "mpath-36007", {});
    tell("/devices/virtual/block/dm-7", "add");
    EXPECT_FALSE(contains(look(2), "mpathb"));
    mTree.addMapped("dm-7", "mpathb", "mpath-36007", {"sdb"});
    EXPECT_TRUE(contains(look(1), "mpathb dm-7 36007: sdb+m\n"));
    mTree.addMapped("dm-8", "mpathc", "mpath-36008", {});
    tell("/devices/virtual/block/dm-8", "add");
    EXPECT_TRUE(contains(look(4), "mpathc dm-8 36008:\n"));
}

}  // namespace
