#include "SignBlocks.h"

#include <algorithm>
#include <iterator>
#include <span>

#include "EventNames.h"

namespace {

using Sign = ZTESign;

// ---- Words in blocks ----

constexpr std::size_t sBehindName = 4 + ZTSWwn::Size;  // the form, and the port's name

std::optional<std::uint32_t> sWordAt(std::span<const std::uint8_t> aBlock, std::size_t aAt) {
    if (aBlock.size() < aAt + 4) {
        return {};
    }
    return aBlock[aAt] | std::uint32_t{aBlock[aAt + 1]} << 8 | std::uint32_t{aBlock[aAt + 2]} << 16 |
           std::uint32_t{aBlock[aAt + 3]} << 24;
}
bool sHasForm(std::span<const std::uint8_t> aBlock) {
    return sWordAt(aBlock, 0) == 1U;
}

void sPutHex(std::string& arText, std::uint32_t aValue, int aDigits) {
    for (int lShift = 4 * (aDigits - 1); lShift >= 0; lShift -= 4) {
        arText += "0123456789abcdef"[aValue >> lShift & 0xf];
    }
}

// ---- Records: what each kind is, and what its block adds ----

// A path in standby says so whenever somebody asks: it means no harm.
Sign sSenseOf(std::uint32_t aKey, std::uint32_t aAsc, std::uint32_t aAscq) {
    constexpr std::uint32_t lNotReady = 0x04, lStandby = 0x0b, lPredicted = 0x5d;
    if (aAsc == lPredicted) {
        return Sign::MediumError;
    }
    switch (aKey) {
        case 0x1:
            return Sign::Recovered;
        case 0x2:
            return aAsc == lNotReady && aAscq != lStandby ? Sign::NotReady : Sign::Illegal;
        case 0x3:
            return Sign::MediumError;
        case 0x4:
            return Sign::HardwareError;
        case 0x6:
            return Sign::UnitAttention;
        case 0xb:
            return Sign::Aborted;
        default:
            return Sign::Illegal;
    }
}

void sReadSense(std::span<const std::uint8_t> aBlock, ZTSSign& arSign) {
    const auto lKey = sWordAt(aBlock, sBehindName);
    const auto lCode = sWordAt(aBlock, sBehindName + 4);
    if (!sHasForm(aBlock) || !lKey || !lCode) {
        return;
    }
    const std::uint32_t lAsc = *lCode >> 8 & 0xff;
    const std::uint32_t lAscq = *lCode & 0xff;
    arSign.mSign = sSenseOf(*lKey, lAsc, lAscq);
    sPutHex(arSign.mDetail, *lKey, 1);
    arSign.mDetail += '/';
    sPutHex(arSign.mDetail, lAsc, 2);
    arSign.mDetail += '/';
    sPutHex(arSign.mDetail, lAscq, 2);
}

// Of what is no login nobody suffers. What cannot be read may be one.
void sReadReject(std::span<const std::uint8_t> aBlock, ZTSSign& arSign) {
    constexpr std::uint32_t lLogins[] = {0x03, 0x04, 0x20, 0x50, 0x51, 0x52};
    const auto lCommand = sWordAt(aBlock, sBehindName);
    if (!sHasForm(aBlock) || !lCommand) {
        return;
    }
    if (std::ranges::find(lLogins, *lCommand) == std::end(lLogins)) {
        arSign.mSign = Sign::Count;
        return;
    }
    arSign.mDetail = nameElsCommand(*lCommand);
    const auto lReason = sWordAt(aBlock, sBehindName + 4);
    if (const char* const lpReason = lReason ? nameRejectReason(*lReason) : nullptr) {
        arSign.mDetail += std::string(": ") + lpReason;
    }
}

void sReadRscn(std::span<const std::uint8_t> aBlock, ZTSSign& arSign) {
    const auto lPage = sWordAt(aBlock, 4);
    if (sHasForm(aBlock) && lPage) {
        arSign.mDetail = nameAddressFormat(*lPage >> 24 & 3);
        arSign.mDetail += ' ';
        sPutHex(arSign.mDetail, *lPage & 0xffffff, 6);
    }
}

struct KindRow {
    std::uint8_t mCategory;
    std::uint8_t mSubcategory;
    Sign mSign;
    const char* mpDetail = "";
    void (*mpRead)(std::span<const std::uint8_t>, ZTSSign&) = nullptr;
};
constexpr KindRow sKinds[] = {
    {4, 4, Sign::Illegal, "", sReadSense},  // the first that is looked for: the most there are of
    {4, 1, Sign::QueueFull},
    {1, 1, Sign::Login, "plogi"},
    {1, 2, Sign::Logo, "prlo"},
    {1, 4, Sign::Login, "adisc"},
    {1, 8, Sign::LoginReject, "", sReadReject},
    {1, 16, Sign::Logo, "logo"},
    {1, 32, Sign::Rscn, "", sReadRscn},
    {2, 1, Sign::Busy, "fabric_busy"},
    {2, 2, Sign::Busy, "port_busy"},
    {2, 4, Sign::ReadCheck},
    {4, 2, Sign::Busy, "device_busy"},
    {4, 8, Sign::Reset, "lun_reset"},
    {4, 16, Sign::Reset, "target_reset"},
    {4, 32, Sign::Reset, "bus_reset"},
    {4, 64, Sign::QueueDepth},
    {8, 1, Sign::PortError},
    {8, 2, Sign::LinkEvent},
    {8, 4, Sign::Temperature},
    {16, 1, Sign::AdapterArrival},
};

}  // namespace

void readSignBlock(const ZTSRecord& acrRecord, ZTSSign& arSign) {
    const ZTSSeries& lrSeries = acrRecord.mSeries;
    const auto* const lpRow = std::ranges::find_if(sKinds, [&](const KindRow& acrRow) {
        return acrRow.mCategory == lrSeries.mCategory && acrRow.mSubcategory == lrSeries.mSubcategory;
    });
    if (lpRow == std::end(sKinds)) {
        arSign.mSign = Sign::Count;
        return;
    }
    arSign.mSign = lpRow->mSign;
    arSign.mDetail = lpRow->mpDetail;
    if (lpRow->mpRead != nullptr) {
        lpRow->mpRead(acrRecord.mData, arSign);
    }
}
