#include "StoryRows.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "PortChanges.h"
#include "StorageChanges.h"
#include "StoryRecords.h"

namespace {

using Port = ZTCStorySite::Port;
using Words = ZTSStoryLine;

constexpr ZTNanoseconds sStallTold = 10 * ZTSecond;
constexpr ZTNanoseconds sMinute = 60 * ZTSecond;

class Maker {
  public:
    explicit Maker(const ZTCStorySite& acrSite)
        : mrSite(acrSite),
          mWellPorts(acrSite.makePorts()),
          mWellStorage(acrSite.makeStorage()),
          mPorts(mWellPorts),
          mStorage(mWellStorage),
          mToldPorts(mPorts),
          mToldStorage(mStorage) {}

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
            {"change", &Maker::makeChange},       {"ask", &Maker::makeAsk}};
        mTime = acrRow.mTime;
        mVerb = acrRow.getVerb();
        const auto lMaker = sMakers.find(mVerb);
        if (lMaker != sMakers.end()) {
            (this->*lMaker->second)(acrRow.mWords);
        } else {
            for (ZTSStoryRecord& lrRecord : listStoryRecords(mrSite, mTime, acrRow.mWords)) {
                mVerb = lrRecord.mVerb;
                tell(std::move(lrRecord.mRecord));
            }
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
            lFpin.mLast = mTime + acrWords.getLength();
            lFpin.mTimes = acrWords.getTimes();
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
        const ZTNanoseconds lEnd = mTime + acrWords.getLength();
        tell(lEnd,
             ZTSLoss{mTime, lEnd, lrWhat.substr(0, lAt), lrWhat.substr(lAt + 1), acrWords.getTimes(), {}});
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
