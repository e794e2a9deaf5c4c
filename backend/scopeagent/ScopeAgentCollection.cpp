#include "ScopeAgentCollection.h"

#include <bit>

#include "LogRecord.h"
#include "ScopeAgentStatistics.h"
#include "StatisticsFile.h"

namespace {

constexpr char sFile[] = "ScopeAgentCollection";

using Facts = ZTSScopeEventFacts;
using Block = ZTSScopeEventBlock;
using Word = std::uint32_t;

static_assert(sizeof(Word) == Block::WordSize && ZTCWorldWideName::Size == Block::NameSize);

// The bits of an RSCN's page: how much of the address counts, and the address.
constexpr Word sAddressFormat = 0x3000000;
constexpr Word sPortId = 0xffffff;

// What a full collection needs, of the smallest records that there are, and one chunk more. Each further
// adapter whose list has a record takes a chunk for itself, which is not kept.
constexpr unsigned int sSmallest = ZTCScopeData::FixedSize + Block::NamesAt;
constexpr unsigned int sMostSpare = ZTCScopeAgentCollection::Limit / sSmallest *
                                        (ZTCScopeAgentRecord::HeadSize + sSmallest) /
                                        ZTCScopeAgentChunks::Room +
                                    1;

// ---- The block of event data ----

Word sWordAt(const unsigned char* apFrom) {
    Word lWord;
    ClibMemcpy(&lWord, apFrom, sizeof lWord);
    return lWord;
}

// The word as it stands in a block: little-endian.
Word sLittle(Word aWord) {
    return std::endian::native == std::endian::little ? aWord : __builtin_bswap32(aWord);
}

unsigned char* sPut(unsigned char* apTo, Word aWord) {
    const Word lLittle = sLittle(aWord);
    return ztwire::put(apTo, &lLittle, sizeof lLittle);
}

// Puts the words of the payload from one place in the block's order to another.
unsigned char* sPutWords(unsigned char* apTo, const Block& acrBlock, unsigned int aFrom, unsigned int aEnd,
                         const unsigned char* apPayload) {
    for (unsigned int lWord = aFrom; lWord < aEnd; ++lWord) {
        apTo = sPut(apTo, sWordAt(apPayload + acrBlock.mWordsAt[lWord]));
    }
    return apTo;
}

unsigned char* sSameWordsIn(const Block& acrBlock, unsigned char* apData) {
    return apData + Block::NamesAt + acrBlock.mNames * Block::NameSize;
}

// Adds the values of an event to the sets of a block's data.
void sAddToSets(const Block& acrBlock, const unsigned char* apPayload, unsigned char* apSets) {
    for (unsigned int lSet = 0; lSet < acrBlock.mSets; ++lSet) {
        unsigned char* const lpBits = apSets + lSet * Block::SetSize + Block::WordSize;
        const Word lValue = sWordAt(apPayload + acrBlock.mSetsAt[lSet]);
        if (lValue < Block::SetBits) {
            lpBits[lValue / 8] = static_cast<unsigned char>(lpBits[lValue / 8] | 1U << lValue % 8);
        } else if (lSet == 0 && lValue == 0xffffffff) {
            memset(lpBits, 0xff, Block::SetBits / 8);
        }
    }
}

// Makes the data of an event, getLength() bytes.
void sMakeData(const Block& acrBlock, const unsigned char* apPayload, unsigned char* apData) {
    unsigned char* lpAt = sPut(apData, 1);
    for (unsigned int lName = 0; lName < acrBlock.mNames; ++lName) {
        lpAt = ztwire::put(lpAt, apPayload + Block::NamesAt + lName * Block::NameSize, Block::NameSize);
    }
    lpAt = sPutWords(lpAt, acrBlock, 0, acrBlock.mSame + acrBlock.mAdded, apPayload);
    unsigned char* const lpSets = lpAt;
    for (unsigned int lSet = 0; lSet < acrBlock.mSets; ++lSet) {
        memset(sPut(lpAt, Block::SetBits), 0, Block::SetBits / 8);
        lpAt += Block::SetSize;
    }
    sAddToSets(acrBlock, apPayload, lpSets);
}

// Whether an event has the names and the words of a record's data that must be the same.
bool sMatches(const Block& acrBlock, const unsigned char* apPayload, unsigned char* apData) {
    for (unsigned int lName = 0; lName < acrBlock.mNames; ++lName) {
        const unsigned int lAt = Block::NamesAt + lName * Block::NameSize;
        if (memcmp(apData + lAt, apPayload + lAt, Block::NameSize) != 0) {
            return false;
        }
    }
    const unsigned char* const lpSame = sSameWordsIn(acrBlock, apData);
    for (unsigned int lWord = 0; lWord < acrBlock.mSame; ++lWord) {
        if (sWordAt(lpSame + lWord * Block::WordSize) !=
            sLittle(sWordAt(apPayload + acrBlock.mWordsAt[lWord]))) {
            return false;
        }
    }
    return true;
}

// The 8 bytes of a name as a key.
std::uint64_t sKeyOf(const unsigned char* apName) {
    std::uint64_t lKey = 0;
    static_assert(sizeof lKey == ZTCWorldWideName::Size);
    ClibMemcpy(&lKey, apName, sizeof lKey);
    return lKey;
}

template <class Key>
bool sAdd(ZTMap<Key, ZTCScopeAgentTarget>& arTargets, Key aKey, const ZTCScopeAgentTarget& acrTarget) {
    if (arTargets.contains(aKey)) {
        return false;
    }
    arTargets.insert(aKey, acrTarget);
    return true;
}

ZTCScopeAgentRecordLists sMakeLists(unsigned int aAdapters) {
    return orNoMemory([=] {
        ZTCScopeAgentRecordLists lLists;
        lLists.reserve(aAdapters);
        for (unsigned int lBoard = 0; lBoard < aAdapters; ++lBoard) {
            lLists.emplace_back(lBoard);
        }
        return lLists;
    });
}

}  // namespace

