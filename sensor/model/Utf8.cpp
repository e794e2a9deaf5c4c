#include "Utf8.h"

#include <algorithm>
#include <iterator>

namespace {

// A row a length: which first bytes such a character has, and its smallest value.
struct Lead {
    std::uint8_t mMask;
    std::uint8_t mBits;
    std::uint32_t mSmallest;
};
constexpr Lead sLeads[] = {
    {0x80, 0x00, 0x00}, {0xe0, 0xc0, 0x80}, {0xf0, 0xe0, 0x800}, {0xf8, 0xf0, 0x10000}};

}  // namespace

ZTSCharacter firstCharacterOf(std::string_view aText) {
    const auto lFirst = static_cast<std::uint8_t>(aText[0]);
    const auto* const lpLead = std::find_if(std::begin(sLeads), std::end(sLeads), [=](const Lead& acrLead) {
        return (lFirst & acrLead.mMask) == acrLead.mBits;
    });
    const auto lLength = static_cast<std::size_t>(lpLead - std::begin(sLeads)) + 1;
    if (lpLead == std::end(sLeads) || aText.size() < lLength) {
        return {};
    }
    std::uint32_t lCode = lFirst & static_cast<std::uint8_t>(~lpLead->mMask);
    for (const char lByte : aText.substr(1, lLength - 1)) {
        if ((lByte & 0xc0) != 0x80) {
            return {};
        }
        lCode = lCode << 6 | (static_cast<std::uint8_t>(lByte) & 0x3fU);
    }
    const bool lIsSurrogate = lCode >= 0xd800 && lCode <= 0xdfff;
    return lCode < lpLead->mSmallest || lCode > 0x10ffff || lIsSurrogate ? ZTSCharacter{}
                                                                         : ZTSCharacter{lCode, lLength};
}
