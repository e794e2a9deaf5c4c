#include "WatchView.h"

#include <fmt/format.h>

#include <algorithm>

#include "RecordText.h"
#include "ShownText.h"
#include "Table.h"
#include "TimeText.h"

namespace {

std::string sRateText(std::uint64_t aEvents, double aSeconds) {
    return aSeconds > 0 ? fmt::format("{:.1f}", static_cast<double>(aEvents) / aSeconds) : "-";
}

}  // namespace

ZTCWatchView::ZTCWatchView(bool aInUtc) : mInUtc(aInUtc) {}

void ZTCWatchView::add(const ZTSFetched& acrFetched) {
    for (auto& [lrKey, lrSums] : mSums) {
        lrSums.mNewEvents = 0;
    }
    for (const ZTSSensorRecordList& lrList : acrFetched.mData) {
        for (const ZTSSensorRecord& lrRecord : lrList.mRecords) {
            Sums& lrSums =
                sumsOf({lrList.mInitiator, kindText(lrRecord),
                        remoteText(lrRecord, lrRecord.mTarget ? std::nullopt : fieldsOf(lrRecord))});
            lrSums.mEvents += lrRecord.mOccurrences;
            lrSums.mNewEvents += lrRecord.mOccurrences;
            lrSums.mLast = std::max(lrSums.mLast, lrRecord.mLast);
        }
    }
    if (acrFetched.mTime) {
        mBegin = mBegin ? mBegin : acrFetched.mTime;
        mBefore = mTime;
        mTime = acrFetched.mTime;
    }
    mEvents += acrFetched.countEvents();
    mRecords += acrFetched.countRecords();
    draw();
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
        ZTCScreen::show(toText(false));
    }
}

void ZTCWatchView::finish() {
    mScreen.reset();
    put(toText(true));
}

std::string ZTCWatchView::toText(bool aIsWhole) const {
    const auto lFrom = aIsWhole ? mBegin : mBefore;
    const double lSeconds = lFrom ? std::chrono::duration<double>(*mTime - *lFrom).count() : 0;
    const ZTSSensorTime lTime = mTime ? toSensorTime(*mTime) : ZTSSensorTime();
    std::string lText = mState + "\n" + countText(mEvents, "event") + " in " + countText(mRecords, "record");
    lText += mTime ? ", last fetch " + plainText(lTime, mInUtc) + "\n" : "\n";
    const ZTSPortNames* lpInitiator = nullptr;
    const auto lNewTable = [&] {
        return ZTCTable({{"kind"}, {"remote port"}, {"events", true}, {"a second", true}, {"last"}});
    };
    ZTCTable lTable = lNewTable();
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
            lTable = lNewTable();
            lpInitiator = &lrKey.mInitiator;
        }
        lTable.add({lrKey.mKind, lrKey.mRemote, std::to_string(lrSums.mEvents),
                    sRateText(aIsWhole ? lrSums.mEvents : lrSums.mNewEvents, lSeconds),
                    plainText(lrSums.mLast, mInUtc)});
    }
    lFinish();
    return lText;
}
