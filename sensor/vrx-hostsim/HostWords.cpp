#include "HostWords.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

namespace {

struct UnitRow {
    std::string_view mName;
    double mMilliseconds;
};
constexpr UnitRow sUnits[] = {{"ms", 1}, {"s", 1000}, {"m", 60'000}};
constexpr double sLongest = 86'400'000;

// The text up to a blank, with what is in quotes as it stands.
std::string sTakeWord(std::string_view& arLine) {
    std::string lWord;
    bool lIsQuoted = false;
    std::size_t lAt = 0;
    for (; lAt < arLine.size() && (lIsQuoted || (arLine[lAt] != ' ' && arLine[lAt] != '\t')); ++lAt) {
        if (arLine[lAt] == '"') {
            lIsQuoted = !lIsQuoted;
        } else {
            lWord += arLine[lAt];
        }
    }
    if (lIsQuoted) {
        throw ZTCHostSimError("a quote that is not closed, expected another one");
    }
    arLine.remove_prefix(lAt);
    return lWord;
}

}  // namespace

ZTCHostWords::ZTCHostWords(std::string_view aLine) {
    if (!aLine.empty() && aLine.back() == '\r') {
        aLine.remove_suffix(1);
    }
    for (;;) {
        const std::size_t lBegin = aLine.find_first_not_of(" \t");
        if (lBegin == std::string_view::npos || aLine[lBegin] == '#') {
            return;
        }
        aLine.remove_prefix(lBegin);
        const std::size_t lEqual = aLine.find_first_of("=\" \t");
        Word lWord;
        if (lEqual != std::string_view::npos && lEqual != 0 && aLine[lEqual] == '=') {
            lWord.mIsPair = true;
            lWord.mKey = aLine.substr(0, lEqual);
            aLine.remove_prefix(lEqual + 1);
        }
        lWord.mValue = sTakeWord(aLine);
        mWords.push_back(std::move(lWord));
    }
}

std::optional<std::string> ZTCHostWords::tryNext() {
    const auto lFound = std::ranges::find(mWords, false, &Word::mIsPair);
    if (lFound == mWords.end()) {
        return {};
    }
    std::string lValue = std::move(lFound->mValue);
    mWords.erase(lFound);
    return lValue;
}

std::string ZTCHostWords::next(const char* apWhat) {
    if (auto lWord = tryNext()) {
        return *lWord;
    }
    throw ZTCHostSimError(fmt::format("no more words, expected {}", apWhat));
}

std::string ZTCHostWords::nextText(const char* apWhat) {
    std::string lText = next(apWhat);
    while (const auto lWord = tryNext()) {
        lText += " " + *lWord;
    }
    return lText;
}

std::optional<std::string> ZTCHostWords::find(std::string_view aKey) {
    const auto lFound = std::ranges::find_if(
        mWords, [=](const Word& acrWord) { return acrWord.mIsPair && acrWord.mKey == aKey; });
    if (lFound == mWords.end()) {
        return {};
    }
    std::string lValue = std::move(lFound->mValue);
    mWords.erase(lFound);
    return lValue;
}

std::uint64_t ZTCHostWords::getNumber(std::string_view aKey, std::uint64_t aDefault) {
    const auto lText = find(aKey);
    return lText ? readHostNumber(*lText, std::string(aKey).c_str()) : aDefault;
}

std::chrono::milliseconds ZTCHostWords::getDuration(std::string_view aKey,
                                                    std::chrono::milliseconds aDefault) {
    const auto lText = find(aKey);
    if (!lText) {
        return aDefault;
    }
    double lNumber = 0;
    const auto lRead = std::from_chars(lText->data(), lText->data() + lText->size(), lNumber);
    const std::string_view lUnit(lRead.ptr, lText->data() + lText->size());
    const auto* const lpUnit = std::ranges::find(sUnits, lUnit, &UnitRow::mName);
    if (lRead.ec != std::errc() || lpUnit == std::end(sUnits) ||
        !(lNumber >= 0 && lNumber * lpUnit->mMilliseconds <= sLongest)) {
        throw ZTCHostSimError(
            fmt::format("'{}' as {}, expected a duration to a day, such as 250ms, 1.5s or 2m", *lText, aKey));
    }
    return std::chrono::milliseconds(static_cast<std::int64_t>(lNumber * lpUnit->mMilliseconds));
}

std::vector<std::string> ZTCHostWords::getList(std::string_view aKey) {
    const auto lText = find(aKey);
    return lText ? splitHostText(*lText, ',') : std::vector<std::string>();
}

ZTCHostWords ZTCHostWords::takeKeys() {
    ZTCHostWords lKeys;
    const auto lEnd = std::ranges::find(mWords, false, &Word::mIsPair);
    lKeys.mWords.assign(std::make_move_iterator(mWords.begin()), std::make_move_iterator(lEnd));
    mWords.erase(mWords.begin(), lEnd);
    return lKeys;
}

std::vector<std::pair<std::string, std::string>> ZTCHostWords::takePairs() {
    std::vector<std::pair<std::string, std::string>> lPairs;
    std::erase_if(mWords, [&](const Word& acrWord) {
        if (acrWord.mIsPair) {
            lPairs.emplace_back(acrWord.mKey, acrWord.mValue);
        }
        return acrWord.mIsPair;
    });
    return lPairs;
}

void ZTCHostWords::end() const {
    if (!mWords.empty()) {
        const Word& lrWord = mWords.front();
        throw ZTCHostSimError(fmt::format("'{}' is too much, expected nothing more",
                                          lrWord.mIsPair ? lrWord.mKey + "=" : lrWord.mValue));
    }
}

std::uint64_t readHostNumber(std::string_view aText, const char* apWhat) {
    const bool lIsHex = aText.starts_with("0x");
    const std::string_view lDigits = aText.substr(lIsHex ? 2 : 0);
    std::uint64_t lNumber = 0;
    const auto lRead = std::from_chars(lDigits.begin(), lDigits.end(), lNumber, lIsHex ? 16 : 10);
    if (lRead.ec != std::errc() || lRead.ptr != lDigits.end()) {
        throw ZTCHostSimError(fmt::format("'{}' as {}, expected a number", aText, apWhat));
    }
    return lNumber;
}

std::vector<std::string> splitHostText(std::string_view aText, char aSign) {
    std::vector<std::string> lParts;
    for (;;) {
        const std::size_t lEnd = aText.find(aSign);
        lParts.emplace_back(aText.substr(0, lEnd));
        if (lEnd == std::string_view::npos) {
            return lParts;
        }
        aText.remove_prefix(lEnd + 1);
    }
}
