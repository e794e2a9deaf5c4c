// How near a sign is to what a case has, by where both point and when they were.
#pragma once

#include "IncidentFinderCase.h"

/// From the farthest to the nearest. What is explained by something stronger ties nothing together.
enum class ZTERelation : unsigned char {
    None,
    Array,       ///< the same at the other controller
    Controller,  ///< another port of the same one
    Initiator,   ///< another port behind the same one
    Remote,      ///< the same port, seen from elsewhere
    Pair,        ///< the same ports, or the same disk
    Link,        ///< the trouble of the initiator's link, or of the fabric, explains it
    Anchor,      ///< the trouble of the remote port explains it
    Down,        ///< the link is down right now
};

/// A sign of this kind says by itself that the trouble is at its remote port.
bool blamesRemote(const ZTSKnownSign& acrSign);
/// The same of the initiator, or its link.
bool blamesInitiator(const ZTSKnownSign& acrSign);

/// aIsActive: it could open a case by itself.
ZTERelation relate(const ZTSNewSign& acrNew, bool aIsActive, const ZTSOpenCase& acrCase, std::size_t aCluster,
                   const ZTSIncidentTimes& acrTimes);
/// Whether two times are as near as what was seen then has to be to belong together.
bool areNear(const ZTSSignRow& acrOne, ZTNanoseconds aFirst, ZTNanoseconds aLast, const ZTSSignRow& acrOther,
             ZTNanoseconds aOtherFirst, ZTNanoseconds aOtherLast, const ZTSIncidentTimes& acrTimes);
/// Where the signs of a cluster point, taken together.
ZTSFocus findFocus(const ZTSCluster& acrCluster, const ZTSOpenCase::Cluster& acrBeside,
                   const ZTPortLabels& acrLabels);
