#include "Pseudonyms.h"

#include <algorithm>
#include <cctype>

#include "ShownText.h"

namespace {

constexpr std::size_t sDigits = 2 * ZTSWwn::Size;  // of a world wide name without colons
constexpr std::size_t sShort = 2;                  // a name as long as that is also a word, or a part of many

// In the order of ZTENamed.
constexpr const char* sBegins[] = {"host-", "port-",   "array-",  "C",    "F",     "switch-port-",
                                   "map-",  "volume-", "/mount-", "lun-", "user-", "text-"};
static_assert(std::size(sBegins) == static_cast<std::size_t>(ZTENamed::Count));

bool sIsAlnum(char aSign) {
    return std::isalnum(static_cast<unsigned char>(aSign)) != 0;
}
bool sIsHex(char aSign) {
    return std::isxdigit(static_cast<unsigned char>(aSign)) != 0;
}
// What words are made of.
bool sIsOfWord(char aSign) {
    return sIsAlnum(aSign) || aSign == '_' || (aSign & 0x80) != 0;
}

// Whether a part of a text is not a part of a longer word.
bool sIsWhole(std::string_view aText, std::size_t aAt, std::size_t aLength) {
    const std::size_t lEnd = aAt + aLength;
    const bool lJoinsBefore = aAt != 0 && sIsOfWord(aText[aAt - 1]) && sIsOfWord(aText[aAt]);
    const bool lJoinsBehind = lEnd != aText.size() && sIsOfWord(aText[lEnd - 1]) && sIsOfWord(aText[lEnd]);
    return !lJoinsBefore && !lJoinsBehind;
}

std::string sDigitsOf(const ZTSWwn& acrName) {
    std::string lText = acrName.toText();
    std::erase(lText, ':');
    return lText;
}

}  // namespace

std::string ZTCPseudonyms::makeName(ZTENamed aWhat) {
    for (;;) {
        std::string lName = sBegins[static_cast<std::size_t>(aWhat)] + std::to_string(++mMade[aWhat]);
        if (!mNames.contains(lName)) {  // else somebody is really called so
            return lName;
        }
    }
}

std::string ZTCPseudonyms::of(ZTENamed aWhat, const std::string& acrName) {
    if (const auto lPort = ZTSWwn::fromText(acrName)) {
        return of(*lPort).toText();
    }
    if (std::none_of(acrName.begin(), acrName.end(), sIsOfWord)) {
        return acrName;
    }
    const auto lAt = mNames.find(acrName);
    if (lAt != mNames.end()) {
        return lAt->second;
    }
    std::string lName = makeName(aWhat);
    mNames.emplace(acrName, lName);
    mNames.emplace(toShownText(acrName), lName);  // as texts have it
    // A letter alone may be a word; behind these it is a fabric.
    if (aWhat == ZTENamed::Fabric) {
        for (const std::string lBefore : {"fabric ", "Fabric ", "fabrics ", "fabric=", "and "}) {
            mNames.emplace(lBefore + acrName, lBefore + lName);
        }
    }
    return lName;
}

ZTSWwn ZTCPseudonyms::of(const ZTSWwn& acrName) {
    if (acrName == ZTSWwn()) {
        return acrName;
    }
    const auto [lAt, lIsNew] = mPorts.try_emplace(acrName);
    if (lIsNew) {
        auto lNumber = static_cast<std::uint32_t>(mPorts.size());
        lAt->second.mBytes[0] = 0xff;  // which no real one begins with
        for (std::size_t lByte = ZTSWwn::Size - 1; lNumber != 0; --lByte, lNumber >>= 8) {
            lAt->second.mBytes[lByte] = static_cast<std::uint8_t>(lNumber);
        }
    }
    return lAt->second;
}

