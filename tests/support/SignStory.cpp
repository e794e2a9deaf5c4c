#include "SignStory.h"

#include <fmt/format.h>

#include <algorithm>
#include <random>
#include <stdexcept>

#include "SignReader.h"
#include "WhenText.h"
#include "Windows.h"

namespace {

constexpr ZTNanoseconds sMinute = 60 * ZTSecond;
constexpr ZTNanoseconds sKnownFor = 8 * 86400 * ZTSecond;  // incidents, when a finder begins

/// Calls work with each line's number and words. What it throws gets the number.
template <class Work>
void sEachLine(std::string_view aText, const Work& acrWork) {
    for (std::size_t lNumber = 1; !aText.empty(); ++lNumber) {
        const std::string_view lText = aText.substr(0, aText.find('\n'));
        aText.remove_prefix(std::min(aText.size(), lText.size() + 1));
        try {
            const ZTSStoryLine lLine(lText);
            if (!lLine.mWords.empty()) {
                acrWork(lNumber, lLine, lText);
            }
        } catch (const std::exception& lrFailure) {
            throw std::runtime_error(fmt::format("line {}: {}", lNumber, lrFailure.what()));
        }
    }
}

std::string sBehind(std::string_view aText, std::string_view aWord) {
    return std::string(aText.substr(aText.find(aWord) + aWord.size() + 1));
}

ZTNanoseconds sMoment(const ZTSStoryLine& acrLine) {
    const std::string lText = acrLine.at(1) + (acrLine.mWords.size() > 2 ? " " + acrLine.at(2) : "");
    const auto lTime = readWhen(lText, 0, zoneOfUtc);
    return lTime ? *lTime : throw std::runtime_error(lText + " is no moment");
}

/// The rows of a text, each as often as it is repeated.
class Rows {
  public:
    Rows(std::vector<ZTSStoryRow>& arRows, ZTNanoseconds& arEnd, ZTNanoseconds aAt)
        : mrRows(arRows), mrEnd(arEnd), mAt(aAt) {}

    /// False: it is a line of a site.
    bool take(std::size_t aNumber, ZTSStoryLine aLine) {
        if (aLine.at(0) == "at") {
            const ZTNanoseconds lTime = sMoment(aLine);
            mMoved = mBegin != 0 || mAt == 0 ? mMoved : mAt - lTime;
            mBegin = lTime + mMoved;
            return true;
        }
        if (mBegin == 0) {
            return false;
        }
        const ZTNanoseconds lTime = mBegin + ZTCStorySite::readLength(aLine.at(0));
        aLine.mWords.erase(aLine.mWords.begin());
        if (aLine.at(0) == "end") {
            mrEnd = std::max(mrEnd, lTime);
            return true;
        }
        const ZTNanoseconds lEvery = ZTCStorySite::readLength(aLine.get("every"));
        const ZTNanoseconds lUntil = mBegin + ZTCStorySite::readLength(aLine.get("until"));
        mrRows.push_back({lTime, aNumber, aLine});
        for (ZTNanoseconds lNext = lTime + lEvery; lEvery != 0 && lNext <= lUntil; lNext += lEvery) {
            mrRows.push_back({lNext, aNumber, aLine});
        }
        return true;
    }

