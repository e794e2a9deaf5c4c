#include "ShownText.h"

#include <algorithm>
#include <cstdint>

#include "Utf8.h"

namespace {

// The bytes of the printable character that the text begins with; 0 if it does not begin with one.
std::size_t sLengthOfFirst(std::string_view aText) {
    const ZTSCharacter lFirst = firstCharacterOf(aText);
    const bool lIsControl = lFirst.mCode < 0x20 || (lFirst.mCode >= 0x7f && lFirst.mCode < 0xa0);
    return lIsControl ? 0 : lFirst.mLength;
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
