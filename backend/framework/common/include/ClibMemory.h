// The C library's memory and text functions under the framework's names: same contract, no failures. The
// wrappers that can fail are in Clib.h, which includes this.
#pragma once

#include <arpa/inet.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

inline void* ClibMemcpy(void* apTo, const void* apFrom, std::size_t aLength) {
    return memcpy(apTo, apFrom, aLength);
}

inline void* ClibMemset(void* apTo, int aByte, std::size_t aLength) {
    return memset(apTo, aByte, aLength);
}

/// As strcpy: the caller knows that the text fits.
inline char* ClibStrcpy(char* apTo, const char* apFrom) {
    return strcpy(apTo, apFrom);  // NOLINT(clang-analyzer-security.insecureAPI.strcpy)
}

inline int ClibStrcmp(const char* apOne, const char* apOther) {
    return strcmp(apOne, apOther);
}

/// As sprintf: the caller knows that the text fits.
[[gnu::format(printf, 2, 3)]] inline int ClibSprintf(char* apTo, const char* apFormat, ...) {
    va_list lArguments;
    va_start(lArguments, apFormat);
    const int lLength = vsprintf(apTo, apFormat, lArguments);
    va_end(lArguments);
    return lLength;
}

/// From network to host byte order.
inline std::uint32_t ClibNtohl(std::uint32_t aValue) {
    return ntohl(aValue);
}
