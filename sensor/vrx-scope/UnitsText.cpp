#include "UnitsText.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "HostText.h"
#include "PortText.h"
#include "RecordText.h"
#include "ShownText.h"
#include "Table.h"
#include "Terminal.h"
#include "TimeText.h"

namespace {

constexpr std::size_t sMostDetails = 6;  // LUNs, unless somebody asks for more

std::string sOr(const std::string& acrText, const char* apElse = "-") {
    return acrText.empty() ? apElse : toShownText(acrText);
}

std::string sJoined(const std::vector<std::string>& acrTexts) {
    return toShownText(fmt::format("{}", fmt::join(acrTexts, ", ")));
}

std::string sPathsText(const ZTSUnit& acrUnit, const char* apThing = "") {
    if (acrUnit.isLocal()) {
        return "local";
    }
    return fmt::format("{} of {}{}{}", acrUnit.mUsable, acrUnit.mTotal, apThing,
                       acrUnit.mIsInferred ? " (inferred)" : "");
}

// Of what is there.
std::vector<const ZTSUnitPath*> sPathsOf(const std::vector<ZTSUnit>& acrUnits) {
    std::vector<const ZTSUnitPath*> lPaths;
    for (const ZTSUnit& lrUnit : acrUnits) {
        for (const ZTSUnitPath& lrPath : lrUnit.mPaths) {
            if (lrUnit.mIsHere && !lrUnit.isLocal()) {
                lPaths.push_back(&lrPath);
            }
        }
    }
    return lPaths;
}

// "all of fabric left"; else how many on which fabrics. Empty: none is missing.
std::string sMissingText(const std::vector<const ZTSUnitPath*>& acrPaths, const ZTPortLabels& acrLabels) {
    std::map<std::string, std::size_t> lFabrics;
    std::vector<const ZTSLun*> lMissing;
    for (const ZTSUnitPath* const lpPath : acrPaths) {
        if (!lpPath->mIsUsable) {
            ++lFabrics[lpPath->mLun.mFabric];
            lMissing.push_back(&lpPath->mLun);
        }
    }
    if (lMissing.size() == 1 && lMissing[0]->mTarget != ZTSWwn()) {
        return portText(acrLabels, lMissing[0]->mInitiator) + " to " +
               portText(acrLabels, lMissing[0]->mTarget);
    }
    if (const std::string lCommon = commonText(acrPaths, acrLabels); !lCommon.empty()) {
        return "all of " + lCommon;
    }
    std::string lText;
    for (const auto& [lrFabric, lCount] : lFabrics) {
        lText += fmt::format("{}{} on {}", lText.empty() ? "" : ", ", lCount,
                             lrFabric.empty() ? "an unknown fabric" : "fabric " + toShownText(lrFabric));
    }
    return lText;
}

// In few words what is amiss.
std::string sTroubleText(const ZTSUnit& acrUnit, const ZTPortLabels& acrLabels, ZTNanoseconds aNow) {
    std::vector<std::string> lWords;
    if (!acrUnit.mStalls.empty()) {
        const auto lOldest =
            std::min_element(acrUnit.mStalls.begin(), acrUnit.mStalls.end(),
                             [](const ZTSStoredStall& acrLeft, const ZTSStoredStall& acrRight) {
                                 return acrLeft.mStall.mFirst < acrRight.mStall.mFirst;
                             });
        lWords.push_back("STANDS STILL for " + durationText(aNow - lOldest->mStall.mFirst));
    }
    if (!acrUnit.mIsHere) {
        lWords.emplace_back("gone");
    } else if (acrUnit.mUsable == 0 && acrUnit.mTotal != 0) {
        lWords.emplace_back("NO PATH LEFT");
    } else if (acrUnit.mUsable < acrUnit.mTotal) {
        std::vector<const ZTSUnitPath*> lPaths;
        for (const ZTSUnitPath& lrPath : acrUnit.mPaths) {
            lPaths.push_back(&lrPath);
        }
        const std::string lMissing = sMissingText(lPaths, acrLabels);
        lWords.push_back(lMissing.empty() ? "paths missing" : "missing: " + lMissing);
    }
    if (acrUnit.isSlow()) {
        lWords.emplace_back("no optimized path left");
    }
    if (acrUnit.lacksMap()) {
        lWords.push_back(acrUnit.mFormerMap.empty()
                             ? "not multipathed"
                             : "not multipathed: map " + toShownText(acrUnit.mFormerMap) + " has gone");
    }
    return fmt::format("{}", fmt::join(lWords, "; "));
}

std::string sHeadText(const ZTSUnits& acrUnits) {
    const auto lCount = [&](const auto& acrIsOne) {
        return std::count_if(acrUnits.mUnits.begin(), acrUnits.mUnits.end(), acrIsOne);
    };
    std::string lText = acrUnits.mHost.empty() ? "" : toShownText(acrUnits.mHost) + ": ";
    const auto lGone = lCount([](const ZTSUnit& acrUnit) { return !acrUnit.mIsHere; });
    const std::size_t lHere = acrUnits.mUnits.size() - static_cast<std::size_t>(lGone);
    lText += countText(lHere, "LUN");
    const std::pair<std::ptrdiff_t, const char*> lTroubles[] = {
        {lCount([](const ZTSUnit& acrUnit) { return !acrUnit.mStalls.empty(); }) +
             static_cast<std::ptrdiff_t>(acrUnits.mOtherStalls.size()),
         "standing still"},
        {lCount([](const ZTSUnit& acrUnit) { return acrUnit.lacksPaths() && acrUnit.mUsable == 0; }),
         "without any path"},
        {lCount([](const ZTSUnit& acrUnit) { return acrUnit.lacksPaths() && acrUnit.mUsable != 0; }),
         "with paths missing"},
        {lCount([](const ZTSUnit& acrUnit) { return acrUnit.isSlow(); }), "without an optimized path"},
        {lCount([](const ZTSUnit& acrUnit) { return acrUnit.lacksMap(); }), "not multipathed"}};
    bool lIsWell = true;
    for (const auto& [lNumber, lpWhat] : lTroubles) {
        lText += lNumber != 0 ? fmt::format(", {} {}", lNumber, lpWhat) : "";
        lIsWell &= lNumber == 0;
    }
    lText += lIsWell && lHere != 0 ? ", each with all its paths" : "";
    return bold(lText + (lGone != 0 ? fmt::format("; {} gone", lGone) : "")) + "\n";
}

// What is amiss with many may have one cause.
std::string sCauseText(const ZTSUnits& acrUnits) {
    const auto lPaths = sPathsOf(acrUnits.mUnits);
    const auto lMissing = std::count_if(lPaths.begin(), lPaths.end(),
                                        [](const ZTSUnitPath* apPath) { return !apPath->mIsUsable; });
    if (lMissing == 0) {
        return "";
    }
    return fmt::format("missing: {} of {}, {}\n", lMissing, countText(lPaths.size(), "path"),
                       sMissingText(lPaths, acrUnits.mLabels));
}

std::string sOverviewText(const ZTSUnits& acrUnits, ZTNanoseconds aNow) {
    if (acrUnits.mUnits.empty()) {
        return "";
    }
    ZTCTable lTable({{"paths"}, {"LUN"}, {"on it"}, {"trouble"}});
    for (const ZTSUnit& lrUnit : acrUnits.mUnits) {
        const bool lIsAbove = !lrUnit.mHit.mMounts.empty() || !lrUnit.mHit.mVolumes.empty();
        lTable.add({sPathsText(lrUnit), sOr(lrUnit.getName()),
                    lIsAbove ? toShownText(lrUnit.mHit.toText()) : "-",
                    sTroubleText(lrUnit, acrUnits.mLabels, aNow)});
    }
    return "\n" + lTable.toText();
}

// "optimized", "standby".
std::string sAccessText(std::string_view aAccess) {
    constexpr std::string_view lActive = "active/";
    aAccess.remove_prefix(aAccess.starts_with(lActive) ? lActive.size() : 0);
    return sOr(std::string(aAccess));
}

std::string sPathTable(const ZTSUnit& acrUnit, const ZTPortLabels& acrLabels) {
    const auto lPort = [&](const ZTSWwn& acrPort) {
        return acrPort == ZTSWwn() ? "-" : portText(acrLabels, acrPort);
    };
    ZTCTable lTable({{"path"}, {"disk"}, {"initiator"}, {"target"}, {"fabric"}, {"access"}, {"why"}});
    for (const ZTSUnitPath& lrPath : acrUnit.mPaths) {
        lTable.add({lrPath.mIsUsable ? "usable" : "MISSING", lrPath.mIsHere ? sOr(lrPath.mLun.mDisk) : "-",
                    lPort(lrPath.mLun.mInitiator), lPort(lrPath.mLun.mTarget), sOr(lrPath.mLun.mFabric),
                    sAccessText(lrPath.mLun.mAccess), toShownText(lrPath.mWhy)});
    }
    std::string lText = acrUnit.mPaths.empty() ? "" : lTable.toText();
    if (acrUnit.mPaths.size() < acrUnit.mTotal) {
        lText += fmt::format("  MISSING  {} that nobody has seen\n",
                             countText(acrUnit.mTotal - acrUnit.mPaths.size(), "path"));
    }
    return lText;
}

std::string sLine(const char* apName, const std::string& acrText) {
    return acrText.empty() ? "" : fmt::format("  {:<8} {}\n", apName, acrText);
}

std::string sDetailText(const ZTSUnit& acrUnit, const ZTPortLabels& acrLabels, bool aInUtc) {
    std::string lText = "\n" + bold(sOr(acrUnit.getName()) + ": " + sPathsText(acrUnit, " paths"));
    if (!acrUnit.mIsHere) {
        lText += ", gone, last seen " + plainText(toSensorTime(acrUnit.mSeen), aInUtc);
    } else if (acrUnit.mSince != 0) {
        lText += ", since " + plainText(toSensorTime(acrUnit.mSince), aInUtc);
    }
    lText += "\n" + sLine("mounts", sJoined(acrUnit.mHit.mMounts)) +
             sLine("volumes", sJoined(acrUnit.mHit.mVolumes));
    const ZTSLun* const lpLun = acrUnit.findLun();
    if (lpLun != nullptr) {
        const std::string& lrWwid = lpLun->mWwid.empty() ? acrUnit.mMapWwid : lpLun->mWwid;
        lText += sLine("WWID", toShownText(lrWwid)) + sLine("serial", toShownText(lpLun->mSerial)) +
                 sLine("device", toShownText(lpLun->mVendor + " " + lpLun->mModel));
    }
    for (const ZTSStoredStall& lrStall : acrUnit.mStalls) {
        lText +=
            sLine("stall", fmt::format("since {}: {}", plainText(toSensorTime(lrStall.mStall.mFirst), aInUtc),
                                       stallText(lrStall.mStall, acrLabels)));
    }
    return lText + sPathTable(acrUnit, acrLabels);
}

std::string sDetailsText(const ZTSUnits& acrUnits, bool aIsFull, bool aInUtc) {
    std::vector<const ZTSUnit*> lMeant;
    for (const ZTSUnit& lrUnit : acrUnits.mUnits) {
        if (aIsFull || lrUnit.isInTrouble()) {
            lMeant.push_back(&lrUnit);
        }
    }
    if (!aIsFull && lMeant.size() > sMostDetails) {
        return "\nEach path of these: vrx-scope paths --full, or of one of them: --map NAME\n";
    }
    std::string lText;
    for (const ZTSUnit* const lpUnit : lMeant) {
        lText += sDetailText(*lpUnit, acrUnits.mLabels, aInUtc);
    }
    return lText;
}

}  // namespace

std::string unitsText(const ZTSUnits& acrUnits, bool aIsFull, bool aInUtc, ZTNanoseconds aNow) {
    std::string lText = sHeadText(acrUnits) + sCauseText(acrUnits);
    if (!acrUnits.mIsNow) {
        lText += acrUnits.mWritten == 0 ? "vrx-sn does not run\n"
                                        : "vrx-sn does not run: this is as it was at " +
                                              plainText(toSensorTime(acrUnits.mWritten), aInUtc) + "\n";
    }
    for (const ZTSStoredStall& lrStall : acrUnits.mOtherStalls) {
        lText += "stands still since " + plainText(toSensorTime(lrStall.mStall.mFirst), aInUtc) + ": " +
                 stallText(lrStall.mStall, acrUnits.mLabels) + "\n";
    }
    lText += blindSpotsText(acrUnits.mBlindSpots, acrUnits.mLabels);
    return lText + sOverviewText(acrUnits, aNow) + sDetailsText(acrUnits, aIsFull, aInUtc);
}
