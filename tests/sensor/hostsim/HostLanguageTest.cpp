// What may be told to a made-up host, and what it may consist of.
#include "MadeUpHostProgram.h"
#include "Scenario.h"
#include "SimClient.h"

namespace {

TEST(HostLanguage, EveryExampleCanBePlayed) {
    const ZTCTestHost lHost;
    for (const ZTSHostVerb& lrVerb : getHostVerbs()) {
        const std::string lAnswer = lHost.ask(lrVerb.mpExample);
        EXPECT_FALSE(lAnswer.starts_with("error: ")) << lrVerb.mpExample << ": " << lAnswer;
        EXPECT_EQ(std::string(lrVerb.mpExample).substr(0, strlen(lrVerb.mpName)), lrVerb.mpName);
    }
    EXPECT_EQ(lHost.read("sys/class/fc_host/host1/firmware_version"), "4.3.0");
    EXPECT_EQ(lHost.read("sys/class/fc_host/host1/speed"), "8 Gbit");
    EXPECT_TRUE(contains(readFile(lHost / "proc/1/mountinfo"), " /srv/my\\040files "));
    EXPECT_TRUE(contains(readFile(lHost / "etc/multipath.conf"), "\n# somebody was here\n"));
    EXPECT_TRUE(contains(readFile(lHost / "proc/version"), "6.1.0-31-amd64"));
    const ZTSTestEnd lHelp =
        runChild(std::vector<std::string>{ZT_VRX_HOSTSIM, "language"}, std::vector<std::string>{});
    EXPECT_EQ(countIn(lHelp.mOut, "example: "), getHostVerbs().size());
}

TEST(HostLanguage, AMistakeIsOneLineThatSaysWhatIsExpected) {
    const ZTCTestHost lHost;
    for (const char* const lpLine : {"fly",
                                     "path-fail",
                                     "path-fail sdzz",
                                     "path-fail array3",
                                     "link-down host9",
                                     "link-down host1 after=5",
                                     "link-down host1 after=-1s",
                                     "link-up host1 host2",
                                     "counter host1 none +1",
                                     "counter host1 lip_count x",
                                     "fpin host1",
                                     "fpin host1 links",
                                     "fpin host1 congestion event=none",
                                     "fpin host1 congestion port=sdb",
                                     "fpin host1 delivery port=nobody",
                                     "fpin host1 0x20007 bytes=0",
                                     "fpin host1 0x20007 bytes=xy",
                                     "mount /x nothing",
                                     "umount /nowhere",
                                     "volume x",
                                     "volume-gone vg1-data",
                                     "path-gone vda",
                                     "mount \"/x vda1",
                                     "multipathd perhaps",
                                     "lun-back nothing"}) {
        const std::string lAnswer = lHost.ask(lpLine);
        EXPECT_TRUE(lAnswer.starts_with("error: ") && contains(lAnswer, ", expected "))
            << lpLine << ": " << lAnswer;
        EXPECT_EQ(std::ranges::count(lAnswer, '\n'), 1) << lAnswer;
    }
    // What did not play has left nothing behind.
    EXPECT_TRUE(contains(lHost.ask("report"), "mpathb: 8 of 8 paths\n"));
}

TEST(HostLanguage, ASiteSaysWhereItsMistakeIs) {
    const std::string lGood = "fabric f 10:00:00:00:00:00:00:01\n";
    for (const char* const lpLine :
         {"planet x", "fabric x", "fabric x 12", "port x1 fabric=f", "port host1 fabric=g",
          "port host1 fabric=f wwnn=1000000000000001", "target t array=a", "lun a 1",
          "lun a 1 wwid=12 serial=s", "lun a 5-1 wwid=600601603b20110c0000000000000000 serial=s", "volume v",
          "mount /x y", "kernel"}) {
        try {
            readHostSite(lGood + lpLine, "here");
            ADD_FAILURE() << lpLine << " is taken";
        } catch (const ZTCHostSimError& lrError) {
            EXPECT_TRUE(std::string(lrError.what()).starts_with("here:2: ")) << lrError.what();
            EXPECT_TRUE(contains(lrError.what(), ", expected ")) << lrError.what();
        }
    }
}

TEST(HostLanguage, WhatIsSomebodyElsesStays) {
    const ZTCTestDirectory lRoot;
    std::filesystem::create_directories(lRoot / "etc");
    writeFile(lRoot / "etc/passwd", "x");
    const auto lRun = [](const std::vector<std::string>& acrMore) {
        std::vector<std::string> lCommand{ZT_VRX_HOSTSIM};
        lCommand.insert(lCommand.end(), acrMore.begin(), acrMore.end());
        return runChild(lCommand, std::vector<std::string>{"ZT_VRX_HOSTSIM"});
    };
    for (const auto& [lrArguments, lStatus] :
         {std::pair(std::vector<std::string>{"--root", lRoot.getPath()}, 1),
          std::pair(std::vector<std::string>{"--root", "/"}, 1),
          std::pair(std::vector<std::string>{"--root", lRoot / "new", "--site", lRoot / "none"}, 1),
          std::pair(std::vector<std::string>{"send", "-s", lRoot / "none", "report"}, 1),
          std::pair(std::vector<std::string>{"send", "report"}, 2),
          std::pair(std::vector<std::string>{}, 2)}) {
        const ZTSTestEnd lEnd = lRun(lrArguments);
        EXPECT_EQ(lEnd.mStatus, lStatus) << lEnd.mErr;
        EXPECT_EQ(std::ranges::count(lEnd.mErr, '\n'), 1) << lEnd.mErr;
    }
    EXPECT_EQ(readFile(lRoot / "etc/passwd"), "x");
}

// A scenario's lines for a host reach it, and can be played: those that are shipped too.
TEST(HostLanguage, ScenariosPlayOnTheHostToo) {
    const ZTCTestHost lHost;
    const std::vector<std::string> lEnvironment{"ZT_VRX_HOSTSIM=" + lHost.getSocket()};
    ZTSTestStand lStand({}, "", "/tmp", lEnvironment);
    lStand.mSim.play("host path-fail sdb # and what is said of it\nhost mount \"/a b\" vda1 xfs");
    EXPECT_TRUE(waitUntil([&] { return contains(readFile(lHost / "proc/1/mountinfo"), "/a\\040b "); }));
    EXPECT_TRUE(contains(lHost.ask("report"), "mpathb: 7 of 8 paths"));
    lStand.mSim.play("host path-back sdb");
    for (const std::string& lrFile : shippedScenarios()) {
        for (const ZTSSimStatement& lrStatement : readScenarioFile(lrFile)) {
            if (!lrStatement.mText.empty()) {
                lHost.play(lrStatement.mText);
            }
        }
    }
}

}  // namespace
