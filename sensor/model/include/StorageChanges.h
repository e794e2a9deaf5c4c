// What has become of LUNs, maps and mounts from one look to the next.
#pragma once

#include <vector>

#include "Record.h"
#include "Storage.h"

/// A row for each that came, went or has something else: of a "lun" (its name, ZTSLun::getName) state,
/// access, queue_depth, serial, wwid; of a "map" its paths ("8 of 8", "4 of 8": usable, and its total), and
/// in a row of its own which of them are missing ("INITIATOR>TARGET INITIATOR>TARGET +2": 32 at most, and how
/// many more, or of which the ports are not known; none if that is all of them); of a "volume" over what it
/// is; of a "mount" that it came and went, for another disk or type is another one. Never more than 256 rows
/// of one kind, and as many of what is missing: of the rest a row for each event tells how many they are
/// ("744 more", came).
std::vector<ZTSChange> listStorageChanges(const ZTSHostStorage& acrBefore, const ZTSHostStorage& acrAfter,
                                          ZTNanoseconds aTime);
