// The format of a log record: a printf literal, checked against its arguments while the program is compiled,
// together with the place of the call. See Log.h.
#pragma once

#include <cstddef>
#include <type_traits>

namespace ztlog {

/// What a conversion of a format takes, and what an argument is.
enum class ArgumentKind : unsigned char { Integer32 = 1, Integer64, Text, Address };

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

/// One conversion of a printf format: `%`, flags, width, precision, length modifier, letter.
struct Conversion {
    size_t mLength;  ///< characters from the `%` to the letter, both included; 0: not a conversion known here
    char mLetter;
    bool mLong;   ///< l, ll, z or j: the argument has 64 bits
    bool mPlain;  ///< no flag, width or precision
};

/// Reads the conversion that begins at apText[0], which is a `%`.
constexpr Conversion parseConversion(const char* apText) {
    const auto lIsOneOf = [](char aCharacter, const char* apSet) {
        for (; *apSet != '\0'; ++apSet) {
            if (*apSet == aCharacter) {
                return true;
            }
        }
        return false;
    };
    size_t lAt = 1;
    while (lIsOneOf(apText[lAt], "-+ #0123456789.")) {
        ++lAt;
    }
    const bool lPlain = lAt == 1;
    bool lLong = false;
    while (lIsOneOf(apText[lAt], "hlzj")) {
        lLong = lLong || apText[lAt] != 'h';
        ++lAt;
    }
    const char lLetter = apText[lAt];
    return {lIsOneOf(lLetter, "diuxXocsp%") ? lAt + 1 : 0, lLetter, lLong, lPlain};
}

/// What the conversion takes; not for `%%`.
constexpr ArgumentKind takenBy(const Conversion& acrConversion) {
    if (acrConversion.mLetter == 's') {
        return ArgumentKind::Text;
    }
    if (acrConversion.mLetter == 'p') {
        return ArgumentKind::Address;
    }
    return acrConversion.mLong ? ArgumentKind::Integer64 : ArgumentKind::Integer32;
}

inline constexpr size_t MaxFormat = 512;  ///< characters of a format

/// Whether a format's conversions are those of the arguments, and it has no control characters but, if
/// wanted, a line end at its end.
template <class... Arguments>
constexpr bool fits(const char* apFormat) {
    constexpr size_t lCount = sizeof...(Arguments);
    constexpr ArgumentKind lKinds[lCount + 1] = {kindOf<Arguments>()..., ArgumentKind::Integer32};
    size_t lUsed = 0;
    for (const char* lpAt = apFormat; *lpAt != '\0'; ++lpAt) {
        if (static_cast<size_t>(lpAt - apFormat) >= MaxFormat ||
            (static_cast<unsigned char>(*lpAt) < ' ' && !(*lpAt == '\n' && lpAt[1] == '\0'))) {
            return false;
        }
        if (*lpAt != '%') {
            continue;
        }
        const Conversion lConversion = parseConversion(lpAt);
        if (lConversion.mLength == 0) {
            return false;
        }
        lpAt += lConversion.mLength - 1;
        if (lConversion.mLetter == '%') {
            continue;
        }
        if (lUsed == lCount || lKinds[lUsed] != takenBy(lConversion)) {
            return false;
        }
        ++lUsed;
    }
    return lUsed == lCount;
}

/// Named in the compiler's message when a format does not fit its arguments.
inline void formatDoesNotFitItsArguments() {}

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
        if (!ztlog::fits<Arguments...>(apText)) {
            ztlog::formatDoesNotFitItsArguments();
        }
    }

    const char* mpText = nullptr;
    const char* mpFunction = nullptr;
    unsigned int mLine = 0;
};