void ZTCPseudonyms::learnPort(const ZTSWwn& acrPort, const std::string& acrName) {
    const ZTSWwn lPort = of(acrPort);
    std::uint32_t lNumber = 0;
    for (std::size_t lByte = ZTSWwn::Size - sizeof lNumber; lByte < ZTSWwn::Size; ++lByte) {
        lNumber = lNumber << 8 | lPort.mBytes[lByte];
    }
    std::string lName = sBegins[static_cast<std::size_t>(ZTENamed::Port)] + std::to_string(lNumber);
    while (mNames.contains(lName)) {
        lName += "'";
    }
    learnAlias(acrName, lName);
}

void ZTCPseudonyms::learnAlias(const std::string& acrAlias, const std::string& acrPseudonym) {
    if (std::any_of(acrAlias.begin(), acrAlias.end(), sIsOfWord)) {
        mNames.emplace(acrAlias, acrPseudonym);
    }
}

// The longest one that stands there. Its length; 0: none.
std::size_t ZTCPseudonyms::findName(std::string_view aText, std::size_t aAt, std::string& arPseudonym) const {
    std::string_view lRest = aText.substr(aAt);
    while (!lRest.empty()) {
        auto lAt = mNames.upper_bound(lRest);
        if (lAt == mNames.begin()) {
            return 0;
        }
        const std::string_view lName = (--lAt)->first;
        const std::size_t lSame =
            static_cast<std::size_t>(std::ranges::mismatch(lName, lRest).in1 - lName.begin());
        const bool lIsShort = lName.size() <= sShort && sIsOfWord(lName[0]);
        if (lSame == lName.size() && !lIsShort && sIsWhole(aText, aAt, lSame)) {
            arPseudonym = lAt->second;
            return lSame;
        }
        lRest = lRest.substr(0, lSame == lName.size() ? lSame - 1 : lSame);
    }
    return 0;
}

std::size_t ZTCPseudonyms::findNumber(std::string_view aText, std::size_t aAt, std::string& arPseudonym) {
    const std::string_view lRest = aText.substr(aAt);
    if (lRest.size() >= ZTSWwn::TextSize && lRest[2] == ':') {
        if (const auto lPort = ZTSWwn::fromText(lRest.substr(0, ZTSWwn::TextSize))) {
            arPseudonym = of(*lPort).toText();
            return ZTSWwn::TextSize;
        }
    }
    if (aAt != 0 && sIsHex(aText[aAt - 1])) {
        return 0;
    }
    const auto lLength = static_cast<std::size_t>(std::ranges::find_if_not(lRest, sIsHex) - lRest.begin());
    if (lLength < sDigits) {
        return 0;
    }
    const std::string lNumber(lRest.substr(0, lLength));
    arPseudonym = lLength == sDigits ? sDigitsOf(of(*ZTSWwn::fromText(lNumber))) : of(ZTENamed::Lun, lNumber);
    return lLength;
}

std::string ZTCPseudonyms::inText(std::string_view aText) {
    std::string lText;
    for (std::size_t lAt = 0; lAt < aText.size();) {
        std::string lPseudonym;
        std::size_t lLength = findName(aText, lAt, lPseudonym);
        if (lLength == 0) {
            lLength = findNumber(aText, lAt, lPseudonym);
        }
        lText += lLength == 0 ? aText.substr(lAt, 1) : std::string_view(lPseudonym);
        lAt += std::max<std::size_t>(lLength, 1);
    }
    return lText;
}

void ZTCPseudonyms::inBytes(std::vector<std::uint8_t>& arBytes) const {
    for (std::size_t lAt = 0; lAt + ZTSWwn::Size <= arBytes.size();) {
        ZTSWwn lName;
        const auto lBegin = arBytes.begin() + static_cast<std::ptrdiff_t>(lAt);
        std::copy_n(lBegin, ZTSWwn::Size, lName.mBytes.begin());
        const auto lKnown = mPorts.find(lName);
        if (lKnown != mPorts.end()) {
            std::ranges::copy(lKnown->second.mBytes, lBegin);
        }
        lAt += lKnown != mPorts.end() ? ZTSWwn::Size : 1;
    }
}
