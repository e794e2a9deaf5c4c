#include "Folding.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

namespace {

constexpr std::size_t sLeastSlots = 64;

// ---- Hashes ----

class Hash {
  public:
    void add(std::uint64_t aWord) { mValue = std::rotl((mValue ^ aWord) * 0x9e3779b97f4a7c15, 29); }
    void add(std::span<const std::uint8_t> aBytes) {
        for (; !aBytes.empty(); aBytes = aBytes.subspan(std::min(aBytes.size(), sizeof(std::uint64_t)))) {
            std::uint64_t lWord = 0;
            memcpy(&lWord, aBytes.data(), std::min(aBytes.size(), sizeof lWord));
            add(lWord);
        }
    }
    void add(const ZTSPortNames& acrNames) {
        add(acrNames.mNode.mBytes);
        add(acrNames.mPort.mBytes);
    }
    std::uint64_t get() const {
        const std::uint64_t lValue = mValue * 0xff51afd7ed558ccd;
        return lValue ^ lValue >> 32;
    }

  private:
    std::uint64_t mValue = 0;
};

Hash sHashOf(const ZTSPortNames& acrInitiator, std::uint8_t aCategory, std::uint8_t aSubcategory,
             const std::optional<ZTSPortNames>& acrTarget) {
    Hash lHash;
    lHash.add(acrInitiator);
    lHash.add(std::uint64_t{aCategory} << 8 | aSubcategory);
    if (acrTarget) {
        lHash.add(*acrTarget);
    }
    return lHash;
}

Hash sHashOf(const ZTSSeries& acrSeries) {
    return sHashOf(acrSeries.mInitiator, acrSeries.mCategory, acrSeries.mSubcategory, acrSeries.mTarget);
}

// Of all that rows compare.
std::uint64_t sFinish(Hash aHash, std::span<const std::uint8_t> aData, const ZTSEventLayout& acrLayout) {
    aHash.add(acrLayout.mSame | std::uint64_t{acrLayout.mSets} << 32 | std::uint64_t{acrLayout.mAdded} << 40);
    aHash.add(aData.first(acrLayout.mSame));
    return aHash.get();
}

// ---- Bytes ----

// What malloc takes for so many.
constexpr std::size_t sHeapBytes(std::size_t aBytes) {
    return aBytes == 0 ? 0 : std::max<std::size_t>((aBytes + sizeof(std::size_t) + 15) / 16 * 16, 32);
}

// A row's part of a deque, whose blocks have 512 bytes and a pointer each.
constexpr std::size_t sInDeque = [] {
    constexpr std::size_t lInBlock = std::max<std::size_t>(512 / sizeof(ZTSFoldedRow), 1);
    return (sHeapBytes(lInBlock * sizeof(ZTSFoldedRow)) + 2 * sizeof(void*)) / lInBlock;
}();

std::size_t sBytesOf(const ZTSRecord& acrRecord) {
    return sInDeque + ZTBytesBeside(acrRecord);
}

// ---- Data ----

void sUniteSets(std::vector<std::uint8_t>& arData, std::span<const std::uint8_t> aMore,
                const ZTSEventLayout& acrLayout) {
    // The words of the sizes are the same in both.
    for (std::size_t lAt = acrLayout.mSame; lAt < acrLayout.mSame + acrLayout.mSets * ZTEventSetBytes;
         ++lAt) {
        arData[lAt] = static_cast<std::uint8_t>(arData[lAt] | aMore[lAt]);
    }
}

// Lists keep what they have.
void sCutToCommon(ZTSFoldedRow& arRow, const ZTSFoldedRow& acrOther) {
    auto& lrData = arRow.mRecord.mData;
    const auto& lrOther = acrOther.mRecord.mData;
    const auto lEnd = std::mismatch(lrData.begin(), lrData.end(), lrOther.begin(), lrOther.end()).first;
    const auto lCommon = static_cast<std::size_t>(lEnd - lrData.begin());
    if (arRow.mLayout == acrOther.mLayout && lCommon >= arRow.mLayout.mSame) {
        sUniteSets(lrData, lrOther, arRow.mLayout);
    } else {
        lrData.resize(lCommon / 4 * 4);  // fields are words
        arRow.mLayout = {static_cast<std::uint32_t>(lrData.size())};
    }
}

void sWiden(ZTSRecord& arRecord, ZTNanoseconds aFirst, ZTNanoseconds aLast, std::uint64_t aOccurrences) {
    arRecord.mFirst = std::min(arRecord.mFirst, aFirst);
    arRecord.mLast = std::max(arRecord.mLast, aLast);
    arRecord.mOccurrences += aOccurrences;
}

bool sSaysTheSame(const ZTSFoldedRow& acrRow, const ZTSCollected& acrCollected,
                  const ZTSEventLayout& acrLayout) {
    const ZTSSeries& lrSeries = acrRow.mRecord.mSeries;
    return acrRow.mLayout == acrLayout && lrSeries.mCategory == acrCollected.mCategory &&
           lrSeries.mSubcategory == acrCollected.mSubcategory &&
           lrSeries.mInitiator == acrCollected.mrInitiator && lrSeries.mTarget == acrCollected.mrTarget &&
           std::equal(acrCollected.mData.begin(), acrCollected.mData.begin() + acrLayout.mSame,
                      acrRow.mRecord.mData.begin());
}

}  // namespace

