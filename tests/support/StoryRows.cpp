#include "StoryRows.h"

#include <fmt/format.h>

#include <algorithm>
#include <random>
#include <stdexcept>

#include "EventBlock.h"
#include "PortChanges.h"
#include "StorageChanges.h"

namespace {

using Port = ZTCStorySite::Port;
using Words = ZTSStoryLine;

constexpr ZTNanoseconds sStallTold = 10 * ZTSecond;
constexpr ZTNanoseconds sMinute = 60 * ZTSecond;

void sPutWord(std::vector<std::uint8_t>& arData, std::uint32_t aWord) {
    for (unsigned int lShift = 0; lShift < 32; lShift += 8) {
        arData.push_back(static_cast<std::uint8_t>(aWord >> lShift));
    }
}

std::uint32_t sNumber(const std::string& acrText, int aBase = 10) {
    return static_cast<std::uint32_t>(std::stoul(acrText, nullptr, aBase));
}

// "x12".
std::uint64_t sTimes(const Words& acrWords) {
    const auto lAt = std::ranges::find_if(acrWords.mWords, [](const std::string& acrWord) {
        return acrWord.size() > 1 && acrWord[0] == 'x' && isdigit(acrWord[1]) != 0;
    });
    return lAt != acrWords.mWords.end() ? std::stoull(lAt->substr(1)) : 1;
}

ZTNanoseconds sLasts(const Words& acrWords) {
    return ZTCStorySite::readLength(acrWords.get("for"));
}

class Maker {
  public:
    explicit Maker(const ZTCStorySite& acrSite)
        : mrSite(acrSite),
          mWellPorts(acrSite.makePorts()),
          mWellStorage(acrSite.makeStorage()),
          mPorts(mWellPorts),
          mStorage(mWellStorage),
          mToldPorts(mPorts),
          mToldStorage(mStorage) {
        for (const ZTSEventKindName& lrKind : listEventKinds()) {
            mKinds[lrKind.mpName] = lrKind;
        }
    }

    void make(const ZTSStoryRow& acrRow) {
        using Make = void (Maker::*)(const Words&);
        static const std::map<std::string, Make> sMakers = {
            {"port-down", &Maker::turnPorts},     {"port-up", &Maker::turnPorts},
            {"port-gone", &Maker::turnPorts},     {"port-back", &Maker::turnPorts},
            {"target-lost", &Maker::turnTargets}, {"target-back", &Maker::turnTargets},
            {"paths-lost", &Maker::turnPaths},    {"paths-back", &Maker::turnPaths},
            {"paths-removed", &Maker::turnPaths}, {"luns", &Maker::turnLuns},
            {"accept", &Maker::accept},           {"fpin", &Maker::makeFpin},
            {"count", &Maker::makeCount},         {"stall", &Maker::makeStall},
            {"stall-over", &Maker::makeStall},    {"loss", &Maker::makeLoss},
            {"agent-gone", &Maker::turnAgent},    {"agent-back", &Maker::turnAgent},
            {"sensor-gone", &Maker::turnSensor},  {"sensor-back", &Maker::turnSensor},
            {"change", &Maker::makeChange},       {"ask", &Maker::makeAsk},
            {"noise", &Maker::makeNoise}};
        mTime = acrRow.mTime;
        mVerb = acrRow.getVerb();
        const auto lMaker = sMakers.find(mVerb);
        if (lMaker != sMakers.end()) {
            (this->*lMaker->second)(acrRow.mWords);
        } else {
            makeRecords(acrRow.mWords);
        }
    }

    std::vector<ZTSStoryNews> end(ZTNanoseconds aEnd) {
        for (auto& [lrName, lrStall] : mStalls) {
            mTime = aEnd;
            tellStall(lrStall);
        }
        std::ranges::stable_sort(mNews, {}, &ZTSStoryNews::mKnown);
        return std::move(mNews);
    }

  private:
    // ---- Records ----

    void makeRecords(const Words& acrWords) {
        if (!mKinds.contains(mVerb)) {
            throw std::runtime_error("there is no " + mVerb);
        }
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
        lRecord.mLast = mTime + sLasts(acrWords);
        lRecord.mOccurrences = sTimes(acrWords);
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
        tell(std::move(lRecord));
    }