  private:
    std::vector<ZTSStoryRow>& mrRows;
    ZTNanoseconds& mrEnd;
    const ZTNanoseconds mAt;
    ZTNanoseconds mBegin = 0;
    ZTNanoseconds mMoved = 0;
};

// "array1-A0,array1/B", and what stands for "array1".
std::string sReplaced(const std::string& acrList, const std::map<std::string, std::string>& acrInstead) {
    std::string lText;
    for (std::string_view lList = acrList; !lList.empty();) {
        const std::string lWord(lList.substr(0, lList.find(',')));
        lList.remove_prefix(std::min(lList.size(), lWord.size() + 1));
        auto lAt = acrInstead.find(lWord);
        std::size_t lLength = lWord.size();
        if (lAt == acrInstead.end()) {
            lLength = std::min(lWord.size(), lWord.find_first_of("-/"));
            lAt = acrInstead.find(lWord.substr(0, lLength));
        }
        lText += lText.empty() ? "" : ",";
        lText += lAt != acrInstead.end() ? lAt->second + lWord.substr(lLength) : lWord;
    }
    return lText;
}

// ---- Playing ----

void sMove(ZTSStoryNews& arNews, ZTNanoseconds aShift) {
    arNews.mKnown += aShift;
    std::visit(
        [=](auto& arWhat) {
            if constexpr (requires { arWhat.mFirst; }) {
                arWhat.mFirst += aShift;
                arWhat.mLast += aShift;
            } else if constexpr (requires { arWhat.mTime; }) {
                arWhat.mTime += aShift;
            }
        },
        arNews.mWhat);
}

ZTNanoseconds sLastOf(const ZTSStoryNews& acrNews) {
    return std::visit(
        [&](const auto& acrWhat) {
            if constexpr (requires { acrWhat.mLast; }) {
                return acrWhat.mLast;
            } else if constexpr (requires { acrWhat.mMinute; }) {
                return acrWhat.mMinute + sMinute;
            } else {
                return acrNews.mKnown;
            }
        },
        acrNews.mWhat);
}

template <class What>
bool sIs(const ZTSStoryNews& acrNews) {
    return std::holds_alternative<What>(acrNews.mWhat);
}
bool sIsState(const ZTSStoryNews& acrNews) {
    return sIs<std::shared_ptr<const ZTSHostPorts>>(acrNews) ||
           sIs<std::shared_ptr<const ZTSHostStorage>>(acrNews);
}

// Rows for the reader of signs, and what it is to know of ports and storage.
template <class Row>
void sRead(ZTCSignReader& arReader, const Row& acrRow, ZTCSignReader::Signs& arSigns) {
    if constexpr (requires { arReader.read(acrRow, arSigns); }) {
        arReader.read(acrRow, arSigns);
    }
}
void sRead(ZTCSignReader& arReader, const ZTSStoryCount& acrCount, ZTCSignReader::Signs& arSigns) {
    arReader.read(acrCount.mMinute, acrCount.mWhose, acrCount.mName, acrCount.mValue, arSigns);
}
void sRead(ZTCSignReader& arReader, const std::shared_ptr<const ZTSHostPorts>& acrpPorts,
           ZTCSignReader::Signs& /*arSigns*/) {
    arReader.takePorts(*acrpPorts);
}
void sRead(ZTCSignReader& arReader, const std::shared_ptr<const ZTSHostStorage>& acrpStorage,
           ZTCSignReader::Signs& /*arSigns*/) {
    arReader.takeStorage(*acrpStorage);
}

/// A finder with what feeds it, and the history that outlives both.
class Player {
  public:
    Player(const ZTSIncidentRules& acrRules, const ZTCStorySite& acrSite, std::vector<ZTSWindow> aWindows,
           unsigned int aShuffle)
        : mRules(acrRules),
          mrSite(acrSite),
          mWindows(std::move(aWindows)),
          mShuffle(aShuffle),
          mRandom(aShuffle),
          mpPorts(std::make_shared<const ZTSHostPorts>(acrSite.makePorts())),
          mpStorage(std::make_shared<const ZTSHostStorage>(acrSite.makeStorage())) {}

