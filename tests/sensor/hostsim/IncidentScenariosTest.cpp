// A scenario a class, each played by the simulated library and on a made-up host, all of them at once: vrx-sn
// finds in each one incident, and it is what an administrator would say.
#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <regex>

#include "MadeUpHostProgram.h"
#include "ScopeProgram.h"
#include "SensorProgram.h"

namespace {

using Json = nlohmann::json;
using Texts = std::vector<std::string>;

constexpr char sScenarios[] = ZT_SOURCE_DIR "/libdfc/sim/scenarios/incidents/";
constexpr char sControllerByFabric[] = ZT_SOURCE_DIR "/sensor/vrx-hostsim/sites/controller-by-fabric.site";

// Seconds for what takes minutes and days. Only where it is wanted are paths missing for longer than a site
// bears.
const Texts sRules = {"times settle=1 tell=2 quiet=4 close=6 join=5", "collector_silent patience=2"};
constexpr char sNoPatience[] = "redundancy_lost patience=3";

// What one would say of it.
struct Row {
    const char* mpClass;  // the scenario is called so
    const char* mpState;
    const char* mpCause;  // the first: its kind, and the name of the target, else of the host's port
    const char* mpTitle;  // a regular expression
};
const Row sRows[] = {
    {"link_flap", "closed", "link_down of server1-hba0",
     "The link of server1-hba0 went down 3 times .*/data .* had 6 of 8 paths for a time"},
    {"link_degraded", "closed", "fpin_link_integrity of array1-A0",
     "The link of array1-A0 had errors, as the fabric told 3 times, .*/data"},
    {"port_down", "quiet", "link_down of server1-hba1",
     "server1-hba1 has been down since .*/data .* have 6 of 8 paths left"},
    {"redundancy_lost", "quiet", "rscn of array1-B0",
     "/, /boot, /data and .* have had 4 of 8 paths since .* by a change in fabric right; none was left .* by a "
     "reboot of array1/A; I/O stood still for a time"},
    {"io_stall", "closed", "stall of ", "/data and /var/log of applications stood still"},
    {"slow_drain", "closed", "fpin_congestion of array2-A0",
     "The fabric told twice of congestion at array2-A0 .*/data"},
    {"overload", "closed", "queue_full of array1-A0", "array1-A0 and array1-A1 had .* 240 times .*/data"},
    {"target_errors", "closed", "not_ready of array1-A0",
     "array1/A rebooted .*/data .* had 4 of 8 paths for a time"},
    {"device_errors", "closed", "medium_error of array1-A0", "array1/A reported 7 medium errors .*/data"},
    {"login_rejected", "closed", "login_reject of array2-B0",
     "array2-B0 rejected 6 logins of server1-hba2 .*/data"},
    {"resets", "closed", "reset of array2-A0", "array2-A0 was reset 3 times .*/data"},
    {"fabric_change", "quiet", "rscn of array1-A0",
     "Fabric left changed .*: array1-A0 and array2-A0 left it: .*/data .* have 6 of 8 paths left"},
    {"collector_silent", "closed", "agent_gone of ",
     "No events were collected on this host .*: the agent was gone"},
};

// That an agent is killed is no scenario.
std::string sScenarioOf(std::string aClass) {
    std::ranges::replace(aClass, '_', '-');
    return (aClass == "collector-silent" ? "adapters count=4\nwait registrations"
                                         : readFile(sScenarios + aClass + ".scenario")) +
           "\nreport\n";
}

// One host with all that runs there.
class Play {
  public:
    explicit Play(const Row& acrRow) : mrRow(acrRow) {
        Texts lArguments{"--root", mHost.getRoot(), "--names", mHost / "etc/vrx-sca/names", "--every", "0.2"};
        for (const std::string& lrRule : sRules) {
            lArguments.insert(lArguments.end(), {"--incident", lrRule});
        }
        if (isForgottenZoning()) {
            lArguments.insert(lArguments.end(), {"--incident", sNoPatience, "--on-incident", getCommand()});
        }
        mSensor.emplace(mDirectory.getPath(), getStore(), lArguments);
    }

    /// Once vrx-sn has seen all paths: only what goes from then on is missing.
    void start() {
        EXPECT_TRUE(waitUntil([&] {
            return ask("SELECT count(*) > 1 AND count(*) = sum(usable = 8) FROM maps") == 1;
        })) << mSensor->getErr();
        startAgent();
    }
    void startAgent() {
        mAgent.emplace(mDirectory, Texts{"-d", "0"},
                       mSim.getEnvironment({"ZT_VRX_HOSTSIM=" + mHost.getSocket()}));
    }
    bool isToBeKilled() const { return mrRow.mpClass == std::string("collector_silent"); }
    void killAgent() {
        EXPECT_TRUE(waitUntil([&] { return hasPlayed(); })) << mAgent->getErr();
        mAgent->sendSignal(SIGKILL);
        mAgent->waitForEnd();
        EXPECT_TRUE(waitUntil([&] {
            return ask("SELECT count(*) FROM incidents WHERE state = 'open'") == 1;
        })) << mSensor->getErr();
        startAgent();
    }

