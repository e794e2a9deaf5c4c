#include "FcMessages.h"

#include <fmt/format.h>

#include <algorithm>
#include <new>
#include <string>
#include <utility>

#include "FpinDescriptor.h"
#include "TransportMessage.h"

namespace {

constexpr ZTNanoseconds sNumberSoon = 10 * ZTSecond;
constexpr std::int32_t sReordered = 256;  // messages that one may come late by

// Words as they are searched for: "invalid_crc". Null: the number.
std::string sNameOf(const char* apText, std::uint32_t aNumber) {
    if (apText == nullptr) {
        return std::to_string(aNumber);
    }
    std::string lName = apText;
    for (char& lrSign : lName) {
        lrSign = lrSign == ' '                    ? '_'
                 : lrSign >= 'A' && lrSign <= 'Z' ? static_cast<char>(lrSign | 0x20)
                                                  : lrSign;
    }
    return lName;
}

ZTSWwn sWwnOf(std::uint64_t aNumber) {
    ZTSWwn lName;
    for (auto lByte = lName.mBytes.rbegin(); lByte != lName.mBytes.rend(); ++lByte, aNumber >>= 8) {
        *lByte = static_cast<std::uint8_t>(aNumber);
    }
    return lName;
}

std::optional<ZTSWwn> sPortOf(std::uint64_t aNumber) {
    return aNumber != 0 ? std::optional(sWwnOf(aNumber)) : std::nullopt;
}

// What the message says of each.
ZTSFpin sBegin(std::uint16_t aHost, const ZTSHostPorts& acrPorts, ZTNanoseconds aTime) {
    ZTSFpin lFpin;
    lFpin.mFirst = lFpin.mLast = aTime;
    const std::string lHost = "host" + std::to_string(aHost);
    const auto lPort = std::find_if(acrPorts.mLocal.begin(), acrPorts.mLocal.end(),
                                    [&](const ZTSLocalPort& acrPort) { return acrPort.mHost == lHost; });
    if (lPort != acrPorts.mLocal.end()) {
        lFpin.mInitiator = lPort->mNames.mPort;
        lFpin.mFabric = lPort->mFabric;
    }
    return lFpin;
}

// What the descriptor itself says.
void sTell(const ZTSFpinDescriptor& acrOne, ZTSFpin& arFpin) {
    if (acrOne.mKind == ZTFK_Other) {
        arFpin.mDescriptor = fmt::format("{:#x}", acrOne.mTag);
        return;
    }
    arFpin.mDescriptor = sNameOf(getFpinText(acrOne.mKind), acrOne.mTag);
    arFpin.mEvent = sNameOf(acrOne.getEventText(), acrOne.mEvent);
    if (acrOne.mSeverity != 0) {
        arFpin.mSeverity = sNameOf(acrOne.getSeverityText(), acrOne.mSeverity);
    }
    arFpin.mDetecting = sPortOf(acrOne.mDetecting);
    arFpin.mAttached = sPortOf(acrOne.mAttached);
    arFpin.mModifier = acrOne.mModifier;
    arFpin.mThreshold = acrOne.mThreshold;
    arFpin.mPeriod = acrOne.mPeriod;
    arFpin.mCount = acrOne.mCount;
    arFpin.mPorts.reserve(acrOne.countPorts());
    for (std::size_t lAt = 0; lAt < acrOne.countPorts(); ++lAt) {
        arFpin.mPorts.push_back(sWwnOf(acrOne.getPort(lAt)));
    }
}

}  // namespace

void ZTCFcMessages::take(std::span<const unsigned char> aBytes, const ZTSHostPorts& acrPorts,
                         ZTNanoseconds aTime, std::vector<ZTSFpin>& arFpins) {
    mMalformed += readTransportMessages(aBytes.data(), aBytes.size(), [&](const ZTSFcMessage& acrMessage) {
        count(acrMessage.mNumber);
        if (!acrMessage.isFpin()) {
            return;
        }
        ++mFpins;
        const std::size_t lBefore = arFpins.size();
        try {
            const ZTSFpin lFpin = sBegin(acrMessage.mHost, acrPorts, aTime);
            const bool lIsWhole = readFpin(acrMessage.mData, [&](const ZTSFpinDescriptor& acrOne) {
                sTell(acrOne, arFpins.emplace_back(lFpin));
            });
            mMalformed += lIsWhole ? 0 : 1;
        } catch (const std::bad_alloc&) {
            arFpins.resize(lBefore);
            ++mLost;
            throw;
        }
    });
}

void ZTCFcMessages::noteLoss(ZTNanoseconds aTime) {
    if (mNextNumber) {
        mLossAt = mLossAt.value_or(aTime);
    } else {
        ++mLost;
    }
}

void ZTCFcMessages::step(ZTNanoseconds aTime) {
    if (mLossAt && aTime - *mLossAt >= sNumberSoon) {
        mLossAt.reset();
        ++mLost;
        ++mLate;  // it is among those that a number tells of then
    }
}

// Two messages may pass each other on their way: one that comes late is not lost, so the next gap is that
// much shorter. What was told stands.
void ZTCFcMessages::count(std::uint32_t aNumber) {
    const auto lAhead = static_cast<std::int32_t>(aNumber - mNextNumber.value_or(aNumber));
    if (lAhead < 0 && lAhead >= -sReordered) {
        ++mLate;
        return;
    }
    const std::uint64_t lGap = static_cast<std::uint32_t>(std::max(lAhead, 0));
    const std::uint64_t lOfLate = std::min(lGap, mLate);
    mLate -= lOfLate;
    mLost += lGap - lOfLate;
    if (lGap != 0) {  // what still waited is older than the loss, and has none
        mLossAt.reset();
    }
    mNextNumber = aNumber + 1;  // also when the kernel counts from the beginning again
}
