#include "IncidentReplay.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>

#include "ServiceThread.h"
#include "TimeScan.h"
#include "TimeText.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr ZTNanoseconds sMinute = 60 * ZTSecond;
constexpr ZTNanoseconds sMeasuresBack = 5 * sMinute;  // nothing of theirs lasts longer
constexpr unsigned int sLookEvery = 256;              // rows

const ZTSRecord& sRowOf(const ZTSStoredRecord& acrRecord) {
    return acrRecord.mRecord;
}
const ZTSFpin& sRowOf(const ZTSStoredFpin& acrFpin) {
    return acrFpin.mFpin;
}
const ZTSStall& sRowOf(const ZTSStoredStall& acrStall) {
    return acrStall.mStall;
}
const ZTSChange& sRowOf(const ZTSChange& acrChange) {
    return acrChange;
}
const ZTSLoss& sRowOf(const ZTSLoss& acrLoss) {
    return acrLoss;
}
ZTNanoseconds sTimeOf(const ZTSChange& acrChange) {
    return acrChange.mTime;
}
template <class Row>
ZTNanoseconds sTimeOf(const Row& acrRow) {
    return acrRow.mFirst;
}

// Rows of one kind, in the order of time.
class Lane {
  public:
    Lane() = default;
    virtual ~Lane() = default;
    Lane(const Lane&) = delete;
    Lane& operator=(const Lane&) = delete;

    /// Of the next one; nothing: there is none.
    virtual std::optional<ZTNanoseconds> getTime() = 0;
    virtual void give(ZTCIncidentWork& arWork) = 0;
};

template <class Scan, class Item>
class ScanLane : public Lane {
  public:
    template <class... Arguments>
    explicit ScanLane(ZTNanoseconds aFrom, Arguments&&... aArguments)
        : mScan(std::forward<Arguments>(aArguments)...), mFrom(aFrom) {}

    Scan& getScan() { return mScan; }
    std::optional<ZTNanoseconds> getTime() override {
        while (mAt == mItems.size() && mIsMore) {
            mItems.clear();
            mAt = 0;
            mIsMore = mScan.read(mItems);
        }
        return mAt < mItems.size() ? std::optional(sTimeOf(sRowOf(mItems[mAt]))) : std::nullopt;
    }
    void give(ZTCIncidentWork& arWork) override {
        const auto& lrRow = sRowOf(mItems[mAt++]);
        if constexpr (std::is_same_v<Item, ZTSChange>) {
            arWork.getFinder().takeChange(lrRow);
            if (lrRow.mTime < mFrom) {  // is told beside incidents, and no more
                return;
            }
        }
        arWork.read(lrRow);
    }

  private:
    Scan mScan;
    const ZTNanoseconds mFrom;
    std::vector<Item> mItems;
    std::size_t mAt = 0;
    bool mIsMore = true;
};

// A minute at a time.
class MeasureLane : public Lane {
  public:
    MeasureLane(ZTCStoreReader& arReader, ZTNanoseconds aFrom, ZTNanoseconds aTo)
        : mrReader(arReader), mNext(aFrom / sMinute * 60), mEnd(aTo / ZTSecond + 1) {}

    std::optional<ZTNanoseconds> getTime() override {
        while (mAt == mItems.size() && mNext < mEnd) {
            mItems = mrReader.readMeasures("", ZTEStoreBin::Minute, mNext, mNext + 60);
            mAt = 0;
            mNext += 60;
        }
        return mAt < mItems.size() ? std::optional(mItems[mAt].mTime * ZTSecond) : std::nullopt;
    }
    void give(ZTCIncidentWork& arWork) override {
        const ZTSStoredMeasure& lrItem = mItems[mAt++];
        arWork.read(lrItem.mTime * ZTSecond, lrItem.mWhose, std::string_view(lrItem.mName), lrItem.mValue);
    }

  private:
    ZTCStoreReader& mrReader;
    std::int64_t mNext;
    const std::int64_t mEnd;
    std::vector<ZTSStoredMeasure> mItems;
    std::size_t mAt = 0;
};

// From when on each kind is read. A store that knows of no incidents is read as far back as one that does.
struct Begin {
    Begin(const ZTSStoreStart& acrStart, ZTCIncidentFinder& arFinder) {
        mTo = acrStart.mIncidents.mTo != 0 ? acrStart.mIncidents.mTo : acrStart.mLastWrite;
        mRows = mTo - std::chrono::nanoseconds(arFinder.getLookBack()).count();
        mMeasures = std::max(mRows, mTo - sMeasuresBack);
        mChanges = std::min(mRows, mTo - getDefaultRules().mTimes.mChanges * ZTSecond);
    }
    ZTNanoseconds mTo, mRows, mMeasures, mChanges;
};

ZTSHistoryFilter sSince(ZTNanoseconds aTime) {
    ZTSHistoryFilter lFilter;
    lFilter.mSince = aTime;
    return lFilter;
}

using Lanes = std::vector<std::unique_ptr<Lane>>;

// Whether older records are left out.
bool sAddRecords(Lanes& arLanes, ZTCStoreReader& arReader, const ZTSStorePlace& acrPlace,
                 const Begin& acrBegin, std::uint64_t aMost) {
    using RecordLane = ScanLane<ZTCRecordScan, ZTSStoredRecord>;
    const ZTSHistoryFilter lFilter = sSince(acrBegin.mRows);
    const auto lNewest = findNewest(arReader, lFilter, acrPlace, aMost);
    auto lpLane = std::make_unique<RecordLane>(acrBegin.mRows, arReader, lFilter, acrPlace);
    if (lNewest) {
        lpLane->getScan().beginAt(*lNewest);
    }
    arLanes.push_back(std::move(lpLane));
    return lNewest.has_value();
}

