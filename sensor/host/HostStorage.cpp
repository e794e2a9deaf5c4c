#include "HostStorage.h"

#include <algorithm>
#include <map>
#include <set>
#include <unordered_map>
#include <utility>

#include "Blocks.h"
#include "Luns.h"
#include "MountTable.h"
#include "PathStates.h"

namespace {

constexpr std::size_t sMuch = 512;     // to be read: a second's worth of what a slice aims at, and more
constexpr unsigned int sMuchMore = 3;  // times the aim, then

}  // namespace

namespace {

bool sHas(const auto& acrStates, const auto& acrState) {
    const auto lAt = acrStates.find(acrState.first);
    return lAt != acrStates.end() && lAt->second == acrState.second;
}

}  // namespace

class ZTCHostStorage::Impl {
  public:
    explicit Impl(const std::string& acrRoot)
        : mLuns(acrRoot, MostLuns), mBlocks(acrRoot), mMountTable(acrRoot, MostMounts) {}

    void take(const ZTSUevent& acrEvent);
    void lookAnew();
    bool step(const ZTSHostPorts& acrPorts, std::chrono::nanoseconds aAim, ZTNanoseconds aTime,
              ZTCMeasures& arMeasures);
    bool isWhole() const { return mIsWhole; }
    std::size_t getLeftOut() const;
    std::optional<std::uint64_t> takeQuestion();

    ZTSHostStorage mStorage;
    ZTCPathStates mStates;

  private:
    void setPorts(const ZTSHostPorts& acrPorts);
    void tell();
    void tellMaps();
    bool isInferredUsable(const ZTSLun& acrLun) const;

    ZTCLuns mLuns;
    ZTCBlocks mBlocks;
    ZTCMountTable mMountTable;
    ZTSHostPorts mPorts;
    std::map<ZTSWwn, bool> mIsOnline;                           // by initiator
    std::map<std::pair<ZTSWwn, ZTSWwn>, bool> mIsRemoteOnline;  // by initiator and target
    bool mIsWhole = false;
    std::size_t mMapsLeftOut = 0;
    std::size_t mMapsInferred = 0;

    // What is to be told anew.
    bool mAreMapsDue = true;
    bool mAreVolumesDue = true;
    bool mAreMountsDue = true;
    bool mHasChanged = false;
};

void ZTCHostStorage::Impl::take(const ZTSUevent& acrEvent) {
    mLuns.take(acrEvent);
    mBlocks.take(acrEvent);
    mStates.take(acrEvent);
}

void ZTCHostStorage::Impl::lookAnew() {
    mLuns.lookAnew();
    mBlocks.lookAnew();
    mMountTable.lookAnew();
    mStates.doubt();
}

// Whatever is due has its share, so that neither holds up the other or the round. That goes as far as it has
// to, to be done within a minute: at rest it is the least of it.
bool ZTCHostStorage::Impl::step(const ZTSHostPorts& acrPorts, std::chrono::nanoseconds aAim,
                                ZTNanoseconds aTime, ZTCMeasures& arMeasures) {
    const ZTCSlice lSlice(aAim);
    mStates.step();
    setPorts(acrPorts);
    mLuns.list();
    mBlocks.list();
    mAreMountsDue |= mMountTable.look();
    const unsigned int lTimes = mLuns.countDue() + mBlocks.countDue() > sMuch ? sMuchMore : 1;
    mLuns.readDue(lSlice, 2 * lTimes, aTime, arMeasures);
    mBlocks.readDue(lSlice, 3 * lTimes);
    mLuns.readRound(lSlice, 4 * sMuchMore, aTime, arMeasures);
    mBlocks.readRound(lSlice, 4 * sMuchMore);
    tell();
    mIsWhole = mIsWhole || (mLuns.isWhole() && mBlocks.isWhole() && mMountTable.hasLooked());
    return std::exchange(mHasChanged, false);
}

void ZTCHostStorage::Impl::setPorts(const ZTSHostPorts& acrPorts) {
    mLuns.setPorts(acrPorts);
    if (acrPorts == mPorts) {
        return;
    }
    std::map<ZTSWwn, bool> lIsOnline;
    std::map<std::pair<ZTSWwn, ZTSWwn>, bool> lIsRemoteOnline;
    for (const ZTSLocalPort& lrPort : acrPorts.mLocal) {
        lIsOnline[lrPort.mNames.mPort] = lrPort.mState == "Online";
    }
    for (const ZTSRemotePort& lrPort : acrPorts.mRemote) {
        lIsRemoteOnline[{lrPort.mInitiator, lrPort.mNames.mPort}] = lrPort.mState == "Online";
    }
    std::set<ZTSWwn> lChanged;
    for (const auto& lrPort : lIsOnline) {
        if (!sHas(mIsOnline, lrPort)) {
            lChanged.insert(lrPort.first);
        }
    }
    for (const auto& lrRemote : lIsRemoteOnline) {
        if (!sHas(mIsRemoteOnline, lrRemote)) {
            lChanged.insert(lrRemote.first.first);
        }
    }
    mLuns.follow(lChanged);
    mPorts = acrPorts;
    mAreMapsDue |= lIsOnline != mIsOnline || lIsRemoteOnline != mIsRemoteOnline;
    mIsOnline = std::move(lIsOnline);
    mIsRemoteOnline = std::move(lIsRemoteOnline);
}

