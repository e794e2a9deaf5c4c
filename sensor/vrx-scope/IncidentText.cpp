#include "IncidentText.h"

#include <fmt/format.h>

#include <algorithm>

#include "HistoryPrinter.h"
#include "HostText.h"
#include "IncidentRules.h"
#include "LossText.h"
#include "PortText.h"
#include "RecordText.h"
#include "ShownText.h"
#include "Table.h"
#include "Terminal.h"
#include "TimeText.h"

namespace {

constexpr std::size_t sMostNames = 8;
constexpr std::size_t sMostChanges = 20;

std::string sAsOfText(const ZTSIncidentFrame& acrFrame, const ZTTimeText& acrTimes) {
    if (acrFrame.mIsNow) {
        return "";
    }
    return acrFrame.mWritten == 0
               ? "vrx-sn does not run\n"
               : "vrx-sn does not run: this is as it was at " + acrTimes(acrFrame.mWritten) + "\n";
}

std::string sLine(const char* apName, const std::string& acrText) {
    return acrText.empty() ? "" : fmt::format("  {:<13} {}\n", apName, acrText);
}

// The first ones, and how many more there are. Fit to be shown.
std::string sListText(const std::vector<std::string>& acrNames) {
    std::string lText;
    for (std::size_t lAt = 0; lAt < std::min(acrNames.size(), sMostNames); ++lAt) {
        lText += lAt == 0 ? "" : ", ";
        lText += toShownText(acrNames[lAt]);
    }
    const std::size_t lMore = acrNames.size() - std::min(acrNames.size(), sMostNames);
    return lMore == 0 ? lText : fmt::format("{} and {} more", lText, lMore);
}

std::string sPortsText(const std::vector<ZTSWwn>& acrPorts, const ZTPortLabels& acrLabels) {
    std::vector<std::string> lNames(acrPorts.size());
    std::ranges::transform(acrPorts, lNames.begin(),
                           [&](const ZTSWwn& acrPort) { return portText(acrLabels, acrPort); });
    return sListText(lNames);
}

std::string sPathsText(const ZTSIncident& acrIncident) {
    return acrIncident.mPathsTotal == 0
               ? ""
               : fmt::format("{} of {}", acrIncident.mPathsLeft, acrIncident.mPathsTotal);
}

std::string sStateText(const ZTSIncident& acrIncident) {
    std::string lText = nameOf(acrIncident.mState);
    lText += acrIncident.mAcknowledged ? ", acknowledged" : "";
    return lText + (acrIncident.mWindow.empty() ? "" : ", in maintenance");
}

// Since when, and whether it goes on.
std::string sSinceText(const ZTSIncident& acrIncident, const ZTSIncidentFrame& acrFrame,
                       const ZTTimeText& acrTimes) {
    const std::string lSince = acrTimes(acrIncident.mOpened);
    const std::string lFor = durationText(endOf(acrIncident, acrFrame) - acrIncident.mOpened);
    switch (acrIncident.mState) {
        case ZTEIncidentState::Open:
            return fmt::format("{}, for {}; IT GOES ON, the last sign was at {}", lSince, lFor,
                               acrTimes(acrIncident.mLast));
        case ZTEIncidentState::Quiet:
            return fmt::format("{}, for {}; NOT AS IT WAS, though quiet since {}", lSince, lFor,
                               acrTimes(acrIncident.mLast));
        default:
            return fmt::format("{}, for {}; over since {}", lSince, lFor, acrTimes(acrIncident.mClosed));
    }
}

std::string sSignText(const std::string& acrKind) {
    const auto lSign = findSign(acrKind);
    if (lSign) {
        return rowOf(*lSign).mpText;
    }
    std::string lWords = toShownText(acrKind);
    std::replace(lWords.begin(), lWords.end(), '_', ' ');
    return lWords;
}

// "array1-B0 from hba1, fabric B".
std::string sWhereText(const ZTSIncidentCause& acrCause, const ZTPortLabels& acrLabels) {
    std::string lText = acrCause.mTarget == ZTSWwn() ? "" : portText(acrLabels, acrCause.mTarget);
    if (acrCause.mInitiator != ZTSWwn()) {
        lText += (lText.empty() ? "" : " from ") + portText(acrLabels, acrCause.mInitiator);
    }
    if (!acrCause.mFabric.empty()) {
        lText += (lText.empty() ? "fabric " : ", fabric ") + toShownText(acrCause.mFabric);
    }
    return lText;
}

std::string sCauseText(const ZTSIncidentCause& acrCause, const ZTPortLabels& acrLabels,
                       const ZTTimeText& acrTimes) {
    if (acrCause.mKind.empty()) {
        return "";
    }
    const std::string lWhere = sWhereText(acrCause, acrLabels);
    return fmt::format("{}: {}{}{}, {}", acrCause.mIsLikely ? "likely" : "possibly",
                       sSignText(acrCause.mKind), lWhere.empty() ? "" : ": ", lWhere,
                       acrTimes(acrCause.mTime));
}

// One line of what followed.
struct Step {
    ZTNanoseconds mFirst = 0;
    ZTNanoseconds mLast = 0;
    std::uint64_t mEvents = 0;  // 0: of a cause, whose events its symptom counts
    std::string mText;
};

std::vector<Step> sListSteps(const ZTSIncident& acrIncident, const ZTPortLabels& acrLabels) {
    std::vector<Step> lSteps;
    for (const ZTSIncidentSymptom& lrSymptom : acrIncident.mSymptoms) {
        lSteps.push_back({lrSymptom.mFirst, lrSymptom.mLast, lrSymptom.mEvents, sSignText(lrSymptom.mKind)});
    }
    const auto lAddCause = [&](const ZTSIncidentCause& acrCause, const char* apWhich) {
        const std::string lWhere = sWhereText(acrCause, acrLabels);
        const std::string lText =
            fmt::format("{}{}{}  <- {}{} cause", sSignText(acrCause.mKind), lWhere.empty() ? "" : ": ",
                        lWhere, acrCause.mIsLikely ? "" : "possible ", apWhich);
        const auto lAt = std::ranges::find_if(lSteps, [&](const Step& acrStep) {
            return acrStep.mFirst == acrCause.mTime && acrStep.mText == sSignText(acrCause.mKind);
        });
        if (lAt != lSteps.end()) {
            lAt->mText = lText;
        } else {
            lSteps.push_back({acrCause.mTime, acrCause.mTime, 0, lText});
        }
    };
    if (!acrIncident.mFirstCause.mKind.empty()) {
        lAddCause(acrIncident.mFirstCause, "first");
    }
    for (const ZTSIncidentCause& lrCause : acrIncident.mCauses) {
        lAddCause(lrCause, "later");
    }
    std::ranges::stable_sort(lSteps, {}, &Step::mFirst);
    return lSteps;
}

std::string sStepsText(const ZTSIncident& acrIncident, const ZTPortLabels& acrLabels,
                       const ZTTimeText& acrTimes) {
    const std::vector<Step> lSteps = sListSteps(acrIncident, acrLabels);
    if (lSteps.empty()) {
        return "";
    }
    ZTCTable lTable({{"time"}, {"for"}, {"events", true}, {"what"}});
    for (const Step& lrStep : lSteps) {
        lTable.add(
            {acrTimes(lrStep.mFirst),
             lrStep.mLast - lrStep.mFirst >= ZTSecond ? durationText(lrStep.mLast - lrStep.mFirst) : "",
             lrStep.mEvents == 0 ? "" : groupedText(lrStep.mEvents), lrStep.mText});
    }
    return "\n" + bold("What happened") + "\n" + lTable.toText();
}

std::string sChangesText(const ZTSIncident& acrIncident, const ZTPortLabels& acrLabels,
                         const ZTTimeText& acrTimes) {
    const std::vector<ZTSChange>& lrAll = acrIncident.mChanges;
    std::string lText = "\n" + bold("What changed in the seven days before") + "\n";
    if (lrAll.empty()) {
        return lText + "  nothing that concerns it\n";
    }
    const std::size_t lSkipped = lrAll.size() - std::min(lrAll.size(), sMostChanges);
    lText += lSkipped == 0 ? "" : fmt::format("  {} more before these\n", lSkipped);
    for (std::size_t lAt = lSkipped; lAt < lrAll.size(); ++lAt) {
        lText += "  " + acrTimes(lrAll[lAt].mTime) + "  " +
                 toShownText(changeText(nameThePortsOf(acrLabels, lrAll[lAt]))) + "\n";
    }
    return lText;
}

std::string sHitsText(const ZTSIncidentHits& acrHits) {
    return sLine("mounts", sListText(acrHits.mMounts)) + sLine("volumes", sListText(acrHits.mVolumes)) +
           sLine("maps", sListText(acrHits.mMaps)) + sLine("disks", sListText(acrHits.mDisks)) +
           sLine("LUNs", sListText(acrHits.mLuns));
}

std::string sAcknowledgementText(const ZTSIncident& acrIncident, const ZTTimeText& acrTimes) {
    if (!acrIncident.mAcknowledged) {
        return acrIncident.mState == ZTEIncidentState::Closed ? "" : "by nobody";
    }
    const ZTSAcknowledgement& lrIt = *acrIncident.mAcknowledged;
    return fmt::format("by {}, {}{}{}", toShownText(lrIt.mWho), acrTimes(lrIt.mTime),
                       lrIt.mNote.empty() ? "" : ": ", toShownText(lrIt.mNote));
}

std::string sSeriesText(const ZTSIncidentTold& acrTold, const ZTTimeText& acrTimes) {
    if (acrTold.mSeries.empty()) {
        return "";
    }
    std::string lText = fmt::format("it comes back: {} more like it", acrTold.mSeries.size());
    for (std::size_t lAt = 0; lAt < std::min(acrTold.mSeries.size(), sMostNames / 2); ++lAt) {
        lText += fmt::format(", {} of {}", acrTold.mSeries[lAt].mId, acrTimes(acrTold.mSeries[lAt].mOpened));
    }
    return lText + (acrTold.mSeries.size() > sMostNames / 2 ? ", ..." : "");
}

std::string sLossesText(const ZTSIncident& acrIncident) {
    return acrIncident.mLosses == 0 ? ""
                                    : fmt::format("{} events meanwhile: there is more than is told here",
                                                  groupedText(acrIncident.mLosses));
}

}  // namespace

