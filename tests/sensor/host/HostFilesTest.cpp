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
    std::set<std::string> lSeen{"none", ""};
    const auto lIsNew = [&] { return lSeen.insert(hash()).second; };
    const std::pair<const char*, const char*> lWrites[] = {
        {"etc/multipath.conf", ""},          {"etc/multipath.conf", "defaults {}"},
        {"etc/multipath/conf.d/b.conf", ""}, {"etc/multipath/conf.d/b.conf", "x"},
        {"etc/multipath/conf.d/a.conf", ""}, {"etc/multipath/conf.d/a.conf", "x"}};
    for (const auto& [lpBelow, lpText] : lWrites) {
        write(lpBelow, lpText);
        EXPECT_TRUE(lIsNew()) << lpBelow << lpText;
        EXPECT_EQ(hash().size(), 16U);
    }
    write("etc/multipath/conf.d/a.conf.old", "no part of it");
    write("etc/multipath/conf.d/c.conf", "x");
    EXPECT_TRUE(lIsNew());
    const std::string lBefore = hash();
    std::filesystem::rename(mRoot / "etc/multipath/conf.d/a.conf", mRoot / "kept");
    EXPECT_TRUE(lIsNew());
    std::filesystem::rename(mRoot / "kept", mRoot / "etc/multipath/conf.d/a.conf");
    EXPECT_EQ(hash(), lBefore);
    // What cannot be read now says nothing: a folder, a pipe, what never ends, what leads nowhere.
    for (const char* const lpName : {"etc/multipath.conf", "etc/multipath/conf.d/c.conf"}) {
        for (const std::size_t lWay : {1, 2, 4}) {
            std::filesystem::remove_all(mRoot / lpName);
            fcBadWays()[lWay](mRoot / lpName);
            EXPECT_EQ(hash(), "") << lpName << lWay;
        }
        write(lpName, std::string((1 << 20) + 1, '#'));
        EXPECT_EQ(hash(), "");
        std::filesystem::remove(mRoot / lpName);
    }
    std::filesystem::create_symlink("/nowhere", mRoot / "etc/multipath/conf.d/d.conf");
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
