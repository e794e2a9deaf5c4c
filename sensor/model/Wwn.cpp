#include "Wwn.h"

namespace {

int sValueOf(char aDigit) {
    if (aDigit >= '0' && aDigit <= '9') {
        return aDigit - '0';
    }
    const int lLower = aDigit | 0x20;
    return lLower >= 'a' && lLower <= 'f' ? lLower - 'a' + 10 : -1;
}

}  // namespace

std::string ZTSWwn::toText() const {
    constexpr char lDigits[] = "0123456789abcdef";
    std::string lText(TextSize, ':');
    for (std::size_t lByte = 0; lByte < Size; ++lByte) {
        lText[3 * lByte] = lDigits[mBytes[lByte] >> 4];
        lText[3 * lByte + 1] = lDigits[mBytes[lByte] & 15];
    }
    return lText;
}

std::optional<ZTSWwn> ZTSWwn::fromText(std::string_view aText) {
    std::size_t lStep = 3;  // from one byte's digits to the next's
    if (aText.size() != TextSize) {
        if (aText.starts_with("0x") || aText.starts_with("0X")) {
            aText.remove_prefix(2);
        }
        lStep = 2;
        if (aText.size() != Size * lStep) {
            return {};
        }
    }
    ZTSWwn lName;
    for (std::size_t lByte = 0; lByte < Size; ++lByte) {
        const std::size_t lAt = lByte * lStep;
        const int lHigh = sValueOf(aText[lAt]);
        const int lLow = sValueOf(aText[lAt + 1]);
        if (lHigh < 0 || lLow < 0 || (lStep == 3 && lByte + 1 < Size && aText[lAt + 2] != ':')) {
            return {};
        }
        lName.mBytes[lByte] = static_cast<std::uint8_t>(lHigh << 4 | lLow);
    }
    return lName;
}
