#include "WatchView.h"

#include <fmt/format.h>

#include <algorithm>

#include "RecordText.h"
#include "ShownText.h"
#include "Table.h"
#include "TimeText.h"

namespace {

using namespace std::chrono_literals;

// The rate is that of the fetches of this time, or of the last one where they are rarer: a little less than
// the usual period, whose fetches do not come to the millisecond.
constexpr std::chrono::milliseconds sWindow = 4500ms;
// Fetches as close as this are one in it.
constexpr std::chrono::milliseconds sClose = 100ms;

}  // namespace

ZTCWatchView::ZTCWatchView(bool aInUtc) : mInUtc(aInUtc) {}

void ZTCWatchView::add(const ZTSFetched& acrFetched) {
    if (acrFetched.mTime) {
        beginFetch(*acrFetched.mTime);
    }
    for (const ZTSSensorRecordList& lrList : acrFetched.mData) {
        for (const ZTSSensorRecord& lrRecord : lrList.mRecords) {
            Sums& lrSums =
                sumsOf({lrList.mInitiator, kindText(lrRecord),
                        remoteText(lrRecord, lrRecord.mTarget ? std::nullopt : fieldsOf(lrRecord))});
            lrSums.mFirst = lrSums.mEvents == 0 ? lrRecord.mFirst : std::min(lrSums.mFirst, lrRecord.mFirst);
            lrSums.mLast = std::max(lrSums.mLast, lrRecord.mLast);
            lrSums.mEvents += lrRecord.mOccurrences;
            if (mRecent.size() > 1) {
                lrSums.mNewEvents += lrRecord.mOccurrences;
                mRecent.back().mEvents.emplace_back(&lrSums, lrRecord.mOccurrences);
            }
        }
    }
    mEvents += acrFetched.countEvents();
    mRecords += acrFetched.countRecords();
    draw();
}

// Makes room for what a fetch brings, and lets go of what came too long before it.
void ZTCWatchView::beginFetch(ZTSFetched::Time aTime) {
    if (mTime && aTime < *mTime) {  // the clock was set back
        for (auto& [lrKey, lrSums] : mSums) {
            lrSums.mNewEvents = 0;
        }
        mRecent.clear();
    }
    mTime = aTime;
    if (mRecent.size() < 2 || aTime - mRecent.back().mBegin >= sClose) {
        mRecent.push_back({aTime, aTime, {}});
    }
    mRecent.back().mEnd = aTime;
    while (mRecent.size() > 2 && aTime - mRecent[1].mEnd >= sWindow) {
        for (const auto& [lpSums, lEvents] : mRecent[1].mEvents) {
            lpSums->mNewEvents -= lEvents;
        }
        mRecent.pop_front();
    }
}

std::string ZTCWatchView::rateText(const Sums& acrSums) const {
    const Duration lTime = mRecent.empty() ? Duration(0) : *mTime - mRecent.front().mEnd;
    return lTime >= sWindow ? fmt::format("{:.1f}", static_cast<double>(acrSums.mNewEvents) /
                                                        std::chrono::duration<double>(lTime).count())
                            : "-";
}

ZTCWatchView::Sums& ZTCWatchView::sumsOf(Key aKey) {
    const auto lAt = mSums.find(aKey);
    if (lAt != mSums.end()) {
        return lAt->second;
    }
    return mSums[mSums.size() < MaxRows ? std::move(aKey) : Key{aKey.mInitiator, "others", "-"}];
}

void ZTCWatchView::tell(const std::string& acrText, bool /*aIsThere*/) {
    mState = toShownText(acrText);
    draw();
}

void ZTCWatchView::draw() {
    if (isTerminal()) {
        mScreen = mScreen != nullptr ? std::move(mScreen) : std::make_unique<ZTCScreen>();
        ZTCScreen::show(toText(true));
    }
}

void ZTCWatchView::finish() {
    mScreen.reset();
    put(toText(false));
}

std::string ZTCWatchView::toText(bool aIsLive) const {
    const ZTSSensorTime lTime = mTime ? toSensorTime(*mTime) : ZTSSensorTime();
    std::string lText = mState + "\n" + countText(mEvents, "event") + " in " + countText(mRecords, "record");
    lText += mTime ? ", last fetch " + plainText(lTime, mInUtc) + "\n" : "\n";
    std::vector<ZTSColumn> lColumns{{"kind"}, {"remote port"}, {"events", true}, {"first"}, {"last"}};
    if (aIsLive) {
        lColumns.insert(lColumns.begin() + 3, {"a second", true});
    }
    const ZTSPortNames* lpInitiator = nullptr;
    ZTCTable lTable(lColumns);
    const auto lFinish = [&] {
        if (lpInitiator != nullptr) {
            lText += fmt::format("\ninitiator {}, node {}\n", bold(lpInitiator->mPort.toText()),
                                 lpInitiator->mNode.toText()) +
                     lTable.toText();
        }
    };
    for (const auto& [lrKey, lrSums] : mSums) {
        if (lpInitiator == nullptr || *lpInitiator != lrKey.mInitiator) {
            lFinish();
            lTable = ZTCTable(lColumns);
            lpInitiator = &lrKey.mInitiator;
        }
        ZTCTable::Row lRow{lrKey.mKind, lrKey.mRemote, std::to_string(lrSums.mEvents),
                           plainTextBehind(lrSums.mFirst, lTime, mInUtc),
                           plainTextBehind(lrSums.mLast, lTime, mInUtc)};
        if (aIsLive) {
            lRow.insert(lRow.begin() + 3, rateText(lrSums));
        }
        lTable.add(std::move(lRow));
    }
    lFinish();
    return lText;
}
