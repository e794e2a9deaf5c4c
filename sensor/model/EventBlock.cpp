#include "EventBlock.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>

#include "EventNames.h"
#include "SenseText.h"

namespace {

constexpr std::size_t sWord = 4;
constexpr std::uint32_t sForm = 1;  // the first word of every block of this form

// What is read of a block, in order.
enum class Shape : std::uint8_t {
    None,
    Name,    // 8 bytes
    Word,    // some bits of a word, little-endian
    Text,    // the word's name, from a table
    PortId,  // the low 24 bits, as six digits
    Set,     // the word 256 and 32 bytes, of which a bit is a value: a list
    List,    // words, to the block's end: a list
    Groups,  // so many words each, to the block's end: a list of what the fields below say
    Sense,   // nothing: what the fields before it mean, the sense key, its name, and the code's two numbers
};

struct FieldRow {
    const char* mpName = "";
    Shape mShape = Shape::None;
    std::uint8_t mShift = 0;
    std::uint32_t mMask = 0xffffffff;
    const char* (*mpNameOf)(std::uint32_t) = nullptr;
    bool mStays = false;  // the next field reads the same word
};

constexpr std::size_t sMaxFields = 9;
using FieldRows = std::array<FieldRow, sMaxFields>;

struct KindRow {
    ZTSEventKindName mKind;
    FieldRows mFields{};
    // Of each group, a word each but where one stays.
    std::array<FieldRow, 4> mGroup{};
};

constexpr FieldRow sName(const char* apName) {
    return {apName, Shape::Name};
}
constexpr FieldRow sWordOf(const char* apName, std::uint8_t aShift = 0, std::uint32_t aMask = 0xffffffff,
                           bool aStays = false) {
    return {apName, Shape::Word, aShift, aMask, nullptr, aStays};
}
// A word that the next field names.
constexpr FieldRow sNamed(const char* apName) {
    return sWordOf(apName, 0, 0xffffffff, true);
}
constexpr FieldRow sNameOf(const char* apName, const char* (*apNameOf)(std::uint32_t),
                           std::uint8_t aShift = 0, std::uint32_t aMask = 0xffffffff, bool aStays = false) {
    return {apName, Shape::Text, aShift, aMask, apNameOf, aStays};
}
constexpr FieldRow sRest(const char* apName, Shape aShape) {
    return {apName, aShape};
}

constexpr FieldRow sRemotePort = sName("remote_port_name");
constexpr FieldRows sTwoNames{sRemotePort, sName("second_name")};
constexpr FieldRows sOneName{sRemotePort};
constexpr FieldRows sSetOfLuns{sRemotePort, sRest("luns", Shape::Set)};
constexpr FieldRows sListOfLuns{sRemotePort, sRest("luns", Shape::List)};

// In the order of their numbers.
constexpr KindRow sKinds[] = {
    {{1, 1, "plogi"}, sTwoNames},
    {{1, 2, "prlo"}, sOneName},
    {{1, 4, "adisc"}, sTwoNames},
    {{1, 8, "ls_rjt"},
     {sRemotePort, sNamed("rejected_command"), sNameOf("rejected_command_name", nameElsCommand),
      sRest("rejections", Shape::Groups)},
     {sNamed("reason"), sNameOf("reason_name", nameRejectReason), sNamed("explanation"),
      sNameOf("explanation_name", nameRejectExplanation)}},
    {{1, 16, "logo"}, sTwoNames},
    {{1, 32, "rscn"},
     {sNameOf("address_format", nameAddressFormat, 24, 3, true), FieldRow{"port_id", Shape::PortId}}},
    {{2, 1, "fabric_busy"}},
    {{2, 2, "port_busy"}, sOneName},
    {{2, 4, "fcp_read_check_error"},
     {sRemotePort, sNamed("operation_code"), sNameOf("operation_name", nameScsiOperation), sWordOf("lun"),
      sRest("residuals", Shape::List)}},
    {{4, 1, "queue_full"}, sSetOfLuns},
    {{4, 2, "device_busy"}, sSetOfLuns},
    {{4, 4, "check_condition"},
     {sRemotePort, sNamed("sense_key"), sNameOf("sense_key_name", nameSenseKey),
      sWordOf("asc", 8, 0xff, true), sWordOf("ascq", 0, 0xff), sRest("sense_text", Shape::Sense),
      sRest("luns", Shape::Set), sRest("operation_codes", Shape::Set), sRest("queue_tags", Shape::Set)}},
    {{4, 8, "lun_reset"}, sListOfLuns},
    {{4, 16, "target_reset"}, sListOfLuns},
    {{4, 32, "bus_reset"}},
    {{4, 64, "queue_depth_change"},
     {sRemotePort, sRest("changes", Shape::Groups)},
     {sWordOf("lun"), sWordOf("new_depth")}},
    {{8, 1, "port_interrupt_error"}},
    {{8, 2, "link"}},
    {{8, 4, "temperature"}},
    {{16, 1, "adapter_arrival"}},
};

// What names and words take; of the fields of a kind: all that stands before the first set or list.
template <class Rows>
constexpr std::size_t sBytesOf(const Rows& acrRows) {
    std::size_t lBytes = 0;
    for (const FieldRow& lrRow : acrRows) {
        if (lrRow.mShape == Shape::Name) {
            lBytes += ZTSWwn::Size;
        } else if (lrRow.mShape == Shape::Word || lrRow.mShape == Shape::Text ||
                   lrRow.mShape == Shape::PortId) {
            lBytes += lrRow.mStays ? 0 : sWord;
        }
    }
    return lBytes;
}

struct LayoutRow {
    std::uint8_t mCategory = 0;
    std::uint8_t mSubcategory = 0;
    ZTSEventLayout mLayout{};
};

constexpr auto sLayouts = [] {
    std::array<LayoutRow, std::size(sKinds)> lLayouts{};
    for (std::size_t lAt = 0; lAt < lLayouts.size(); ++lAt) {
        const KindRow& lrKind = sKinds[lAt];
        ZTSEventLayout lLayout{static_cast<std::uint32_t>(sWord + sBytesOf(lrKind.mFields))};
        for (const FieldRow& lrRow : lrKind.mFields) {
            lLayout.mSets = static_cast<std::uint8_t>(lLayout.mSets + (lrRow.mShape == Shape::Set ? 1 : 0));
            if (lrRow.mShape == Shape::List) {
                lLayout.mAdded = sWord;
            } else if (lrRow.mShape == Shape::Groups) {
                lLayout.mAdded = static_cast<std::uint8_t>(sBytesOf(lrKind.mGroup));
            }
        }
        lLayouts[lAt] = {lrKind.mKind.mCategory, lrKind.mKind.mSubcategory, lLayout};
    }
    return lLayouts;
}();

const KindRow* sFindRow(std::uint8_t aCategory, std::uint8_t aSubcategory) {
    const auto* const lpRow = std::find_if(std::begin(sKinds), std::end(sKinds), [=](const KindRow& acrRow) {
        return acrRow.mKind.mCategory == aCategory && acrRow.mKind.mSubcategory == aSubcategory;
    });
    return lpRow != std::end(sKinds) ? lpRow : nullptr;
}

// What is left of a block. A value that it is too short for is nothing, and the block is at its end then.
class BlockReader {
  public:
    explicit BlockReader(std::span<const std::uint8_t> aBytes) : mBytes(aBytes) {}

