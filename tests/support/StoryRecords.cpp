#include "StoryRecords.h"

#include <algorithm>
#include <random>
#include <stdexcept>

#include "EventBlock.h"

namespace {

using Port = ZTCStorySite::Port;
using Words = ZTSStoryLine;

void sPutWord(std::vector<std::uint8_t>& arData, std::uint32_t aWord) {
    for (unsigned int lShift = 0; lShift < 32; lShift += 8) {
        arData.push_back(static_cast<std::uint8_t>(aWord >> lShift));
    }
}

std::uint32_t sNumber(const std::string& acrText, int aBase = 10) {
    return static_cast<std::uint32_t>(std::stoul(acrText, nullptr, aBase));
}

class Maker {
  public:
    Maker(const ZTCStorySite& acrSite, ZTNanoseconds aTime) : mrSite(acrSite), mTime(aTime) {}

    std::vector<ZTSStoryRecord> list(const Words& acrLine) {
        mVerb = acrLine.at(0);
        mVerb == "noise" ? makeNoise(acrLine) : makeRecords(acrLine);
        return std::move(mRecords);
    }

  private:
    void makeRecords(const Words& acrWords) {
        if (acrWords.mValues.contains("from")) {
            for (const auto& [lpHost, lpTarget] :
                 mrSite.findPairs(acrWords.list("host"), acrWords.list("from"))) {
                makeRecord(acrWords, *lpHost, lpTarget);
            }
            return;
        }
        for (const Port* const lpHost : mrSite.findHosts(acrWords.list("host"))) {
            makeRecord(acrWords, *lpHost, nullptr);
        }
    }

    void makeRecord(const Words& acrWords, const Port& acrHost, const Port* apTarget) {
        ZTSRecord lRecord = beginRecord(mVerb, acrHost);
        lRecord.mFirst = mTime;
        lRecord.mLast = mTime + acrWords.getLength();
        lRecord.mOccurrences = acrWords.getTimes();
        const ZTSWwn lRemote = apTarget != nullptr ? apTarget->mWwn : ZTSWwn();
        lRecord.mSeries.mRemote = apTarget != nullptr ? std::optional(lRemote) : std::nullopt;
        if (mVerb == "rscn") {
            sPutWord(lRecord.mData, apTarget != nullptr ? apTarget->mId : 0x019900);
        } else {
            lRecord.mData.insert(lRecord.mData.end(), lRemote.mBytes.begin(), lRemote.mBytes.end());
        }
        if (mVerb == "check_condition") {
            putSense(acrWords.get("sense", "5/24/00"), lRecord.mData);
        } else if (mVerb == "ls_rjt") {
            for (const std::uint32_t lWord : {sNumber(acrWords.get("command", "3")), 9U, 0x29U}) {
                sPutWord(lRecord.mData, lWord);
            }
        }
        mRecords.push_back({mVerb, std::move(lRecord)});
    }

    ZTSRecord beginRecord(const std::string& acrKind, const Port& acrHost) const {
        static const std::vector<ZTSEventKindName> sKinds = listEventKinds();
        ZTSRecord lRecord;
        const auto lKind = std::ranges::find(sKinds, acrKind, &ZTSEventKindName::mpName);
        if (lKind == sKinds.end()) {
            throw std::runtime_error("there is no " + acrKind);
        }
        lRecord.mSeries.mCategory = lKind->mCategory;
        lRecord.mSeries.mSubcategory = lKind->mSubcategory;
        lRecord.mSeries.mInitiator = {acrHost.mWwn, acrHost.mWwn};
        lRecord.mSeries.mFabric = mrSite.fabricOf(acrHost);
        lRecord.mOccurrences = 1;
        sPutWord(lRecord.mData, 1);
        return lRecord;
    }

    static void putSense(const std::string& acrSense, std::vector<std::uint8_t>& arData) {
        const std::size_t lAsc = acrSense.find('/') + 1;
        const std::size_t lAscq = acrSense.find('/', lAsc) + 1;
        sPutWord(arData, sNumber(acrSense, 16));
        sPutWord(arData, sNumber(acrSense.substr(lAsc), 16) << 8 | sNumber(acrSense.substr(lAscq), 16));
    }

    // What happens on any host, at its own ports and at such that nobody has a name for. The fabric tells of
    // the latter alone: of the others it does when something becomes of them.
    void makeNoise(const Words& acrWords) {
        static constexpr std::pair<const char*, const char*> sKinds[] = {{"plogi", ""},
                                                                         {"adisc", ""},
                                                                         {"queue_full", ""},
                                                                         {"queue_depth_change", ""},
                                                                         {"check_condition", "1/17/01"},
                                                                         {"check_condition", "5/24/00"},
                                                                         {"check_condition", "6/29/00"},
                                                                         {"check_condition", "6/3f/0e"},
                                                                         {"check_condition", "2/04/0b"}};
        std::mt19937 lRandom(sNumber(acrWords.get("seed", "1")));
        const ZTNanoseconds lStep = ZTSecond / sNumber(acrWords.at(1));
        const unsigned int lPorts = sNumber(acrWords.get("ports", "64"));
        const std::vector<const Port*> lHosts = mrSite.listHosts();
        const std::vector<ZTCStorySite::Pair> lOwn = mrSite.findPairs({}, {"*"});
        for (const ZTNanoseconds lEnd = mTime + acrWords.getLength(); mTime < lEnd; mTime += lStep) {
            const unsigned int lNumber = static_cast<unsigned int>(lRandom()) % lPorts;
            Port lPort;
            lPort.mId = 0x020000 + lNumber;
            lPort.mWwn = {{0x50, 0, 0, 0, 0, 0x77, static_cast<std::uint8_t>(lNumber >> 8),
                           static_cast<std::uint8_t>(lNumber)}};
            const Port& lrHost = *lHosts[lNumber % lHosts.size()];
            Words lWords = acrWords;
            lWords.mValues.erase("for");
            if (lRandom() % 50 == 0) {
                mVerb = "rscn";
                makeRecord(lWords, lrHost, &lPort);
                continue;
            }
            // Full queues at half the rate: at one port they are some in a minute, and harmless for hours.
            const std::size_t lKind = lRandom() % std::size(sKinds);
            const bool lIsRare = std::string_view(sKinds[lKind].first) == "queue_full" && lRandom() % 2 == 0;
            const auto& [lrpKind, lrpSense] = sKinds[lIsRare ? 0 : lKind];
            mVerb = lrpKind;
            lWords.mValues["sense"] = lrpSense;
            const bool lIsOwn = lNumber < lOwn.size();
            makeRecord(lWords, lIsOwn ? *lOwn[lNumber].first : lrHost,
                       lIsOwn ? lOwn[lNumber].second : &lPort);
        }
    }

    const ZTCStorySite& mrSite;
    ZTNanoseconds mTime;
    std::string mVerb;
    std::vector<ZTSStoryRecord> mRecords;
};

}  // namespace

std::vector<ZTSStoryRecord> listStoryRecords(const ZTCStorySite& acrSite, ZTNanoseconds aTime,
                                             const ZTSStoryLine& acrLine) {
    return Maker(acrSite, aTime).list(acrLine);
}
