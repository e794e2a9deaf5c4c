// Incidents of a made-up host, with their records, as a batch for a store.
#pragma once

#include <ctime>

#include "StoredHost.h"

/// Two that are not over, one that is, one that has been for long, and one that is part of another; times are
/// counted from now on, in whole seconds.
struct ZTSStoredIncidents {
    static constexpr ZTNanoseconds Day = 86400 * ZTSecond;

    ZTSStoredIncidents() {
        ZTAddHostPorts(mBatch);
        ZTAddHostStorage(mBatch);
        addRecord(1, 1, 32, 1, {}, mBegin, {1, 0, 0, 0, 0, 3, 2, 1});
        addRecord(2, 1, 16, 1, ZTArrayPort(1, 1, 1), mBegin + ZTSecond, logoutOf(ZTArrayPort(1, 1, 1)));
        addRecord(3, 1, 16, 1, ZTArrayPort(1, 1, 1), mBegin + 2 * Day, logoutOf(ZTArrayPort(1, 1, 1)));
        addRecord(4, 99, 1, 0, ZTArrayPort(1, 0, 0), mBegin + 2 * Day + ZTSecond,
                  logoutOf(ZTArrayPort(1, 0, 0)));
        addRecord(5, 4, 1, 0, ZTArrayPort(2, 0, 0), mBegin + 2 * Day + ZTSecond, {9});
        mBatch.mChanges = {
            {mBegin - 8 * Day, "host", "", "changed", "kernel", "6.0", "6.1"},
            {mBegin - Day, "note", "mueller", "noted", "array1", "", "new zoning for db7"},
            {mBegin + 30 * ZTSecond, "map", "mpatha", "changed", "missing", "",
             ZTHostPort(1).toText() + ">" + ZTArrayPort(1, 1, 1).toText()},
            {mBegin + 40 * ZTSecond, "mount", "/payroll", "went", "", "xfs", ""},
            {mBegin + 40 * ZTSecond, "volume", "vg0-data", "changed", "over", "vg-payroll sdb", "mpatha"}};
        mBatch.mHost.mStalls = {{mBegin + 2 * Day + 70 * ZTSecond, mBegin + 2 * Day + 80 * ZTSecond, false,
                                 "dm-5", "vg0-data", "/data", 12, "volume"}};
        mBatch.mHost.mFpins = {{mBegin + 2 * Day,
                                mBegin + 2 * Day,
                                1,
                                ZTHostPort(1),
                                "right",
                                "congestion",
                                "oversubscription",
                                "alarm",
                                ZTArrayPort(1, 0, 1),
                                {},
                                0,
                                0,
                                0,
                                0,
                                {}}};
        addIncidents();
    }

    ZTSIncident& one(std::uint64_t aId) { return mBatch.mIncidents.mIncidents.at(aId - 1); }

    const ZTNanoseconds mBegin = time(nullptr) * ZTSecond - 4 * Day;  ///< of incident 1
    ZTSStoreBatch mBatch;

  private:
    // The block of a logout: its form, and the two names.
    static std::vector<std::uint8_t> logoutOf(const ZTSWwn& acrPort) {
        std::vector<std::uint8_t> lBlock{1, 0, 0, 0};
        for (int lName = 0; lName < 2; ++lName) {
            lBlock.insert(lBlock.end(), acrPort.mBytes.begin(), acrPort.mBytes.end());
        }
        return lBlock;
    }

    void addRecord(std::uint64_t aId, std::uint8_t aCategory, std::uint8_t aSubcategory, unsigned int aPort,
                   std::optional<ZTSWwn> aRemote, ZTNanoseconds aTime, std::vector<std::uint8_t> aData) {
        ZTSStoreRow lRow;
        lRow.mId = aId;
        lRow.mAdded = lRow.mRecord.mOccurrences = 1;
        lRow.mRecord.mFirst = lRow.mRecord.mLast = aTime;
        lRow.mRecord.mData = std::move(aData);
        ZTSSeries& lrSeries = lRow.mRecord.mSeries;
        lrSeries.mInitiator.mPort = ZTHostPort(aPort);
        lrSeries.mCategory = aCategory;
        lrSeries.mSubcategory = aSubcategory;
        lrSeries.mRemote = aRemote;
        lrSeries.mFabric = ZTHostFabric(aPort);
        mBatch.mRows.push_back(lRow);
    }

