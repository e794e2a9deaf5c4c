#include "SignTexts.h"

#include <algorithm>
#include <charconv>

namespace {

std::optional<ZTSWwn> sWwnIn(std::string_view aText) {
    return ZTSWwn::fromText(aText.substr(0, ZTSWwn::TextSize));
}

std::optional<std::uint32_t> sTakeNumber(std::string_view& arText) {
    std::uint32_t lNumber = 0;
    const auto lParsed = std::from_chars(arText.data(), arText.data() + arText.size(), lNumber);
    if (lParsed.ec != std::errc()) {
        return {};
    }
    arText.remove_prefix(static_cast<std::size_t>(lParsed.ptr - arText.data()));
    return lNumber;
}

}  // namespace

ZTPortPair readPair(std::string_view aName) {
    constexpr std::string_view lSeen = " seen from ";
    const std::size_t lAt = aName.find(lSeen);
    if (lAt == std::string_view::npos) {
        return {};
    }
    const auto lRemote = sWwnIn(aName);
    const auto lInitiator = ZTSWwn::fromText(aName.substr(lAt + lSeen.size()));
    return lRemote && lInitiator ? ZTPortPair(*lInitiator, *lRemote) : ZTPortPair();
}

std::optional<ZTSPathCount> readPathCount(std::string_view aText) {
    constexpr std::string_view lOf = " of ";
    const auto lLeft = sTakeNumber(aText);
    if (!lLeft || !aText.starts_with(lOf)) {
        return {};
    }
    aText.remove_prefix(lOf.size());
    const auto lTotal = sTakeNumber(aText);
    return lTotal && aText.empty() ? std::optional(ZTSPathCount{*lLeft, *lTotal}) : std::nullopt;
}

ZTSMissingPaths readMissingPaths(std::string_view aText) {
    ZTSMissingPaths lMissing;
    while (!aText.empty()) {
        const std::string_view lWord = aText.substr(0, aText.find(' '));
        aText.remove_prefix(std::min(aText.size(), lWord.size() + 1));
        const std::size_t lAt = std::min(lWord.size(), lWord.find('>'));
        const auto lInitiator = ZTSWwn::fromText(lWord.substr(0, lAt));
        const auto lTarget = ZTSWwn::fromText(lWord.substr(std::min(lWord.size(), lAt + 1)));
        if (lInitiator && lTarget) {
            lMissing.mPairs.emplace(*lInitiator, *lTarget);
        } else {
            lMissing.mIsAll = false;
        }
    }
    return lMissing;
}
