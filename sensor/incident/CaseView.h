// What several parts of the story ask of a case.
#pragma once

#include <string>
#include <vector>

#include "IncidentStory.h"

/// A cluster with the row of the rules that says what it is.
struct ZTSFit {
    const ZTSClassRow* mpClass = nullptr;
    const ZTSOpening* mpOpening = nullptr;
    const ZTSCluster* mpCluster = nullptr;
};
/// The first row that fits one of the clusters, the oldest cluster first. Nothing: none does.
std::optional<ZTSFit> findFit(const ZTSCase& acrCase, const ZTSStoryFrame& acrFrame);
/// The same of one class, whether or not it fits still.
ZTSFit fitOf(const ZTSCase& acrCase, ZTEIncidentClass aClass, const ZTSStoryFrame& acrFrame);
/// The first row that says of one cluster what was done there. mpClass null: none does.
ZTSFit findDeed(const ZTSCase& acrCase, const ZTSCluster& acrCluster, const ZTSStoryFrame& acrFrame);

/// The cause of one cluster. Its kind is empty: it has no sign that can be one.
ZTSIncidentCause causeOf(const ZTSCase& acrCase, const ZTSCluster& acrCluster, const ZTSStoryFrame& acrFrame);

/// Whether what a class waits for is still not as it was, at this cluster.
bool isLasting(const ZTSCase& acrCase, const ZTSCluster& acrCluster, ZTERestored aRestored);
bool hasSign(const ZTSCluster& acrCluster, ZTESign aSign);
/// Whether a path is gone that the signs of a cluster are about.
bool isMissing(const ZTSCaseMap& acrMap, const ZTSCluster& acrCluster);
/// Whether what makes a cluster was seen in two fabrics: what tells of both is no change in one.
bool isInFabrics(const ZTSCase& acrCase, const ZTSCluster& acrCluster);
/// The map that has the fewest paths now, else the one that had. Null: none is concerned.
const std::pair<const std::string, ZTSCaseMap>* findWorstMap(const ZTSCase& acrCase);
/// Whether a kind of sign makes a case by itself, or there was enough of it.
bool isStrong(const ZTSCase& acrCase, ZTESign aSign);
/// What could have been its cause, or is a consequence: not what goes on anyway, nor what came back.
bool isOfChain(ZTESign aSign);
/// Whether it ends what another sign began.
bool isOtherHalf(ZTESign aSign);
