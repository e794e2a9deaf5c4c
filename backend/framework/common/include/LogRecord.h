// A record of the log as it stands in a ring, from the caller that puts it to the writer that formats it. See
// Log.h.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "LogFormat.h"

namespace ztlog {

inline constexpr std::size_t MaxArguments = 8;
inline constexpr std::uint32_t MaxArgumentText = 4096;  ///< bytes kept of one text

/// Nanoseconds since 1970 by CLOCK_REALTIME.
std::uint64_t now();

/// The levels whose records are put: all, until the log is opened and the mask is known. The mask.
extern std::atomic<unsigned int> gCode;
extern std::atomic<unsigned int> gMask;

/// Where a record comes from. All pointers are to text that lives as long as the process.
struct Site {
    const char* mpTag;
    const char* mpFunction;
    const char* mpFile;
    const char* mpFormat;
    unsigned int mLevel;
    unsigned int mLine;
};

/// A text argument, its length taken once.
struct Text {
    const char* mpText;
    std::uint32_t mLength;  ///< at most one more than MaxArgumentText, which says that the text goes on
};

/// An argument as it goes into a record: a Text, or 64 bits (integers sign-extended).
template <class Value>
auto argument(const Value& acrValue) {
    if constexpr (kindOf<Value>() == ArgumentKind::Text) {
        const char* const lpText = acrValue != nullptr ? static_cast<const char*>(acrValue) : "(null)";
        return Text{lpText, static_cast<std::uint32_t>(strnlen(lpText, MaxArgumentText + 1))};
    } else if constexpr (kindOf<Value>() == ArgumentKind::Address) {
        return std::uint64_t{reinterpret_cast<std::uintptr_t>(static_cast<const void*>(acrValue))};
    } else {
        return static_cast<std::uint64_t>(acrValue);
    }
}

// What an argument takes: 8 bytes, or for text its 32-bit length and the text, filled up to a multiple of 8.

constexpr std::size_t sizeOf(std::uint64_t /*aNumber*/) {
    return sizeof(std::uint64_t);
}
constexpr std::size_t sizeOf(const Text& acrText) {
    return (sizeof acrText.mLength + acrText.mLength + 7) & ~std::size_t{7};
}

inline unsigned char* putArgument(unsigned char* apTo, std::uint64_t aNumber) {
    memcpy(apTo, &aNumber, sizeof aNumber);
    return apTo + sizeof aNumber;
}
inline unsigned char* putArgument(unsigned char* apTo, const Text& acrText) {
    memcpy(apTo, &acrText.mLength, sizeof acrText.mLength);
    memcpy(apTo + sizeof acrText.mLength, acrText.mpText, acrText.mLength);
    return apTo + sizeOf(acrText);
}

}  // namespace ztlog

/// The fixed part; the arguments follow.
struct ZTCLogRecord {
    std::uint32_t mSize;    ///< bytes with the arguments, a multiple of 8
    std::uint32_t mThread;  ///< 0 marks a filler, of which only these two members exist
    std::uint64_t mStamp;   ///< nanoseconds since 1970
    ztlog::Site mSite;

    const unsigned char* arguments() const { return reinterpret_cast<const unsigned char*>(this + 1); }

    /// Bytes of a record with these arguments.
    template <class... Arguments>
    static std::size_t sizeWith(const Arguments&... acrArguments) {
        return (sizeof(ZTCLogRecord) + ... + ztlog::sizeOf(acrArguments));
    }

    /// Sets site and arguments.
    template <class... Arguments>
    void fill(const ztlog::Site& acrSite, const Arguments&... acrArguments) {
        static_assert(sizeof...(Arguments) <= ztlog::MaxArguments);
        mSite = acrSite;
        [[maybe_unused]] auto* lpAt = reinterpret_cast<unsigned char*>(this + 1);
        ((lpAt = ztlog::putArgument(lpAt, acrArguments)), ...);
    }
};
