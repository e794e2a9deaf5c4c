#include "VitalData.h"

#include <scsi/sg_lib.h>

#include <algorithm>

#include "ShownText.h"

namespace {

using Bytes = std::span<const unsigned char>;

constexpr std::size_t sHead = 4;  // of the page, and of each designator in it
constexpr std::size_t sLongestText = 255;
constexpr int sOfTheLun = 0;  // an association

enum Designator : unsigned char { D_T10 = 1, D_Eui64 = 2, D_Naa = 3 };

// What stands in a page of that number, as far as it is there.
Bytes sContents(Bytes aPage, unsigned char aNumber) {
    if (aPage.size() <= sHead || aPage[1] != aNumber) {
        return {};
    }
    const std::size_t lSaid = std::size_t{aPage[2]} << 8 | aPage[3];
    return aPage.subspan(sHead, std::min(lSaid, aPage.size() - sHead));
}

bool sIsName(Designator aKind, Bytes aValue) {
    switch (aKind) {
        case D_Naa:
            return aValue.size() == 8 || aValue.size() == 16;
        case D_Eui64:
            return aValue.size() == 8 || aValue.size() == 12 || aValue.size() == 16;
        default:
            return !aValue.empty();
    }
}

// The longest one of a kind, for it says most; of those the first.
Bytes sFindName(Bytes aDesignators, Designator aKind) {
    Bytes lBest;
    const int lSize = static_cast<int>(aDesignators.size());
    for (int lAt = -1; sg_vpd_dev_id_iter(aDesignators.data(), lSize, &lAt, sOfTheLun, aKind, -1) == 0;) {
        const Bytes lOne = aDesignators.subspan(static_cast<std::size_t>(lAt));
        if (lOne.size() - sHead < lOne[3]) {
            break;
        }
        const Bytes lValue = lOne.subspan(sHead, lOne[3]);
        if (sIsName(aKind, lValue) && lValue.size() > lBest.size()) {
            lBest = lValue;
        }
    }
    return lBest;
}

std::string sHex(Bytes aBytes) {
    constexpr char lDigits[] = "0123456789abcdef";
    std::string lText;
    for (const unsigned char lByte : aBytes) {
        lText += {lDigits[lByte >> 4], lDigits[lByte & 15]};
    }
    return lText;
}

// Texts are filled up with blanks, some with zeros.
std::string sText(Bytes aBytes) {
    const auto lIsFilling = [](unsigned char aByte) { return aByte == ' ' || aByte == 0; };
    while (!aBytes.empty() && lIsFilling(aBytes.back())) {
        aBytes = aBytes.first(aBytes.size() - 1);
    }
    while (!aBytes.empty() && lIsFilling(aBytes.front())) {
        aBytes = aBytes.subspan(1);
    }
    aBytes = aBytes.first(std::min(aBytes.size(), sLongestText));
    return toShownText({reinterpret_cast<const char*>(aBytes.data()), aBytes.size()});
}

}  // namespace

std::string readWwid(std::span<const unsigned char> aPage) {
    const Bytes lDesignators = sContents(aPage, 0x83);
    if (lDesignators.size() <= sHead) {
        return "";
    }
    if (const Bytes lNaa = sFindName(lDesignators, D_Naa); !lNaa.empty()) {
        return "naa." + sHex(lNaa);
    }
    if (const Bytes lEui = sFindName(lDesignators, D_Eui64); !lEui.empty()) {
        return "eui." + sHex(lEui);
    }
    const std::string lT10 = sText(sFindName(lDesignators, D_T10));
    return lT10.empty() ? "" : "t10." + lT10;
}

std::string readSerial(std::span<const unsigned char> aPage) {
    return sText(sContents(aPage, 0x80));
}