// Each is due until it is told: what throws meanwhile is told by the next slice.
void ZTCHostStorage::Impl::tell() {
    if (mLuns.tell(mStorage.mLuns)) {
        mHasChanged = true;
        mAreMapsDue = true;
    }
    if (mBlocks.hasChanged()) {
        mAreMapsDue = mAreVolumesDue = mAreMountsDue = true;
        mBlocks.haveTold();
    }
    if (mStates.hasChanged()) {
        mAreMapsDue = true;
        mStates.haveTold();
    }
    const auto lTell = [this](auto& arTold, auto aNow) {
        mHasChanged |= arTold != aNow;
        arTold = std::move(aNow);
    };
    if (mAreMapsDue) {
        tellMaps();
        mAreMapsDue = false;
    }
    if (mAreVolumesDue) {
        lTell(mStorage.mVolumes, mBlocks.listVolumes(mStorage.mMaps));
        mAreVolumesDue = false;
    }
    if (mAreMountsDue) {
        lTell(mStorage.mMounts, mBlocks.listMounts(mMountTable.getMounted()));
        mAreMountsDue = false;
    }
}

void ZTCHostStorage::Impl::tellMaps() {
    std::unordered_map<std::string_view, const ZTSLun*> lLuns;
    lLuns.reserve(mStorage.mLuns.size());
    for (const ZTSLun& lrLun : mStorage.mLuns) {
        lLuns.emplace(lrLun.mDisk, &lrLun);
    }
    std::size_t lLeftOut = 0;
    auto lMaps = mBlocks.listMaps(
        mStates,
        [&](const std::string& acrDisk) {
            const auto lAt = lLuns.find(acrDisk);
            return lAt == lLuns.end() || isInferredUsable(*lAt->second);
        },
        MostMaps, lLeftOut);
    const auto lInferred = static_cast<std::size_t>(std::ranges::count_if(lMaps, &ZTSMap::isInferred));
    if (lInferred > std::exchange(mMapsInferred, lInferred)) {
        mStates.askSoon();
    }
    mHasChanged |= lMaps != mStorage.mMaps;
    mStorage.mMaps = std::move(lMaps);
    mMapsLeftOut = lLeftOut;
}

std::optional<std::uint64_t> ZTCHostStorage::Impl::takeQuestion() {
    const auto lIsUntold = [](const ZTSPath& acrPath) { return acrPath.mSource != ZTEPathSource::Kernel; };
    return mStorage.mMaps.empty()
               ? std::nullopt
               : mStates.takeQuestion(std::ranges::any_of(mStorage.mMaps, [&](const ZTSMap& acrMap) {
                     return std::ranges::any_of(acrMap.mPaths, lIsUntold);
                 }));
}

// What is not known speaks for it.
bool ZTCHostStorage::Impl::isInferredUsable(const ZTSLun& acrLun) const {
    const auto lHost = mIsOnline.find(acrLun.mInitiator);
    const auto lRemote = mIsRemoteOnline.find({acrLun.mInitiator, acrLun.mTarget});
    return (acrLun.mState.empty() || acrLun.mState == "running") && acrLun.mAccess != "unavailable" &&
           acrLun.mAccess != "offline" && (lHost == mIsOnline.end() || lHost->second) &&
           (lRemote == mIsRemoteOnline.end() || lRemote->second);
}

std::size_t ZTCHostStorage::Impl::getLeftOut() const {
    return mLuns.getLeftOut() + mBlocks.getLeftOut() + mMapsLeftOut + mMountTable.getLeftOut();
}

ZTCHostStorage::ZTCHostStorage(const std::string& acrRoot) : mpImpl(std::make_unique<Impl>(acrRoot)) {}

ZTCHostStorage::~ZTCHostStorage() = default;

void ZTCHostStorage::take(const ZTSUevent& acrEvent) {
    mpImpl->take(acrEvent);
}

void ZTCHostStorage::lookAnew() {
    mpImpl->lookAnew();
}

void ZTCHostStorage::doubtPaths() {
    mpImpl->mStates.doubt();
}

std::optional<std::uint64_t> ZTCHostStorage::takeQuestion() {
    return mpImpl->takeQuestion();
}

void ZTCHostStorage::takePaths(const std::vector<ZTSMultipathdPath>& acrPaths, std::uint64_t aQuestion) {
    mpImpl->mStates.takeAnswer(acrPaths, aQuestion);
}

bool ZTCHostStorage::step(const ZTSHostPorts& acrPorts, std::chrono::nanoseconds aAim, ZTNanoseconds aTime,
                          ZTCMeasures& arMeasures) {
    return mpImpl->step(acrPorts, aAim, aTime, arMeasures);
}

bool ZTCHostStorage::isWhole() const {
    return mpImpl->isWhole();
}

const ZTSHostStorage& ZTCHostStorage::getStorage() const {
    return mpImpl->mStorage;
}

std::size_t ZTCHostStorage::getLeftOut() const {
    return mpImpl->getLeftOut();
}
