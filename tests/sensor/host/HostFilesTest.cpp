// Facts of the host, whatever its files hold.
#include "FcTree.h"
#include "HostFiles.h"

namespace {

class HostFiles : public testing::Test {
  protected:
    HostFiles() {
        std::filesystem::create_directories(mRoot / "proc/sys/kernel/random");
        std::filesystem::create_directories(mRoot / "etc/multipath/conf.d");
    }
    std::string hash() const { return hashMultipathConfig(mRoot.getPath()); }
    void write(const std::string& acrBelow, const std::string& acrText) const {
        std::filesystem::remove_all(mRoot / acrBelow);
        writeFile(mRoot / acrBelow, acrText);
    }

    const ZTCTestDirectory mRoot;
};

TEST_F(HostFiles, TheKernelAndTheBoot) {
    write("proc/sys/kernel/osrelease", "6.1.0-28-amd64\n");
    write("proc/sys/kernel/random/boot_id", "11111111-2222\n");
    write("proc/stat", "cpu  1 2 3\nintr " + std::string(1 << 20, '0') + "\nbtime 1800000000\nprocesses 7\n");
    const auto lRead = [&] {
        ZTSHostFacts lFacts;
        readKernelFacts(mRoot.getPath(), lFacts);
        return lFacts;
    };
    EXPECT_EQ(lRead(), (ZTSHostFacts{"6.1.0-28-amd64", "11111111-2222", 1'800'000'000 * ZTSecond, ""}));
    for (const char* const lpStat :
         {"", "\nbtime x\n", "\nbtime 99999999999999999999\n", "\nbtime -5\n", "\nbtime "}) {
        write("proc/stat", lpStat);
        EXPECT_EQ(lRead().mBooted, 0) << lpStat;
    }
    for (const auto& lrWay : fcBadWays()) {
        for (const char* const lpName :
             {"proc/stat", "proc/sys/kernel/osrelease", "proc/sys/kernel/random/boot_id"}) {
            std::filesystem::remove_all(mRoot / lpName);
            lrWay(mRoot / lpName);
        }
        EXPECT_EQ(lRead().mBooted, 0);
        EXPECT_EQ(lRead().mKernel.size() + lRead().mBoot.size(), lRead().mKernel == "Unknown" ? 14U : 0U);
    }
}

TEST_F(HostFiles, TheConfigurationOfMultipathHasAHash) {
    EXPECT_EQ(hash(), "none");
    const std::string lMain = "etc/multipath.conf", lMore = "etc/multipath/conf.d/";
    const std::pair<std::string, const char*> lWrites[] = {{lMain, ""},
                                                           {lMain, "defaults {}"},
                                                           {lMore + "b.conf", ""},
                                                           {lMore + "b.conf", "x"},
                                                           {lMore + "a.conf", ""},
                                                           {lMore + "a.conf", "x"}};
    std::set<std::string> lSeen;
    for (const auto& [lrBelow, lpText] : lWrites) {
        write(lrBelow, lpText);
        EXPECT_TRUE(lSeen.insert(hash()).second) << lrBelow << lpText;
        EXPECT_EQ(hash().size(), 16U);
    }
    write(lMore + "a.conf.old", "no part of it");
    EXPECT_FALSE(lSeen.insert(hash()).second);
    std::filesystem::rename(mRoot / (lMore + "a.conf"), mRoot / (lMore + "c.conf"));
    EXPECT_TRUE(lSeen.insert(hash()).second);
    // What cannot be read now says nothing: a folder, a pipe, what never ends or is too long, what leads
    // nowhere.
    for (const std::string& lrName : {lMain, lMore + "c.conf"}) {
        for (const std::size_t lWay : {1, 2, 4}) {
            std::filesystem::remove_all(mRoot / lrName);
            fcBadWays()[lWay](mRoot / lrName);
            EXPECT_EQ(hash(), "") << lrName << lWay;
        }
        write(lrName, std::string((1 << 20) + 1, '#'));
        EXPECT_EQ(hash(), "");
        std::filesystem::remove(mRoot / lrName);
    }
    std::filesystem::create_symlink("/nowhere", mRoot / (lMore + "d.conf"));
    EXPECT_EQ(hash(), "");
}

TEST(HostFacts, OnlyWhatIsKnownChanges) {
    const ZTSHostFacts lOld{"6.1", "one", 10 * ZTSecond, "none"};
    const ZTSHostFacts lNew{"6.12", "two", 20 * ZTSecond, "00ff"};
    const auto lTextOf = [](const ZTSHostFacts& acrBefore, const ZTSHostFacts& acrAfter) {
        std::string lText;
        for (const ZTSChange& lrChange : listFactChanges(acrBefore, acrAfter, 30 * ZTSecond)) {
            lText += std::to_string(lrChange.mTime / ZTSecond) + " " + lrChange.mWhat + lrChange.mName + " " +
                     lrChange.mEvent + " " + lrChange.mAttribute + ": " + lrChange.mBefore + " > " +
                     lrChange.mAfter + "\n";
        }
        return lText;
    };
    EXPECT_EQ(lTextOf(lOld, lOld) + lTextOf({}, lNew) + lTextOf(lOld, {}), "");
    EXPECT_EQ(lTextOf(lOld, lNew),
              "20 host booted :  > 6.12\n30 host changed kernel: 6.1 > 6.12\n"
              "30 host changed multipath_config: none > 00ff\n");
    EXPECT_EQ(lTextOf(lOld, {"6.1", "two", 0, ""}), "30 host booted :  > 6.1\n");  // when is not known
    EXPECT_EQ(lTextOf(lOld, {"6.1", "one", 99 * ZTSecond, ""}), "");               // the clock was set
}

}  // namespace
