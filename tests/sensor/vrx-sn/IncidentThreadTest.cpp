// Incidents are found, told and kept, whatever becomes of the store and of vrx-sn.
#include "IncidentFeed.h"
#include "IncidentReplay.h"
#include "IncidentThread.h"
#include "SensorBooks.h"
#include "ServiceLog.h"
#include "SnBuffer.h"
#include "SnFigures.h"
#include "StoreBatches.h"
#include "StoreReader.h"
#include "StoreThread.h"
#include "StoredHost.h"
#include "TestDisk.h"
#include "TestManager.h"

namespace {

using namespace std::chrono_literals;

constexpr auto sPortsDown =
    static_cast<ZTESnFigure>(ZTSN_FirstIncidents + static_cast<int>(ZTEIncidentClass::PortDown));

ZTNanoseconds secondsAgo(std::int64_t aSeconds) {
    const auto lNow = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::nanoseconds(lNow).count() - aSeconds * ZTSecond;
}

// What of vrx-sn has to do with incidents.
struct Sensor {
    explicit Sensor(const std::string& acrPath, bool aOpens = true, std::chrono::milliseconds aPatience = 60s)
        : mPath(acrPath),
          mThread({.mHost = "db7", .mPatience = aPatience}, mFeed, mBuffer, mFigures, mLog,
                  [this](const std::vector<std::string>& acrMaps) { mAccepted = acrMaps.size(); }) {
        aOpens ? open() : void();
    }
    void open() {
        ZTSStoreOptions lOptions;
        lOptions.mPath = mPath;
        lOptions.mHostName = "db7";
        mStore.emplace(
            lOptions, mBuffer, mFigures, mLog,
            [this](const ZTSStoreStart& acrStart) { mThread.setStart(mPath, acrStart); }, nullptr,
            [this](const ZTSStoreRequest& acrRequest, bool aIsMarked) {
                return mThread.ask(acrRequest, aIsMarked);
            });
        mStore->waitUntilOpen(30s);
    }

    void changeState(ZTNanoseconds aTime, const char* apBefore, const char* apAfter) {
        mBuffer.takeChange({aTime, "port", ZTHostPort(0).toText(), "changed", "state", apBefore, apAfter});
    }
    // Of one LUN of a target.
    void takeQueueFull(ZTNanoseconds aTime, std::uint32_t aEvents) {
        ZTSSensorRecordList lList;
        lList.mInitiator.mPort = ZTHostPort(0);
        lList.mRecords.push_back({aEvents, toSensorTime(aTime), toSensorTime(aTime), 4, 1,
                                  ZTSPortNames{{}, ZTArrayPort(1, 0, 0)}, ZTSensorBytes(24)});
        mBuffer.takeRecords({lList}, {}, {}, ZTCSnBuffer::Clock::now());
        mBuffer.closeAll();
    }
    // What the store has, once there is something and all that was given is looked at.
    std::vector<ZTSIncident> read() {
        EXPECT_TRUE(mThread.settle(30s));
        EXPECT_TRUE(mBuffer.waitUntilStored(30s));
        ZTCStoreReader lReader(mPath);
        return lReader.readIncidents(0);
    }
    bool waitFor(const std::function<bool(const ZTSIncident&)>& acrIs) {
        return waitUntil([&] {
            const std::vector<ZTSIncident> lIncidents = read();
            return std::ranges::any_of(lIncidents, acrIs);
        });
    }

