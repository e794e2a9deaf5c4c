#include "Scenario.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>

namespace {

using Read = std::optional<ZTSSimValueRead>;

constexpr uint64_t sNanosecondsADay = 86'400'000'000'000;
constexpr size_t sMaxPages = 16382;  // an RSCN's length has 16 bits
constexpr size_t sMaxShown = 60;
constexpr char sBlanks[] = " \t\r\v\f";

struct UnitRow {
    std::string_view mName;
    double mNanoseconds;
};
constexpr UnitRow sUnits[] = {{"ns", 1}, {"us", 1e3}, {"ms", 1e6}, {"s", 1e9}, {"m", 60e9}};

std::vector<std::string_view> sSplit(std::string_view aText, std::string_view aSeparators) {
    std::vector<std::string_view> lParts;
    for (;;) {
        const size_t lEnd = aText.find_first_of(aSeparators);
        lParts.push_back(aText.substr(0, lEnd));
        if (lEnd == std::string_view::npos) {
            return lParts;
        }
        aText.remove_prefix(lEnd + 1);
    }
}

// What an error shows of a line's text: of bounded length, whatever the text.
std::string sShown(std::string_view aText) {
    return "'" + std::string(aText.substr(0, sMaxShown)) + (aText.size() > sMaxShown ? "...'" : "'");
}

std::optional<uint64_t> sDigitsOf(std::string_view aText, int aBase) {
    uint64_t lNumber = 0;
    const auto lParsed = std::from_chars(aText.data(), aText.data() + aText.size(), lNumber, aBase);
    const bool lWhole = lParsed.ec == std::errc() && lParsed.ptr == aText.data() + aText.size();
    return lWhole ? std::optional(lNumber) : std::nullopt;
}

std::string_view sWithoutPrefix(std::string_view aText) {
    return aText.starts_with("0x") || aText.starts_with("0X") ? aText.substr(2) : aText;
}

std::optional<uint64_t> sNumberOf(std::string_view aText, uint64_t aLeast, uint64_t aMost) {
    const std::string_view lDigits = sWithoutPrefix(aText);
    const auto lNumber = sDigitsOf(lDigits, lDigits.size() != aText.size() ? 16 : 10);
    return lNumber && *lNumber >= aLeast && *lNumber <= aMost ? lNumber : std::nullopt;
}

Read sReadOf(std::optional<uint64_t> aNumber) {
    return aNumber ? Read(ZTSSimValueRead{*aNumber, {}}) : Read();
}

// One function a value: null if the text is none.

Read sFlagOf(std::string_view /*aText*/, const ZTSSimKey& /*acrKey*/) {
    return {};  // a flag has no value
}

Read sNamedNumberOf(std::string_view aText, const ZTSSimKey& acrKey) {
    return sReadOf(acrKey.mpNames[0] != '\0' && aText == acrKey.mpNames
                       ? acrKey.mMost
                       : sNumberOf(aText, acrKey.mLeast, acrKey.mMost));
}

Read sDurationOf(std::string_view aText, const ZTSSimKey& /*acrKey*/) {
    const size_t lDigits = std::min(aText.find_first_not_of("0123456789."), aText.size());
    const auto* const lpUnit = std::ranges::find(sUnits, aText.substr(lDigits), &UnitRow::mName);
    double lNumber = 0;
    const auto lParsed =
        std::from_chars(aText.data(), aText.data() + lDigits, lNumber, std::chars_format::fixed);
    if (lpUnit == std::end(sUnits) || lParsed.ec != std::errc() || lParsed.ptr != aText.data() + lDigits ||
        lNumber * lpUnit->mNanoseconds > static_cast<double>(sNanosecondsADay)) {
        return {};
    }
    return sReadOf(static_cast<uint64_t>(std::llround(lNumber * lpUnit->mNanoseconds)));
}

Read sNameOf(std::string_view aText, const ZTSSimKey& /*acrKey*/) {
    std::string lDigits(sWithoutPrefix(aText));
    if (aText.size() == 23) {
        lDigits.clear();
        for (const std::string_view lByte : sSplit(aText, ":")) {
            lDigits += lByte.size() == 2 ? lByte : " ";
        }
    }
    return lDigits.size() == 16 ? sReadOf(sDigitsOf(lDigits, 16)) : Read();
}

Read sSenseOf(std::string_view aText, const ZTSSimKey& /*acrKey*/) {
    const auto lParts = sSplit(aText, "/");
    ZTSSimValueRead lSense;
    for (const std::string_view lPart : lParts) {
        const auto lByte = sDigitsOf(lPart, 16);
        if (lParts.size() != 3 || !lByte || *lByte > UINT8_MAX) {
            return {};
        }
        lSense.mNumber = lSense.mNumber << 8 | *lByte;
    }
    return lSense;
}

void sAppendPage(std::vector<uint8_t>& arBytes, uint64_t aPage) {
    for (const int lShift : {24, 16, 8, 0}) {
        arBytes.push_back(static_cast<uint8_t>(aPage >> lShift));
    }
}

Read sPagesOf(std::string_view aText, const ZTSSimKey& /*acrKey*/) {
    ZTSSimValueRead lPages;
    for (const std::string_view lText : sSplit(aText, ",")) {
        const auto lPage = sNumberOf(lText, 0, UINT32_MAX);
        if (!lPage) {
            return {};
        }
        sAppendPage(lPages.mBytes, *lPage);
    }
    return lPages.mBytes.size() <= sMaxPages * 4 ? Read(lPages) : Read();
}

Read sBytesOf(std::string_view aText, const ZTSSimKey& /*acrKey*/) {
    ZTSSimValueRead lBytes;
    for (; !aText.empty(); aText.remove_prefix(2)) {
        const auto lByte = sDigitsOf(aText.substr(0, 2), 16);
        if (aText.size() < 2 || !lByte) {
            return {};
        }
        lBytes.mBytes.push_back(static_cast<uint8_t>(*lByte));
    }
    return lBytes;
}

template <class Names>
Read sPlaceIn(const Names& acrNames, std::string_view aText) {
    const auto lFound = std::ranges::find(acrNames, aText);
    return lFound != acrNames.end() ? sReadOf(static_cast<uint64_t>(std::distance(acrNames.begin(), lFound)))
                                    : Read();
}

std::vector<std::string_view> sKindNames() {
    std::vector<std::string_view> lNames;
    for (const ZTSSimKind& lrKind : getSimKinds()) {
        lNames.emplace_back(lrKind.mpName);
    }
    return lNames;
}

Read sKindOf(std::string_view aText, const ZTSSimKey& /*acrKey*/) {
    return sPlaceIn(sKindNames(), aText);
}

Read sChoiceOf(std::string_view aText, const ZTSSimKey& acrKey) {
    return sPlaceIn(sSplit(acrKey.mpNames, "|"), aText);
}

struct ValueRow {
    ZTESimValue mValue;
    Read (*mRead)(std::string_view aText, const ZTSSimKey& acrKey);
    const char* mpExpected;  // null: said from the key
};
constexpr ValueRow sValues[] = {
    {ZTESimValue::Flag, sFlagOf, "no value"},
    {ZTESimValue::Number, sNamedNumberOf, nullptr},
    {ZTESimValue::Duration, sDurationOf, "a duration to a day, such as 250ms or 1.5s, in ns, us, ms, s or m"},
    {ZTESimValue::Name, sNameOf, "a name such as 20:00:00:25:b5:01:00:0a or 0x20000025b501000a"},
    {ZTESimValue::Sense, sSenseOf, "KEY/ASC/ASCQ in hex bytes, such as 5/24/00"},
    {ZTESimValue::Pages, sPagesOf,
     "1 to 16382 pages of 32 bits with commas between, such as 0x010203,0x03000000"},
    {ZTESimValue::Bytes, sBytesOf, "two hex digits a byte"},
    {ZTESimValue::Choice, sChoiceOf, nullptr},
    {ZTESimValue::Kind, sKindOf, nullptr},
};
static_assert(std::size(sValues) == static_cast<size_t>(ZTESimValue::Count));

const ValueRow& sRowOf(const ZTSSimKey& acrKey) {
    return *std::ranges::find(sValues, acrKey.mValue, &ValueRow::mValue);
}

std::string sListOf(const std::vector<std::string_view>& acrNames) {
    std::string lList;
    for (const std::string_view lName : acrNames) {
        lList.append(lList.empty() ? "one of " : ", ").append(lName);
    }
    return lList.empty() ? "none" : lList;
}

class LineReader {
  public:
    explicit LineReader(std::string_view aLine) {
        for (const std::string_view lWord : sSplit(aLine.substr(0, aLine.find('#')), sBlanks)) {
            if (!lWord.empty()) {
                mStatement.mpVerb == nullptr ? takeVerb(lWord) : takeWord(lWord);
            }
        }
        if (mStatement.mpVerb != nullptr) {
            finish();
        }
    }