    std::size_t getLeft() const { return mBytes.size(); }

    std::optional<std::uint32_t> peekWord() const {
        if (mBytes.size() < sWord) {
            return {};
        }
        return mBytes[0] | std::uint32_t{mBytes[1]} << 8 | std::uint32_t{mBytes[2]} << 16 |
               std::uint32_t{mBytes[3]} << 24;
    }
    std::span<const std::uint8_t> take(std::size_t aCount) {
        const auto lTaken = mBytes.size() < aCount ? std::span<const std::uint8_t>() : mBytes.first(aCount);
        mBytes = mBytes.subspan(std::min(aCount, mBytes.size()));
        return lTaken;
    }

  private:
    std::span<const std::uint8_t> mBytes;
};

// Whether a block has what the layout says, and nothing else.
bool sHasLayout(BlockReader aBlock, const ZTSEventLayout& acrLayout) {
    if (aBlock.peekWord() != sForm || aBlock.getLeft() < acrLayout.mSame) {
        return false;
    }
    aBlock.take(acrLayout.mSame);
    for (unsigned int lSet = 0; lSet < acrLayout.mSets; ++lSet) {
        if (aBlock.peekWord() != ZTEventSetSize || aBlock.take(ZTEventSetBytes).empty()) {
            return false;
        }
    }
    return aBlock.getLeft() % std::max<std::size_t>(acrLayout.mAdded, 1) == 0 &&
           (acrLayout.mAdded != 0 || aBlock.getLeft() == 0);
}

ZTEventValue sReadName(BlockReader& arReader) {
    const auto lBytes = arReader.take(ZTSWwn::Size);
    if (lBytes.empty()) {
        return {};
    }
    ZTSWwn lName;
    std::copy(lBytes.begin(), lBytes.end(), lName.mBytes.begin());
    return lName;
}

ZTEventValue sReadWord(BlockReader& arReader, const FieldRow& acrRow) {
    const auto lWhole = arReader.peekWord();
    if (!acrRow.mStays) {
        arReader.take(sWord);
    }
    if (!lWhole) {
        return {};
    }
    const std::uint32_t lValue = *lWhole >> acrRow.mShift & acrRow.mMask;
    if (acrRow.mShape == Shape::PortId) {
        char lText[16];
        snprintf(lText, sizeof lText, "%06x", lValue & 0xffffffU);
        return std::string(lText);
    }
    if (acrRow.mShape == Shape::Text) {
        const char* const lpName = acrRow.mpNameOf(lValue);
        return lpName != nullptr ? ZTEventValue(std::string(lpName)) : ZTEventValue();
    }
    return lValue;
}

ZTEventValue sReadSet(BlockReader& arReader) {
    std::vector<std::uint32_t> lValues;
    if (arReader.peekWord() != ZTEventSetSize) {
        arReader.take(arReader.getLeft());
        return lValues;
    }
    arReader.take(sWord);
    const auto lBits = arReader.take(ZTEventSetSize / 8);
    for (std::uint32_t lValue = 0; lValue < lBits.size() * 8; ++lValue) {
        if ((lBits[lValue / 8] >> lValue % 8 & 1) != 0) {
            lValues.push_back(lValue);
        }
    }
    return lValues;
}

ZTEventValue sReadList(BlockReader& arReader) {
    std::vector<std::uint32_t> lValues;
    while (const auto lValue = arReader.peekWord()) {
        lValues.push_back(*lValue);
        arReader.take(sWord);
    }
    return lValues;
}

ZTEventValue sMakeSense(const ZTEventGroup& acrBefore) {
    const auto* const lpKey = std::get_if<std::uint32_t>(&acrBefore.end()[-4].mValue);
    const auto* const lpCode = std::get_if<std::uint32_t>(&acrBefore.end()[-2].mValue);
    const auto* const lpQualifier = std::get_if<std::uint32_t>(&acrBefore.end()[-1].mValue);
    if (lpKey == nullptr || lpCode == nullptr || lpQualifier == nullptr) {
        return {};
    }
    std::string lText =
        senseText(*lpKey, static_cast<std::uint8_t>(*lpCode), static_cast<std::uint8_t>(*lpQualifier));
    return lText.empty() ? ZTEventValue() : ZTEventValue(std::move(lText));
}

template <class Rows>
ZTEventGroup sReadFields(BlockReader& arReader, const Rows& acrRows, const KindRow& acrKind);

ZTEventValue sReadGroups(BlockReader& arReader, const KindRow& acrKind) {
    const std::size_t lSize = sBytesOf(acrKind.mGroup);
    std::vector<ZTEventGroup> lGroups;
    while (arReader.getLeft() >= lSize) {
        lGroups.push_back(sReadFields(arReader, acrKind.mGroup, acrKind));
    }
    return lGroups;
}

ZTEventValue sReadField(BlockReader& arReader, const FieldRow& acrRow, const KindRow& acrKind) {
    switch (acrRow.mShape) {
        case Shape::Name:
            return sReadName(arReader);
        case Shape::Set:
            return sReadSet(arReader);
        case Shape::List:
            return sReadList(arReader);
        case Shape::Groups:
            return sReadGroups(arReader, acrKind);
        default:
            return sReadWord(arReader, acrRow);
    }
}

template <class Rows>
ZTEventGroup sReadFields(BlockReader& arReader, const Rows& acrRows, const KindRow& acrKind) {
    ZTEventGroup lFields;
    lFields.reserve(acrRows.size());
    for (const FieldRow& lrRow : acrRows) {
        if (lrRow.mShape != Shape::None) {
            lFields.push_back({lrRow.mpName, lrRow.mShape == Shape::Sense
                                                 ? sMakeSense(lFields)
                                                 : sReadField(arReader, lrRow, acrKind)});
        }
    }
    return lFields;
}

}  // namespace

