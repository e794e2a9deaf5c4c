// What differs between the kinds of event once they arrive: one row a kind.
//
// A payload has, from byte 4, up to two port names of 8 bytes, and 32-bit words in the host's order. The
// block of event data that is made of it begins with the word 1, then come the names, then the row's words in
// their order, then for each of the row's sets the word 256 and 32 bytes, in which bit v is set for a value
// v. Words in a block are little-endian. An RSCN is dealt with a page at a time: its payload here is the page
// alone, in the host's order, from byte 0.
#pragma once

#include <algorithm>
#include <array>

#include "LogFormat.h"
#include "Rscn.h"
#include "ScopeAgentEventKinds.h"

/// The file that the records of these texts name.
inline constexpr char ZTScopeAgentEventFactsFile[] = "ScopeAgentEventFacts";

/// A word of the payload, and what it is to a repeat.
struct ZTSScopeEventWord {
    enum Role : unsigned char {
        None,
        Same,   ///< must be what it is in the record, or the event is no repeat of it
        Added,  ///< is appended to the record by a repeat
    };
    unsigned char mOffset = 0;
    Role mRole = None;
};

struct ZTSScopeEventFacts {
    static constexpr unsigned int MaxWords = 3;
    static constexpr unsigned int MaxSets = 3;
    using Text = ZTCLogFormat<unsigned int, unsigned int>;

    ZTEScopeEventKind mKind;
    unsigned char mCategory;     ///< as it arrives, which is not always as it was registered
    unsigned char mSubcategory;  ///< the same
    const char* mpRoutine;       ///< who its records in the log are by
    Text mProcessing;            ///< category, subcategory
    unsigned char mMinimum = 0;  ///< bytes that its payload must have
    Text mTooShort{};            ///< that minimum, the bytes it has
    unsigned char mNames = 0;    ///< names from byte 4
    std::array<ZTSScopeEventWord, MaxWords> mWords{};
    std::array<unsigned char, MaxSets> mSets{};  ///< offsets of the words whose values are collected in sets

    /// Where its row stands in this file.
    constexpr unsigned int getLine() const {
        return mProcessing.mpText != nullptr ? mProcessing.mLine : mTooShort.mLine;
    }

    constexpr unsigned int wordsOf(ZTSScopeEventWord::Role aRole) const {
        unsigned int lCount = 0;
        for (const ZTSScopeEventWord& lrWord : mWords) {
            lCount += lrWord.mRole == aRole ? 1 : 0;
        }
        return lCount;
    }
};

inline constexpr auto ZTSame = ZTSScopeEventWord::Same;
inline constexpr auto ZTAdded = ZTSScopeEventWord::Added;

