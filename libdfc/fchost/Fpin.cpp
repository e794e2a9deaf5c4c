#include "Fpin.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr unsigned char sFpinCommand = 0x16;
constexpr std::size_t sHeaderSize = 8;  // of the ELS: the command; of a descriptor: its tag; and a length

struct Name {
    std::uint32_t mNumber;
    const char* mpText;
};
constexpr Name sLinkEvents[] = {{0, "unknown"},
                                {1, "link failure"},
                                {2, "loss of synchronization"},
                                {3, "loss of signal"},
                                {4, "primitive sequence protocol error"},
                                {5, "invalid transmission word"},
                                {6, "invalid CRC"},
                                {15, "device specific"}};
constexpr Name sReasons[] = {{0, "unknown"}, {1, "timeout"}, {2, "unable to route"}, {15, "device specific"}};
constexpr Name sCongestionEvents[] = {
    {0, "clear"}, {1, "lost credit"}, {2, "credit stall"}, {3, "oversubscription"}, {15, "device specific"}};

// What is known of a descriptor. Offsets are behind its header; 0: it has no such field.
struct Descriptor {
    std::uint32_t mTag;
    ZTEFcFpinFigure mFigure;
    const char* mpText;
    bool mHasPorts;  // the names of the detecting and the attached one come first
    unsigned int mNumberSize;
    std::size_t mModifierAt;
    std::size_t mCountAt;
    std::size_t mListAt;  // the number of port names at its end
    std::size_t mSize;    // without these
    std::span<const Name> mNames;
};
constexpr Descriptor sDescriptors[] = {
    {0x00020001, ZTFP_LinkIntegrity, "link integrity", true, 2, 18, 24, 28, 32, sLinkEvents},
    {0x00020002, ZTFP_Delivery, "delivery", true, 4, 0, 0, 0, 20, sReasons},
    {0x00020003, ZTFP_PeerCongestion, "peer congestion", true, 2, 18, 0, 24, 28, sCongestionEvents},
    {0x00020004, ZTFP_Congestion, "congestion", false, 2, 2, 0, 0, 12, sCongestionEvents},
};

std::uint64_t sNumberAt(std::span<const unsigned char> aBytes, std::size_t aAt, unsigned int aSize) {
    std::uint64_t lNumber = 0;
    for (const unsigned char lByte : aBytes.subspan(aAt, aSize)) {
        lNumber = lNumber << 8 | lByte;
    }
    return lNumber;
}

std::uint32_t sWordAt(std::span<const unsigned char> aBytes, std::size_t aAt) {
    return static_cast<std::uint32_t>(sNumberAt(aBytes, aAt, 4));
}

// The value has at least the descriptor's size.
ZTSFcFpin sRead(const Descriptor& acrOne, std::span<const unsigned char> aValue) {
    ZTSFcFpin lFpin{acrOne.mFigure};
    if (acrOne.mHasPorts) {
        lFpin.mDetecting = sNumberAt(aValue, 0, 8);
        lFpin.mAttached = sNumberAt(aValue, 8, 8);
    }
    lFpin.mNumber =
        static_cast<std::uint32_t>(sNumberAt(aValue, acrOne.mHasPorts ? 16 : 0, acrOne.mNumberSize));
    if (acrOne.mModifierAt != 0) {
        lFpin.mModifier = static_cast<std::uint32_t>(sNumberAt(aValue, acrOne.mModifierAt, 2));
    }
    if (acrOne.mCountAt != 0) {
        lFpin.mCount = sWordAt(aValue, acrOne.mCountAt);
    }
    return lFpin;
}

bool sIsListWhole(const Descriptor& acrOne, std::span<const unsigned char> aValue) {
    return acrOne.mListAt == 0 || sWordAt(aValue, acrOne.mListAt) <= (aValue.size() - acrOne.mSize) / 8;
}