std::size_t ZTBytesBeside(const ZTSRecord& acrRecord) {
    const std::string& lrFabric = acrRecord.mSeries.mFabric;
    const bool lIsInside = lrFabric.capacity() <= std::string().capacity();
    return sHeapBytes(acrRecord.mData.capacity()) + (lIsInside ? 0 : sHeapBytes(lrFabric.capacity() + 1));
}

// ---- Rows by what they compare ----

ZTSFoldedRow* ZTCFolding::findOpen(const Slot& acrSlot) {
    if (acrSlot.mNumber < mFirstNumber) {
        return nullptr;
    }
    ZTSFoldedRow& lrRow = mRows[acrSlot.mNumber - mFirstNumber];
    return lrRow.mIsOpen ? &lrRow : nullptr;
}

// The slot of the open row that says the same, or one that such a row may have. Null: there are no slots.
ZTCFolding::Slot* ZTCFolding::find(std::uint64_t aHash, const ZTSCollected& acrCollected,
                                   const ZTSEventLayout& acrLayout) {
    for (std::uint64_t lAt = aHash; !mSlots.empty(); ++lAt) {
        Slot& lrSlot = mSlots[lAt & (mSlots.size() - 1)];
        if (lrSlot.mNumber == 0) {
            return &lrSlot;
        }
        if (lrSlot.mHash == aHash) {
            const ZTSFoldedRow* const lpRow = findOpen(lrSlot);
            if (lpRow == nullptr || sSaysTheSame(*lpRow, acrCollected, acrLayout)) {
                return &lrSlot;
            }
        }
    }
    return nullptr;
}

// Of rows with the same hash the last one is found: rows that have it by chance make more rows, and no more.
void ZTCFolding::place(std::uint64_t aHash, std::uint64_t aNumber) {
    std::uint64_t lAt = aHash;
    const auto lSlot = [&]() -> Slot& { return mSlots[lAt & (mSlots.size() - 1)]; };
    while (lSlot().mNumber != 0 && lSlot().mHash != aHash) {
        ++lAt;
    }
    mUsed += lSlot().mNumber == 0 ? 1 : 0;
    lSlot() = {aHash, aNumber};
}

void ZTCFolding::placeAll() {
    std::fill(mSlots.begin(), mSlots.end(), Slot());
    mUsed = 0;
    for (std::size_t lAt = mFirstOpen; lAt < mRows.size(); ++lAt) {
        const ZTSFoldedRow& lrRow = mRows[lAt];
        if (lrRow.mIsOpen) {
            place(sFinish(sHashOf(lrRow.mRecord.mSeries), lrRow.mRecord.mData, lrRow.mLayout),
                  mFirstNumber + lAt);
        }
    }
}

