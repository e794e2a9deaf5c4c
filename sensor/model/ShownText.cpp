#include "ShownText.h"

#include <algorithm>
#include <cstdint>

namespace {

// A row a length: which first bytes such a character has, and its smallest value.
struct Lead {
    std::uint8_t mMask;
    std::uint8_t mBits;
    std::uint32_t mSmallest;
};
constexpr Lead sLeads[] = {
    {0x80, 0x00, 0x20}, {0xe0, 0xc0, 0xa0}, {0xf0, 0xe0, 0x800}, {0xf8, 0xf0, 0x10000}};

// The bytes of the printable character that the text begins with; 0 if it does not begin with one.
std::size_t sLengthOfFirst(std::string_view aText) {
    const auto lFirst = static_cast<std::uint8_t>(aText[0]);
    const auto* const lpLead = std::find_if(std::begin(sLeads), std::end(sLeads), [=](const Lead& acrLead) {
        return (lFirst & acrLead.mMask) == acrLead.mBits;
    });
    const auto lLength = static_cast<std::size_t>(lpLead - std::begin(sLeads)) + 1;
    if (lpLead == std::end(sLeads) || aText.size() < lLength) {
        return 0;
    }
    std::uint32_t lCode = lFirst & static_cast<std::uint8_t>(~lpLead->mMask);
    for (const char lByte : aText.substr(1, lLength - 1)) {
        if ((lByte & 0xc0) != 0x80) {
            return 0;
        }
        lCode = lCode << 6 | (static_cast<std::uint8_t>(lByte) & 0x3fU);
    }
    const bool lIsSurrogate = lCode >= 0xd800 && lCode <= 0xdfff;
    return lCode < lpLead->mSmallest || lCode == 0x7f || lCode > 0x10ffff || lIsSurrogate ? 0 : lLength;
}

}  // namespace

std::string toShownText(std::string_view aText, bool aKeepLineEnds) {
    constexpr char lDigits[] = "0123456789abcdef";
    std::string lShown;
    while (!aText.empty()) {
        // Nearly all text is this, and there may be much of it.
        const auto lPlain = static_cast<std::size_t>(
            std::find_if_not(aText.begin(), aText.end(),
                             [=](char aSign) {
                                 return (aSign >= ' ' && aSign <= '~') || (aKeepLineEnds && aSign == '\n');
                             }) -
            aText.begin());
        lShown += aText.substr(0, lPlain);
        aText.remove_prefix(lPlain);
        if (aText.empty()) {
            break;
        }
        const std::size_t lLength = sLengthOfFirst(aText);
        if (lLength == 0) {
            const auto lByte = static_cast<std::uint8_t>(aText[0]);
            lShown += {'\\', 'x', lDigits[lByte >> 4], lDigits[lByte & 15]};
        }
        lShown += aText.substr(0, lLength);
        aText.remove_prefix(std::max<std::size_t>(lLength, 1));
    }
    return lShown;
}