template <class Scan, class Item>
void sAdd(Lanes& arLanes, ZTCStoreReader& arReader, const ZTSStorePlace& acrPlace, ZTNanoseconds aSince,
          ZTNanoseconds aFrom) {
    arLanes.push_back(std::make_unique<ScanLane<Scan, Item>>(aFrom, arReader, sSince(aSince), acrPlace));
}

Lane* sFirstOf(Lanes& arLanes, ZTNanoseconds& arTime) {
    Lane* lpFirst = nullptr;
    for (const std::unique_ptr<Lane>& lrpLane : arLanes) {
        const std::optional<ZTNanoseconds> lTime = lrpLane->getTime();
        if (lTime && (lpFirst == nullptr || *lTime < arTime)) {
            lpFirst = lrpLane.get();
            arTime = *lTime;
        }
    }
    return lpFirst;
}

}  // namespace

std::string replayIncidents(const std::string& acrPath, const ZTSStorePlace& acrPlace,
                            const ZTSStoreStart& acrStart, const ZTSReplayLimits& acrLimits,
                            const std::function<bool()>& acrIsOver, ZTCIncidentWork& arWork) {
    const auto lEnd = Clock::now() + acrLimits.mTime;
    ZTCStoreReader lReader(acrPath);
    const Begin lBegin(acrStart, arWork.getFinder());
    arWork.takeLabels(lReader.readLabels());
    arWork.getFinder().takeWindows(lReader.readWindows());
    Lanes lLanes;
    sAdd<ZTCChangeScan, ZTSChange>(lLanes, lReader, acrPlace, lBegin.mChanges, lBegin.mRows);
    const bool lIsShort = sAddRecords(lLanes, lReader, acrPlace, lBegin, acrLimits.mRecords);
    sAdd<ZTCLossScan, ZTSLoss>(lLanes, lReader, acrPlace, lBegin.mRows, lBegin.mRows);
    sAdd<ZTCFpinScan, ZTSStoredFpin>(lLanes, lReader, acrPlace, lBegin.mRows, lBegin.mRows);
    sAdd<ZTCStallScan, ZTSStoredStall>(lLanes, lReader, acrPlace, lBegin.mRows, lBegin.mRows);
    lLanes.push_back(std::make_unique<MeasureLane>(lReader, lBegin.mMeasures, acrStart.mLastWrite));
    ZTNanoseconds lTime = 0;
    ZTNanoseconds lAdvanced = 0;
    unsigned int lRows = 0;
    for (Lane* lpLane = nullptr; (lpLane = sFirstOf(lLanes, lTime)) != nullptr;) {
        if (lTime > acrStart.mIncidents.mTo && lTime >= lAdvanced + ZTSecond) {
            arWork.getFinder().advance(lTime);
            lAdvanced = lTime;
        }
        lpLane->give(arWork);
        if (++lRows % sLookEvery == 0 && (Clock::now() >= lEnd || acrIsOver())) {
            return "what came behind " + plainText(toSensorTime(lTime), true) + " takes too long to read";
        }
    }
    return lIsShort ? "of the records only the newest " + std::to_string(acrLimits.mRecords) + " were read"
                    : "";
}

// ---- The thread ----

struct ZTCIncidentReplay::Shared {
    // Set before the thread begins.
    std::string mPath;
    ZTSStoreStart mStart;
    ZTSStorePlace mPlace;

    std::atomic<bool> mIsOver{false};
    std::mutex mLock;  // of what follows
    std::unique_ptr<ZTCIncidentWork> mpWork;
    std::string mTrouble;
    bool mIsDone = false;

    void run();
};

void ZTCIncidentReplay::Shared::run() {
    std::string lTrouble;
    try {
        lTrouble = replayIncidents(
            mPath, mPlace, mStart, {}, [this] { return mIsOver.load(); }, *mpWork);
        mpWork->endStart(mStart.mIncidents);
    } catch (const std::exception& lrError) {
        lTrouble = lrError.what();
    }
    const std::lock_guard lLock(mLock);
    mTrouble = std::move(lTrouble);
    mIsDone = true;
}

ZTCIncidentReplay::ZTCIncidentReplay() : mpShared(std::make_shared<Shared>()) {}

ZTCIncidentReplay::~ZTCIncidentReplay() {
    mpShared->mIsOver = true;
}

void ZTCIncidentReplay::begin(const std::string& acrPath, const ZTSStoreStart& acrStart,
                              const ZTSIncidentRules& acrRules) {
    Shared& lrShared = *mpShared;
    lrShared.mPath = acrPath;
    lrShared.mStart = acrStart;
    lrShared.mpWork = std::make_unique<ZTCIncidentWork>(acrRules);
    lrShared.mpWork->takeStart(acrStart.mIncidents, acrStart.mPorts, acrStart.mStorage, acrStart.mLastWrite);
    try {
        lrShared.mPlace = ZTCStoreReader(acrPath).readPlace();
    } catch (const ZTCStoreError&) {
        // Then nothing is read: to read it will fail as well, and tell why.
    }
    startServiceThread("vrx-sn-replay", [lpShared = mpShared] { lpShared->run(); }).detach();
}

std::unique_ptr<ZTCIncidentWork> ZTCIncidentReplay::take(std::string& arTrouble) {
    const std::lock_guard lLock(mpShared->mLock);
    if (!mpShared->mIsDone) {
        return nullptr;
    }
    arTrouble = mpShared->mTrouble;
    return std::move(mpShared->mpWork);
}