// ---- Taking ----

bool ZTCFolding::take(const ZTSCollected& acrCollected, Clock::time_point aNow, const Namer& acrName) {
    close(aNow);
    const ZTSEventLayout lLayout =
        layoutOf(acrCollected.mCategory, acrCollected.mSubcategory, acrCollected.mData);
    const std::uint64_t lHash = sFinish(sHashOf(acrCollected.mrInitiator, acrCollected.mCategory,
                                                acrCollected.mSubcategory, acrCollected.mrTarget),
                                        acrCollected.mData, lLayout);
    const Slot* const lpSlot = find(lHash, acrCollected, lLayout);
    ZTSFoldedRow* const lpRow = lpSlot != nullptr ? findOpen(*lpSlot) : nullptr;
    if (lpRow != nullptr && fits(*lpRow, acrCollected, std::min(acrCollected.mFirst, acrCollected.mLast))) {
        return fold(*lpRow, acrCollected);
    }
    return open(lHash, acrCollected, lLayout, aNow, acrName);
}

bool ZTCFolding::fits(const ZTSFoldedRow& acrRow, const ZTSCollected& acrCollected,
                      ZTNanoseconds aFirst) const {
    const auto lBehind =
        static_cast<std::uint64_t>(aFirst) - static_cast<std::uint64_t>(acrRow.mRecord.mFirst);
    const std::size_t lAdded =
        acrRow.mLayout.mAdded != 0 ? acrCollected.mData.size() - acrRow.mLayout.mSame : 0;
    return aFirst >= acrRow.mRecord.mFirst &&
           lBehind < static_cast<std::uint64_t>(mOptions.mWindow.count()) &&
           (lAdded == 0 || acrRow.mRecord.mData.size() + lAdded < mOptions.mCeiling);
}

bool ZTCFolding::fold(ZTSFoldedRow& arRow, const ZTSCollected& acrCollected) {
    auto& lrData = arRow.mRecord.mData;
    const ZTSEventLayout& lrLayout = arRow.mLayout;
    if (lrLayout.mAdded != 0) {
        const auto lMore = acrCollected.mData.subspan(lrLayout.mSame);
        const std::size_t lBefore = lrData.capacity();
        if (lrData.size() + lMore.size() > lBefore && isFull(lMore.size())) {
            return false;
        }
        lrData.insert(lrData.end(), lMore.begin(), lMore.end());
        mBytes += sHeapBytes(lrData.capacity()) - sHeapBytes(lBefore);
    } else {
        sUniteSets(lrData, acrCollected.mData, lrLayout);
    }
    sWiden(arRow.mRecord, arRow.mRecord.mFirst, std::max(acrCollected.mFirst, acrCollected.mLast),
           acrCollected.mOccurrences);
    return true;
}

bool ZTCFolding::open(std::uint64_t aHash, const ZTSCollected& acrCollected, const ZTSEventLayout& acrLayout,
                      Clock::time_point aNow, const Namer& acrName) {
    if (isFull(sInDeque + sHeapBytes(acrCollected.mData.size()))) {
        return false;
    }
    ZTSFoldedRow lRow;
    lRow.mLayout = acrLayout;
    lRow.mOpened = aNow;
    ZTSRecord& lrRecord = lRow.mRecord;
    lrRecord.mSeries.mInitiator = acrCollected.mrInitiator;
    lrRecord.mSeries.mCategory = acrCollected.mCategory;
    lrRecord.mSeries.mSubcategory = acrCollected.mSubcategory;
    lrRecord.mSeries.mTarget = acrCollected.mrTarget;
    lrRecord.mFirst = std::min(acrCollected.mFirst, acrCollected.mLast);
    lrRecord.mLast = std::max(acrCollected.mFirst, acrCollected.mLast);
    lrRecord.mOccurrences = acrCollected.mOccurrences;
    lrRecord.mData.assign(acrCollected.mData.begin(), acrCollected.mData.end());
    acrName(lrRecord);
    if (4 * (mUsed + 1) > 3 * mSlots.size()) {
        const std::size_t lOpen = mRows.size() - mFirstOpen + 1;
        std::vector<Slot>(std::bit_ceil(std::max(sLeastSlots, 2 * lOpen))).swap(mSlots);
        placeAll();
    }
    mRows.push_back(std::move(lRow));
    place(aHash, mFirstNumber + mRows.size() - 1);
    mBytes += sBytesOf(mRows.back().mRecord);
    ++mOpenedSince;
    return true;
}

