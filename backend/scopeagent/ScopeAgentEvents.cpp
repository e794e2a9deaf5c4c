#include "ScopeAgentEvents.h"

#include <bit>
#include <memory>

#include "BigEndian.h"
#include "Rscn.h"
#include "ScopeAgentEventFacts.h"
#include "ScopeAgentStatistics.h"
#include "ScopeAgentSystem.h"

namespace {

constexpr char sFile[] = "ScopeAgentEvents";

using Facts = ZTSScopeEventFacts;
using Word = std::uint32_t;

constexpr unsigned int sNamesAt = 4;
constexpr unsigned int sNameSize = ZTCWorldWideName::Size;
constexpr unsigned int sSetSize = 32;
constexpr Word sSetBits = 256;
constexpr unsigned int sMaxBlock =
    sNamesAt + 2 * sNameSize + Facts::MaxWords * sizeof(Word) + Facts::MaxSets * (sizeof(Word) + sSetSize);

constexpr Word sAddressFormat = 0x3000000;
constexpr Word sPortId = 0xffffff;

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

unsigned int sWordsAt(const Facts& acrFacts) {
    return sNamesAt + acrFacts.mNames * sNameSize;
}

// Adds the values of an event to the sets of a block.
void sAddToSets(const Facts& acrFacts, const unsigned char* apPayload, unsigned char* apSets) {
    for (unsigned int lSet = 0; lSet < Facts::MaxSets && acrFacts.mSets[lSet] != 0; ++lSet) {
        unsigned char* const lpBits = apSets + lSet * (sizeof(Word) + sSetSize) + sizeof(Word);
        const Word lValue = sWordAt(apPayload + acrFacts.mSets[lSet]);
        if (lValue < sSetBits) {
            lpBits[lValue / 8] = static_cast<unsigned char>(lpBits[lValue / 8] | 1U << lValue % 8);
        } else if (lSet == 0 && lValue == 0xffffffff) {
            memset(lpBits, 0xff, sSetSize);
        }
    }
}

unsigned char* sPutWords(unsigned char* apTo, const Facts& acrFacts, const unsigned char* apPayload,
                         bool aOnlyAdded) {
    for (const ZTSScopeEventWord& lrWord : acrFacts.mWords) {
        if (lrWord.mRole == ZTSScopeEventWord::None) {
            break;
        }
        if (!aOnlyAdded || lrWord.mRole == ZTAdded) {
            apTo = sPut(apTo, sWordAt(apPayload + lrWord.mOffset));
        }
    }
    return apTo;
}

// Makes the block of an event; returns its length.
unsigned int sMakeBlock(const Facts& acrFacts, const unsigned char* apPayload, unsigned char* apBlock) {
    unsigned char* lpAt = sPut(apBlock, 1);
    if (acrFacts.mNames != 0) {
        lpAt = ztwire::put(lpAt, apPayload + sNamesAt, acrFacts.mNames * sNameSize);
    }
    lpAt = sPutWords(lpAt, acrFacts, apPayload, false);
    if (acrFacts.mSets[0] != 0) {
        unsigned char* const lpSets = lpAt;
        for (unsigned int lSet = 0; lSet < Facts::MaxSets && acrFacts.mSets[lSet] != 0; ++lSet) {
            lpAt = sPut(lpAt, sSetBits);
            memset(lpAt, 0, sSetSize);
            lpAt += sSetSize;
        }
        sAddToSets(acrFacts, apPayload, lpSets);
    }
    return static_cast<unsigned int>(lpAt - apBlock);
}

// Whether an event has the names and the words of a block of its kind that must be the same.
bool sMatches(const Facts& acrFacts, const unsigned char* apPayload, const unsigned char* apBlock) {
    if (acrFacts.mNames != 0 &&
        memcmp(apBlock + sNamesAt, apPayload + sNamesAt, acrFacts.mNames * sNameSize) != 0) {
        return false;
    }
    const unsigned char* lpAt = apBlock + sWordsAt(acrFacts);
    for (const ZTSScopeEventWord& lrWord : acrFacts.mWords) {
        if (lrWord.mRole != ZTSame) {
            break;
        }
        if (sWordAt(lpAt) != sLittle(sWordAt(apPayload + lrWord.mOffset))) {
            return false;
        }
        lpAt += sizeof(Word);
    }
    return true;
}

// ---- Consolidation ----

// Folds a repeat into the record that is held back. False when that may not grow: then it is a new event.
bool sFold(ZTCScopeAgentSystem& arSystem, const Facts& acrFacts, const unsigned char* apPayload,
           std::uint64_t aTime) ZT_REQUIRES(arSystem.getScopeDataLock()) {
    ZTCScopeData& lrData = arSystem.getPrevScopeData();
    if (acrFacts.mSets[0] != 0) {
        sAddToSets(acrFacts, apPayload,
                   lrData.getEventData() + sWordsAt(acrFacts) + acrFacts.wordsOf(ZTSame) * sizeof(Word));
    } else if (acrFacts.wordsOf(ZTAdded) != 0) {
        unsigned char lAdded[Facts::MaxWords * sizeof(Word)];
        const auto lCount = static_cast<unsigned int>(sPutWords(lAdded, acrFacts, apPayload, true) - lAdded);
        if (!lrData.mayGrowBy(lCount, arSystem.getDataCeiling())) {
            return false;
        }
        arSystem.appendToPrevScopeData(lAdded, lCount, aTime);
        return true;
    }
    arSystem.incrementPrevRecord(aTime);
    return true;
}

// The registered target that the event is about, or null.
const ZTCScopeAgentTarget* sFindTarget(const ZTCScopeAgentSystem& acrSystem, const Facts& acrFacts,
                                       const unsigned char* apPayload)
    ZT_REQUIRES(acrSystem.getScopeDataLock()) {
    if (acrFacts.mNames != 0) {
        return acrSystem.findTargetByName(apPayload + sNamesAt);
    }
    if (acrFacts.mKind == ZTSEK_ElsRscn) {
        const Word lPage = sWordAt(apPayload);
        return (lPage & sAddressFormat) == 0 ? acrSystem.findTargetByPortId(lPage & sPortId) : nullptr;
    }
    return nullptr;
}

// The events that label records, by their codes of arrival.
const ZTCPointer<ZTCScopeEvent>& sEventOf(const Facts& acrFacts) {
    using Events = std::array<ZTCPointer<ZTCScopeEvent>, ZTSEK_Count>;
    static const Events& srEvents = *orNoMemory([] {
        auto lEvents = std::make_unique<Events>();
        for (const Facts& lrFacts : ZTScopeEventFacts) {
            (*lEvents)[lrFacts.mKind] = makePointer<ZTCScopeEvent>(lrFacts.mCategory, lrFacts.mSubcategory);
        }
        return lEvents.release();
    });
    return srEvents[acrFacts.mKind];
}

// Makes a record of an event, which is then the one that is held back.
void sBeginRecord(ZTCScopeAgentSystem& arSystem, const Facts& acrFacts,
                  const ZTCPointer<ZTCScopeEvent>& acrEvent, unsigned int aBoard,
                  const unsigned char* apPayload, std::uint64_t aTime)
    ZT_REQUIRES(arSystem.getScopeDataLock()) {
    unsigned char lBlock[sMaxBlock];
    const unsigned int lLength = sMakeBlock(acrFacts, apPayload, lBlock);
    const unsigned int lCeiling = arSystem.getDataCeiling();
    const ZTCScopeAgentTarget* const lpTarget = sFindTarget(arSystem, acrFacts, apPayload);
    arSystem.setPrevScopeData(
        aBoard,
        lpTarget == nullptr ? makePointer<ZTCScopeData>(acrEvent, lBlock, lLength, lCeiling)
                            : makePointer<ZTCScopeData>(acrEvent, lBlock, lLength, lCeiling,
                                                        lpTarget->getNodeName(), lpTarget->getPortName()),
        aTime);
}

// What the routines of all kinds share. The event's record in the log and its time are one reading of the
// clock; the scope-data lock is taken after it.
void sConsolidate(ZTCScopeAgentSystem& arSystem, const Facts& acrFacts, unsigned int aBoard,
                  const unsigned char* apPayload) {
    const Facts::Text& lrText = acrFacts.mProcessing;
    const ZTCTraceScope lTrace(ZTScopeAgentEventFactsFile, acrFacts.getLine(), acrFacts.mpRoutine);
    const std::uint64_t lTime =
        LogAndTime<unsigned int, unsigned int>(ZTLL_Notice, acrFacts.mpRoutine, ZTScopeAgentEventFactsFile,
                                               lrText, acrFacts.mCategory, acrFacts.mSubcategory);
    const ZTCPointer<ZTCScopeEvent>& lrEvent = sEventOf(acrFacts);
    bool lIsMuch = false;
    {
        const ZTCScopedLock lLock(arSystem.getScopeDataLock());
        const bool lIsFolded = !arSystem.isNewEvent(*lrEvent, aBoard) &&
                               sMatches(acrFacts, apPayload, arSystem.getPrevScopeData().getEventData()) &&
                               sFold(arSystem, acrFacts, apPayload, lTime);
        if (!lIsFolded) {
            sBeginRecord(arSystem, acrFacts, lrEvent, aBoard, apPayload, lTime);
        }
        ZTCountRecorded(acrFacts.mKind, lIsFolded);
        lIsMuch = arSystem.takePassedEighth();
    }
    if (lIsMuch) {
        ZTCStatisticsFile::wake();  // not under the lock: it is a call of the system
    }
}

// ---- Dispatch ----

bool sIsLongEnough(ZTCScopeAgentSystem& arSystem, const Facts& acrFacts, unsigned int aLength) {
    if (aLength >= acrFacts.mMinimum) {
        return true;
    }
    const Facts::Text& lrText = acrFacts.mTooShort;
    PrintLogMessageWithTimeStamp<unsigned int, unsigned int>(
        ZTLL_Warning.mBit, ZTLL_Warning.mpTag, lrText.mLine, acrFacts.mpRoutine, ZTScopeAgentEventFactsFile,
        lrText, acrFacts.mMinimum, aLength);
    arSystem.countLost(ZTSAL_TooShort, acrFacts.mCategory, acrFacts.mSubcategory);
    return false;
}

void sTellUnknownCategory(unsigned int aCategory, unsigned int aSubcategory) {
    Log(ZTLL_Notice, sFile, "Unknown Category = %u SubCategory = %u, ignored", aCategory, aSubcategory);
}

void sTellUnknownKind(unsigned int aCategory, unsigned int aSubcategory) {
    switch (aCategory) {
        case 1:
            Log(ZTLL_Notice, sFile, "Unknown ELS Event subcategory = %u, ignored", aSubcategory);
            break;
        case 2:
            Log(ZTLL_Notice, sFile, "Unknown Fabric Event subcategory=%u, ignored", aSubcategory);
            break;
        case 4:
            Log(ZTLL_Notice, sFile, "Unknown Scsi Event subcategory = %u, ignored", aSubcategory);
            break;
        case 8:
            Log(ZTLL_Notice, sFile, "Unknown Board Evt catgory=%u subcatgory=%u ignored", aCategory,
                aSubcategory);
            break;
        case 16:
            Log(ZTLL_Notice, sFile, "Unknown Adapter Evt catgory=%u subcatgory=%u ignored", aCategory,
                aSubcategory);
            sTellUnknownCategory(aCategory, aSubcategory);
            break;
        default:
            sTellUnknownCategory(aCategory, aSubcategory);
    }
}

void sConsolidateEvents(ZTCScopeAgentSystem& arSystem, unsigned int aCategory, unsigned int aSubcategory,
                        unsigned int aBoard, const unsigned char* apPayload, unsigned int aLength) {
    const ZTCTraceScope lTrace(sFile);
    const Facts* const lpFacts = ZTFindScopeEventFacts(aCategory, aSubcategory);
    if (lpFacts == nullptr) {
        sTellUnknownKind(aCategory, aSubcategory);
        arSystem.countLost(ZTSAL_UnknownKind, aCategory, aSubcategory);
        return;
    }
    if (!sIsLongEnough(arSystem, *lpFacts, aLength)) {
        return;
    }
    sConsolidate(arSystem, *lpFacts, aBoard, apPayload);
    if (lpFacts->mKind == ZTSEK_AdapterArrival) {
        sTellUnknownCategory(aCategory, aSubcategory);  // counted, and told of as unknown all the same
    }
}

// An RSCN is as many events as it has pages. The boundary has seen to it that the pages are there.
void sProcessRscnEvent(ZTCScopeAgentSystem& arSystem, unsigned int aBoard, const unsigned char* apPayload,
                       unsigned int aLength) {
    const ZTCTraceScope lTrace(sFile);
    const Facts& lrFacts = *ZTFindScopeEventFacts(ZTRscnCategory, ZTRscnSubcategory);
    if (!sIsLongEnough(arSystem, lrFacts, aLength)) {
        return;
    }
    Log(ZTLL_Information, sFile, "Got an RSCN event: datalength:%u", aLength);
    const auto lPayloadLength = ztwire::get<unsigned short>(apPayload + ZTRscnLengthAt);
    if (lPayloadLength == 0) {
        Log(ZTLL_Notice, sFile, "No Payload in RSCN Event");
        return;
    }
    Log(ZTLL_Information, sFile, "lPayloadLength = %hu", lPayloadLength);
    const unsigned int lWords = lPayloadLength / ZTRscnPageSize;  // the header is the first
    for (unsigned int lAt = 1; lAt < lWords; ++lAt) {
        const auto lPage = ztwire::get<Word>(apPayload + lAt * ZTRscnPageSize);
        try {
            sConsolidate(arSystem, lrFacts, aBoard, reinterpret_cast<const unsigned char*>(&lPage));
        } catch (const ZTCException&) {
            // This page is the caller's to count.
            arSystem.countLost(ZTSAL_NoMemory, ZTRscnCategory, ZTRscnSubcategory, lWords - lAt - 1);
            throw;
        }
    }
}

}  // namespace

