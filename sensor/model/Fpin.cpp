#include "Fpin.h"

#include <fmt/format.h>

#include <algorithm>
#include <tuple>

namespace {

auto sSaid(const ZTSFpin& acrFpin) {
    return std::tie(acrFpin.mInitiator, acrFpin.mFabric, acrFpin.mDescriptor, acrFpin.mEvent,
                    acrFpin.mSeverity, acrFpin.mDetecting, acrFpin.mAttached, acrFpin.mModifier,
                    acrFpin.mThreshold, acrFpin.mPeriod, acrFpin.mPorts);
}

constexpr std::size_t sMostPorts = 4;  // by name, in a line

std::string sWords(std::string aName) {
    std::replace(aName.begin(), aName.end(), '_', ' ');
    return aName;
}

}  // namespace

bool ZTSFpin::isSameAs(const ZTSFpin& acrOther) const {
    return sSaid(*this) == sSaid(acrOther);
}

std::string toFpinText(const ZTSFpin& acrFpin, const std::function<std::string(const ZTSWwn&)>& acrName) {
    std::string lText = sWords(acrFpin.mDescriptor);
    lText += acrFpin.mEvent.empty() ? "" : ", " + sWords(acrFpin.mEvent);
    lText += acrFpin.mSeverity.empty() ? "" : " (" + acrFpin.mSeverity + ")";
    std::string lMore;
    const auto lAdd = [&](const std::string& acrPart) { lMore += (lMore.empty() ? "" : ", ") + acrPart; };
    if (acrFpin.mCount != 0) {
        lAdd(fmt::format("{} {}", acrFpin.mCount, acrFpin.mCount == 1 ? "error" : "errors"));
    }
    if (acrFpin.mThreshold != 0) {
        lAdd(fmt::format("counted over {} ms", acrFpin.mThreshold));
    }
    if (acrFpin.mPeriod != 0) {
        lAdd(fmt::format("for {} ms", acrFpin.mPeriod));
    }
    if (acrFpin.mAttached) {
        lAdd("at " + acrName(*acrFpin.mAttached));
    }
    if (acrFpin.mDetecting) {
        lAdd("found by " + acrName(*acrFpin.mDetecting));
    }
    const auto& lrPorts = acrFpin.mPorts;
    for (std::size_t lAt = 0; lAt < std::min(lrPorts.size(), sMostPorts); ++lAt) {
        lAdd((lAt == 0 ? "concerns " : "") + acrName(lrPorts[lAt]));
    }
    if (lrPorts.size() > sMostPorts) {
        lMore += fmt::format(" and {} more", lrPorts.size() - sMostPorts);
    }
    return lMore.empty() ? lText : lText + ": " + lMore;
}
