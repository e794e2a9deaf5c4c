// The agent with vendor libraries that it can use, and with all that it cannot.
#include <dlfcn.h>
#include <gnu/libc-version.h>

#include "AgentClient.h"

namespace {

constexpr char sNoLibdfc[] = "No Libdfc Found or Disabled.. ScopeAgent would exit\n";
constexpr const char* sFunctions[] = {"init",          "number_of_adapters", "ztapi_supported",
                                      "adapter_info",  "ztapi_reg_event",    "ztapi_unreg_event",
                                      "dfc_reg_event", "dfc_unreg_event",    "close"};

struct Refusal {
    std::string mLibrary, mWords, mReason;  // ZT_LIBDFC, ZT_BAD
};

// A provider that could be used, made so that it may not be.
std::string makeLibrary(const ZTCTestDirectory& acrDirectory, const std::string& acrName,
                        unsigned int aMode) {
    const std::filesystem::path lPath(acrDirectory / acrName);
    create_directories(lPath.parent_path());
    std::filesystem::copy_file(ZT_PROVIDER_BAD, lPath);
    permissions(lPath, static_cast<std::filesystem::perms>(aMode));
    return lPath;
}

TEST(Libdfc, EndsWithOneReasonWhenItCannotBeUsed) {
    const ZTCTestDirectory lCode;
    writeFile(lCode / "text.so", std::string(1000, '\n'));
    const std::string lWritable = makeLibrary(lCode, "writable.so", 0646);
    std::filesystem::create_symlink(lWritable, lCode / "link.so");
    const std::string lOpen = makeLibrary(lCode, "open/libdfc.so", 0644);
    const std::string lBelow = makeLibrary(lCode, "open/below/libdfc.so", 0644);
    std::filesystem::permissions(lCode / "open", std::filesystem::perms::all);
    Dl_info lSystem{};
    dladdr(reinterpret_cast<const void*>(&gnu_get_libc_version), &lSystem);
    std::vector<Refusal> lRefusals{
        {lCode / "missing.so", "", "No such file or directory"},
        {"none", "", "there is to be none"},
        {"libdfc.so", "", "absolute path"},
        {lCode / "text.so", "", "invalid ELF header"},
        {lCode.getPath(), "", "not a regular file"},
        {lSystem.dli_fname, "", "no function zt_libdfc_provider"},
        {ZT_PROVIDER_BAD, "no-version", "does not speak version 1 of the interface"},
        {ZT_PROVIDER_BAD, "other-abi", "does not speak version 1 of the interface"},
        {ZT_PROVIDER_BAD, "smaller", "its table has 72 bytes instead of 80"},
        {ZT_PROVIDER_BAD, "init-fails", "its init failed with status 7"},
        {lWritable, "", "others may write it"},
        {lCode / "link.so", "", "others may write it"},
        {makeLibrary(lCode, "group.so", 0664), "", "others may write it"},
        {lOpen, "", "others may write in it"},
        {lBelow, "", "others may write in it"},
        {"", "", "others may write in it"}};
    for (std::size_t lAt = 0; lAt < std::size(sFunctions); ++lAt) {
        lRefusals.push_back({ZT_PROVIDER_BAD, "null=" + std::to_string(lAt),
                             "its function " + std::string(sFunctions[lAt]) + " is null"});
    }
    if (geteuid() == 0) {
        for (const std::string lPath : {"foreign.so", "foreign/libdfc.so"}) {
            lRefusals.push_back({makeLibrary(lCode, lPath, 0644), "", "it belongs to another user"});
            EXPECT_EQ(chown((lCode / lPath.substr(0, lPath.find('/'))).c_str(), 12345, 0), 0);
        }
    }
    for (const auto& [lrLibrary, lrWords, lrReason] : lRefusals) {
        SCOPED_TRACE(lrLibrary + " " + lrWords);
        const ZTCTestDirectory lDirectory;
        ZTCTestAgent lAgent(
            lDirectory, {},
            {"ZT_LIBDFC=" + lrLibrary, "ZT_BAD=close-told " + lrWords, "LD_LIBRARY_PATH=" + lCode / "open"});
        lAgent.expectEnd(sNoLibdfc);
        const std::string lName = lrLibrary.empty() ? "libdfc.so" : lrLibrary;
        for (const std::string& lrText : {lAgent.getErr(), lAgent.getLog()}) {
            const std::size_t lAt = lrText.find(" -E- ");
            const std::string lRecord =
                lrText.substr(std::min(lAt, lrText.size()), lrText.find('\n', lAt) - lAt);
            EXPECT_TRUE(contains(lRecord, "The vendor library " + lName + " is not used: ")) << lrText;
            EXPECT_TRUE(contains(lRecord, lrReason)) << lrText;
            EXPECT_EQ(countIn(lrText, " -E- "), 2U) << lrText;
            EXPECT_LT(lAt, lrText.find(" -E- SystemMain"));
            EXPECT_FALSE(contains(lrText, "closed\n"));
        }
        const std::string lLog = lAgent.getLog();
        EXPECT_LT(lLog.find(" -E- "), lLog.find(sNoLibdfc));
        EXPECT_LT(lLog.find(sNoLibdfc), lLog.find(" -E- SystemMain"));
    }
}

TEST(Libdfc, IsClosedWhenThereIsNothingToDo) {
    constexpr const char* lRows[][2] = {
        {"no-adapters", "No VRX Adapters found.. ScopeAgent would exit\n"},
        {"old-driver", "Old incompatible driver found.. ScopeAgent would exit\n"},
        {"no-adapters old-driver", "No VRX Adapters found.. ScopeAgent would exit\n"}};
    for (const auto& [lpWords, lpNotice] : lRows) {
        SCOPED_TRACE(lpWords);
        const ZTCTestDirectory lDirectory;
        ZTCTestAgent lAgent(lDirectory, {"-d", "255"},
                            {"ZT_LIBDFC=" ZT_PROVIDER_BAD, std::string("ZT_BAD=close-slow ") + lpWords});
        lAgent.expectEnd(lpNotice);
        const std::string lLog = lAgent.getLog();
        EXPECT_EQ(countIn(lAgent.getErr(), "closed\n"), 1U) << lAgent.getErr();
        EXPECT_LT(lLog.find("LIBDFC_Close: Left"), lLog.find(lpNotice));
        EXPECT_EQ(countIn(lLog, "-N- ScopeAgentSystem"), 1U) << lLog;
    }
}

TEST(Libdfc, IsFoundByTheLoaderAndTellsItsAdapters) {
    const ZTCTestDirectory lCode;
    makeLibrary(lCode, "libdfc.so", 0644);
    const ZTCTestDirectory lDirectory;
    ZTCTestAgent lAgent(
        lDirectory, {},
        {"ZT_LIBDFC=", "LD_LIBRARY_PATH=" + lCode.getPath(), "ZT_BAD=larger nameless exit-told"});
    EXPECT_EQ(ZTCTestSensor(lDirectory).ask(stopOf(1)), successOf(1));
    lAgent.stop();
    EXPECT_FALSE(contains(lAgent.getErr(), "destroyed"));  // its threads may still run
    std::size_t lAt = 0;
    for (const char* const lpRecord : {" initiator <20:00:00:25:b5:00:00:00, 10:00:00:25:b5:00:00:00>\n",
                                       " -W- LibdfcAbs", "does not tell the names of board 1: status 5\n",
                                       " initiator <00:00:00:00:00:00:00:00, 00:00:00:00:00:00:00:00>\n",
                                       " initiator <20:00:00:25:b5:00:00:02, 10:00:00:25:b5:00:00:02>\n"}) {
        lAt = lAgent.getLog().find(lpRecord, lAt);
        ASSERT_NE(lAt, std::string::npos) << lpRecord << " is not where it should be in\n" << lAgent.getLog();
    }
    EXPECT_EQ(countIn(lAgent.getLog(), "Discovered VRX initiator"), 3U);
}

}  // namespace
