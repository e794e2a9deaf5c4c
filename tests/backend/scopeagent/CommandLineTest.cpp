#include <sys/resource.h>

#include "AgentClient.h"

namespace {

std::string helpWith(const std::string& acrLogCode, const std::string& acrConfFile,
                     const std::string& acrTimeout) {
    return "vrx-sca -[hvsDldc] VALUE\n"
           "  -h             : Shows this help\n"
           "  -v             : Prints version\n"
           "  -s             : Shut down running ScopeAgent\n"
           "  -D true|false  : Run as daemon (default: true)\n"
           "  -d {number}    : Debug level - OR of numbers from 0-7 (default: " +
           acrLogCode +
           ")\n"
           "  -c {filename}  : Specify config file (default: " +
           acrConfFile +
           ")\n"
           "  -S             : Run ScopeAgent in Sniffer Mode\n"
           "  -b {number}    : Heartbeat Timeout (default: " +
           acrTimeout + ")\n";
}

constexpr char sConfFile[] = "/etc/vrx-sca.conf";

class CommandLineTest : public ::testing::Test {
  protected:
    ZTSTestEnd run(ZTCTestChild::Arguments aArguments) const {
        aArguments.insert(aArguments.begin(), ZT_VRX_SCA);
        return runChild(aArguments, ZTCTestChild::Arguments{"ZT_VRX_SENSOR_DIR=" + mDirectory.getPath()});
    }

    const ZTCTestDirectory mDirectory;
};

}  // namespace

TEST_F(CommandLineTest, AnswersHelpVersionAndBadOptionsAndLeavesNothingBehind) {
    const std::string lNumbers = "is not a number from 0 to 255";
    const std::string lSeconds = "is not a number of seconds from 1 to 86400";
    // What goes to standard output, and to standard error behind the program's name.
    const std::tuple<ZTCTestChild::Arguments, std::string, std::string> lRows[] = {
        {{"-h"}, helpWith("63", sConfFile, "240"), ""},
        {{"-d", "5", "-h"}, helpWith("5", sConfFile, "240"), ""},
        {{"-d0", "-b", "86400", "-c", "/a/b", "-h"}, helpWith("0", "/a/b", "86400"), ""},
        {{"-d", "5", "-d", "255", "-h"}, helpWith("255", sConfFile, "240"), ""},
        {{"-Sh", "-x"}, helpWith("63", sConfFile, "240"), ""},
        {{"-v"}, "vrx-sca v2.3.0.5", ""},
        {{"-x"}, "", "unknown option -x (-h lists the options)"},
        {{"-d"}, "", "option -d needs a value: a number from 0 to 255"},
        {{"-D"}, "", "option -D needs a value: true or false"},
        {{"-l"}, "", "option -l needs a value: a file name"},
        {{"-d", "256"}, "", "option -d: '256' " + lNumbers},
        {{"-d", "0x10"}, "", "option -d: '0x10' " + lNumbers},
        {{"-d", ""}, "", "option -d: '' " + lNumbers},
        {{"-d", "4294967301"}, "", "option -d: '4294967301' " + lNumbers},
        {{"-b", "0"}, "", "option -b: '0' " + lSeconds},
        {{"-b", "86401"}, "", "option -b: '86401' " + lSeconds},
        {{"-b", "5s"}, "", "option -b: '5s' " + lSeconds},
        {{"-D", "TRUE"}, "", "option -D: 'TRUE' is not true or false"},
        {{"-l", ""}, "", "option -l: '' is not a file name"},
        {{"-l", "/" + std::string(5000, 'a')},
         "",
         "option -l: '/" + std::string(199, 'a') + "' is not a file name"},
        {{"start"}, "", "unexpected argument 'start' (-h lists the options)"},
        {{"--", "-h"}, "", "unexpected argument '-h' (-h lists the options)"},
    };
    for (const auto& [lrArguments, lrOut, lrErr] : lRows) {
        const ZTSTestEnd lEnd = run(lrArguments);
        SCOPED_TRACE(::testing::PrintToString(lrArguments));
        EXPECT_EQ(lEnd.mStatus, lrErr.empty() ? 0 : 1);
        EXPECT_EQ(lEnd.mOut, lrOut);
        EXPECT_EQ(lEnd.mErr, lrErr.empty() ? "" : "vrx-sca: " + lrErr + "\n");
        EXPECT_TRUE(mDirectory.isEmpty());
    }
}