    const std::string mPath;
    ZTCSnFigures mFigures{""};
    ZTCServiceLog mLog{"vrx-sn"};
    ZTCIncidentFeed mFeed;
    ZTCSnBuffer mBuffer{{.mFold = {}, .mpFeed = &mFeed}};
    std::atomic<std::size_t> mAccepted{0};
    ZTCIncidentThread mThread;
    std::optional<ZTCStoreThread> mStore;
};

bool isClosed(const ZTSIncident& acrIncident) {
    return acrIncident.mState == ZTEIncidentState::Closed;
}
bool isOpen(const ZTSIncident& acrIncident) {
    return !isClosed(acrIncident);
}

// Two problems at once: a port that is down for long, and a target that is overloaded. In between vrx-sn may
// be killed.
std::vector<ZTSIncident> playTwo(const std::string& acrPath, ZTNanoseconds aTime, bool aIsKilled) {
    auto lpSensor = std::make_unique<Sensor>(acrPath);
    lpSensor->changeState(aTime, "Online", "Linkdown");
    lpSensor->takeQueueFull(aTime, 300);
    EXPECT_TRUE(lpSensor->waitFor(isOpen));
    EXPECT_EQ(lpSensor->mFigures.get(sPortsDown), 1U);
    if (aIsKilled) {
        lpSensor.reset();
        lpSensor = std::make_unique<Sensor>(acrPath);
    }
    lpSensor->changeState(aTime + 400 * ZTSecond, "Linkdown", "Online");
    EXPECT_TRUE(waitUntil([&] {
        const std::vector<ZTSIncident> lIncidents = lpSensor->read();
        return !lIncidents.empty() && std::ranges::all_of(lIncidents, isClosed);
    }));
    std::vector<ZTSIncident> lIncidents = lpSensor->read();
    for (ZTSIncident& lrIncident : lIncidents) {
        lrIncident.mMemory.clear();
        lrIncident.mChanges.clear();  // a vrx-sn that came is one
    }
    return lIncidents;
}

TEST(IncidentThread, AKillAndANewStartAreAsIfThereWereNone) {
    const ZTCTestDirectory lDirectory;
    const ZTNanoseconds lTime = secondsAgo(3000);
    const std::vector<ZTSIncident> lOne = playTwo(lDirectory / "one.db", lTime, false);
    const std::vector<ZTSIncident> lOther = playTwo(lDirectory / "other.db", lTime, true);
    ASSERT_EQ(lOne.size(), lOther.size());
    EXPECT_GE(lOne.size(), 1U);
    for (std::size_t lAt = 0; lAt < lOne.size(); ++lAt) {
        EXPECT_EQ(lOne[lAt].mTitle, lOther[lAt].mTitle);
        EXPECT_EQ(lOne[lAt].mEvents, lOther[lAt].mEvents);
        EXPECT_EQ(lOne[lAt], lOther[lAt]);
    }
}

// It does not open for long: incidents are told without it, and once.
TEST(IncidentThread, WhatWasToldBeforeTheStoreOpensIsNotToldAgain) {
    const ZTCTestDirectory lDirectory;
    testing::internal::CaptureStderr();
    Sensor lSensor(lDirectory / "history.db", false, 0ms);
    lSensor.changeState(secondsAgo(100), "Online", "Linkdown");
    EXPECT_TRUE(waitUntil([&] { return lSensor.mFigures.get(ZTSN_IncidentsTold) == 1; }));
    EXPECT_EQ(lSensor.mFigures.get(ZTSN_Incidents), 1U);
    lSensor.open();
    EXPECT_TRUE(lSensor.waitFor(isOpen));
    EXPECT_TRUE(lSensor.mThread.settle(30s));
    EXPECT_EQ(lSensor.mFigures.get(ZTSN_IncidentsTold), 1U);
    EXPECT_EQ(lSensor.read().size(), 1U);
    EXPECT_TRUE(contains(testing::internal::GetCapturedStderr(), "vrx-sn: incident 1 opened: "));
}

TEST(IncidentThread, WhatSomebodyAsksForIsDone) {
    const ZTCTestDirectory lDirectory;
    testing::internal::CaptureStderr();
    Sensor lSensor(lDirectory / "history.db");
    lSensor.changeState(secondsAgo(100), "Online", "Linkdown");
    ASSERT_TRUE(lSensor.waitFor(isOpen));
    const std::string lId = std::to_string(lSensor.read().at(0).mId);
    const auto lAsk = [&](const char* apWhat, const std::string& acrId) {
        addStoreRequest(
            lSensor.mPath,
            {.mTime = 7, .mWho = "mueller", .mWhat = apWhat, .mSubject = acrId, .mText = "the cable"});
    };
    lAsk("acknowledge", lId);
    lAsk("keep", lId);
    for (const char* const lpId : {"99", "", "x", "-1"}) {
        lAsk("accept", lpId);
    }
    EXPECT_TRUE(lSensor.waitFor([](const ZTSIncident& acrIncident) {
        return acrIncident.mIsKept && acrIncident.mAcknowledged &&
               acrIncident.mAcknowledged->mWho == "mueller";
    }));
    std::string lSaid;
    EXPECT_TRUE(waitUntil([&] { return lSensor.mFigures.get(ZTSN_Requests) == 2; }));
    EXPECT_TRUE(lSensor.mThread.settle(30s));
    lSaid = testing::internal::GetCapturedStderr();
    EXPECT_PRED2(contains, lSaid,
                 "nothing was done for mueller: there is no incident 99, or it is long over");
    EXPECT_PRED2(contains, lSaid, "asked for what is not known: accept x");
    EXPECT_EQ(lSensor.mAccepted, 0U);
}

TEST(IncidentThread, PathsOfOneFromBeforeTheStartAreAccepted) {
    const ZTCTestDirectory lDirectory;
    const std::string lPath = lDirectory / "history.db";
    ZTSIncident lOld;
    lOld.mId = 1;
    lOld.mState = ZTEIncidentState::Quiet;
    lOld.mOpened = lOld.mLast = secondsAgo(100);
    lOld.mHits.mMaps = {"data"};
    ZTSStoreBatch lBatch;
    lBatch.mIncidents.mIncidents.push_back(lOld);
    std::make_unique<ZTCStoreWriter>(ZTHostStoreOptions(lPath))->write(lBatch);
    Sensor lSensor(lPath);
    addStoreRequest(lPath,
                    {.mTime = 7, .mWho = "root", .mWhat = "accept", .mSubject = "1", .mText = "so be it"});
    EXPECT_TRUE(waitUntil([&] { return lSensor.mAccepted == 1; }));
}

// As a site runs it. The disk stands still when the problem begins.
TEST(IncidentProgram, IncidentsAreToldWhileTheDiskStandsStill) {
    const ZTCTestDirectory lDirectory;
    const ZTCTestManager lManager{lDirectory / "notify"};
    const ZTCTestDisk lDisk{"history.db"};
    const std::string lOut = lDirectory / "told";
    ZTCSnBooks lBooks({"--every", "0.05", "--incident", "times settle=1", "--incident", "fabric_change off",
                       "--on-incident", "/bin/dd status=none of=" + lOut},
                      lManager.getEnvironment("10000000", lDisk.getEnvironment()));
    EXPECT_TRUE(waitUntil([&] { return lBooks.ask("SELECT count(*) FROM changes") > 0; }));
    lDisk.stand();
    lBooks.play("queue-full board=0 lun=3 times=2000\n");
    EXPECT_TRUE(waitUntil([&] {
        return contains(lBooks.getSensor().getErr(), "vrx-sn: incident 1 opened: ");
    })) << lBooks.getSensor().getErr();
    EXPECT_TRUE(waitUntil([&] { return contains(readFile(lOut), "\"overload\""); }))
        << readFile(lOut) << lBooks.getSensor().getErr();
    EXPECT_TRUE(lManager.hears(", 1 incident"));
    EXPECT_EQ(lBooks.ask("SELECT count(*) FROM incidents"), 0);
    lDisk.move();
    EXPECT_TRUE(waitUntil([&] { return lBooks.ask("SELECT count(*) FROM incidents") == 1; }));
    EXPECT_EQ(lBooks.endSensor(), 0);
    EXPECT_EQ(lBooks.ask("SELECT count(*) FROM incidents WHERE class = 'overload' AND events = 2000"), 1);
    EXPECT_EQ(lBooks.ask("SELECT count(*) FROM incident_evidence"), 1);
}

// In the whole form the store is as full as one gets.
TEST(IncidentReplay, AFullStoreIsReadWithinSeconds) {
    const ZTCTestDirectory lDirectory;
    const std::string lPath = lDirectory / "history.db";
    const std::uint64_t lRecords = ZTTestRounds(30000U, 10000000U);
    const ZTNanoseconds lNow = secondsAgo(0);
    constexpr std::uint64_t lAtOnce = 10000;
    {
        ZTCStoreWriter lWriter(ZTHostStoreOptions(lPath));
        for (std::uint64_t lId = 1; lId <= lRecords; lId += lAtOnce) {
            ZTSStoreBatch lBatch;
            for (std::uint64_t lRow = lId; lRow < lId + lAtOnce; ++lRow) {
                // All of them within the last minutes: none is too old to matter.
                const ZTNanoseconds lTime =
                    lNow - static_cast<ZTNanoseconds>((lRecords - lRow) * 60 * ZTSecond / lRecords);
                ZTSSeries lSeries;
                lSeries.mInitiator.mPort = ZTHostPort(lRow % 4);
                lSeries.mCategory = 4;
                lSeries.mSubcategory = 1;
                lSeries.mRemote = ZTArrayPort(1 + lRow % 2, lRow / 2 % 2, lRow % 4);
                lSeries.mFabric = ZTHostFabric(lRow % 4);
                lBatch.mRows.push_back(
                    {lRow, true, {lSeries, lTime, lTime, 1, std::vector<std::uint8_t>(48)}, 1});
            }
            lBatch.mClosedTo = lId + lAtOnce - 1;
            lWriter.write(lBatch);
        }
        lWriter.finish();
    }
    ZTSStoreStart lStart;
    lStart.mLastWrite = lNow;
    const ZTSStorePlace lPlace = ZTCStoreReader(lPath).readPlace();
    const auto lReplay = [&](const ZTSReplayLimits& acrLimits, std::uint64_t& arEvents) {
        ZTCIncidentWork lWork(getDefaultRules());
        const std::string lLeftOut = replayIncidents(
            lPath, lPlace, lStart, acrLimits, [] { return false; }, lWork);
        lWork.getFinder().finish(lNow);
        arEvents = 0;
        for (const ZTSIncident& lrIncident : lWork.getFinder().takeNews().mIncidents) {
            arEvents += lrIncident.mEvents;
        }
        return lLeftOut;
    };
    std::uint64_t lEvents = 0;
    const auto lBegan = std::chrono::steady_clock::now();
    const std::string lLeftOut = lReplay({}, lEvents);
    const std::chrono::duration<double> lTook = std::chrono::steady_clock::now() - lBegan;
    printf("           %.2f s: %s\n", lTook.count(), lLeftOut.c_str());
    EXPECT_LT(lTook.count(), 5.0 * ZTTestRounds(4, 1));
    if (lRecords <= ZTSReplayLimits().mRecords) {
        EXPECT_EQ(lLeftOut, "");
        EXPECT_EQ(lEvents, lRecords);
    }
    EXPECT_EQ(lReplay({.mRecords = 10000}, lEvents), "of the records only the newest 10000 were read");
    EXPECT_EQ(lEvents, 10000U);
    EXPECT_TRUE(contains(lReplay({.mTime = 0ms}, lEvents), "takes too long to read"));
}

}  // namespace