    const ZTSSimStatement& get() const { return mStatement; }

  private:
    [[noreturn]] static void refuse(const std::string& acrWrong, const std::string& acrExpected) {
        throw ZTCSimError(acrWrong + ", expected " + acrExpected);
    }

    void takeVerb(std::string_view aWord) {
        auto lNames = sKindNames();
        if (const Read lKind = sPlaceIn(lNames, aWord)) {
            mStatement.mpKind = &getSimKinds()[lKind->mNumber];
            mStatement.mpVerb = &getSimVerbs().front();
            return;
        }
        for (const ZTSSimVerb& lrVerb : getSimVerbs().subspan(1)) {
            if (aWord == lrVerb.mpName) {
                mStatement.mpVerb = &lrVerb;
            }
            lNames.emplace_back(lrVerb.mpName);
        }
        if (mStatement.mpVerb == nullptr) {
            refuse("unknown verb " + sShown(aWord), sListOf(lNames));
        }
    }

    std::vector<const ZTSSimKey*> keys() const {
        std::vector<const ZTSSimKey*> lKeys;
        for (const ZTSSimKey& lrKey : mStatement.mpVerb->mKeys) {
            lKeys.push_back(&lrKey);
        }
        if (mStatement.mpKind != nullptr) {
            for (const ZTSSimKey& lrKey : mStatement.mpKind->mFields) {
                lKeys.push_back(&lrKey);
            }
        }
        return lKeys;
    }

