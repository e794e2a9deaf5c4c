// What has become of a host's ports from one look to the next.
#pragma once

#include <vector>

#include "Ports.h"
#include "Record.h"

/// A row for each port and remote port that came, went, or has another state, speed, port_id, fabric,
/// firmware, driver or dev_loss_tmo; of the last three none where one of both is not known. A remote port is
/// named as "PORT seen from INITIATOR".
std::vector<ZTSChange> listPortChanges(const ZTSHostPorts& acrBefore, const ZTSHostPorts& acrAfter,
                                       ZTNanoseconds aTime);