    ZTSIncident& add(std::uint64_t aId, ZTEIncidentClass aClass, ZTEIncidentState aState,
                     ZTNanoseconds aOpened, ZTNanoseconds aLast, std::string aTitle) {
        ZTSIncident& lrIncident = mBatch.mIncidents.mIncidents.emplace_back();
        lrIncident.mId = aId;
        lrIncident.mClass = aClass;
        lrIncident.mState = aState;
        lrIncident.mOpened = aOpened;
        lrIncident.mLast = aLast;
        lrIncident.mClosed = aState == ZTEIncidentState::Closed ? aLast + 60 * ZTSecond : 0;
        lrIncident.mTitle = std::move(aTitle);
        lrIncident.mSeries = aId;
        return lrIncident;
    }

    void addIncidents() {
        using State = ZTEIncidentState;
        using Class = ZTEIncidentClass;
        ZTSIncident& lrLost =
            add(1, Class::RedundancyLost, State::Open, mBegin, mBegin + 2 * Day + 80 * ZTSecond,
                "All paths of /data and /logs are gone: 4 of 8 by a change in fabric right, "
                "the rest by a reboot of array1/A");
        lrLost.mFabrics = {"left", "right"};
        lrLost.mInitiators = {ZTHostPort(0), ZTHostPort(1)};
        lrLost.mTargets = {ZTArrayPort(1, 1, 1)};
        lrLost.mHits = {{"naa.600601603b201a2f0000000000000000"},
                        {},
                        {"mpatha"},
                        {"vg0-data", "vg0-logs"},
                        {"/data", "/logs"}};
        lrLost.mEvents = 5264;
        lrLost.mFirstCause = {"rscn", ZTHostPort(1), {}, "right", mBegin, true};
        lrLost.mCauses = {
            {"not_ready", ZTHostPort(0), ZTArrayPort(1, 0, 0), "left", mBegin + 2 * Day, false}};
        lrLost.mSymptoms = {{"rscn", 1, mBegin, mBegin},
                            {"logo", 4, mBegin + ZTSecond, mBegin + 2 * Day},
                            {"path_lost", 2, mBegin + 30 * ZTSecond, mBegin + 2 * Day + 13 * ZTSecond}};
        lrLost.mPathsTotal = 8;
        lrLost.mLosses = 77;
        lrLost.mEvidence = {
            {1, 32, ZTHostPort(1), {}, "right", mBegin, mBegin},
            {1, 16, ZTHostPort(1), ZTArrayPort(1, 1, 1), "right", mBegin + ZTSecond, mBegin + 2 * Day},
            {99, 1, ZTHostPort(0), ZTArrayPort(1, 0, 0), "left", mBegin + 2 * Day,
             mBegin + 2 * Day + ZTSecond}};
        lrLost.mChanges = {mBatch.mChanges[1]};
        lrLost.mSuggestion = "Look at the zoning of fabric right, and at array1/A.";
        lrLost.mAcknowledged = {"schmidt", mBegin + 3 * Day, "db7 is moved"};
        add(2, Class::TargetErrors, State::Closed, mBegin + Day, mBegin + Day + 90 * ZTSecond,
            "array2/B was rebooted");
        add(3, Class::LinkFlap, State::Quiet, mBegin + 2 * Day, mBegin + 3 * Day, "The link of hba2 flaps")
            .mWindow = "new optics";
        add(4, Class::LinkFlap, State::Closed, mBegin - 20 * Day, mBegin - 19 * Day,
            "The link of hba2 flapped");
        one(3).mSeries = 4;
        add(5, Class::IoStall, State::Closed, mBegin + 2 * Day, mBegin + 2 * Day, "/data stands still")
            .mMerged = 1;
    }
};
