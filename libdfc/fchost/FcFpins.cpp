#include "FcFpins.h"

#include <cstdio>

namespace {

bool sIsTold(std::uint64_t aCount) {
    while (aCount >= 10 && aCount % 10 == 0) {
        aCount /= 10;
    }
    return aCount == 1;
}

}  // namespace

void ZTCFcFpins::take(std::uint32_t aHost, std::span<const unsigned char> aEls) {
    if (!readFpin(aEls, [=, this](const ZTSFpinDescriptor& acrOne) { take(aHost, acrOne); })) {
        mrStatistics.count(ZTFF_FpinsMalformed);
        const std::uint64_t lCount = mrStatistics.get(ZTFF_FpinsMalformed);
        if (sIsTold(lCount)) {
            mJournal.note("FPINs that are not what their lengths say: %llu so far, the last of host%u",
                          static_cast<unsigned long long>(lCount), aHost);
        }
    }
}

void ZTCFcFpins::take(std::uint32_t aHost, const ZTSFpinDescriptor& acrOne) {
    mrStatistics.count(ZTFF_Fpins);
    const std::uint64_t lCount = mrStatistics.countFor(
        acrOne.mKind, aHost, acrOne.mAttached, acrOne.mKind == ZTFK_Other ? acrOne.mTag : acrOne.mEvent);
    if (!sIsTold(lCount)) {
        return;
    }
    const auto lSoFar = static_cast<unsigned long long>(lCount);
    if (acrOne.mKind == ZTFK_Other) {
        mJournal.note("FPIN of host%u: a descriptor with tag 0x%x, %llu so far", aHost, acrOne.mTag, lSoFar);
        return;
    }
    char lNumber[32];
    snprintf(lNumber, sizeof lNumber, "number %u", acrOne.mEvent);
    const char* const lpEvent = acrOne.getEventText();
    char lPorts[80] = "";
    if (acrOne.mKind != ZTFK_Congestion) {  // which is the host's own port's
        snprintf(lPorts, sizeof lPorts, ", found by port %016llx, at port %016llx",
                 static_cast<unsigned long long>(acrOne.mDetecting),
                 static_cast<unsigned long long>(acrOne.mAttached));
    }
    mJournal.note("FPIN of host%u: %s, %s%s, modifier %u, count %u, %llu so far", aHost,
                  getFpinText(acrOne.mKind), lpEvent != nullptr ? lpEvent : lNumber, lPorts, acrOne.mModifier,
                  acrOne.mCount, lSoFar);
}