    ZTSRecord beginRecord(const std::string& acrKind, const Port& acrHost) const {
        ZTSRecord lRecord;
        const ZTSEventKindName& lrKind = mKinds.at(acrKind);
        lRecord.mSeries.mCategory = lrKind.mCategory;
        lRecord.mSeries.mSubcategory = lrKind.mSubcategory;
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
        for (const ZTNanoseconds lEnd = mTime + sLasts(acrWords); mTime < lEnd; mTime += lStep) {
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

    // ---- Ports, paths and LUNs: what becomes of them is what the sensor makes of it ----

    void turnPorts(const Words& acrWords) {
        for (const Port* const lpPort : mrSite.findHosts(acrWords.list("host"))) {
            const auto lIsIt = [&](const ZTSLocalPort& acrPort) {
                return acrPort.mNames.mPort == lpPort->mWwn;
            };
            if (mVerb == "port-gone") {
                std::erase_if(mPorts.mLocal, lIsIt);
            } else if (mVerb == "port-back") {
                std::erase_if(mPorts.mLocal, lIsIt);
                mPorts.mLocal.push_back(*std::ranges::find_if(mWellPorts.mLocal, lIsIt));
            } else if (const auto lAt = std::ranges::find_if(mPorts.mLocal, lIsIt);
                       lAt != mPorts.mLocal.end()) {
                lAt->mState = mVerb == "port-up" ? "Online" : acrWords.get("state", "Linkdown");
            }
        }
        tellPorts();
    }

    void turnTargets(const Words& acrWords) {
        const bool lIsBack = mVerb == "target-back";
        const std::string lState = acrWords.get("state", lIsBack ? "Online" : "Blocked");
        for (const ZTCStorySite::Pair& lrPair :
             mrSite.findPairs(acrWords.list("host"), acrWords.list("from"))) {
            const auto lIsIt = [&](const ZTSRemotePort& acrPort) {
                return acrPort.mInitiator == lrPair.first->mWwn &&
                       acrPort.mNames.mPort == lrPair.second->mWwn;
            };
            const auto lAt = std::ranges::find_if(mPorts.mRemote, lIsIt);
            if (lState == "gone") {
                std::erase_if(mPorts.mRemote, lIsIt);
            } else if (lAt != mPorts.mRemote.end()) {
                lAt->mState = lState;
            } else if (lIsBack) {
                mPorts.mRemote.push_back(*std::ranges::find_if(mWellPorts.mRemote, lIsIt));
            }
        }
        tellPorts();
    }

    /// Of those maps: work(map, the disk of the path, LUN as all is well).
    template <class Work>
    void eachPath(const Words& acrWords, const Work& acrWork) {
        const std::vector<std::string> lMaps = acrWords.list("map");
        const auto lPairs = mrSite.findPairs(acrWords.list("host"), acrWords.list("from"));
        for (ZTSMap& lrMap : mStorage.mMaps) {
            const ZTSMap& lrWell =
                mWellStorage.mMaps[static_cast<std::size_t>(&lrMap - mStorage.mMaps.data())];
            for (const ZTSPath& lrPath : lrWell.mPaths) {
                const ZTSLun& lrLun = *mWellStorage.findDisk(lrPath.mDisk);
                if ((lMaps.empty() || std::ranges::count(lMaps, lrMap.mName) != 0) &&
                    std::ranges::any_of(lPairs, [&](const ZTCStorySite::Pair& acrPair) {
                        return acrPair.first->mWwn == lrLun.mInitiator &&
                               acrPair.second->mWwn == lrLun.mTarget;
                    })) {
                    acrWork(lrMap, lrPath, lrLun);
                }
            }
        }
    }

    void turnPaths(const Words& acrWords) {
        eachPath(acrWords, [this](ZTSMap& arMap, const ZTSPath& acrPath, const ZTSLun& acrLun) {
            std::erase_if(arMap.mPaths, [&](const ZTSPath& acrOne) { return acrOne.mDisk == acrPath.mDisk; });
            std::erase_if(mStorage.mLuns,
                          [&](const ZTSLun& acrOne) { return acrOne.mDisk == acrPath.mDisk; });
            if (mVerb != "paths-removed") {
                arMap.mPaths.push_back({acrPath.mDisk, mVerb == "paths-back", ZTEPathSource::Kernel});
                mStorage.mLuns.push_back(acrLun);
            }
            std::ranges::sort(arMap.mPaths, {}, &ZTSPath::mDisk);
        });
        tellStorage();
    }

    void turnLuns(const Words& acrWords) {
        eachPath(acrWords, [&](ZTSMap&, const ZTSPath& acrPath, const ZTSLun&) {
            const auto lAt = std::ranges::find(mStorage.mLuns, acrPath.mDisk, &ZTSLun::mDisk);
            if (lAt != mStorage.mLuns.end()) {
                lAt->mState = acrWords.get("state", lAt->mState);
                lAt->mAccess = acrWords.get("access", lAt->mAccess);
            }
        });
        tellStorage();
    }

    void accept(const Words& acrWords) {
        const std::vector<std::string> lMaps = acrWords.list("map");
        for (ZTSMap& lrMap : mStorage.mMaps) {
            if (lMaps.empty() || std::ranges::count(lMaps, lrMap.mName) != 0) {
                lrMap.mTotal = lrMap.countUsable();
            }
        }
        tellStorage();
    }

    void tellPorts() {
        std::ranges::sort(mPorts.mRemote, {}, [](const ZTSRemotePort& acrPort) {
            return std::pair(acrPort.mInitiator, acrPort.mNames.mPort);
        });
        if (!mIsSensorGone) {
            tell(mTime, std::make_shared<const ZTSHostPorts>(mPorts));
            tellChanges(listPortChanges(std::exchange(mToldPorts, mPorts), mPorts, mTime));
        }
    }
    void tellStorage() {
        std::ranges::sort(mStorage.mLuns, {}, &ZTSLun::mDisk);
        if (!mIsSensorGone) {
            tell(mTime, std::make_shared<const ZTSHostStorage>(mStorage));
            tellChanges(listStorageChanges(std::exchange(mToldStorage, mStorage), mStorage, mTime));
        }
    }
    void tellChanges(std::vector<ZTSChange> aChanges) {
        for (ZTSChange& lrChange : aChanges) {
            tell(std::move(lrChange));
        }
    }

    // ---- Everything else ----

    void makeFpin(const Words& acrWords) {
        for (const Port* const lpPort : mrSite.findHosts(acrWords.list("host"))) {
            ZTSFpin lFpin;
            lFpin.mFirst = mTime;
            lFpin.mLast = mTime + sLasts(acrWords);
            lFpin.mTimes = sTimes(acrWords);
            lFpin.mInitiator = lpPort->mWwn;
            lFpin.mFabric = mrSite.fabricOf(*lpPort);
            lFpin.mDescriptor = acrWords.at(1);
            lFpin.mEvent = acrWords.at(2);
            if (acrWords.mValues.contains("attached")) {
                lFpin.mAttached = mrSite.findWwn(acrWords.get("attached"));
            }
            tell(std::move(lFpin));
        }
    }

    void makeCount(const Words& acrWords) {
        const ZTNanoseconds lMinute = mTime - mTime % sMinute;
        const auto lTell = [&](const ZTSMeasured& acrWhose) {
            tell(lMinute + sMinute,
                 ZTSStoryCount{lMinute, acrWhose, acrWords.at(1), std::stoull(acrWords.at(2))});
        };
        if (acrWords.mValues.contains("from")) {
            for (const auto& [lpHost, lpTarget] :
                 mrSite.findPairs(acrWords.list("host"), acrWords.list("from"))) {
                lTell({lpHost->mWwn, lpTarget->mWwn, {}});
            }
            return;
        }
        for (const Port* const lpPort : mrSite.findHosts(acrWords.list("host"))) {
            lTell({lpPort->mWwn, {}, {}});
        }
    }

    void makeStall(const Words& acrWords) {
        const std::string& lrName = acrWords.at(1);
        if (mVerb == "stall-over") {
            if (!mStalls.contains(lrName)) {
                throw std::runtime_error(lrName + " does not stand still");
            }
            ZTSStall lStall = mStalls.at(lrName);
            tellStall(lStall);
            mStalls.erase(lrName);
            lStall.mLast = mTime;
            lStall.mIsOver = true;
            tell(mTime, std::move(lStall));
            return;
        }
        ZTSStall& lrStall = mStalls[lrName];
        lrStall.mFirst = mTime;
        lrStall.mName = lrName;
        lrStall.mInFlight = 8;
        const auto lVolume = std::ranges::find(mWellStorage.mVolumes, lrName, &ZTSVolume::mName);
        const auto lMap = std::ranges::find(mWellStorage.mMaps, lrName, &ZTSMap::mName);
        if (lVolume == mWellStorage.mVolumes.end() && lMap == mWellStorage.mMaps.end()) {
            throw std::runtime_error("there is no volume or map " + lrName);
        }
        lrStall.mKind = lVolume != mWellStorage.mVolumes.end() ? "volume" : "map";
        lrStall.mDisk = lVolume != mWellStorage.mVolumes.end() ? lVolume->mDisk : lMap->mDisk;
        lrStall.mHits = mWellStorage.hitBy(lrStall.mDisk).toText();
    }
    // Behind ten seconds, and each minute up to now.
    void tellStall(ZTSStall aStall) {
        for (ZTNanoseconds lTold = aStall.mFirst + sStallTold; lTold < mTime; lTold += sMinute) {
            aStall.mLast = lTold;
            tell(lTold, aStall);
        }
    }

    void makeLoss(const Words& acrWords) {
        const std::string& lrWhat = acrWords.at(1);
        const std::size_t lAt = lrWhat.find('/');
        const ZTNanoseconds lEnd = mTime + sLasts(acrWords);
        tell(lEnd, ZTSLoss{mTime, lEnd, lrWhat.substr(0, lAt), lrWhat.substr(lAt + 1), sTimes(acrWords), {}});
    }

    void turnAgent(const Words& acrWords) {
        const bool lIsBack = mVerb == "agent-back";
        const std::string lHow = acrWords.mWords.size() > 1 ? acrWords.at(1) : "killed";
        mAgent += lIsBack ? 1 : 0;
        tell(mTime, ZTSChange{mTime, "agent", fmt::format("vrx-sca, process {}", mAgent),
                              lIsBack ? "came" : "went", "", "", lIsBack ? "" : lHow});
    }

    // Of one that was killed the next one tells.
    void turnSensor(const Words& acrWords) {
        const bool lIsBack = mVerb == "sensor-back";
        const std::string lName = fmt::format("vrx-sn, process {}", mSensor);
        if (!lIsBack) {
            mSensorEnd = acrWords.mWords.size() > 1 ? acrWords.at(1) : "ended";
            if (mSensorEnd == "ended") {
                tell(mTime, ZTSChange{mTime, "sensor", lName, "went", "", "", mSensorEnd});
            }
            tell(mTime, ZTSStorySensor{false});
            mIsSensorGone = true;
            return;
        }
        mIsSensorGone = false;
        tell(mTime, ZTSStorySensor{true});
        if (mSensorEnd != "ended") {
            tell(mTime, ZTSChange{mTime, "sensor", lName, "went", "", "", mSensorEnd});
        }
        tell(mTime, ZTSChange{mTime, "sensor", fmt::format("vrx-sn, process {}", ++mSensor), "came", "", "",
                              "version 1"});
        tellPorts();
        tellStorage();
    }

    void makeChange(const Words& acrWords) {
        std::string lName = acrWords.at(2);
        for (const auto& [lrPort, lrLabel] : mrSite.getLabels()) {
            lName = lrLabel.mName == lName ? lrPort.toText() : lName;
        }
        const bool lIsBoot = acrWords.at(3) == "booted";
        tell(mTime,
             ZTSChange{mTime, acrWords.at(1), lName, lIsBoot ? "booted" : acrWords.get("event", "changed"),
                       lIsBoot ? "" : acrWords.at(3), acrWords.at(4), acrWords.at(5)});
    }

    void makeAsk(const Words& acrWords) {
        using What = ZTSIncidentAsk::What;
        static const std::map<std::string, What> sWhats = {
            {"acknowledge", What::Acknowledge}, {"keep", What::Keep}, {"accept", What::Accept}};
        tell(mTime, ZTSIncidentAsk{sWhats.at(acrWords.at(1)), std::stoull(acrWords.at(2)), mTime,
                                   acrWords.get("who", "root"), acrWords.get("note")});
    }

    template <class What>
    void tell(ZTNanoseconds aKnown, What aWhat) {
        mNews.push_back({aKnown, mVerb, std::move(aWhat)});
    }
    /// Known when it is over.
    template <class What>
    void tell(What aWhat) {
        if constexpr (requires { aWhat.mLast; }) {
            mNews.push_back({aWhat.mLast, mVerb, std::move(aWhat)});
        } else {
            mNews.push_back({aWhat.mTime, mVerb, std::move(aWhat)});
        }
    }

    const ZTCStorySite& mrSite;
    const ZTSHostPorts mWellPorts;
    const ZTSHostStorage mWellStorage;
    std::map<std::string, ZTSEventKindName> mKinds;
    ZTNanoseconds mTime = 0;  // of the row that is made
    std::string mVerb;
    ZTSHostPorts mPorts;
    ZTSHostStorage mStorage;
    ZTSHostPorts mToldPorts;
    ZTSHostStorage mToldStorage;
    std::map<std::string, ZTSStall> mStalls;  // by name
    unsigned int mAgent = 100;
    unsigned int mSensor = 200;
    std::string mSensorEnd;
    bool mIsSensorGone = false;
    std::vector<ZTSStoryNews> mNews;
};

}  // namespace

std::vector<ZTSStoryNews> listStoryNews(const ZTCStorySite& acrSite, const std::vector<ZTSStoryRow>& acrRows,
                                        ZTNanoseconds aEnd) {
    Maker lMaker(acrSite);
    for (const ZTSStoryRow& lrRow : acrRows) {
        try {
            lMaker.make(lrRow);
        } catch (const std::exception& lrFailure) {
            throw std::runtime_error(fmt::format("line {}: {}", lrRow.mLine, lrFailure.what()));
        }
    }
    return lMaker.end(aEnd);
}
