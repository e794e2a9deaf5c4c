// What vrx-scope says of an agent, of vrx-sn and of the host's ports.
#include <nlohmann/json.hpp>

#include "Json.h"
#include "ScopeProgram.h"
#include "StatisticsBytes.h"
#include "StatusText.h"

namespace {

using Json = nlohmann::ordered_json;
using namespace std::chrono_literals;

TEST(Status, SaysWhetherACollectionRuns) {
    ZTSScopeStand lStand;
    for (const char* const lpCommand : {"start", "stop"}) {
        askScope(lStand.mrDirectory, {lpCommand});
        const bool lRuns = std::string("start") == lpCommand;
        EXPECT_TRUE(waitUntil([&] {
            return Json::parse(askScope(lStand.mrDirectory, {"status", "--json"}))["collecting"] == lRuns;
        }));
        EXPECT_TRUE(
            contains(askScope(lStand.mrDirectory, {"status"}),
                     std::string("\ncollecting ") + (lRuns ? "yes" : "no") + "\ndata       0 events, 0 of "))
            << lpCommand;
    }
}

// A process of that name that shows figures; one that has gone, or is another by now, is none.
TEST(Status, SaysWhetherTheSensorIsThereAndHowFreshItIs) {
    const ZTCTestDirectory lDirectory;
    writeFile(lDirectory / ZTTestPidFile, "1\n");
    const auto lSee = [&] {
        return Json::parse(runScope(lDirectory.getPath(), {"status", "--json"}).mOut)["vrx_sn"];
    };
    const auto lNow = static_cast<unsigned long>(time(nullptr)) * 1'000'000'000;
    const auto lShow = [&](pid_t aProcess) {
        writeFile(lDirectory / "vrx-sn.stats",
                  ZTTestStatisticsOf({{"last_fetch_time_ns", lNow},
                                      {"last_commit_time_ns", lNow - 60'000'000'000},
                                      {"store_stands_since_ns", 0},
                                      {"agent_up", 1}},
                                     static_cast<unsigned long>(aProcess)));
    };
    lShow(getpid());
    EXPECT_EQ(lSee()["running"], false);
    std::string lName = lDirectory / "vrx-sn";
    std::filesystem::copy_file("/bin/sleep", lName);
    ZTCTestChild lSensor({lName, "1000"}, ZTCTestChild::Arguments{});
    EXPECT_TRUE(waitUntil([&] {
        return contains(readFile("/proc/" + std::to_string(lSensor.getProcess()) + "/comm"), "vrx-sn");
    }));
    lShow(lSensor.getProcess());
    EXPECT_EQ(lSee()["pid"], lSensor.getProcess());
    EXPECT_EQ(lSee()["agent_up"], true);
    EXPECT_EQ(lSee()["stands_since"], nullptr);
    const std::string lText = runScope(lDirectory.getPath(), {"status"}).mOut;
    EXPECT_TRUE(contains(
        lText, "\nvrx-sn     running, process " + std::to_string(lSensor.getProcess()) + ", last fetch "))
        << lText;
    EXPECT_TRUE(contains(lText, ", history written 6")) << lText;
    writeFile(lDirectory / "vrx-sn.stats", "VRXSTAT1");
    EXPECT_TRUE(lSee().is_null());
    lShow(lSensor.getProcess());
    kill(lSensor.getProcess(), SIGKILL);
    lSensor.waitForEnd();
    EXPECT_EQ(lSee()["running"], false);
}

TEST(Status, ShowsThePortsAndWhatIsWrongWithThem) {
    ZTSScopeStatus lStatus;
    lStatus.mDirectory = "/run/vrx-sca";
    const auto lEnd = [&] {
        const std::string lText = statusText(lStatus, true);
        return lText.substr(lText.find("vrx-sn "));
    };
    EXPECT_EQ(lEnd(), "vrx-sn     unknown\nports      unknown\n");
    EXPECT_EQ(Json::parse(statusJson(lStatus))["ports_from"], nullptr);
    const ZTSWwn lName = *ZTSWwn::fromText("10000025b5010000");
    lStatus.mCollector = ZTSCollectorStatus{12, {}, {}, std::chrono::system_clock::now() - 1h, false};
    lStatus.mPorts =
        ZTSPortsStatus{"sysfs",
                       {{{lName, lName}, "host3", "Online", "16 Gbit", "NPort", 0x010203, "A\x1b"},
                        {{lName, lName}, "", "", "", "", {}, ""}},
                       ZTSPortsStatus::Time(1'700'000'000s)};
    EXPECT_TRUE(
        lEnd().starts_with("vrx-sn     running, process 12, no agent answers it, cannot write for 3600 s\n"
                           "ports      10:00:00:25:b5:01:00:00, host3, Online, 16 Gbit, fabric A\\x1b\n"
                           "           10:00:00:25:b5:01:00:00, known from the agent alone\n"
                           "           as vrx-sn last saw them, 2023-11-14 22:13:20.000 UTC, "))
        << lEnd();
    const Json lJson = Json::parse(statusJson(lStatus));
    EXPECT_EQ(lJson["ports"][0]["port_id"], "010203");
    EXPECT_EQ(lJson["ports"][1]["state"], nullptr);
    EXPECT_EQ(lJson["ports_from"], "sysfs");
}

}  // namespace
