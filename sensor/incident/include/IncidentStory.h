// Tells of an incident what a person asks: what it is, where it began, what followed, what it hits.
#pragma once

#include <deque>

#include "IncidentCase.h"

/// What is known beside the case.
struct ZTSStoryFrame {
    const ZTSIncidentRules& mrRules;
    const ZTPortLabels& mrLabels;
    const std::deque<ZTSChange>& mrChanges;  ///< of the last days, the oldest first
    ZTNanoseconds mNow = 0;
};

/// Which class the case is of: the first row of the rules that fits. Nothing: it is no incident (yet), or its
/// class is off.
std::optional<ZTEIncidentClass> classOf(const ZTSCase& acrCase, const ZTSStoryFrame& acrFrame);

/// Fills what is told: class, title, fabrics, initiators, targets, hits, events, causes, symptoms, paths,
/// losses, evidence, changes, suggestion. The rest of it is left alone. The same case gives the same text,
/// whatever the order in which its signs came.
void tellStory(const ZTSCase& acrCase, ZTEIncidentClass aClass, const ZTSStoryFrame& acrFrame,
               ZTSIncident& arIncident);

/// Where the case began, and with which confidence.
std::vector<ZTSIncidentCause> findCauses(const ZTSCase& acrCase, const ZTSStoryFrame& acrFrame);
