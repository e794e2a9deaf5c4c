#include "RecordText.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "SenseText.h"

namespace {

constexpr std::string_view sRemotePort = "remote_port_name";
constexpr std::string_view sPortId = "port_id";
constexpr std::string_view sNameSuffix = "_name";
constexpr std::string_view sSense = "sense_text";
constexpr std::string_view sSenseKeyName = "sense_key_name";
// What stands elsewhere in a line, or is told with another field.
constexpr std::string_view sToldElsewhere[] = {sRemotePort, "sense_key", sSenseKeyName, "asc", "ascq"};
constexpr std::size_t sMaxShown = 8;

// Numbers that their standards write in hexadecimal.
constexpr std::string_view sHexadecimal[] = {"rejected_command", "reason", "explanation", "operation_code",
                                             "operation_codes"};

std::string sNumberText(std::string_view aField, std::uint32_t aValue) {
    const bool lIsHexadecimal =
        std::find(std::begin(sHexadecimal), std::end(sHexadecimal), aField) != std::end(sHexadecimal);
    return aValue == ZTEventAllLuns && aField.starts_with("lun") ? "all"
           : lIsHexadecimal                                      ? fmt::format("{:#x}", aValue)
                                                                 : std::to_string(aValue);
}

std::string sWordsOf(std::string_view aField) {
    std::string lWords(aField);
    std::replace(lWords.begin(), lWords.end(), '_', ' ');
    return lWords;
}

// Values in their order, those that follow one another as a range.
std::string sListText(std::string_view aField, const std::vector<std::uint32_t>& acrValues) {
    if (acrValues.size() == ZTEventSetSize && aField == "luns") {
        return "all";
    }
    std::string lText;
    std::size_t lShown = 0;
    for (std::size_t lAt = 0; lAt < acrValues.size();) {
        std::size_t lEnd = lAt + 1;
        while (lEnd < acrValues.size() && acrValues[lEnd] == acrValues[lEnd - 1] + 1) {
            ++lEnd;
        }
        if (lShown++ == sMaxShown) {
            return lText + fmt::format(",... ({} in all)", acrValues.size());
        }
        lText += (lText.empty() ? "" : ",") + sNumberText(aField, acrValues[lAt]);
        if (lEnd - lAt > 1) {
            lText += "-" + sNumberText(aField, acrValues[lEnd - 1]);
        }
        lAt = lEnd;
    }
    return lText.empty() ? "none" : lText;
}

std::string sGroupText(const ZTEventGroup& acrFields);

std::string sGroupsText(const std::vector<ZTEventGroup>& acrGroups) {
    std::string lText;
    for (std::size_t lAt = 0; lAt < acrGroups.size(); ++lAt) {
        if (lAt == sMaxShown) {
            return lText + fmt::format("; ... ({} in all)", acrGroups.size());
        }
        lText += (lAt == 0 ? "" : "; ") + sGroupText(acrGroups[lAt]);
    }
    return lText;
}

// A field and, when there is one, the name of its number, which is the field behind it.
std::string sFieldText(const ZTSEventField& acrField, const std::string* apName) {
    const std::string lWords = sWordsOf(acrField.mpName) + " ";
    if (const auto* const lpNumber = std::get_if<std::uint32_t>(&acrField.mValue)) {
        const std::string lNumber = sNumberText(acrField.mpName, *lpNumber);
        return lWords + (apName != nullptr ? fmt::format("{} ({})", *apName, lNumber) : lNumber);
    }
    if (const auto* const lpName = std::get_if<ZTSWwn>(&acrField.mValue)) {
        return lWords + lpName->toText();
    }
    if (const auto* const lpText = std::get_if<std::string>(&acrField.mValue)) {
        return lWords + *lpText;
    }
    if (const auto* const lpValues = std::get_if<std::vector<std::uint32_t>>(&acrField.mValue)) {
        return lWords + sListText(acrField.mpName, *lpValues);
    }
    if (const auto* const lpGroups = std::get_if<std::vector<ZTEventGroup>>(&acrField.mValue)) {
        return sGroupsText(*lpGroups);
    }
    return lWords + "not told";
}

// What a field of that name holds. Null if it is not told.
template <class Value>
const Value* sValueOf(const ZTEventGroup& acrFields, std::string_view aName) {
    const auto lAt = std::find_if(acrFields.begin(), acrFields.end(),
                                  [=](const ZTSEventField& acrField) { return acrField.mpName == aName; });
    return lAt != acrFields.end() ? std::get_if<Value>(&lAt->mValue) : nullptr;
}

// "not ready: asymmetric access state transition (sense 2/04/0a)", or what is known of that.
std::string sSenseText(const ZTEventGroup& acrFields) {
    const auto* const lpKey = sValueOf<std::uint32_t>(acrFields, "sense_key");
    const auto* const lpCode = sValueOf<std::uint32_t>(acrFields, "asc");
    const auto* const lpQualifier = sValueOf<std::uint32_t>(acrFields, "ascq");
    if (lpKey == nullptr || lpCode == nullptr || lpQualifier == nullptr) {
        return "sense not told";
    }
    std::string lNumbers = "sense " + senseNumbers(*lpKey, static_cast<std::uint8_t>(*lpCode),
                                                   static_cast<std::uint8_t>(*lpQualifier));
    for (const std::string_view lWords : {sSense, sSenseKeyName}) {
        if (const auto* const lpText = sValueOf<std::string>(acrFields, lWords)) {
            return fmt::format("{} ({})", *lpText, lNumbers);
        }
    }
    return lNumbers;
}

bool sIsNameOf(const ZTSEventField& acrField) {
    return std::string_view(acrField.mpName).ends_with(sNameSuffix) &&
           !std::holds_alternative<ZTSWwn>(acrField.mValue);
}

std::string sGroupText(const ZTEventGroup& acrFields) {
    std::string lText;
    for (std::size_t lAt = 0; lAt < acrFields.size(); ++lAt) {
        const std::string_view lName = acrFields[lAt].mpName;
        if (std::find(std::begin(sToldElsewhere), std::end(sToldElsewhere), lName) !=
                std::end(sToldElsewhere) ||
            sIsNameOf(acrFields[lAt])) {
            continue;
        }
        const bool lHasName = lAt + 1 < acrFields.size() && sIsNameOf(acrFields[lAt + 1]);
        const std::string lField =
            lName == sSense
                ? sSenseText(acrFields)
                : sFieldText(acrFields[lAt],
                             lHasName ? std::get_if<std::string>(&acrFields[lAt + 1].mValue) : nullptr);
        lText += (lText.empty() || lField.empty() ? "" : ", ") + lField;
    }
    return lText;
}

}  // namespace

std::string kindText(const ZTSSensorRecord& acrRecord) {
    const char* const lpKind = findEventKind(acrRecord.mCategory, acrRecord.mSubcategory);
    return lpKind != nullptr ? lpKind : fmt::format("{},{}", acrRecord.mCategory, acrRecord.mSubcategory);
}

std::string remoteText(const ZTSSensorRecord& acrRecord, const std::optional<ZTEventGroup>& acrFields) {
    if (acrRecord.mTarget) {
        return acrRecord.mTarget->mPort.toText();
    }
    if (!acrFields) {
        return "-";
    }
    if (const auto* const lpName = sValueOf<ZTSWwn>(*acrFields, sRemotePort)) {
        return lpName->toText();
    }
    if (const auto* const lpText = sValueOf<std::string>(*acrFields, sPortId)) {
        return *lpText;
    }
    return "-";
}

std::string detailText(const ZTSSensorRecord& acrRecord, const std::optional<ZTEventGroup>& acrFields) {
    return acrFields ? sGroupText(*acrFields) : "a block of " + countText(acrRecord.mData.size(), "byte");
}

std::string countText(std::uint64_t aCount, const char* apThing) {
    return fmt::format("{} {}{}", aCount, apThing, aCount == 1 ? "" : "s");
}