// ---- Events ----

// Folds a repeat into the record that is held back. False when that may not grow: then it is a new event.
inline bool ZTCScopeAgentCollection::fold(const Block& acrBlock, const unsigned char* apPayload,
                                          std::uint64_t aTime, ZTCLogMask aMask) {
    if (acrBlock.mAdded != 0) {
        const unsigned int lCount = acrBlock.mAdded * Block::WordSize;
        if (!mPrevRecord.mayGrowBy(lCount, mDataCeiling.load(std::memory_order_relaxed))) {
            return false;
        }
        sPutWords(mpPrevList->extend(lCount, mSpare), acrBlock, acrBlock.mSame,
                  acrBlock.mSame + acrBlock.mAdded, apPayload);
        mPrevRecord.growBy(lCount);
        addToSize(lCount);
    } else if (acrBlock.mSets != 0) {
        sAddToSets(acrBlock, apPayload,
                   sSameWordsIn(acrBlock, mPrevRecord.getEventData()) + acrBlock.mSame * Block::WordSize);
    }
    mPrevRecord.incrementOccurrences(aMask, aTime);
    return true;
}

void ZTCScopeAgentCollection::setPrevScopeData(unsigned int aBoard, const ZTCScopeData& acrData,
                                               std::uint64_t aTime) {
    ZT_ASSERT(ZTCScopeAgentRecord::HeadSize + acrData.getSize() <= ZTCScopeAgentChunks::Room, __LINE__,
              sFile);
    const ZTCScopedLock lLock(mLock);
    ClibMemcpy(holdBack(aBoard, acrData, aTime, {}), acrData.getEventData(), acrData.getLength());
}

