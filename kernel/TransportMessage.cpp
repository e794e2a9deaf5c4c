#include "TransportMessage.h"

#include <linux/netlink.h>

#include <algorithm>
#include <cstring>

namespace {

// Not in the headers that Debian ships. All in the host's order.
struct TransportHeader {
    std::uint8_t mVersion;
    std::uint8_t mTransport;
    std::uint16_t mMagic;
    std::uint16_t mType;
    std::uint16_t mLength;  // of the message from this header on
};
struct FcEvent {
    TransportHeader mHeader;
    std::uint64_t mSeconds;
    std::uint64_t mVendor;
    std::uint16_t mHost;
    std::uint16_t mDataLength;
    std::uint32_t mNumber;
    std::uint32_t mCode;
};
constexpr std::size_t sDataOffset = 36;
static_assert(offsetof(FcEvent, mCode) + sizeof(FcEvent::mCode) == sDataOffset);

constexpr std::uint16_t sMessageType = 0x11;  // NLMSG_MIN_TYPE + 1
constexpr std::uint8_t sVersion = 1;
constexpr std::uint8_t sFibreChannel = 1;
constexpr std::uint16_t sMagic = 0xa1b2;
constexpr std::uint16_t sHostEvent = 0x0100;

enum class Outcome : unsigned char { Taken, OfOthers, Bad };

Outcome sRead(const unsigned char* apBytes, std::size_t aSize, ZTSFcMessage& arMessage) {
    TransportHeader lHeader{};
    if (aSize < sizeof lHeader) {
        return Outcome::Bad;
    }
    memcpy(&lHeader, apBytes, sizeof lHeader);
    if (lHeader.mVersion != sVersion || lHeader.mMagic != sMagic) {
        return Outcome::Bad;
    }
    if (lHeader.mTransport != sFibreChannel || lHeader.mType != sHostEvent) {
        return Outcome::OfOthers;
    }
    if (lHeader.mLength < sDataOffset || lHeader.mLength > aSize) {
        return Outcome::Bad;
    }
    FcEvent lEvent{};
    memcpy(&lEvent, apBytes, sDataOffset);
    if (lEvent.mDataLength > lHeader.mLength - sDataOffset) {
        return Outcome::Bad;
    }
    arMessage = {lEvent.mHost, lEvent.mNumber, lEvent.mCode, {apBytes + sDataOffset, lEvent.mDataLength}};
    return Outcome::Taken;
}

}  // namespace

std::optional<std::uint32_t> ZTSFcMessage::getWord() const {
    std::uint32_t lWord = 0;
    if (mData.size() < sizeof lWord) {
        return {};
    }
    memcpy(&lWord, mData.data(), sizeof lWord);
    return lWord;
}

unsigned int readTransportMessages(const unsigned char* apBytes, std::size_t aSize,
                                   const std::function<void(const ZTSFcMessage&)>& acrDo) {
    unsigned int lBad = 0;
    while (aSize != 0) {
        nlmsghdr lHeader{};
        if (aSize < sizeof lHeader) {
            return lBad + 1;
        }
        memcpy(&lHeader, apBytes, sizeof lHeader);
        if (lHeader.nlmsg_len < sizeof lHeader || lHeader.nlmsg_len > aSize) {
            return lBad + 1;
        }
        ZTSFcMessage lMessage;
        const Outcome lOutcome =
            lHeader.nlmsg_type == sMessageType
                ? sRead(apBytes + sizeof lHeader, lHeader.nlmsg_len - sizeof lHeader, lMessage)
                : Outcome::OfOthers;
        if (lOutcome == Outcome::Taken) {
            acrDo(lMessage);
        }
        lBad += lOutcome == Outcome::Bad ? 1 : 0;
        const std::size_t lStep = std::min<std::size_t>(NLMSG_ALIGN(std::size_t{lHeader.nlmsg_len}), aSize);
        apBytes += lStep;
        aSize -= lStep;
    }
    return lBad;
}
