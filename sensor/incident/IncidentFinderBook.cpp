#include "IncidentFinderBook.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace {

// More than a host has of ports, kinds and details at once: some 30 MiB.
constexpr std::size_t sMostSigns = 65536;

class Hash {
  public:
    void add(std::uint64_t aWord) { mValue = std::rotl((mValue ^ aWord) * 0x9e3779b97f4a7c15, 29); }
    void add(const ZTSWwn& acrName) {
        std::uint64_t lWord = 0;
        std::memcpy(&lWord, acrName.mBytes.data(), sizeof lWord);
        add(lWord);
    }
    void add(const std::string& acrText) {
        if (!acrText.empty()) {
            add(std::hash<std::string>()(acrText));
        }
    }
    std::uint64_t get() const { return mValue ^ mValue >> 32; }

  private:
    std::uint64_t mValue = 0;
};

std::uint64_t sHashOf(const ZTSSign& acrSign) {
    Hash lHash;
    lHash.add(static_cast<std::uint64_t>(acrSign.mSign) << 16 | std::uint64_t{acrSign.mCategory} << 8 |
              acrSign.mSubcategory);
    lHash.add(acrSign.mInitiator);
    lHash.add(acrSign.mRemote);
    lHash.add(acrSign.mFabric);
    lHash.add(acrSign.mDetail);
    lHash.add(acrSign.mDisk);
    return lHash.get();
}

bool sSaysTheSame(const ZTSSign& acrOne, const ZTSSign& acrOther) {
    return acrOne.mSign == acrOther.mSign && acrOne.mInitiator == acrOther.mInitiator &&
           acrOne.mRemote == acrOther.mRemote && acrOne.mCategory == acrOther.mCategory &&
           acrOne.mSubcategory == acrOther.mSubcategory && acrOne.mFabric == acrOther.mFabric &&
           acrOne.mDetail == acrOther.mDetail && acrOne.mDisk == acrOther.mDisk &&
           acrOne.mMaps == acrOther.mMaps;
}

}  // namespace

ZTSKnownSign& ZTCSignBook::find(const ZTSSign& acrSign) {
    const std::uint64_t lHash = sHashOf(acrSign);
    const auto [lBegin, lEnd] = mSigns.equal_range(lHash);
    for (auto lAt = lBegin; lAt != lEnd; ++lAt) {
        if (sSaysTheSame(lAt->second->mSign, acrSign)) {
            return *lAt->second;
        }
    }
    auto lpSign = std::make_unique<ZTSKnownSign>();
    lpSign->mSign = acrSign;
    lpSign->mSign.mEvents = 0;
    lpSign->mSign.mLeft = lpSign->mSign.mTotal = 0;
    lpSign->mpRow = &rowOf(acrSign.mSign);
    lpSign->mHash = lHash;
    ZTSKnownSign& lrSign = *lpSign;
    const auto lAt = mSigns.emplace(lHash, std::move(lpSign));
    try {
        findPlaces(lrSign);
    } catch (...) {
        leavePlaces(lrSign);
        mSigns.erase(lAt);
        throw;
    }
    return lrSign;
}

ZTSPlace* ZTCSignBook::findPlace(const ZTSFocus& acrFocus) {
    const auto lAt = mPlaces.find(acrFocus);
    return lAt != mPlaces.end() ? &lAt->second : nullptr;
}

ZTSPlace* ZTCSignBook::placeOf(ZTSKnownSign& arSign, ZTSFocus aFocus) {
    ZTSPlace& lrPlace = mPlaces.try_emplace(aFocus).first->second;
    lrPlace.mFocus = std::move(aFocus);
    arSign.mPlaces.push_back(&lrPlace);
    lrPlace.mSigns.push_back(&arSign);
    return &lrPlace;
}