TEST_F(CommandLineTest, SaysWhyItDoesNotStartWhateverTheLogCodeIs) {
    for (const char* const lpDaemon : {"true", "false"}) {
        const ZTSTestEnd lEnd = run({"-D", lpDaemon, "-d", "0", "-l", mDirectory / "not-there/vrx-sca.log"});
        EXPECT_TRUE(contains(lEnd.mErr, "vrx-sca: cannot open the log file " + mDirectory.getPath() +
                                            "/not-there/vrx-sca.log: No such file or directory\n"))
            << lEnd.mErr;
    }
}

TEST_F(CommandLineTest, SaysWhyItDoesNotStartAlsoWithoutADescriptorOrWithABadLimitOfTheLog) {
    constexpr unsigned int lTries = ZTIsSanitized ? 0 : 3;  // a sanitizer wants descriptors of its own
    for (unsigned int lMost = 4; lMost < 4 + lTries; ++lMost) {
        const ZTSTestEnd lEnd = runChild([&] {
            for (const std::string& lrEntry : ZTCTestAgent::environmentOf(mDirectory)) {
                putenv(strdup(lrEntry.c_str()));
            }
            closefrom(3);
            const rlimit lLimit{lMost, lMost};
            setrlimit(RLIMIT_NOFILE, &lLimit);
            execl(ZT_VRX_SCA, ZT_VRX_SCA, "-D", "false", nullptr);
        });
        EXPECT_EQ(lEnd.mStatus, 0);
        EXPECT_TRUE(contains(lEnd.mErr, ": Too many open files\n")) << lEnd.mErr;
    }
    for (const char* const lpLimit : {"-1", "64M", "1048577", " "}) {
        const ZTSTestEnd lEnd =
            runChild(ZTCTestAgent::commandOf({"-D", "false"}, {}),
                     ZTCTestAgent::environmentOf(mDirectory, {std::string("ZT_LOG_LIMIT=") + lpLimit}));
        EXPECT_EQ(lEnd.mStatus, 1);
        EXPECT_EQ(lEnd.mErr, std::string("vrx-sca: ZT_LOG_LIMIT: '") + lpLimit +
                                 "' is not a number of MiB from 0 to 1048576\n");
    }
}

TEST_F(CommandLineTest, EndsWithoutTheRuntimeDirectorysVariable) {
    for (const char* const lpOption : {"-h", "-Dfalse"}) {
        const ZTSTestEnd lEnd = runChild(ZTCTestChild::Arguments{ZT_VRX_SCA, lpOption},
                                         ZTCTestChild::Arguments{"ZT_VRX_SENSOR_DIR"});
        EXPECT_EQ(lEnd.mStatus, 1);
        EXPECT_EQ(lEnd.mOut, "");
        EXPECT_TRUE(contains(lEnd.mErr, " preInit: Assertion [ pVrxSensorDir!=NULL ] failed\n")) << lEnd.mErr;
    }
}

TEST_F(CommandLineTest, RefusesAConfigurationFileAndLogsWhereItIsTold) {
    const ZTSTestEnd lEnd =
        run({"-D", "false", "-c", "any", "-l", mDirectory / "elsewhere.log", "-d", "255"});
    EXPECT_EQ(lEnd.mStatus, 0);
    EXPECT_TRUE(contains(lEnd.mErr, ": Not Implemented\n")) << lEnd.mErr;
    const std::string lLog = readFile(mDirectory / "elsewhere.log");
    EXPECT_TRUE(contains(lLog, " main: Failed with error - Not Implemented, exiting abruptly\n")) << lLog;
    // The options come behind these records, and their mask is for them as well.
    EXPECT_LT(lLog.find(" -T- ScopeAgentMain"), lLog.find("Starting the ScopeAgent\n"));
    EXPECT_GT(lLog.find(" main: Left\n"), lLog.find(" main: Failed with error"));
    EXPECT_FALSE(std::filesystem::exists(mDirectory / "vrx-sca.log"));
    EXPECT_FALSE(std::filesystem::exists(mDirectory / "vrx-sca.pid"));
}