ZTTimeText plainTimes(bool aInUtc) {
    return [aInUtc](ZTNanoseconds aTime) { return plainText(toSensorTime(aTime), aInUtc); };
}

std::string incidentsText(const std::vector<ZTSIncident>& acrIncidents, const ZTSIncidentFrame& acrFrame,
                          const ZTTimeText& acrTimes) {
    std::string lText = acrFrame.mHost.empty() ? "" : toShownText(acrFrame.mHost) + ": ";
    const auto lClosed = static_cast<std::size_t>(
        std::ranges::count(acrIncidents, ZTEIncidentState::Closed, &ZTSIncident::mState));
    lText += acrIncidents.empty()
                 ? "no incidents"
                 : fmt::format("{} not over, {} over", countText(acrIncidents.size() - lClosed, "incident"),
                               lClosed);
    lText = bold(lText) + "\n" + sAsOfText(acrFrame, acrTimes);
    if (acrIncidents.empty()) {
        return lText;
    }
    ZTCTable lTable({{"id", true}, {"state"}, {"since"}, {"for"}, {"class"}, {"paths"}, {"what"}});
    for (const ZTSIncident& lrIncident : acrIncidents) {
        const std::string lPaths = sPathsText(lrIncident);
        lTable.add({std::to_string(lrIncident.mId), sStateText(lrIncident), acrTimes(lrIncident.mOpened),
                    durationText(endOf(lrIncident, acrFrame) - lrIncident.mOpened), nameOf(lrIncident.mClass),
                    lPaths.empty() ? "-" : lPaths, toShownText(lrIncident.mTitle)});
    }
    return lText + "\n" + lTable.toText();
}