const char* findEventKind(std::uint8_t aCategory, std::uint8_t aSubcategory) {
    const KindRow* const lpRow = sFindRow(aCategory, aSubcategory);
    return lpRow != nullptr ? lpRow->mKind.mpName : nullptr;
}

std::vector<ZTSEventKindName> listEventKinds() {
    std::vector<ZTSEventKindName> lKinds;
    for (const KindRow& lrRow : sKinds) {
        lKinds.push_back(lrRow.mKind);
    }
    return lKinds;
}

std::optional<ZTEventGroup> decodeEventBlock(std::uint8_t aCategory, std::uint8_t aSubcategory,
                                             std::span<const std::uint8_t> aBlock) {
    const KindRow* const lpRow = sFindRow(aCategory, aSubcategory);
    BlockReader lReader(aBlock);
    if (lpRow == nullptr || lReader.peekWord() != sForm) {
        return {};
    }
    lReader.take(sWord);
    return sReadFields(lReader, lpRow->mFields, *lpRow);
}

ZTSEventLayout layoutOf(std::uint8_t aCategory, std::uint8_t aSubcategory,
                        std::span<const std::uint8_t> aBlock) {
    for (const LayoutRow& lrRow : sLayouts) {
        if (lrRow.mCategory == aCategory && lrRow.mSubcategory == aSubcategory &&
            sHasLayout(BlockReader(aBlock), lrRow.mLayout)) {
            return lrRow.mLayout;
        }
    }
    return {static_cast<std::uint32_t>(aBlock.size())};
}

