// The words of an incident.
#pragma once

#include "CaseView.h"

/// A row's sentence, its suggestion or a part of one with its places filled in. aIsWhole: it begins with a
/// capital letter, unless it begins with a name, and tells what is hit.
std::string fillSentence(const char* apSentence, const ZTSCase& acrCase, const ZTSFit& acrFit,
                         const ZTSStoryFrame& acrFrame, bool aIsWhole = true);

/// Of lost paths: how many, since when, and by what.
std::string pathsText(const ZTSCase& acrCase, const ZTSStoryFrame& acrFrame);
/// What it means for what stands above: ": /data has 4 of 8 paths left". Empty: nothing is known of that.
std::string hitsText(const ZTSCase& acrCase);
/// The same of paths alone.
std::string leftText(const ZTSCase& acrCase);
/// "; I/O stands still". Empty: it never did.
std::string stallsText(const ZTSCase& acrCase);
/// What people know that by what the case hits: mounts, else volumes, maps, disks, LUNs.
std::vector<std::string> listHits(const ZTSCase& acrCase);
/// The same of what has lost as many paths as the worst map: if that is not so of all, the maps of which it
/// is.
std::vector<std::string> listWorst(const ZTSCase& acrCase);
/// "has" or "have".
const char* hasOrHave(const std::vector<std::string>& acrNames);

/// "a", "a and b", "a, b and 3 more".
std::string listText(const std::vector<std::string>& acrNames);
/// "2026-11-17 10:02 UTC".
std::string minuteText(ZTNanoseconds aTime);
/// " at 2026-11-17 10:02 UTC", " from 2026-11-17 10:02 to 10:05 UTC".
std::string spanText(ZTNanoseconds aFirst, ZTNanoseconds aLast);