std::string incidentText(const ZTSIncidentTold& acrTold, const ZTSIncidentFrame& acrFrame,
                         const ZTTimeText& acrTimes) {
    const ZTSIncident& lrIt = acrTold.mIncident;
    const ZTPortLabels& lrLabels = acrFrame.mLabels;
    std::string lText = bold(toShownText(lrIt.mTitle)) + "\n" + sAsOfText(acrFrame, acrTimes) + "\n";
    lText += sLine("incident", fmt::format("{}{}{}: {}, {}{}", lrIt.mId, acrFrame.mHost.empty() ? "" : " of ",
                                           toShownText(acrFrame.mHost), nameOf(lrIt.mClass),
                                           nameOf(lrIt.mState), lrIt.mIsKept ? ", kept for good" : ""));
    lText += sLine("since", sSinceText(lrIt, acrFrame, acrTimes));
    lText += sLine("began with", sCauseText(lrIt.mFirstCause, lrLabels, acrTimes));
    for (const ZTSIncidentCause& lrCause : lrIt.mCauses) {
        lText += sLine("then", sCauseText(lrCause, lrLabels, acrTimes));
    }
    const std::string lPaths = sPathsText(lrIt);
    lText += sLine("paths left", lPaths.empty() ? "" : lPaths + ", where the fewest are left");
    lText += sHitsText(lrIt.mHits);
    lText += sLine("initiators", sPortsText(lrIt.mInitiators, lrLabels));
    lText += sLine("targets", sPortsText(lrIt.mTargets, lrLabels));
    lText += sLine("fabrics", sListText(lrIt.mFabrics));
    lText += sLine("events", lrIt.mEvents == 0 ? ""
                                               : fmt::format("{}: vrx-scope history --incident {}",
                                                             groupedText(lrIt.mEvents), lrIt.mId));
    lText += sLine("lost", sLossesText(lrIt));
    lText += sLine("maintenance", toShownText(lrIt.mWindow));
    lText += sLine("acknowledged", sAcknowledgementText(lrIt, acrTimes));
    lText += sLine("series", sSeriesText(acrTold, acrTimes));
    lText += sLine("look next", bold(toShownText(lrIt.mSuggestion)));
    return lText + sStepsText(lrIt, lrLabels, acrTimes) + sChangesText(lrIt, lrLabels, acrTimes);
}