    void takeWord(std::string_view aWord) {
        if (mStatement.mpVerb->mVerb == ZTESimVerb::Host) {  // its words are the host's matter
            mStatement.mText.append(mStatement.mText.empty() ? "" : " ").append(aWord);
            return;
        }
        const size_t lEqual = aWord.find('=');
        const bool lIsPair = lEqual != std::string_view::npos;
        const std::string_view lName = aWord.substr(0, lEqual);
        const ZTSSimKey* lpOfValue = nullptr;
        std::vector<std::string_view> lNames;
        for (const ZTSSimKey* const lpKey : keys()) {
            if (lName == lpKey->mpName && (lIsPair || lpKey->mForm == ZTESimForm::KeyAlone)) {
                lIsPair ? set(*lpKey, readValue(*lpKey, aWord.substr(lEqual + 1))) : set(*lpKey, {});
                return;
            }
            lpOfValue = lpKey->mForm == ZTESimForm::Word ? lpKey : lpOfValue;
            lNames.emplace_back(lpKey->mpName);
        }
        if (!lIsPair && lpOfValue != nullptr && !mStatement.has(lpOfValue->mpName)) {
            set(*lpOfValue, readValue(*lpOfValue, aWord));
            return;
        }
        const bool lIsKey = std::ranges::find(lNames, lName) != lNames.end();
        refuse(lIsKey ? sShown(lName) + " without a value" : "unknown key " + sShown(lName),
               lIsKey ? std::string(lName) + "=..." : sListOf(lNames));
    }

    static ZTSSimValueRead readValue(const ZTSSimKey& acrKey, std::string_view aText) {
        const Read lRead = sRowOf(acrKey).mRead(aText, acrKey);
        if (!lRead) {
            refuse(sShown(aText) + " as " + acrKey.mpName, describeSimValue(acrKey));
        }
        return *lRead;
    }

