#include "HostText.h"

#include <fmt/format.h>

#include <algorithm>

#include "LossText.h"
#include "PortText.h"
#include "ShownText.h"

namespace {

constexpr std::size_t sMostPorts = 4;

std::string sWordsOf(std::string aName) {
    std::replace(aName.begin(), aName.end(), '_', ' ');
    return toShownText(aName);
}

std::string sCountText(std::uint64_t aCount, const char* apThing) {
    return fmt::format("{} {}{}", groupedText(aCount), apThing, aCount == 1 ? "" : "s");
}

std::string sPortsText(const std::vector<ZTSWwn>& acrPorts, const ZTPortLabels& acrLabels) {
    std::string lText;
    for (std::size_t lAt = 0; lAt < std::min(acrPorts.size(), sMostPorts); ++lAt) {
        lText += (lAt == 0 ? "" : ", ") + portText(acrLabels, acrPorts[lAt]);
    }
    return acrPorts.size() > sMostPorts ? lText + fmt::format(", ... ({} in all)", acrPorts.size()) : lText;
}

}  // namespace

std::string durationText(ZTNanoseconds aTime) {
    const struct {
        std::int64_t mSeconds;
        const char* mpName;
    } lUnits[] = {{86400, "d"}, {3600, "h"}, {60, "min"}, {1, "s"}};
    const std::int64_t lSeconds = std::max<std::int64_t>(aTime / ZTSecond, 0);
    for (std::size_t lAt = 0; lAt + 1 < std::size(lUnits); ++lAt) {
        if (lSeconds >= lUnits[lAt].mSeconds) {
            return fmt::format("{} {} {} {}", lSeconds / lUnits[lAt].mSeconds, lUnits[lAt].mpName,
                               lSeconds % lUnits[lAt].mSeconds / lUnits[lAt + 1].mSeconds,
                               lUnits[lAt + 1].mpName);
        }
    }
    return fmt::format("{} s", lSeconds);
}

std::string fpinText(const ZTSFpin& acrFpin, const ZTPortLabels& acrLabels) {
    std::string lText = sWordsOf(acrFpin.mDescriptor);
    lText += acrFpin.mEvent.empty() ? "" : ": " + sWordsOf(acrFpin.mEvent);
    lText += acrFpin.mSeverity.empty() ? "" : ", " + sWordsOf(acrFpin.mSeverity);
    lText += acrFpin.mCount != 0 ? ", " + sCountText(acrFpin.mCount, "error") : "";
    if (acrFpin.mDetecting && acrFpin.mDetecting != portOf(acrFpin)) {
        lText += ", found by " + portText(acrLabels, acrFpin.mDetecting);
    }
    lText += acrFpin.mPorts.empty() ? "" : ", affects " + sPortsText(acrFpin.mPorts, acrLabels);
    return lText;
}

std::optional<ZTSWwn> portOf(const ZTSFpin& acrFpin) {
    return acrFpin.mAttached && *acrFpin.mAttached != ZTSWwn() ? acrFpin.mAttached : acrFpin.mDetecting;
}

std::string stallText(const ZTSStall& acrStall, const ZTPortLabels& acrLabels) {
    std::string lName = nameThePortsIn(acrLabels, acrStall.mName);
    if (!acrStall.mDisk.empty() && lName != acrStall.mDisk) {
        lName += (lName.empty() ? "" : ", ") + acrStall.mDisk;
    }
    std::string lWhat = acrStall.mHits.empty() ? lName : acrStall.mHits + " (" + lName + ")";
    if (acrStall.mKind == "path") {
        lWhat.insert(0, "a path of ");  // what is above goes on by the others
    }
    const std::string lCommands = sCountText(acrStall.mInFlight, "command");
    return toShownText(lWhat) + ": " +
           (acrStall.mIsOver ? fmt::format("stood still for {}, {}",
                                           durationText(acrStall.mLast - acrStall.mFirst), lCommands)
                             : fmt::format("{}, none completes", lCommands));
}

std::string blindSpotsText(const std::vector<ZTSBlindSpot>& acrBlindSpots, const ZTPortLabels& acrLabels) {
    constexpr std::pair<const char*, const char*> lWords[] = {
        {"scsi_errors", "SCSI errors"}, {"fpins", "FPINs"}, {"counters", "error counters"}};
    std::string lText;
    for (const ZTSBlindSpot& lrSpot : acrBlindSpots) {
        const auto* const lpWords =
            std::find_if(std::begin(lWords), std::end(lWords),
                         [&](const auto& acrWords) { return lrSpot.mWhat == acrWords.first; });
        lText += fmt::format(
            "{} see {}{}: {}\n", lrSpot.mIsSure ? "cannot" : "may not",
            lpWords != std::end(lWords) ? lpWords->second : sWordsOf(lrSpot.mWhat),
            lrSpot.mWhere.empty() ? "" : " of " + toShownText(nameThePortsIn(acrLabels, lrSpot.mWhere)),
            toShownText(lrSpot.mWhy));
    }
    return lText;
}