    /// What becomes known in one fetch, which ends then.
    void give(std::vector<ZTSStoryNews> aNews, ZTNanoseconds aEnd) {
        if (mShuffle != 0) {
            std::ranges::shuffle(aNews, mRandom);
        }
        for (ZTSStoryNews& lrNews : aNews) {
            if (const auto* const lpSensor = std::get_if<ZTSStorySensor>(&lrNews.mWhat)) {
                lpSensor->mIsBack ? void() : end(aEnd);
                mIsGone = !lpSensor->mIsBack;
            }
        }
        // An ask is of what it finds.
        std::stable_partition(aNews.begin(), aNews.end(),
                              [](const ZTSStoryNews& acrNews) { return !sIs<ZTSIncidentAsk>(acrNews); });
        std::stable_partition(aNews.begin(), aNews.end(), sIsState);
        std::ranges::move(aNews, std::back_inserter(mWaiting));
        if (!mIsGone) {
            begin(aEnd);
            takeAll(mWaiting);
            std::ranges::copy_if(mWaiting, std::back_inserter(mHistory),
                                 [](const ZTSStoryNews& acrNews) { return !sIsState(acrNews); });
            mWaiting.clear();
        }
    }

    void advance(ZTNanoseconds aNow) {
        if (mpFinder) {
            mpFinder->advance(aNow);
            collect(aNow);
        }
    }
    void finish(ZTNanoseconds aNow) {
        begin(aNow);
        mpFinder->finish(aNow);
        collect(aNow);
    }
    /// A finder in its place knows what the history has.
    void startAnew(ZTNanoseconds aNow) {
        if (!mIsGone) {
            end(aNow);
            begin(aNow);
        }
    }

    ZTSStoryEnd getEnd() {
        for (auto& [lId, lrIncident] : mIncidents) {
            mEnd.mIncidents.push_back(lrIncident);
        }
        mEnd.mNames = mrSite.getLabels();
        return std::move(mEnd);
    }

  private:
    void begin(ZTNanoseconds aNow) {
        if (mpFinder) {
            return;
        }
        mpFinder = std::make_unique<ZTCIncidentFinder>(mRules);
        mReader = {};
        ZTSIncidentStart lStart;
        for (const auto& [lId, lrIncident] : mIncidents) {
            lStart.mNextId = lId + 1;
            if (lrIncident.mMerged == 0 &&
                (lrIncident.mClosed == 0 || lrIncident.mClosed > aNow - sKnownFor)) {
                lStart.mIncidents.push_back(lrIncident);
            }
        }
        std::ranges::sort(lStart.mIncidents, {}, &ZTSIncident::mOpened);
        for (const auto& [lrKey, lrBaseline] : mBaselines) {
            lStart.mBaselines.push_back(lrBaseline);
        }
        lStart.mTo = mTo;
        mpFinder->setStart(lStart);
        if (mrSite.isNamed()) {
            mpFinder->takeLabels(mrSite.getLabels());
        }
        mpFinder->takeWindows(mWindows);
        mReader.takePorts(*mpPorts);
        mReader.takeStorage(*mpStorage);
        mpFinder->takeStorage(*mpStorage, aNow);
        const ZTNanoseconds lFrom = mTo - std::chrono::nanoseconds(mpFinder->getLookBack()).count();
        for (const ZTSStoryNews& lrNews : mHistory) {
            if (const auto* const lpChange = std::get_if<ZTSChange>(&lrNews.mWhat);
                lpChange != nullptr && sLastOf(lrNews) < lFrom) {
                mpFinder->takeChange(*lpChange);
            }
        }
        std::vector<ZTSStoryNews> lAgain;
        std::ranges::copy_if(mHistory, std::back_inserter(lAgain), [=](const ZTSStoryNews& acrNews) {
            return sLastOf(acrNews) >= lFrom && !sIs<ZTSIncidentAsk>(acrNews);
        });
        takeAll(lAgain);
    }
    void end(ZTNanoseconds aNow) {
        if (mpFinder) {
            mpFinder->advance(aNow);
            collect(aNow);
            mpFinder.reset();
        }
    }

    void takeAll(const std::vector<ZTSStoryNews>& acrNews) {
        ZTCSignReader::Signs lSigns;
        for (const ZTSStoryNews& lrNews : acrNews) {
            std::visit(
                [&](const auto& acrWhat) {
                    take(acrWhat, lrNews.mKnown);
                    sRead(mReader, acrWhat, lSigns);
                },
                lrNews.mWhat);
            for (const ZTSSign& lrSign : lSigns) {
                mpFinder->take(lrSign);
            }
            lSigns.clear();
        }
    }

