// What differs between the kinds of event: the rows of ScopeAgentEventFacts.def as a table.
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
#include "ScopeAgentEventKinds.h"
#include "ScopeAgentProtocolHandler.h"

/// The routine that finds an event's row.
inline constexpr char ZTScopeEventDispatch[] = "sConsolidateEvents";
/// The file that the records of these messages name.
inline constexpr char ZTScopeAgentEventFactsFile[] = "ScopeAgentEventFacts";

/// What a kind's block of event data is made of. Written as a chain: ZT_NAMES(1).same(12).added(16).
struct ZTSScopeEventBlock {
    static constexpr unsigned int MaxWords = 3;
    static constexpr unsigned int MaxSets = 3;
    static constexpr unsigned int NamesAt = 4;  ///< in the payload as in the data
    static constexpr unsigned int NameSize = 8;
    static constexpr unsigned int WordSize = 4;
    static constexpr unsigned int SetBits = 256;
    static constexpr unsigned int SetSize = WordSize + SetBits / 8;

    unsigned char mNames = 0;
    unsigned char mSame =
        0;  ///< words that must be what they are in the record, or an event is no repeat of it
    unsigned char mAdded = 0;  ///< words behind those, which a repeat appends to the record
    unsigned char mSets = 0;   ///< words whose values are collected in a set each
    std::array<unsigned char, MaxWords> mWordsAt{};  ///< offsets
    std::array<unsigned char, MaxSets> mSetsAt{};    ///< offsets

    // A chain that has no sense is refused by the compiler.

    consteval ZTSScopeEventBlock same(unsigned char aOffset) const {
        ZTSScopeEventBlock lBlock = *this;
        lBlock.mWordsAt.at(lBlock.mSame++) = mAdded == 0 && mSets == 0 ? aOffset : throw "same() comes first";
        return lBlock;
    }
    consteval ZTSScopeEventBlock added(unsigned char aOffset) const {
        ZTSScopeEventBlock lBlock = *this;
        lBlock.mWordsAt.at(mSame + lBlock.mAdded++) = mSets == 0 ? aOffset : throw "added() or set()";
        return lBlock;
    }
    consteval ZTSScopeEventBlock set(unsigned char aOffset) const {
        ZTSScopeEventBlock lBlock = *this;
        lBlock.mSetsAt.at(lBlock.mSets++) = mAdded == 0 ? aOffset : throw "added() or set()";
        return lBlock;
    }

    /// The bytes of the data of an event.
    constexpr unsigned int getLength() const {
        return NamesAt + mNames * NameSize + (mSame + mAdded) * WordSize + mSets * SetSize;
    }

    /// The bytes of a payload that has all this.
    constexpr unsigned int getEnd() const {
        unsigned int lEnd = mNames == 0 ? 0 : NamesAt + mNames * NameSize;
        for (unsigned int lWord = 0; lWord < mSame + mAdded; ++lWord) {
            lEnd = std::max(lEnd, mWordsAt[lWord] + WordSize);
        }
        for (unsigned int lSet = 0; lSet < mSets; ++lSet) {
            lEnd = std::max(lEnd, mSetsAt[lSet] + WordSize);
        }
        return lEnd;
    }
};

/// How a kind is registered when the vendor library has a registration of its own for it.
struct ZTSScopeEventMask {
    unsigned int mMask = 0;     ///< 0: it has not, the kind is registered by its codes
    unsigned int mContext = 0;  ///< bytes
    ZT_dfc_callback mpCallback = nullptr;
    const char* mpRegisteredName = nullptr;
    const char* mpFailedName = nullptr;
    bool mIsRequired = false;  ///< without it the collection is not started
};

struct ZTSScopeEventFacts {
    using Message = ZTCLogFormat<unsigned int, unsigned int>;

    ZTEScopeEventKind mKind;
    unsigned char mCategory;     ///< as it arrives, which is not always as it is registered
    unsigned char mSubcategory;  ///< the same
    const char* mpRoutine;       ///< the function that its traces name
    const char* mpTeller;        ///< and its message: of a kind without payload the dispatch
    Message mProcessing;         ///< category, subcategory
    unsigned char mMinimum;      ///< bytes that its payload must have
    Message mTooShort;           ///< that minimum, the bytes it has
    ZTSScopeEventBlock mBlock;
    ZTSScopeEventMask mByMask;

    /// Where its row stands.
    constexpr unsigned int getLine() const {
        return mProcessing.mpText != nullptr ? mProcessing.mLine : mTooShort.mLine;
    }
    ZTCScopeEvent getEvent() const { return {mCategory, mSubcategory}; }
};

// clang-format off
inline constexpr ZTSScopeEventFacts ZTScopeEventFacts[] = {
#define ZT_NAMES(Count) ZTSScopeEventBlock{Count}
#define ZT_NO_TEXT {}
#define ZT_BY_CODES {}
#define ZT_BY_MASK(Mask, Context, Callback, Name, FailedName, IsRequired) \
    {Mask, Context, ZTCScopeAgentProtocolHandler::Callback, Name, FailedName, IsRequired}
#define ZT_KIND(Name, Label, Category, Subcategory, Routine, Message, Minimum, TooShort, Block, Registration) \
    {ZTSEK_##Name, Category, Subcategory, Routine, (Minimum) == 0 ? ZTScopeEventDispatch : Routine, \
     Message, Minimum, TooShort, Block, Registration},
#include "ScopeAgentEventFacts.def"
#undef ZT_NAMES
#undef ZT_NO_TEXT
#undef ZT_BY_CODES
#undef ZT_BY_MASK
#undef ZT_KIND
};
// clang-format on

static_assert(std::all_of(std::begin(ZTScopeEventFacts), std::end(ZTScopeEventFacts),
                          [](const ZTSScopeEventFacts& acrFacts) {
                              return acrFacts.mBlock.getEnd() <= acrFacts.mMinimum &&
                                     (acrFacts.mMinimum == 0) == (acrFacts.mTooShort.mpText == nullptr);
                          }),
              "of a payload that is long enough nothing is read that it has not");

/// The row of the kind that arrives with this category and subcategory, or null.
const ZTSScopeEventFacts* ZTFindScopeEventFacts(unsigned int aCategory, unsigned int aSubcategory);