    /// Whether all of it has been played, and the history has what is expected.
    bool isDone() const {
        return hasPlayed() &&
               ask(std::string("SELECT count(*) FROM incidents WHERE class = '") + mrRow.mpClass +
                   "' AND state = '" + mrRow.mpState + "' AND merged IS NULL") == 1;
    }
    void expectIncident() {
        const std::string lExpected = fmt::format("{}, {}, by {}: .*{}.*\n", mrRow.mpClass, mrRow.mpState,
                                                  mrRow.mpCause, mrRow.mpTitle);
        std::string lFound;
        EXPECT_TRUE(waitUntil(
            [&] {
                lFound = findIncidents();
                return std::regex_match(lFound, std::regex(lExpected));
            },
            5))
            << "expected " << lExpected << "found " << lFound << mSensor->getErr();
        if (isForgottenZoning()) {
            expectCommand();
        }
        EXPECT_EQ(mSensor->end(), 0) << mSensor->getErr();
    }

  private:
    bool isForgottenZoning() const { return mrRow.mpClass == std::string("redundancy_lost"); }
    bool hasPlayed() const { return contains(mAgent->getErr(), "events sent="); }  // its last line tells
    std::string getStore() const { return mDirectory / "history.db"; }
    std::string getCommand() const { return "/usr/bin/tee -a " + (mDirectory / "told"); }
    std::int64_t ask(const std::string& acrQuery) const { return askStore(getStore(), acrQuery); }

    // A line each that is part of no other.
    std::string findIncidents() const {
        const Json lIncidents =
            Json::parse(askScope(mDirectory.getPath(), commandOnStore(getStore(), {"incidents", "--json"})));
        std::string lFound;
        for (const Json& lrIncident : lIncidents["incidents"]) {
            lFound += lrIncident["merged"].is_null() ? textOf(lrIncident) + "\n" : "";
        }
        return lFound;
    }
    // "link_flap, closed, by link_down of server1-hba0: The link ..."
    static std::string textOf(const Json& acrIncident) {
        const Json& lrCause = acrIncident["first_cause"];
        std::string lPlace;
        for (const char* const lpPort : {"initiator", "target"}) {
            lPlace = lrCause[lpPort].is_null() ? lPlace : lrCause[lpPort]["name"].get<std::string>();
        }
        return fmt::format("{}, {}, by {} of {}: {}", acrIncident["class"].get<std::string>(),
                           acrIncident["state"].get<std::string>(), lrCause["kind"].get<std::string>(),
                           lPlace, acrIncident["title"].get<std::string>());
    }

    // It was told of the worst, as it was then.
    void expectCommand() const {
        const std::string lTold = readFile(mDirectory / "told");
        const Json lWorst = Json::parse(lTold.substr(lTold.rfind("{\"id\":")));
        EXPECT_EQ(textOf(lWorst).rfind("redundancy_lost, open, by rscn of array1-B0: All paths of /, ", 0),
                  0U)
            << lTold;
        EXPECT_EQ(lWorst["paths"]["left"], 0) << lTold;
    }

    const Row& mrRow;
    ZTCTestHost mHost{isForgottenZoning() ? readFile(sControllerByFabric) : ""};
    ZTCTestDirectory mDirectory;
    ZTCTestSim mSim{sScenarioOf(mrRow.mpClass)};
    std::optional<ZTCTestAgent> mAgent;
    std::optional<ZTCSnRun> mSensor;
};

TEST(IncidentScenarios, EachIsWhatAnAdministratorWouldSay) {
    std::vector<std::unique_ptr<Play>> lPlays;
    for (const Row& lrRow : sRows) {
        lPlays.push_back(std::make_unique<Play>(lrRow));
    }
    for (const auto& lrpPlay : lPlays) {
        lrpPlay->start();
    }
    for (const auto& lrpPlay : lPlays) {
        if (lrpPlay->isToBeKilled()) {
            lrpPlay->killAgent();
        }
    }
    EXPECT_TRUE(waitUntil(
        [&] { return std::ranges::all_of(lPlays, [](const auto& acrPlay) { return acrPlay->isDone(); }); },
        ZTIsSanitized ? 150 : 40));
    for (const auto& lrpPlay : lPlays) {
        lrpPlay->expectIncident();
    }
}

}  // namespace
