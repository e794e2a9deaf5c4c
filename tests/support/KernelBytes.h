// What the kernel sends, as bytes: messages of its Fibre Channel transport, and FPINs in them.
#pragma once

#include <linux/netlink.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

inline void fcPut(std::string& arBytes, std::size_t aAt, std::uint64_t aNumber, std::size_t aSize) {
    memcpy(arBytes.data() + aAt, &aNumber, aSize);
}

/// The bytes of a message, its lengths all right.
inline std::string fcMessage(unsigned int aHost, unsigned int aNumber, unsigned int aCode,
                             const std::string& acrData = std::string(4, '\0')) {
    const std::size_t lData = acrData.size();
    std::string lBytes = std::string(52, '\0') + acrData + std::string(NLMSG_ALIGN(lData) - lData, '\0');
    const std::size_t lFields[][3] = {
        {0, 4, 52 + lData},  {4, 2, 0x11},   {16, 2, 0x0101}, {18, 2, 0xa1b2},  {20, 2, 0x0100},
        {22, 2, 36 + lData}, {40, 2, aHost}, {42, 2, lData},  {44, 4, aNumber}, {48, 4, aCode}};
    for (const auto& [lAt, lSize, lValue] : lFields) {
        fcPut(lBytes, lAt, lValue, lSize);
    }
    return lBytes;
}

/// Numbers, each with its width in bytes, as a fabric sends them.
inline std::string fcSent(std::initializer_list<std::pair<std::uint64_t, unsigned int>> aNumbers) {
    std::string lBytes;
    for (const auto& [lNumber, lWidth] : aNumbers) {
        for (unsigned int lByte = lWidth; lByte > 0; --lByte) {
            lBytes += static_cast<char>(lNumber >> 8 * (lByte - 1));
        }
    }
    return lBytes;
}

inline std::string fcDescriptor(std::uint32_t aTag, const std::string& acrValue) {
    return fcSent({{aTag, 4}, {acrValue.size(), 4}}) + acrValue;
}

/// An FPIN with these descriptors.
inline std::string fcEls(const std::string& acrDescriptors) {
    return fcSent({{0x16000000, 4}, {acrDescriptors.size(), 4}}) + acrDescriptors;
}

inline constexpr std::uint64_t FcDetecting = 0x2001000000000001;
inline constexpr std::uint64_t FcAttached = 0x50060160bb20110c;
inline const std::string FcBoth = fcSent({{FcDetecting, 8}, {FcAttached, 8}});
/// A descriptor of each kind: link integrity, delivery, peer congestion, congestion, and one of no name.
inline const std::vector<std::string> FcEach = {
    fcDescriptor(0x20001, FcBoth + fcSent({{2, 2}, {7, 2}, {1000, 4}, {5, 4}, {2, 4}, {1, 8}, {2, 8}})),
    fcDescriptor(0x20002, FcBoth + fcSent({{1, 4}, {0, 4}})),
    fcDescriptor(0x20003, FcBoth + fcSent({{3, 2}, {8, 2}, {2000, 4}, {1, 4}, {1, 8}})),
    fcDescriptor(0x20004, fcSent({{1, 2}, {9, 2}, {3000, 4}, {0xf1000000, 4}})),
    fcDescriptor(0x20007, "what"),
};