// ---- Closing and leaving ----

bool ZTCFolding::close(Clock::time_point aNow) {
    const std::size_t lBefore = mFirstOpen;
    while (mFirstOpen < mRows.size() && aNow - mRows[mFirstOpen].mOpened >= mOptions.mWindow) {
        mRows[mFirstOpen++].mIsOpen = false;
    }
    return mFirstOpen != lBefore;
}

void ZTCFolding::dropFirst(std::size_t aCount) {
    for (std::size_t lLeft = aCount; lLeft > 0; --lLeft) {
        mBytes -= sBytesOf(mRows.front().mRecord);
        mRows.pop_front();
    }
    mFirstNumber += aCount;
    mFirstOpen -= std::min(mFirstOpen, aCount);
    if (mRows.empty()) {
        std::vector<Slot>().swap(mSlots);
        mUsed = 0;
    }
}

// Rows without occurrences go.
void ZTCFolding::dropEmpty() {
    const auto lIsEmpty = [](const ZTSFoldedRow& acrRow) { return acrRow.mRecord.mOccurrences == 0; };
    mRows.erase(std::remove_if(mRows.begin(), mRows.end(), lIsEmpty), mRows.end());
    mBytes = 0;
    for (const ZTSFoldedRow& lrRow : mRows) {
        mBytes += sBytesOf(lrRow.mRecord);
    }
    const auto lOpen =
        std::find_if(mRows.begin(), mRows.end(), [](const ZTSFoldedRow& acrRow) { return acrRow.mIsOpen; });
    mFirstOpen = static_cast<std::size_t>(lOpen - mRows.begin());
    placeAll();
}

void ZTCFolding::foldCoarsely(ZTNanoseconds aSpan) {
    const auto lFirst = static_cast<std::size_t>(
        std::find_if(mRows.begin(), mRows.end(), [](const ZTSFoldedRow& acrRow) { return acrRow.mId == 0; }) -
        mRows.begin());
    std::vector<ZTSFoldedRow*> lHeads(std::bit_ceil(2 * (mRows.size() - lFirst) + 1));
    for (std::size_t lRow = lFirst; lRow < mRows.size(); ++lRow) {
        ZTSFoldedRow& lrRow = mRows[lRow];
        ZTSRecord& lrRecord = lrRow.mRecord;
        const ZTNanoseconds lSpan = lrRecord.mFirst / aSpan;
        Hash lHash = sHashOf(lrRecord.mSeries);
        lHash.add(static_cast<std::uint64_t>(lSpan));
        if (const auto& lrRemote = lrRecord.mSeries.mRemote) {
            lHash.add(lrRemote->mBytes);  // a fabric may have very many
        }
        std::uint64_t lAt = lHash.get();
        const auto lHead = [&]() -> ZTSFoldedRow*& { return lHeads[lAt & (lHeads.size() - 1)]; };
        while (lHead() != nullptr &&
               (lHead()->mRecord.mSeries != lrRecord.mSeries || lHead()->mRecord.mFirst / aSpan != lSpan)) {
            ++lAt;
        }
        if (lHead() == nullptr) {
            lHead() = &lrRow;
            continue;
        }
        sCutToCommon(*lHead(), lrRow);
        sWiden(lHead()->mRecord, lrRecord.mFirst, lrRecord.mLast, std::exchange(lrRecord.mOccurrences, 0));
        lHead()->mIsOpen = false;
    }
    dropEmpty();
    mOpenedSince = 0;
}