// The messages are the system's own, as are the two orders that surprise: an FCP read check error's first two
// words are swapped in its block, and a LUN reset that is too short is told of as a target reset.
inline constexpr ZTSScopeEventFacts ZTScopeEventFacts[] = {
    {ZTSEK_ElsPlogi, 1, 1, "sConsolidatePlogiEvents", "Processing PLOGI event Cat=%u SubCat=%u",  //
     20, "Not enough data in ELS PLOGI Event %u %u", 2},
    {ZTSEK_ElsPrlo, 1, 2, "sConsolidatePrloEvents", "Processing PRLO event Cat=%u SubCat=%u",  //
     12, "Not enough data in ELS PRLO Event %u %u", 1},
    {ZTSEK_ElsAdisc, 1, 4, "sConsolidateAdiscEvents", "Processing ADISC event Cat=%u SubCat=%u",  //
     20, "Not enough data in ELS ADISC Event %u %u", 2},
    {ZTSEK_ElsLsrjt,
     1,
     8,
     "sConsolidateLsRjtEvents",
     "Processing LsRjt Event Category=%u SubCat=%u",  //
     24,
     "Not enough data in ELS LSRJT Event %u %u",
     1,
     {{{12, ZTSame}, {16, ZTAdded}, {20, ZTAdded}}}},
    {ZTSEK_ElsLogo, 1, 16, "sConsolidateLogoEvents", "Processing LOGO event Cat=%u SubCat=%u",  //
     20, "Not enough data in ELS LOGO Event %u %u", 2},
    {ZTSEK_ElsRscn,
     1,
     32,
     "sConsolidateRscnEvent",
     "Processing Rscn Event Cat=%u SubCat=%u",  //
     8,
     "Not enough data in RSCN Event %u %u",
     0,
     {{{0, ZTSame}}}},
    {ZTSEK_FabricFbsy, 2, 1, "sConsolidateGenericEvents", "Processing Fabric BUSY event Cat=%u SubCat=%u"},
    {ZTSEK_FabricPbsy, 2, 2, "sConsolidatePbsyEvents", "Processing PORTBUSY event Cat=%u SubCat=%u",  //
     12, "Not enough event data in FABRIC PORT BUSY event%u %u", 1},
    {ZTSEK_FabricFcprdchkerr,
     2,
     4,
     "sConsolidateFcprdChkErrEvents",
     "Processing FCPRDCHKERR event Cat=%u SubCat=%u",  //
     24,
     "Not enough data in FCPRDCHECKERR event %u %u",
     1,
     {{{16, ZTSame}, {12, ZTSame}, {20, ZTAdded}}}},
    {ZTSEK_ScsiQfull,
     4,
     1,
     "sConsolidateQFullEvents",
     "Processing QFULL event Cat=%u SubCat=%u",  //
     16,
     "Not enough data in SCSI Event %u %u",
     1,
     {},
     {12}},
    {ZTSEK_ScsiDevbsy,
     4,
     2,
     "sConsolidateDevBsyEvents",
     "Processing DEVBSY event Cat=%u SubCat=%u",  //
     16,
     "Not enough data in SCSI Event %u %u",
     1,
     {},
     {12}},
    {ZTSEK_ScsiCheckcondition,
     4,
     4,
     "sConsolidateCheckCondEvents",
     {},  //
     32,
     "Not enough data in SCSI CHECKCOND Event %u %u",
     1,
     {{{20, ZTSame}, {24, ZTSame}}},
     {12, 16, 28}},
    {ZTSEK_ScsiLunreset,
     4,
     8,
     "sConsolidateLunResetEvents",
     "Processing LUN RESET Cat=%u SubCat=%u",  //
     16,
     "Not enough data in SCSI TGTRESET Event %u %u",
     1,
     {{{12, ZTAdded}}}},
    {ZTSEK_ScsiTgtreset,
     4,
     16,
     "sConsolidateTargetResetEvents",
     "Processing TGT RESET Cat=%u SubCat=%u",  //
     16,
     "Not enough data in SCSI TGTRESET Event %u %u",
     1,
     {{{12, ZTAdded}}}},
    {ZTSEK_ScsiBusreset, 4, 32, "sConsolidateGenericEvents", "Processing BUSRESET event Cat=%u SubCat=%u"},
    {ZTSEK_ScsiVarquedepth,
     4,
     64,
     "sConsolidateVarQDepthEvents",
     "Processing VARQDEPTH event Cat=%u SubCat=%u",  //
     24,
     "Not enough data in SCSI VARQUEDEPTH Event %u %u",
     1,
     {{{12, ZTAdded}, {20, ZTAdded}}}},
    {ZTSEK_BoardPortinterr, 8, 1, "sConsolidateGenericEvents",
     "Processing PORTINTERR event Cat=%u SubCat=%u"},
    {ZTSEK_BoardLinkatte, 8, 2, "sConsolidateGenericEvents", "Processing LINK event Cat=%u SubCat=%u"},
    {ZTSEK_BoardTemperature, 8, 4, "sConsolidateGenericEvents", "Processing TEMP event Cat=%u SubCat=%u"},
    {ZTSEK_AdapterArrival, 16, 1, "sConsolidateGenericEvents",
     "Processing ADAPTER ARRIVAL Event Cat=%u SubCat=%u"},
};

namespace ztfacts {

/// Whether a payload of the row's minimum has all that is read of it, the words that a repeat must share
/// stand before those that it adds, and no row has words to add and sets as well.
constexpr bool isSound(const ZTSScopeEventFacts& acrFacts) {
    unsigned int lEnd = acrFacts.mNames == 0 ? 0 : 4 + acrFacts.mNames * 8U;
    for (const ZTSScopeEventWord& lrWord : acrFacts.mWords) {
        lEnd = lrWord.mRole == ZTSScopeEventWord::None ? lEnd : std::max(lEnd, lrWord.mOffset + 4U);
    }
    for (const unsigned char lSet : acrFacts.mSets) {
        lEnd = lSet == 0 ? lEnd : std::max(lEnd, lSet + 4U);
    }
    const auto lRank = [](const ZTSScopeEventWord& acrWord) {
        return acrWord.mRole == ZTSame ? 0 : acrWord.mRole == ZTAdded ? 1 : 2;
    };
    return lEnd <= acrFacts.mMinimum && (acrFacts.mMinimum == 0) == (acrFacts.mTooShort.mpText == nullptr) &&
           std::is_sorted(
               acrFacts.mWords.begin(), acrFacts.mWords.end(),
               [&](const auto& acrLeft, const auto& acrRight) { return lRank(acrLeft) < lRank(acrRight); }) &&
           (acrFacts.mSets[0] == 0 || acrFacts.wordsOf(ZTAdded) == 0);
}

constexpr bool areComplete() {
    for (unsigned int lAt = 0; lAt < std::size(ZTScopeEventFacts); ++lAt) {
        if (ZTScopeEventFacts[lAt].mKind != lAt || !isSound(ZTScopeEventFacts[lAt])) {
            return false;
        }
    }
    return std::size(ZTScopeEventFacts) == ZTSEK_Count;
}
static_assert(areComplete(), "one sound row a kind, in the catalogue's order");

}  // namespace ztfacts

/// The row of the kind that arrives with this category and subcategory, or null.
const ZTSScopeEventFacts* ZTFindScopeEventFacts(unsigned int aCategory, unsigned int aSubcategory);