std::optional<ZTSWwn> findRemotePort(std::uint8_t aCategory, std::uint8_t aSubcategory,
                                     std::span<const std::uint8_t> aBlock) {
    const KindRow* const lpRow = sFindRow(aCategory, aSubcategory);
    BlockReader lReader(aBlock);
    if (lpRow == nullptr || lpRow->mFields[0].mShape != Shape::Name || lReader.peekWord() != sForm) {
        return {};
    }
    lReader.take(sWord);
    const ZTEventValue lName = sReadName(lReader);
    return std::holds_alternative<ZTSWwn>(lName) ? std::optional(std::get<ZTSWwn>(lName)) : std::nullopt;
}

std::optional<std::uint32_t> findPortId(std::uint8_t aCategory, std::uint8_t aSubcategory,
                                        std::span<const std::uint8_t> aBlock) {
    const KindRow* const lpRow = sFindRow(aCategory, aSubcategory);
    BlockReader lReader(aBlock);
    if (lpRow == nullptr || lpRow->mFields[1].mShape != Shape::PortId || lReader.peekWord() != sForm) {
        return {};
    }
    lReader.take(sWord);
    const auto lPage = lReader.peekWord();
    const FieldRow& lrFormat = lpRow->mFields[0];
    const bool lIsOne = lPage && (*lPage >> lrFormat.mShift & lrFormat.mMask) == 0;
    return lIsOne ? std::optional(*lPage & 0xffffffU) : std::nullopt;
}

bool hasSenseKey(std::uint8_t aCategory, std::uint8_t aSubcategory) {
    const KindRow* const lpRow = sFindRow(aCategory, aSubcategory);
    return lpRow != nullptr && lpRow->mFields[2].mpNameOf == nameSenseKey;
}

std::optional<std::uint32_t> findSenseKey(std::uint8_t aCategory, std::uint8_t aSubcategory,
                                          std::span<const std::uint8_t> aBlock) {
    BlockReader lReader(aBlock);
    if (!hasSenseKey(aCategory, aSubcategory) || lReader.peekWord() != sForm) {
        return {};
    }
    lReader.take(sWord);
    lReader.take(ZTSWwn::Size);
    return lReader.peekWord();
}