void ZTCSignBook::findPlaces(ZTSKnownSign& arSign) {
    const ZTSSign& lrSign = arSign.mSign;
    if (lrSign.mInitiator != ZTSWwn()) {
        arSign.mpInitiator = placeOf(arSign, {ZTEFocus::Initiator, lrSign.mInitiator, {}, ""});
    }
    if (lrSign.mRemote != ZTSWwn()) {
        arSign.mpRemote = placeOf(arSign, {ZTEFocus::Remote, {}, lrSign.mRemote, ""});
        const auto lLabel = mLabels.find(lrSign.mRemote);
        if (lLabel != mLabels.end() && !lLabel->second.mArray.empty()) {
            const auto& [lrName, lrArray, lrController, lrFabric, lrSwitch] = lLabel->second;
            arSign.mpArray = placeOf(arSign, {ZTEFocus::Array, {}, {}, lrArray});
            if (!lrController.empty()) {
                arSign.mpController =
                    placeOf(arSign, {ZTEFocus::Controller, {}, {}, lrArray + "/" + lrController});
            }
        }
    }
    if (!lrSign.mDisk.empty()) {
        arSign.mDisks.push_back(placeOf(arSign, {ZTEFocus::Disk, {}, {}, lrSign.mDisk}));
    }
    for (const std::string& lrMap : lrSign.mMaps) {
        if (lrMap != lrSign.mDisk) {
            arSign.mDisks.push_back(placeOf(arSign, {ZTEFocus::Disk, {}, {}, lrMap}));
        }
    }
    if (arSign.mPlaces.empty()) {
        placeOf(arSign, {});
    }
}

void ZTCSignBook::leavePlaces(ZTSKnownSign& arSign) {
    for (ZTSPlace* const lpPlace : arSign.mPlaces) {
        std::erase(lpPlace->mSigns, &arSign);
        if (lpPlace->mSigns.empty()) {
            mPlaces.erase(ZTSFocus(lpPlace->mFocus));
        }
    }
    arSign.mPlaces.clear();
    arSign.mDisks.clear();
    arSign.mpInitiator = arSign.mpRemote = arSign.mpController = arSign.mpArray = nullptr;
}

// Each place is looked through once, however many signs go.
void ZTCSignBook::forgetUnused(ZTNanoseconds aBefore) {
    const auto lGoes = [&](const ZTSKnownSign& acrSign) {
        return acrSign.mHolders == 0 && acrSign.mUsed < aBefore;
    };
    for (auto lAt = mPlaces.begin(); lAt != mPlaces.end();) {
        std::erase_if(lAt->second.mSigns, [&](const ZTSKnownSign* apSign) { return lGoes(*apSign); });
        lAt = lAt->second.mSigns.empty() ? mPlaces.erase(lAt) : std::next(lAt);
    }
    std::erase_if(mSigns, [&](const auto& acrSign) { return lGoes(*acrSign.second); });
}

void ZTCSignBook::forget(ZTNanoseconds aBefore) {
    forgetUnused(aBefore);
    if (mSigns.size() <= sMostSigns) {
        return;
    }
    std::vector<ZTNanoseconds> lTimes;
    for (const auto& [lHash, lrpSign] : mSigns) {
        if (lrpSign->mHolders == 0) {
            lTimes.push_back(lrpSign->mUsed);
        }
    }
    if (!lTimes.empty()) {
        const auto lMiddle = lTimes.begin() + static_cast<std::ptrdiff_t>(lTimes.size() / 2);
        std::nth_element(lTimes.begin(), lMiddle, lTimes.end());
        forgetUnused(*lMiddle + 1);
    }
}

void ZTCSignBook::setLabels(const ZTPortLabels& acrLabels) {
    if (acrLabels == mLabels) {
        return;
    }
    mLabels = acrLabels;
    std::map<ZTSFocus, ZTSPlace> lOld;
    lOld.swap(mPlaces);
    for (auto& [lHash, lrpSign] : mSigns) {
        lrpSign->mPlaces.clear();
        lrpSign->mDisks.clear();
        lrpSign->mpInitiator = lrpSign->mpRemote = lrpSign->mpController = lrpSign->mpArray = nullptr;
        findPlaces(*lrpSign);
    }
}

bool ZTCSignBook::isFull() const {
    return mSigns.size() > sMostSigns;
}

std::size_t ZTCSignBook::getBytes() const {
    // A sign has about three texts that are longer than what fits into a string, and five places.
    return mSigns.size() * (sizeof(ZTSKnownSign) + 320) + mPlaces.size() * (sizeof(ZTSPlace) + 112);
}
