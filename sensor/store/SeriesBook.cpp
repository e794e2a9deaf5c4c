#include "SeriesBook.h"

#include <algorithm>

#include "EventBlock.h"

namespace {

constexpr std::size_t sKnownSeries = 20000;
constexpr std::int64_t sHour = 3600;

// The columns of a series.
struct Texts {
    std::string mKind, mInitiator, mInitiatorNode, mFabric, mRemote, mTarget, mTargetNode;
};

std::string sKindText(const ZTSSeries& acrSeries) {
    const char* const lpName = findEventKind(acrSeries.mCategory, acrSeries.mSubcategory);
    return lpName != nullptr
               ? lpName
               : std::to_string(acrSeries.mCategory) + '/' + std::to_string(acrSeries.mSubcategory);
}

Texts sTextsOf(const ZTSSeries& acrSeries) {
    Texts lTexts{.mKind = sKindText(acrSeries),
                 .mInitiator = acrSeries.mInitiator.mPort.toText(),
                 .mInitiatorNode = acrSeries.mInitiator.mNode.toText(),
                 .mFabric = acrSeries.mFabric,
                 .mRemote = acrSeries.mRemote ? acrSeries.mRemote->toText() : "",
                 .mTarget = {},
                 .mTargetNode = {}};
    if (acrSeries.mTarget) {
        lTexts.mTarget = acrSeries.mTarget->mPort.toText();
        lTexts.mTargetNode = acrSeries.mTarget->mNode.toText();
    }
    return lTexts;
}

}  // namespace

ZTCSeriesBook::ZTCSeriesBook(SQLite::Database& arDatabase, ZTCSums& arSums, std::size_t aLimit)
    : mrSums(arSums),
      mLimit(aLimit),
      mCountAll(arDatabase, "SELECT count(*) FROM series"),
      mFind(
          arDatabase,
          "SELECT id FROM series WHERE category = ? AND subcategory = ? AND initiator = ? AND initiator_node "
          "= ? AND fabric = ? AND remote = ? AND target = ? AND target_node = ?"),
      mMake(arDatabase,
            "INSERT INTO series (category, subcategory, initiator, initiator_node, fabric, remote, target, "
            "target_node, kind, events, records, first, last) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, 0, 0, ?, 0) "
            "RETURNING id"),
      mAdd(arDatabase,
           "UPDATE series SET events = events + ?2, records = records + ?3, first = min(first, ?4), last = "
           "max(last, ?5) WHERE id = ?1") {}

ZTSKnownSeries& ZTCSeriesBook::find(const ZTSSeries& acrSeries) {
    const auto lAt = mKnown.find(acrSeries);
    return lAt != mKnown.end() ? lAt->second : mKnown.emplace(acrSeries, load(acrSeries)).first->second;
}

std::size_t ZTCSeriesBook::getCount() {
    if (!mCount) {
        mCount = static_cast<std::size_t>(*mCountAll.findNumber());
    }
    return *mCount;
}

ZTSKnownSeries ZTCSeriesBook::load(const ZTSSeries& acrSeries) {
    Texts lTexts = sTextsOf(acrSeries);
    const auto lOf = [&](ZTCStatement& arStatement, const auto&... acrMore) {
        return arStatement.findNumber(acrSeries.mCategory, acrSeries.mSubcategory, lTexts.mInitiator,
                                      lTexts.mInitiatorNode, lTexts.mFabric, lTexts.mRemote, lTexts.mTarget,
                                      lTexts.mTargetNode, acrMore...);
    };
    std::optional<std::int64_t> lId = lOf(mFind);
    if (!lId && getCount() >= mLimit) {
        lTexts.mRemote = "*";
        lTexts.mTarget = lTexts.mTargetNode = {};
        lId = lOf(mFind);
    }
    if (!lId) {
        constexpr ZTNanoseconds lNever = INT64_MAX;
        const std::size_t lBefore = getCount();
        lId = lOf(mMake, lTexts.mKind, lNever);
        mCount = lBefore + 1;
    }
    return {.mId = *lId,
            .mMembers = {mrSums.findMember(ZTEAxis::Kind, lTexts.mKind),
                         mrSums.findMember(ZTEAxis::Initiator, lTexts.mInitiator),
                         mrSums.findMember(ZTEAxis::Target, lTexts.mRemote),
                         mrSums.findMember(ZTEAxis::Fabric, lTexts.mFabric)}};
}

void ZTCSeriesBook::count(ZTSKnownSeries& arSeries, const ZTSRecord& acrRecord, std::uint64_t aEvents,
                          bool aIsNew) {
    if (!arSeries.mIsTouched) {
        mTouched.push_back(&arSeries);
        arSeries.mIsTouched = true;
        arSeries.mFirst = acrRecord.mFirst;
        arSeries.mLast = acrRecord.mLast;
    }
    arSeries.mEvents += aEvents;
    arSeries.mRecords += aIsNew ? 1 : 0;
    arSeries.mFirst = std::min(arSeries.mFirst, acrRecord.mFirst);
    arSeries.mLast = std::max(arSeries.mLast, acrRecord.mLast);
    mrSums.add(acrRecord.mFirst, arSeries.mMembers, aEvents);
    countHour(arSeries, acrRecord.mFirst, aEvents);
}

// Most rows of a transaction are of one hour.
void ZTCSeriesBook::countHour(ZTSKnownSeries& arSeries, ZTNanoseconds aFirst, std::uint64_t aEvents) {
    const std::int64_t lHour = aFirst / ZTSecond / sHour * sHour;
    if (lHour != arSeries.mHour) {
        flushHour(arSeries);
        arSeries.mHour = lHour;
    }
    arSeries.mHourEvents += aEvents;
}

void ZTCSeriesBook::flushHour(ZTSKnownSeries& arSeries) {
    if (arSeries.mHourEvents != 0) {
        mrSums.addToSeries(arSeries.mHour, arSeries.mId, arSeries.mHourEvents);
        arSeries.mHourEvents = 0;
    }
}

void ZTCSeriesBook::flush() {
    for (ZTSKnownSeries* const lpSeries : mTouched) {
        flushHour(*lpSeries);
        mAdd.run(lpSeries->mId, lpSeries->mEvents, lpSeries->mRecords, lpSeries->mFirst, lpSeries->mLast);
        *lpSeries = {.mId = lpSeries->mId, .mMembers = lpSeries->mMembers};
    }
    mTouched.clear();
    if (mKnown.size() > sKnownSeries) {
        mKnown.clear();
    }
}

void ZTCSeriesBook::forget() {
    mTouched.clear();
    mKnown.clear();
    mCount.reset();
}