    // What the finder itself takes.
    template <class Row>
    void take(const Row& /*acrRow*/, ZTNanoseconds /*aKnown*/) {}
    void take(const ZTSChange& acrChange, ZTNanoseconds /*aKnown*/) { mpFinder->takeChange(acrChange); }
    void take(const ZTSIncidentAsk& acrAsk, ZTNanoseconds aKnown) {
        mpFinder->advance(aKnown);
        if (!mpFinder->ask(acrAsk)) {
            throw std::runtime_error(fmt::format("there is no incident {} to ask for", acrAsk.mId));
        }
    }
    void take(const std::shared_ptr<const ZTSHostPorts>& acrpPorts, ZTNanoseconds /*aKnown*/) {
        mpPorts = acrpPorts;
    }
    void take(const std::shared_ptr<const ZTSHostStorage>& acrpStorage, ZTNanoseconds aKnown) {
        mpStorage = acrpStorage;
        mpFinder->takeStorage(*mpStorage, aKnown);
    }

    void collect(ZTNanoseconds aNow) {
        ZTSIncidentNews lNews = mpFinder->takeNews();
        for (ZTSIncident& lrIncident : lNews.mIncidents) {
            mIncidents[lrIncident.mId] = std::move(lrIncident);
        }
        for (ZTSBaseline& lrBaseline : lNews.mBaselines) {
            auto& lrKept = mBaselines[{lrBaseline.mDay, lrBaseline.mKind, lrBaseline.mPort}];
            lrKept = std::move(lrBaseline);
        }
        mTo = std::max(mTo, lNews.mTo);
        for (ZTSIncidentTelling& lrTelling : mpFinder->takeTellings()) {
            mEnd.mTellings.push_back({aNow, std::move(lrTelling)});
        }
    }

    const ZTSIncidentRules mRules;
    const ZTCStorySite& mrSite;
    const std::vector<ZTSWindow> mWindows;
    const unsigned int mShuffle;
    std::mt19937 mRandom;
    std::shared_ptr<const ZTSHostPorts> mpPorts;
    std::shared_ptr<const ZTSHostStorage> mpStorage;
    std::unique_ptr<ZTCIncidentFinder> mpFinder;
    ZTCSignReader mReader;
    bool mIsGone = false;
    std::vector<ZTSStoryNews> mWaiting;

    // The history.
    std::vector<ZTSStoryNews> mHistory;
    std::map<std::uint64_t, ZTSIncident> mIncidents;
    std::map<std::tuple<std::int64_t, std::string, ZTSWwn>, ZTSBaseline> mBaselines;
    ZTNanoseconds mTo = 0;
    ZTSStoryEnd mEnd;
};

}  // namespace

ZTCSignStory::ZTCSignStory(std::string_view aText) {
    Rows lRows(mRows, mEnd, 0);
    sEachLine(aText, [&](std::size_t aNumber, const ZTSStoryLine& acrLine, std::string_view aLine) {
        if (lRows.take(aNumber, acrLine) || mSite.take(acrLine)) {
            return;
        }
        if (acrLine.at(0) == "rule") {
            mRules.push_back(sBehind(aLine, "rule"));
        } else if (acrLine.at(0) == "window") {
            mWindows.push_back(parseWindow(sBehind(aLine, "window")));
        } else {
            throw std::runtime_error("there is no " + acrLine.at(0));
        }
    });
    mSite.end();
    std::ranges::stable_sort(mRows, {}, &ZTSStoryRow::mTime);
}

void ZTCSignStory::add(std::string_view aText, const std::map<std::string, std::string>& acrInstead,
                       ZTNanoseconds aAt) {
    Rows lRows(mRows, mEnd, aAt);
    sEachLine(aText, [&](std::size_t aNumber, ZTSStoryLine aLine, std::string_view) {
        for (std::string& lrWord : aLine.mWords) {
            lrWord = sReplaced(lrWord, acrInstead);
        }
        for (auto& [lrName, lrValue] : aLine.mValues) {
            lrValue = sReplaced(lrValue, acrInstead);
        }
        lRows.take(aNumber, std::move(aLine));
    });
    std::ranges::stable_sort(mRows, {}, &ZTSStoryRow::mTime);
}