    void set(const ZTSSimKey& acrKey, const ZTSSimValueRead& acrValue) {
        if (!mStatement.mValues.emplace(acrKey.mpName, acrValue).second) {
            refuse(std::string("a second ") + acrKey.mpName, "one");
        }
        if (mStatement.mpVerb->mVerb == ZTESimVerb::Storm && acrKey.mValue == ZTESimValue::Kind) {
            mStatement.mpKind = &getSimKinds()[acrValue.mNumber];  // its keys may follow
        }
    }

    void finish() {
        if (mStatement.mpVerb->mVerb == ZTESimVerb::Host && mStatement.mText.empty()) {
            refuse("host without a line", "one of vrx-hostsim language");
        }
        for (const ZTSSimKey* const lpKey : keys()) {
            if (lpKey->mIsRequired && !mStatement.has(lpKey->mpName)) {
                refuse(std::string(mStatement.mpVerb->mpName) + " without " + lpKey->mpName,
                       std::string(lpKey->mpName) + "=, " + describeSimValue(*lpKey));
            }
        }
        if (const char* const lpExpected = mStatement.mpVerb->mCheck(mStatement)) {
            refuse(std::string("keys of ") + mStatement.mpVerb->mpName + " that do not fit", lpExpected);
        }
        for (const ZTSSimKey* const lpKey : keys()) {
            if (lpKey->mHasDefault && !mStatement.has(lpKey->mpName)) {
                ZTSSimValueRead& lrValue = mStatement.mValues[lpKey->mpName];
                lrValue.mNumber = lpKey->mDefault;
                if (lpKey->mValue == ZTESimValue::Pages) {
                    sAppendPage(lrValue.mBytes, lpKey->mDefault);
                }
            }
        }
    }

    ZTSSimStatement mStatement;
};

}  // namespace

std::string describeSimValue(const ZTSSimKey& acrKey) {
    if (const char* const lpExpected = sRowOf(acrKey).mpExpected) {
        return lpExpected;
    }
    if (acrKey.mValue == ZTESimValue::Number) {
        return "a number from " + std::to_string(acrKey.mLeast) + " to " + std::to_string(acrKey.mMost) +
               (acrKey.mpNames[0] != '\0' ? std::string(" or ") + acrKey.mpNames : "");
    }
    return sListOf(acrKey.mValue == ZTESimValue::Kind ? sKindNames() : sSplit(acrKey.mpNames, "|"));
}

std::vector<ZTSSimStatement> readScenario(std::string_view aText, std::string_view aPlace) {
    std::vector<ZTSSimStatement> lStatements;
    unsigned int lNumber = 0;
    for (const std::string_view lLine : sSplit(aText, "\n")) {
        ++lNumber;
        try {
            const LineReader lReader(lLine);
            if (lReader.get().mpVerb != nullptr) {
                lStatements.push_back(lReader.get());
            }
        } catch (const ZTCSimError& lrError) {
            throw ZTCSimError(std::string(aPlace) + ":" + std::to_string(lNumber) + ": " + lrError.what());
        }
    }
    return lStatements;
}

std::vector<ZTSSimStatement> readScenarioFile(const std::string& acrPath) {
    errno = 0;
    std::ifstream lFile(acrPath, std::ios::binary);
    std::string lText;
    if (lFile) {
        char lPart[4096];
        while (lFile.read(lPart, sizeof lPart) || lFile.gcount() > 0) {
            lText.append(lPart, static_cast<size_t>(lFile.gcount()));
        }
    }
    if (!lFile.eof() || lFile.bad()) {
        throw ZTCSimError(acrPath + ":0: " + strerror(errno) + ", expected a scenario to read");
    }
    return readScenario(lText, acrPath);
}

std::string toShownSimText(std::string_view aText) {
    constexpr char lDigits[] = "0123456789abcdef";
    std::string lShown;
    for (const char lSign : aText) {
        const auto lByte = static_cast<unsigned char>(lSign);
        if ((lByte >= ' ' && lByte <= '~') || lByte == '\n') {
            lShown += lSign;
        } else {
            lShown += {'\\', 'x', lDigits[lByte >> 4], lDigits[lByte & 15]};
        }
    }
    return lShown;
}
