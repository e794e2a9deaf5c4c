// The format of a log record: a printf literal, checked against its arguments while the program is compiled,
// together with the place of the call. See Log.h.
#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string_view>
#include <type_traits>

namespace ztlog {

/// What a conversion of a format takes, and what an argument is.
enum class ArgumentKind : unsigned char { None, Integer32, Integer64, Text, Address };

template <class Argument>
consteval ArgumentKind kindOf() {
    using Plain = std::decay_t<Argument>;
    if constexpr (std::is_same_v<Plain, char*> || std::is_same_v<Plain, const char*>) {
        return ArgumentKind::Text;
    } else if constexpr (std::is_pointer_v<Plain> || std::is_null_pointer_v<Plain>) {
        return ArgumentKind::Address;
    } else {
        static_assert(std::is_integral_v<Plain> || std::is_enum_v<Plain>,
                      "a log record takes integers, pointers and NUL-terminated text");
        return sizeof(Plain) <= 4 ? ArgumentKind::Integer32 : ArgumentKind::Integer64;
    }
}

/// A conversion of a format, by how it is written out.
enum class Conversion : unsigned char { None, Text, Int, Unsigned, UnsignedLong, Address };

struct ConversionFacts {
    std::string_view mText;
    Conversion mConversion;
    ArgumentKind mTakes;
};

/// All that there are: what records use. One more is a row here, and a case in LogLine.cpp.
inline constexpr ConversionFacts Conversions[] = {
    {"%s", Conversion::Text, ArgumentKind::Text},
    {"%d", Conversion::Int, ArgumentKind::Integer32},
    {"%u", Conversion::Unsigned, ArgumentKind::Integer32},
    {"%hu", Conversion::Unsigned, ArgumentKind::Integer32},
    {"%lu", Conversion::UnsignedLong, ArgumentKind::Integer64},
    {"%p", Conversion::Address, ArgumentKind::Address},
};

/// The conversion that the text begins with, null if there is none.
constexpr const ConversionFacts* findConversion(std::string_view aText) {
    const auto* const lpFound = std::find_if(
        std::begin(Conversions), std::end(Conversions),
        [=](const ConversionFacts& acrConversion) { return aText.starts_with(acrConversion.mText); });
    return lpFound != std::end(Conversions) ? lpFound : nullptr;
}

inline constexpr size_t MaxFormat = 512;  ///< characters of a format

enum class Fault : unsigned char { None, TooLong, ControlCharacter, OtherConversion, OtherArguments };

/// What is wrong with a format for these arguments. A line end at its end is all right.
template <class... Arguments>
constexpr Fault faultOf(std::string_view aFormat) {
    constexpr size_t lCount = sizeof...(Arguments);
    // One more, for an array of none is no array.
    constexpr ArgumentKind lKinds[lCount + 1] = {kindOf<Arguments>()..., ArgumentKind::None};
    if (aFormat.size() > MaxFormat) {
        return Fault::TooLong;
    }
    size_t lUsed = 0;
    for (size_t lAt = 0; lAt < aFormat.size(); ++lAt) {
        if (static_cast<unsigned char>(aFormat[lAt]) < ' ' &&
            (aFormat[lAt] != '\n' || lAt + 1 != aFormat.size())) {
            return Fault::ControlCharacter;
        }
        if (aFormat[lAt] != '%') {
            continue;
        }
        const ConversionFacts* const lpConversion = findConversion(aFormat.substr(lAt));
        if (lpConversion == nullptr) {
            return Fault::OtherConversion;
        }
        if (lUsed == lCount || lKinds[lUsed] != lpConversion->mTakes) {
            return Fault::OtherArguments;
        }
        lAt += lpConversion->mText.size() - 1;
        ++lUsed;
    }
    return lUsed == lCount ? Fault::None : Fault::OtherArguments;
}

/// Does not compile for a fault: the compiler shows the line with the text.
template <class... Arguments>
consteval void insist(std::string_view aFormat) {
    switch (faultOf<Arguments...>(aFormat)) {
        case Fault::None:
            break;
        case Fault::TooLong:
            throw "the format of a log record is too long";
        case Fault::ControlCharacter:
            throw "the format of a log record is one line";
        case Fault::OtherConversion:
            throw "a log record has the conversions %s %d %u %hu %lu %p and no others";
        case Fault::OtherArguments:
            throw "the format of a log record does not fit its arguments";
    }
}

}  // namespace ztlog

/// A literal format and the line and function it stands in. Made implicitly from the literal at the call, so
/// what it points at lives as long as the program.
template <class... Arguments>
class ZTCLogFormat {
  public:
    /// None: for a table in which not every row has one.
    constexpr ZTCLogFormat() = default;
    consteval ZTCLogFormat(const char* apText, unsigned int aLine = __builtin_LINE(),
                           const char* apFunction = __builtin_FUNCTION())
        : mpText(apText), mpFunction(apFunction), mLine(aLine) {
        ztlog::insist<Arguments...>(apText);
    }

    const char* mpText = nullptr;
    const char* mpFunction = nullptr;
    unsigned int mLine = 0;
};