const ZTSScopeEventFacts* ZTFindScopeEventFacts(unsigned int aCategory, unsigned int aSubcategory) {
    constexpr unsigned int lCategories = 17;
    constexpr unsigned int lSubcategories = 65;
    using Rows = std::array<std::array<unsigned char, lSubcategories>, lCategories>;
    // Rows by category and subcategory, counted from 1.
    static constexpr Rows sRows = [] {
        Rows lRows{};
        for (unsigned int lAt = 0; lAt < std::size(ZTScopeEventFacts); ++lAt) {
            const Facts& lrFacts = ZTScopeEventFacts[lAt];
            lRows[lrFacts.mCategory][lrFacts.mSubcategory] = static_cast<unsigned char>(lAt + 1);
        }
        return lRows;
    }();
    if (aCategory >= lCategories || aSubcategory >= lSubcategories) {
        return nullptr;
    }
    const unsigned int lRow = sRows[aCategory][aSubcategory];
    return lRow == 0 ? nullptr : &ZTScopeEventFacts[lRow - 1];
}

void sProcessScopeEvent(ZTCScopeAgentSystem& arSystem, const ZTCCallbackEventData& acrEvent) {
    const ZTCTraceScope lTrace(sFile);
    if (!arSystem.isKnownBoard(acrEvent.mBoardId)) {
        // The subcategory is printed as "cat" and the category as "subcat": the message's own order.
        Log(ZTLL_Error, sFile,
            "Bad boardid %d in event has been recieved. Event: wwn %s; cat %d; subcat %d.  Skip event!",
            acrEvent.mBoardId, ZTCWorldWideName::Text(acrEvent.mWwn).get(), acrEvent.mSubcategory,
            acrEvent.mCategory);
        arSystem.countLost(ZTSAL_UnknownBoard, acrEvent.mCategory, acrEvent.mSubcategory);
        return;
    }
    const unsigned int lCategory = acrEvent.mCategory & 0xff;
    const unsigned int lSubcategory = acrEvent.mSubcategory & 0xff;
    if (lCategory == ZTRscnCategory && lSubcategory == ZTRscnSubcategory) {
        sProcessRscnEvent(arSystem, acrEvent.mBoardId, acrEvent.mpData, acrEvent.mDataLength);
        return;
    }
    sConsolidateEvents(arSystem, lCategory, lSubcategory, acrEvent.mBoardId, acrEvent.mpData,
                       acrEvent.mDataLength);
}