inline unsigned char* ZTCScopeAgentCollection::holdBack(unsigned int aBoard, const ZTCScopeData& acrData,
                                                        std::uint64_t aTime, ZTCLogMask aMask) {
    const ZTCTraceScope lTrace(aMask, sFile, __LINE__, "setPrevScopeData");
    const unsigned int lSize = acrData.getSize();
    ZTCScopeAgentRecordList& lrList = aBoard < mLists.size() ? mLists[aBoard] : mStrayList;
    unsigned char* const lpRoom = lrList.extend(ZTCScopeAgentRecord::HeadSize + lSize, mSpare);
    filePrevRecord(aMask);
    mPrevRecord = ZTCScopeAgentRecord(aMask, aBoard, acrData, aTime, lpRoom);
    mpPrevList = &lrList;
    addToSize(lSize);
    return mPrevRecord.getEventData();
}

void ZTCScopeAgentCollection::take(const Facts& acrFacts, unsigned int aBoard, const unsigned char* apPayload,
                                   std::uint64_t aTime, ZTCLogMask aMask) {
    bool lIsMuch = false;
    {
        const ZTCScopedLock lLock(mLock);
        const ZTCScopeEvent lEvent = acrFacts.getEvent();
        const bool lIsFolded = mPrevRecord.isOf(lEvent, aBoard) &&
                               sMatches(acrFacts.mBlock, apPayload, mPrevRecord.getEventData()) &&
                               fold(acrFacts.mBlock, apPayload, aTime, aMask);
        if (!lIsFolded) {
            const unsigned int lLength = acrFacts.mBlock.getLength();
            const ZTCScopeAgentTarget* const lpTarget = findTarget(acrFacts, apPayload);
            const ZTCScopeData lData = lpTarget == nullptr
                                           ? ZTCScopeData(lEvent, nullptr, lLength)
                                           : ZTCScopeData(lEvent, nullptr, lLength, lpTarget->getNodeName(),
                                                          lpTarget->getPortName());
            sMakeData(acrFacts.mBlock, apPayload, holdBack(aBoard, lData, aTime, aMask));
        }
        ZTCountRecorded(acrFacts.mKind, lIsFolded);
        lIsMuch = mHasPassedEighth && std::exchange(mHasPassedEighth, false);
    }
    if (lIsMuch) {
        ZTCStatisticsFile::wake();  // not under the lock: it is a call of the system
    }
}

void ZTCScopeAgentCollection::clearPrevScopeData() {
    const ZTCTraceScope lTrace(sFile);
    const ZTCScopedLock lLock(mLock);
    filePrevRecord({});
}

void ZTCScopeAgentCollection::filePrevRecord(ZTCLogMask aMask) {
    if (!mPrevRecord) {
        return;
    }
    mPrevRecord.complete();
    const unsigned int lOccurrences = mPrevRecord.getOccurrences();
    if (mpPrevList != &mStrayList) {
        mpPrevList->addRecord(aMask, lOccurrences);
    } else {
        // The library told of fewer adapters at the last fetch than at the start.
        ZTCScopeAgentLosses::count(ZTSAL_UnknownBoard, lOccurrences);
        ZTSetStatistic(ZTS_HeldEvents, ZTGetStatistic(ZTS_HeldEvents) - lOccurrences);
        ZTSetStatistic(ZTS_HeldRecords, ZTGetStatistic(ZTS_HeldRecords) - 1);
    }
    mPrevRecord = {};
}

void ZTCScopeAgentCollection::addToSize(unsigned int aSize) {
    // Under the lock, so nothing comes between; who reads without it sees one size or the other.
    const unsigned int lBefore = getSize();
    const unsigned int lNow = lBefore + aSize;
    mSize.store(lNow, std::memory_order_relaxed);
    ZTSetStatistic(ZTS_HeldBytes, lNow);
    mHasPassedEighth = mHasPassedEighth || (lBefore < Limit / 8 && lNow >= Limit / 8);
    if (lBefore < Limit && lNow >= Limit) {
        ZTAddToStatistic(ZTS_LimitReached);
    }
}

