#include "ScopeAgentEvents.h"

#include <array>
#include <iterator>

#include "BigEndian.h"
#include "Rscn.h"
#include "ScopeAgentEventFacts.h"
#include "ScopeAgentSystem.h"

namespace {

constexpr char sFile[] = "ScopeAgentEvents";

using Facts = ZTSScopeEventFacts;

// What the routines of all kinds share. The event's record in the log and its time are one reading of the
// clock.
void sConsolidate(ZTCScopeAgentSystem& arSystem, ZTCLogMask aMask, const Facts& acrFacts, unsigned int aBoard,
                  const unsigned char* apPayload) {
    const ZTCTraceScope lTrace(aMask, ZTScopeAgentEventFactsFile, acrFacts.getLine(), acrFacts.mpRoutine);
    const std::uint64_t lTime = LogAndTime<unsigned int, unsigned int>(
        aMask, ZTLL_Notice, acrFacts.mpTeller, ZTScopeAgentEventFactsFile, acrFacts.mProcessing,
        acrFacts.mCategory, acrFacts.mSubcategory);
    arSystem.getCollection().take(acrFacts, aBoard, apPayload, lTime, aMask);
}

// ---- Dispatch ----

bool sIsLongEnough(ZTCScopeAgentSystem& arSystem, const char* apRoutine, const Facts& acrFacts,
                   unsigned int aLength) {
    if (aLength >= acrFacts.mMinimum) {
        return true;
    }
    LogBy<unsigned int, unsigned int>(apRoutine, ZTLL_Warning, ZTScopeAgentEventFactsFile, acrFacts.mTooShort,
                                      acrFacts.mMinimum, aLength);
    arSystem.countLost(ZTSAL_TooShort, acrFacts.mCategory, acrFacts.mSubcategory);
    return false;
}

void sTellUnknownCategory(unsigned int aCategory, unsigned int aSubcategory) {
    LogBy(ZTScopeEventDispatch, ZTLL_Notice, sFile, "Unknown Category = %u SubCategory = %u, ignored",
          aCategory, aSubcategory);
}

void sTellUnknownKind(unsigned int aCategory, unsigned int aSubcategory) {
    switch (aCategory) {
        case 1:
            LogBy(ZTScopeEventDispatch, ZTLL_Notice, sFile, "Unknown ELS Event subcategory = %u, ignored",
                  aSubcategory);
            break;
        case 2:
            LogBy(ZTScopeEventDispatch, ZTLL_Notice, sFile, "Unknown Fabric Event subcategory=%u, ignored",
                  aSubcategory);
            break;
        case 4:
            LogBy(ZTScopeEventDispatch, ZTLL_Notice, sFile, "Unknown Scsi Event subcategory = %u, ignored",
                  aSubcategory);
            break;
        case 8:
            LogBy(ZTScopeEventDispatch, ZTLL_Notice, sFile,
                  "Unknown Board Evt catgory=%u subcatgory=%u ignored", aCategory, aSubcategory);
            break;
        case 16:
            LogBy(ZTScopeEventDispatch, ZTLL_Notice, sFile,
                  "Unknown Adapter Evt catgory=%u subcatgory=%u ignored", aCategory, aSubcategory);
            sTellUnknownCategory(aCategory, aSubcategory);
            break;
        default:
            sTellUnknownCategory(aCategory, aSubcategory);
    }
}

void sConsolidateEvents(ZTCScopeAgentSystem& arSystem, ZTCLogMask aMask, unsigned int aCategory,
                        unsigned int aSubcategory, unsigned int aBoard, const unsigned char* apPayload,
                        unsigned int aLength) {
    const ZTCTraceScope lTrace(aMask, sFile);
    const Facts* const lpFacts = ZTFindScopeEventFacts(aCategory, aSubcategory);
    if (lpFacts == nullptr) {
        sTellUnknownKind(aCategory, aSubcategory);
        arSystem.countLost(ZTSAL_UnknownKind, aCategory, aSubcategory);
        return;
    }
    if (!sIsLongEnough(arSystem, __func__, *lpFacts, aLength)) {
        return;
    }
    sConsolidate(arSystem, aMask, *lpFacts, aBoard, apPayload);
    if (lpFacts->mKind == ZTSEK_AdapterArrival) {
        sTellUnknownCategory(aCategory, aSubcategory);  // counted, and told of as unknown all the same
    }
}

// An RSCN is as many events as it has pages. The boundary has seen to it that the pages are there.
void sProcessRscnEvent(ZTCScopeAgentSystem& arSystem, ZTCLogMask aMask, unsigned int aBoard,
                       const unsigned char* apPayload, unsigned int aLength) {
    const ZTCTraceScope lTrace(aMask, sFile);
    const Facts& lrFacts = ZTScopeEventFacts[ZTSEK_ElsRscn];
    if (!sIsLongEnough(arSystem, __func__, lrFacts, aLength)) {
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
        const auto lPage = ztwire::get<std::uint32_t>(apPayload + lAt * ZTRscnPageSize);
        try {
            sConsolidate(arSystem, aMask, lrFacts, aBoard, reinterpret_cast<const unsigned char*>(&lPage));
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

void sProcessScopeEvent(ZTCScopeAgentSystem& arSystem, ZTCLogMask aMask,
                        const ZTCCallbackEventData& acrEvent) {
    const ZTCTraceScope lTrace(aMask, sFile);
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
        sProcessRscnEvent(arSystem, aMask, acrEvent.mBoardId, acrEvent.mpData, acrEvent.mDataLength);
        return;
    }
    sConsolidateEvents(arSystem, aMask, lCategory, lSubcategory, acrEvent.mBoardId, acrEvent.mpData,
                       acrEvent.mDataLength);
}
