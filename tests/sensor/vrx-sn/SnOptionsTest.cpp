#include <sys/stat.h>

#include "ConfigFile.h"
#include "SnOptions.h"
#include "TestSupport.h"

namespace {

using Words = std::vector<std::string>;

// What is wrong, or nothing.
std::string refusalOf(const std::string& acrConfig, Words aWords = {"--dir", "/d"}) {
    try {
        parseSnOptions(aWords, acrConfig);
        return "";
    } catch (const ZTCServiceUsage& lrError) {
        return lrError.what();
    }
}

TEST(SnOptions, TheCommandLineComesBeforeTheEnvironmentAndThatBeforeTheConfiguration) {
    const std::string lConfig =
        "# a comment\ndir = /of/file\nevery=0.25\nfold = 3\nkeep-days=7\nkeep-bytes = 200M\n"
        "host = \"h1\"\nceiling=512\n";
    const ZTSSnOptions lOptions = parseSnOptions({"--fold", "4", "--dir=/of/line"}, lConfig);
    EXPECT_EQ(lOptions.mDirectory, "/of/line");
    EXPECT_EQ(lOptions.mEvery, std::chrono::milliseconds(250));
    EXPECT_EQ(lOptions.mFold, std::chrono::seconds(4));
    EXPECT_EQ(lOptions.mKeepDays, 7U);
    EXPECT_EQ(lOptions.mKeepBytes, std::uint64_t{200} << 20);
    EXPECT_EQ(lOptions.mHostName, "h1");
    EXPECT_EQ(lOptions.mCeiling, 512U);
    EXPECT_EQ(lOptions.mStore, "/var/lib/vrx-sn/history.db");

    EXPECT_EQ(runChild(std::function<void()>([&] {
                  setenv("ZT_VRX_SENSOR_DIR", "/of/environment", 1);
                  EXPECT_EQ(parseSnOptions({}, lConfig).mDirectory, "/of/environment");
                  unsetenv("ZT_VRX_SENSOR_DIR");
                  EXPECT_EQ(parseSnOptions({}, lConfig).mDirectory, "/of/file");
                  EXPECT_THROW(parseSnOptions({}, ""), ZTCServiceUsage);
              })).mStatus,
              0);
}

TEST(SnOptions, WhatCannotBeUsedIsOneLine) {
    const char* const lBad[] = {
        "every=0",
        "every=nan",
        "every=1e9",
        "every=x",
        "every=",
        "fold=-1",
        "keep-days=0",
        "keep-days=-1",
        "keep-days=1.5",
        "keep-bytes=0",
        "keep-bytes=8T",
        "keep-bytes=M",
        "keep-bytes=99999999999999999G",
        "keep-bytes=-1G",
        "ceiling=9999999",
        "host=a b",
        "host=",
        "on-incident=true",
        "on-incident=/etc/passwd",
        "unknown=1",
        "config=/x",
        "help=true",
        "every=1\nevery=2",
        "every=1\nfold=1\nevery=2",
        "[section]\nfold=1",
        "store=",
        "every=[1,2]",
        "\x01\x02\xff garbage",
        "version=1",
        "window=host",
        "window=",
        "window=\"host @2 @1\"",
        "window=\"host -2h @1\"",
        "window=\"host @1 @2\"\nwindow=\"host @1\"",
        "incident=",
        "incident=\"overload perhaps\"",
        "incident=\"no_class off\"",
        "incident=\"overload off\"\nincident=\"overload queue_full=x\"",
    };
    for (const char* const lpConfig : lBad) {
        const std::string lText = refusalOf(lpConfig);
        EXPECT_NE(lText, "") << lpConfig;
        EXPECT_EQ(lText.find('\n'), std::string::npos) << lText;
    }
    for (const char* const lpConfig :
         {"", "\n\n# nothing\n; nothing\n", "on-incident=\"/bin/sh -c true\"", "fold=0", "keep-bytes=1G"}) {
        EXPECT_EQ(refusalOf(lpConfig), "") << lpConfig;
    }
    EXPECT_NE(refusalOf("", {"--dir", "/d", "word"}), "");
    EXPECT_NE(refusalOf("", {"--dir"}), "");
    EXPECT_THROW(parseSnOptions({"--help"}, ""), ZTCServiceShown);
    EXPECT_THROW(parseSnOptions({"--version"}, ""), ZTCServiceShown);
}

TEST(SnOptions, ThereMayBeManyWindows) {
    const std::string lConfig =
        "window=\"host @1 @2 first\"\nfold=3\nwindow = '\"an array/A\" @3 \"2026-11-21 08:00 UTC\"'\n";
    const ZTSSnOptions lOptions = parseSnOptions({"--dir", "/d"}, lConfig);
    ASSERT_EQ(lOptions.mWindows.size(), 2U);
    EXPECT_EQ(lOptions.mWindows[0], (ZTSWindow{"host", ZTSecond, 2 * ZTSecond, "first"}));
    EXPECT_EQ(lOptions.mWindows[1].mWhat, "an array/A");
    const Words lWords{"--dir", "/d", "--window", "a @5 @6", "--window", "b @5 @6"};
    ASSERT_EQ(parseSnOptions(lWords, lConfig).mWindows.size(), 2U);
    EXPECT_EQ(parseSnOptions(lWords, lConfig).mWindows[0].mWhat, "a");
}

TEST(SnOptions, ThereMayBeManyRulesOfIncidents) {
    const std::string lConfig = "incident=\"overload off\"\nfold=3\nincident = times close=300\n";
    const ZTSSnOptions lOptions = parseSnOptions({"--dir", "/d"}, lConfig);
    EXPECT_FALSE(lOptions.mRules[ZTEIncidentClass::Overload].mIsOn);
    EXPECT_EQ(lOptions.mRules.mTimes.mClose, 300U);
    EXPECT_TRUE(getDefaultRules()[ZTEIncidentClass::Overload].mIsOn);
    const ZTSSnOptions lLine =
        parseSnOptions({"--dir", "/d", "--incident", "resets off", "--incident", "io_stall off"}, lConfig);
    EXPECT_TRUE(lLine.mRules[ZTEIncidentClass::Overload].mIsOn);
    EXPECT_FALSE(lLine.mRules[ZTEIncidentClass::Resets].mIsOn);
    EXPECT_FALSE(lLine.mRules[ZTEIncidentClass::IoStall].mIsOn);
}

TEST(SnOptions, AZeroByteEndsNoLine) {
    EXPECT_TRUE(contains(refusalOf(std::string("\0=1 2\n", 7)), "a byte of it is zero"));
}

TEST(SnOptions, AConfigurationThatIsNoneIsNotWaitedFor) {
    const ZTCTestDirectory lDirectory;
    ASSERT_EQ(mkfifo((lDirectory / "pipe").c_str(), 0600), 0);
    writeFile(lDirectory / "large", std::string((1 << 20) + 1, '#'));
    writeFile(lDirectory / "good", "dir=/d\nstore=/s\n");
    for (const std::string& lrName : {lDirectory / "pipe", lDirectory / "large", lDirectory / "absent",
                                      lDirectory.getPath(), std::string("/dev/zero")}) {
        EXPECT_THROW(readSnOptions({"--config", lrName}), ZTCServiceUsage) << lrName;
    }
    const ZTSSnOptions lGood = readSnOptions({"--config", lDirectory / "good"});
    EXPECT_EQ(lGood.mStore, "/s");
    EXPECT_EQ(lGood.mConfig, lDirectory / "good");
}

TEST(SnOptions, WhatOnlyANewStartChangesIsNamedAndStays) {
    const ZTSSnOptions lBefore = parseSnOptions({"--dir", "/d", "--host", "h"}, "");
    ZTSSnOptions lNow = parseSnOptions({"--dir", "/e", "--host", "h", "--fold", "3"}, "store=/other\n");
    EXPECT_EQ(listFixedChanges(lBefore, lNow), "--dir, --store");
    keepFixed(lBefore, lNow);
    EXPECT_EQ(listFixedChanges(lBefore, lNow), "");
    EXPECT_EQ(lNow.mFold, std::chrono::seconds(3));
}

}  // namespace
