// Reads scenarios.
#pragma once

#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Language.h"

/// The text as it may be shown on a terminal: what is neither printable ASCII nor a line end is \xNN.
std::string toShownSimText(std::string_view aText);

/// A mistake in one line: PLACE:LINE: what is wrong, what was expected.
class ZTCSimError : public std::runtime_error {
  public:
    explicit ZTCSimError(const std::string& acrText) : std::runtime_error(toShownSimText(acrText)) {}
};

struct ZTSSimValueRead {
    uint64_t mNumber = 0;         // a duration is in nanoseconds, a kind or choice the number of its row
    std::vector<uint8_t> mBytes;  // of bytes and pages
};

/// A line that has been read. Keys that were left out and have a default have it.
struct ZTSSimStatement {
    const ZTSSimVerb* mpVerb = nullptr;
    const ZTSSimKind* mpKind = nullptr;  // of an event or a storm
    std::map<std::string_view, ZTSSimValueRead> mValues;
    std::string mText;  // of a line for a made-up host

    bool has(const char* apKey) const { return mValues.contains(apKey); }
    uint64_t getNumber(const char* apKey, uint64_t aDefault = 0) const {
        const auto lFound = mValues.find(apKey);
        return lFound != mValues.end() ? lFound->second.mNumber : aDefault;
    }
    uint32_t getWord(const char* apKey, uint32_t aDefault = 0) const {
        return static_cast<uint32_t>(getNumber(apKey, aDefault));
    }
};

/// aPlace: the name of the text in an error.
std::vector<ZTSSimStatement> readScenario(std::string_view aText, std::string_view aPlace);
std::vector<ZTSSimStatement> readScenarioFile(const std::string& acrPath);

/// What a key's value may be, as the help and errors say it.
std::string describeSimValue(const ZTSSimKey& acrKey);
