// vrx-sn, run as a site runs it: an agent with the simulated library, the sensor, and its store.
#pragma once

#include <optional>

#include "AgentStatistics.h"
#include "SensorError.h"
#include "SimClient.h"
#include "StoreFile.h"

/// A run of vrx-sn.
class ZTCSnRun : public ZTCTestChild {
  public:
    ZTCSnRun(const std::string& acrDirectory, const std::string& acrStore, const Arguments& acrArguments = {},
             const Arguments& acrEnvironment = {})
        : ZTCTestChild(commandOf(acrStore, acrArguments), environmentOf(acrDirectory, acrEnvironment)) {}

    void sendSignal(int aSignal) const { kill(getProcess(), aSignal); }
    /// An end in order: its status.
    int end(unsigned int aSeconds = 120) {
        sendSignal(SIGTERM);
        return waitForEnd(aSeconds);
    }

    static Arguments commandOf(const std::string& acrStore, const Arguments& acrMore) {
        Arguments lCommand{ZT_VRX_SN, "--store", acrStore};
        lCommand.insert(lCommand.end(), acrMore.begin(), acrMore.end());
        return lCommand;
    }
    static Arguments environmentOf(const std::string& acrDirectory, const Arguments& acrMore) {
        Arguments lEnvironment{"ZT_VRX_SENSOR_DIR=" + acrDirectory, "NOTIFY_SOCKET", "RUNTIME_DIRECTORY",
                               "JOURNAL_STREAM"};
        lEnvironment.insert(lEnvironment.end(), acrMore.begin(), acrMore.end());
        return lEnvironment;
    }
};

/// The one number that a query gives; 0 as long as there is no store.
inline std::int64_t askStore(const std::string& acrStore, const std::string& acrQuery) {
    try {
        SQLite::Database lStore = openStoreToRead(acrStore);
        lStore.setBusyTimeout(10000);
        return lStore.execAndGet(acrQuery).getInt64();
    } catch (const std::exception&) {
        return 0;
    }
}

/// All three. Each of them can be ended, killed and started again; the store stays.
class ZTCSnStand {
  public:
    using Words = std::vector<std::string>;

    /// What a run of vrx-sn is given unless told otherwise.
    explicit ZTCSnStand(Words aArguments = {}, Words aEnvironment = {}, const std::string& acrParent = "/tmp",
                        const Words& acrAgentEnvironment = {})
        : mDirectory(acrParent),
          mAgentEnvironment(mSim.getEnvironment(acrAgentEnvironment)),
          mArguments(std::move(aArguments)),
          mEnvironment(std::move(aEnvironment)) {
        startAgent();
        startSensor();
    }

    void startAgent() { mAgent.emplace(mDirectory, Words{"-d", "0"}, mAgentEnvironment); }
    ZTCSnRun& startSensor() {
        return mSensor.emplace(mDirectory.getPath(), getStore(), mArguments, mEnvironment);
    }
    void killAgent() { end(mAgent, SIGKILL); }
    void killSensor() { end(mSensor, SIGKILL); }
    int endAgent() { return end(mAgent, SIGTERM); }
    int endSensor() {
        // Once it has told of something it takes signals.
        EXPECT_TRUE(waitUntil([&] { return !mSensor->getErr().empty(); }));
        return end(mSensor, SIGTERM);
    }

    ZTCTestAgent& getAgent() { return *mAgent; }
    const ZTCSnRun& getSensor() const { return *mSensor; }
    const ZTCTestSim& getSim() const { return mSim; }
    const ZTCTestDirectory& getDirectory() const { return mDirectory; }
    std::string getStore() const { return mStore / "history.db"; }

    /// Has the lines played once the collection is under way, and waits until they have been.
    void play(const std::string& acrLines) const {
        EXPECT_TRUE(waitUntil([&] { return getFigure("collecting") == 1; }));
        mSim.play(acrLines);
    }
    /// Four kinds alternate over two adapters, in the background: so many events in all.
    void storm(std::uint64_t aEvents, unsigned int aRate = 100000) const {
        std::string lLines;
        for (const char* const lpKind : {"queue-full lun=3", "port-busy", "check-condition lun=5", "plogi"}) {
            lLines += std::string("storm ") + lpKind + " boards=2 rate=" + std::to_string(aRate / 4) +
                      " times=" + std::to_string(aEvents / 4) + "\n";
        }
        play(lLines);
    }
    /// What the library has delivered to the agent that runs.
    std::uint64_t getDelivered() const {
        const std::string lReport = mSim.ask("report");
        const std::size_t lAt = lReport.find("delivered=");
        EXPECT_NE(lAt, std::string::npos) << lReport;
        return lAt == std::string::npos ? 0 : std::strtoull(lReport.c_str() + lAt + 10, nullptr, 10);
    }
    /// Of the agent; nothing while none runs.
    std::optional<std::uint64_t> getFigure(const char* apName) const {
        try {
            return ZTCAgentStatistics(mDirectory.getPath()).read().get(apName);
        } catch (const ZTCSensorError&) {
            return std::nullopt;
        }
    }

    std::int64_t ask(const std::string& acrQuery) const { return askStore(getStore(), acrQuery); }
    std::int64_t getStored() const { return ask("SELECT coalesce(sum(occurrences), 0) FROM records"); }
    std::int64_t getLost() const { return ask("SELECT coalesce(sum(events), 0) FROM losses"); }
    /// Losses that say no number.
    std::int64_t getUnknown() const { return ask("SELECT count(*) FROM losses WHERE events IS NULL"); }
    /// What they are at most.
    std::int64_t getAtMost() const { return ask("SELECT coalesce(sum(at_most), 0) FROM losses"); }
    /// Whether so many events are in the store, in records and in losses.
    bool waitForEvents(std::uint64_t aEvents) const {
        return waitUntil([&] { return getStored() + getLost() >= static_cast<std::int64_t>(aEvents); });
    }
    /// Whether all sums beside the records are theirs, and no span ends before it begins.
    void expectSumsAreWhole() const {
        const std::int64_t lStored = getStored();
        for (const char* const lpTable : {"minutes", "hours"}) {
            for (const char* const lpAxis : {"1", "2", "3", "4"}) {
                EXPECT_EQ(ask(std::string("SELECT coalesce(sum(events), 0) FROM ") + lpTable +
                              " WHERE axis = " + lpAxis),
                          lStored)
                    << lpTable << " " << lpAxis;
            }
        }
        EXPECT_EQ(ask("SELECT coalesce(sum(events), 0) FROM series"), lStored);
        EXPECT_EQ(ask("SELECT coalesce(sum(events), 0) FROM loss_totals"), getLost());
        for (const char* const lpTable : {"records", "losses", "series"}) {
            EXPECT_EQ(ask(std::string("SELECT count(*) FROM ") + lpTable + " WHERE last < first"), 0)
                << lpTable;
        }
    }

  private:
    template <class Process>
    static int end(std::optional<Process>& arProcess, int aSignal) {
        arProcess->sendSignal(aSignal);
        const int lStatus = arProcess->waitForEnd();
        EXPECT_EQ(lStatus, aSignal == SIGKILL ? 128 + SIGKILL : 0) << arProcess->getErr();
        arProcess.reset();
        return lStatus;
    }

    ZTCTestDirectory mDirectory;  // the agent's
    ZTCTestDirectory mStore;
    ZTCTestSim mSim{"adapters count=2\n"};
    const Words mAgentEnvironment;
    const Words mArguments;
    const Words mEnvironment;
    std::optional<ZTCTestAgent> mAgent;
    std::optional<ZTCSnRun> mSensor;
};
