#include "DateTime.h"

#include <ctime>

#include "EncodableStream.h"
#include "Log.h"

namespace {

[[noreturn]] void throwNotATime() {
    throw ZTCInvalidEx("Not a time of the form 2026-11-21T02:46:01.5Z");
}

// The fraction behind the seconds, ".5" say, in nanoseconds. Moves the text behind it.
std::uint32_t parseFraction(const char*& arpText, std::uint32_t aPerSecond) {
    if (*arpText != '.') {
        return 0;
    }
    ++arpText;
    std::uint32_t lNanoseconds = 0;
    std::uint32_t lUnit = aPerSecond;
    for (; *arpText >= '0' && *arpText <= '9' && lUnit > 1; ++arpText) {
        lUnit /= 10;
        lNanoseconds += static_cast<std::uint32_t>(*arpText - '0') * lUnit;
    }
    if (lUnit == aPerSecond) {
        throwNotATime();
    }
    return lNanoseconds;
}

}  // namespace

void ZTCDateTime::__set(const char* apText) {
    if (ClibStrcmp(apText, ".") == 0) {
        *this = ZTCDateTime(ztlog::now());
        return;
    }
    constexpr char lFormat[] = "%Y-%m-%dT%H:%M:%S";
    tm lParts{};
    const char* lpRest = strptime(apText, lFormat, &lParts);
    if (lpRest == nullptr) {
        throwNotATime();
    }
    const auto lLength = static_cast<std::size_t>(lpRest - apText);
    const std::uint32_t lNanoseconds = parseFraction(lpRest, NanosecondsPerSecond);
    const time_t lSeconds = timegm(&lParts);
    // A day that does not exist, a leap second or a field of another width is printed otherwise than read.
    char lPrinted[sizeof "9999-12-31T23:59:59"];
    if (strftime(lPrinted, sizeof lPrinted, lFormat, &lParts) != lLength ||
        memcmp(lPrinted, apText, lLength) != 0 || ClibStrcmp(lpRest, "Z") != 0 || lSeconds < 0) {
        throwNotATime();
    }
    mSeconds = static_cast<std::uint64_t>(lSeconds);
    mNanoseconds = lNanoseconds;
}

void ZTCDateTime::encode(ZTCEncodableOutStream& arStream) const {
    encode(arStream.extend(EncodedSize));
}

unsigned char* ZTCDateTime::encode(unsigned char* apTo) const {
    unsigned char* lpAt = ztwire::put(apTo, static_cast<std::uint32_t>(mSeconds >> 32));
    lpAt = ztwire::put(lpAt, static_cast<std::uint32_t>(mSeconds));
    return ztwire::put(lpAt, mNanoseconds);
}

void ZTCDateTime::decode(ZTCEncodableInStream& arStream) {
    const unsigned char* const lpBytes = arStream.take(EncodedSize);
    const auto lNanoseconds = ztwire::get<std::uint32_t>(lpBytes + 8);
    if (lNanoseconds >= NanosecondsPerSecond) {
        throw ZTCInvalidEx("A time has a second's worth of nanoseconds or more");
    }
    mSeconds = static_cast<std::uint64_t>(ztwire::get<std::uint32_t>(lpBytes)) << 32 |
               ztwire::get<std::uint32_t>(lpBytes + 4);
    mNanoseconds = lNanoseconds;
}