// Between two fetches in which something becomes known time passes too: at first with each, then each minute.
ZTSStoryEnd ZTCSignStory::play(const ZTSStoryPlay& acrPlay) const {
    ZTSIncidentRules lRules = getDefaultRules();
    for (const auto* const lpLines : {&mRules, &acrPlay.mRules}) {
        for (const std::string& lrLine : *lpLines) {
            applyRule(lRules, lrLine);
        }
    }
    std::vector<ZTSStoryNews> lNews = listNews();
    for (ZTSStoryNews& lrNews : lNews) {
        if (const auto lShift = acrPlay.mShift.find(lrNews.mVerb); lShift != acrPlay.mShift.end()) {
            sMove(lrNews, lShift->second);
        }
        lrNews.mKnown += sIs<ZTSRecord>(lrNews) ? acrPlay.mLate : 0;
    }
    std::ranges::stable_sort(lNews, {}, &ZTSStoryNews::mKnown);
    Player lPlayer(lRules, mSite, mWindows, acrPlay.mShuffle);
    std::vector<ZTNanoseconds> lStarts = acrPlay.mColdStarts;
    std::ranges::sort(lStarts, std::greater<>());
    const ZTNanoseconds lEnd = getEnd();
    if (acrPlay.mFetch == 0) {
        lPlayer.give(std::move(lNews), lEnd);
        lPlayer.finish(lEnd);
        return lPlayer.getEnd();
    }
    auto lAt = lNews.begin();
    ZTNanoseconds lNow = getBegin();
    for (unsigned int lQuiet = 0; lNow < lEnd;) {
        lNow += lQuiet < 30 ? acrPlay.mFetch : std::max(acrPlay.mFetch, sMinute);
        const bool lIsEarly = lAt != lNews.end() && lAt->mKnown < lNow;
        if (lIsEarly && lQuiet >= 30) {
            lNow = lAt->mKnown - (lAt->mKnown - getBegin()) % acrPlay.mFetch + acrPlay.mFetch;
        }
        const auto lFirst = lAt;
        lAt = std::find_if(lAt, lNews.end(),
                           [=](const ZTSStoryNews& acrNews) { return acrNews.mKnown >= lNow; });
        lQuiet = lFirst == lAt ? lQuiet + 1 : 0;
        lPlayer.give({std::make_move_iterator(lFirst), std::make_move_iterator(lAt)}, lNow);
        lPlayer.advance(lNow);
        while (!lStarts.empty() && lStarts.back() <= lNow) {
            lPlayer.startAnew(lNow);
            lStarts.pop_back();
        }
    }
    lPlayer.finish(lEnd);
    return lPlayer.getEnd();
}

std::vector<ZTSSign> ZTCSignStory::listSigns() const {
    ZTCSignReader lReader;
    ZTCSignReader::Signs lSigns;
    lReader.takePorts(mSite.makePorts());
    lReader.takeStorage(mSite.makeStorage());
    for (const ZTSStoryNews& lrNews : listNews()) {
        std::visit([&](const auto& acrWhat) { sRead(lReader, acrWhat, lSigns); }, lrNews.mWhat);
    }
    return lSigns;
}

ZTNanoseconds ZTCSignStory::getBegin() const {
    return mRows.empty() ? mEnd : mRows.front().mTime;
}

ZTNanoseconds ZTCSignStory::getEnd() const {
    const ZTNanoseconds lLast = mRows.empty() ? 0 : mRows.back().mTime + 10 * ZTSecond;
    return std::max(mEnd, lLast);
}

std::size_t ZTCSignStory::countRows() const {
    return mRows.size();
}