bool sIsTold(std::uint64_t aCount) {
    while (aCount >= 10 && aCount % 10 == 0) {
        aCount /= 10;
    }
    return aCount == 1;
}

}  // namespace

bool readFpin(std::span<const unsigned char> aEls, const std::function<void(const ZTSFcFpin&)>& acrDo) {
    if (aEls.size() < sHeaderSize || aEls[0] != sFpinCommand) {
        return false;
    }
    const std::uint32_t lSize = sWordAt(aEls, 4);
    aEls = aEls.subspan(sHeaderSize);
    bool lIsWhole = lSize <= aEls.size();
    aEls = aEls.first(std::min<std::size_t>(lSize, aEls.size()));
    while (aEls.size() >= sHeaderSize) {
        const std::uint32_t lTag = sWordAt(aEls, 0);
        const std::uint32_t lLength = sWordAt(aEls, 4);
        aEls = aEls.subspan(sHeaderSize);
        if (lLength > aEls.size()) {
            return false;
        }
        const auto lValue = aEls.first(lLength);
        aEls = aEls.subspan(lLength);
        const auto* const lpKnown =
            std::find_if(std::begin(sDescriptors), std::end(sDescriptors),
                         [=](const Descriptor& acrOne) { return acrOne.mTag == lTag; });
        if (lpKnown == std::end(sDescriptors)) {
            acrDo({ZTFP_Other, lTag});
        } else if (lValue.size() >= lpKnown->mSize) {
            lIsWhole = lIsWhole && sIsListWhole(*lpKnown, lValue);
            acrDo(sRead(*lpKnown, lValue));
        } else {
            lIsWhole = false;
        }
    }
    return lIsWhole && aEls.empty();
}

void ZTCFcFpins::take(std::uint32_t aHost, std::span<const unsigned char> aEls) {
    if (!readFpin(aEls, [=, this](const ZTSFcFpin& acrFpin) { take(aHost, acrFpin); })) {
        mrStatistics.count(ZTFF_FpinsMalformed);
        const std::uint64_t lCount = mrStatistics.get(ZTFF_FpinsMalformed);
        if (sIsTold(lCount)) {
            mJournal.note("FPINs that are not what their lengths say: %llu so far, the last of host%u",
                          static_cast<unsigned long long>(lCount), aHost);
        }
    }
}

void ZTCFcFpins::take(std::uint32_t aHost, const ZTSFcFpin& acrFpin) {
    mrStatistics.count(ZTFF_Fpins);
    const std::uint64_t lCount =
        mrStatistics.countFor(acrFpin.mFigure, aHost, acrFpin.mAttached, acrFpin.mNumber);
    if (!sIsTold(lCount)) {
        return;
    }
    const auto lSoFar = static_cast<unsigned long long>(lCount);
    if (acrFpin.mFigure == ZTFP_Other) {
        mJournal.note("FPIN of host%u: a descriptor with tag 0x%x, %llu so far", aHost, acrFpin.mNumber,
                      lSoFar);
        return;
    }
    const Descriptor& lrOne = sDescriptors[acrFpin.mFigure];
    const auto lName = std::find_if(lrOne.mNames.begin(), lrOne.mNames.end(),
                                    [&](const Name& acrName) { return acrName.mNumber == acrFpin.mNumber; });
    char lEvent[32];
    snprintf(lEvent, sizeof lEvent, "number %u", acrFpin.mNumber);
    char lPorts[80] = "";
    if (lrOne.mHasPorts) {
        snprintf(lPorts, sizeof lPorts, ", found by port %016llx, at port %016llx",
                 static_cast<unsigned long long>(acrFpin.mDetecting),
                 static_cast<unsigned long long>(acrFpin.mAttached));
    }
    mJournal.note("FPIN of host%u: %s, %s%s, modifier %u, count %u, %llu so far", aHost, lrOne.mpText,
                  lName != lrOne.mNames.end() ? lName->mpText : lEvent, lPorts, acrFpin.mModifier,
                  acrFpin.mCount, lSoFar);
}