// ---- Fetches ----

ZTCScopeAgentRecordLists ZTCScopeAgentCollection::detach(unsigned int aAdapters) {
    ZTCScopeAgentRecordLists lLists(sMakeLists(aAdapters));
    const std::uint64_t lTime = ztlog::now();
    const ZTCScopedLock lLock(mLock);
    startWith(lLists);
    countLostByKind();
    ZTSetStatistic(ZTS_LastFetchTime, lTime);
    ZTAddToStatistic(ZTS_Fetches);
    return lLists;
}

void ZTCScopeAgentCollection::resetRecordLists(unsigned int aAdapters) {
    ZTCScopeAgentRecordLists lLists(sMakeLists(aAdapters));
    const ZTCScopedLock lLock(mLock);
    startWith(lLists);
}

void ZTCScopeAgentCollection::startWith(ZTCScopeAgentRecordLists& arLists) {
    {
        const ZTCLogMask lMask;
        const ZTCTraceScope lTrace(lMask, sFile, __LINE__, "clearPrevScopeData");
        filePrevRecord(lMask);
    }
    mLists.swap(arLists);
    mStrayList.giveTo(mSpare, sMostSpare);
    mStrayList = ZTCScopeAgentRecordList(0);
    mSize.store(0, std::memory_order_relaxed);
    for (const unsigned int lHeld : {ZTS_HeldEvents, ZTS_HeldRecords, ZTS_HeldBytes}) {
        ZTSetStatistic(lHeld, 0);
    }
}

void ZTCScopeAgentCollection::release(ZTCScopeAgentRecordLists& arLists) {
    {
        const ZTCScopedLock lLock(mLock);
        for (ZTCScopeAgentRecordList& lrList : arLists) {
            lrList.giveTo(mSpare, sMostSpare);
        }
    }
    arLists.clear();
}

unsigned int ZTCScopeAgentCollection::getRecordListCount() {
    const ZTCScopedLock lLock(mLock);
    return static_cast<unsigned int>(mLists.size());
}

// The rows by kind are written under the lock. Who loses an event does not take it, and counts apart.
void ZTCScopeAgentCollection::countLostByKind() {
    for (unsigned int lKind = 0; lKind < ZTSEK_Count; ++lKind) {
        ZTAddToStatistic(ZTRowOf(ZTS_Events, lKind),
                         mLostOfKind[lKind].exchange(0, std::memory_order_relaxed));
    }
}

void ZTCScopeAgentCollection::refreshStatistics() {
    const ZTCScopedLock lLock(mLock);
    countLostByKind();
}

// ---- Targets ----

bool ZTCScopeAgentCollection::addFcTarget(const ZTCScopeAgentTarget& acrTarget) {
    const ZTCScopedLock lLock(mLock);
    return sAdd(mFcTargets, acrTarget.getFcAddress(), acrTarget);
}

bool ZTCScopeAgentCollection::addWwpnTarget(const ZTCScopeAgentTarget& acrTarget) {
    const ZTCScopedLock lLock(mLock);
    return sAdd(mWwpnTargets, sKeyOf(acrTarget.getPortName()), acrTarget);
}

// The registered target that the event is about, or null.
const ZTCScopeAgentTarget* ZTCScopeAgentCollection::findTarget(const Facts& acrFacts,
                                                               const unsigned char* apPayload) const {
    if (acrFacts.mBlock.mNames != 0) {
        return mWwpnTargets.find(sKeyOf(apPayload + Block::NamesAt));
    }
    if (acrFacts.mKind == ZTSEK_ElsRscn) {
        const Word lPage = sWordAt(apPayload);
        return (lPage & sAddressFormat) == 0 ? mFcTargets.find(lPage & sPortId) : nullptr;
    }
    return nullptr;
}
