#include "WatchView.h"

#include <fmt/format.h>

#include <algorithm>

#include "RecordText.h"
#include "Table.h"
#include "TimeText.h"

ZTCWatchView::ZTCWatchView(bool aInUtc)
    : mInUtc(aInUtc), mScreen(isTerminal() ? std::make_unique<ZTCScreen>() : nullptr) {}

void ZTCWatchView::add(const ZTSFetched& acrFetched) {
    std::map<Key, std::uint64_t> lNew;
    for (const ZTSSensorRecordList& lrList : acrFetched.mData) {
        for (const ZTSSensorRecord& lrRecord : lrList.mRecords) {
            const Key lKey{lrList.mInitiator, kindText(lrRecord), remoteText(lrRecord)};
            lNew[lKey] += lrRecord.mOccurrences;
            Sums& lrSums = mSums[lKey];
            lrSums.mEvents += lrRecord.mOccurrences;
            lrSums.mRecords += 1;
            lrSums.mLast = std::max(lrSums.mLast, lrRecord.mLast);
        }
    }
    const double lSeconds =
        mTime && acrFetched.mTime ? std::chrono::duration<double>(*acrFetched.mTime - *mTime).count() : 0;
    for (auto& [lrKey, lrSums] : mSums) {
        const auto lFound = lNew.find(lrKey);
        lrSums.mRate =
            lFound != lNew.end() && lSeconds > 0 ? static_cast<double>(lFound->second) / lSeconds : 0;
    }
    mTime = acrFetched.mTime;
    mEvents += acrFetched.countEvents();
    mRecords += acrFetched.countRecords();
    draw();
}

void ZTCWatchView::tell(const std::string& acrText, bool /*aIsThere*/) {
    mState = acrText;
    draw();
}

void ZTCWatchView::draw() {
    if (mScreen != nullptr) {
        ZTCScreen::show(toText());
    }
}

void ZTCWatchView::finish() {
    mScreen.reset();
    put(toText());
}

std::string ZTCWatchView::toText() const {
    const ZTSSensorTime lTime = mTime ? toSensorTime(*mTime) : ZTSSensorTime();
    std::string lText = mState + "\n" + fmt::format("{} events in {} records", mEvents, mRecords);
    lText += mTime ? ", last fetch " + plainText(lTime, mInUtc) + "\n" : "\n";
    const ZTSPortNames* lpInitiator = nullptr;
    const auto lNewTable = [&] {
        return ZTCTable({{"kind"},
                         {"remote port"},
                         {"events", true},
                         {"a second", true},
                         {"last (" + zoneText(lTime, mInUtc) + ")"}});
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
                    fmt::format("{:.1f}", lrSums.mRate), plainText(lrSums.mLast, mInUtc)});
    }
    lFinish();
    return lText;
}
