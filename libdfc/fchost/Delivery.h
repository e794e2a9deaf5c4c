// From an event to the callbacks of those who have registered for it.
#pragma once

#include "Registrations.h"
#include "Watcher.h"

/// Calls back, one after the other, whoever wants the event. acrPort: the name of its board's port. Allocates
/// nothing.
void deliverFcEvent(ZTCFcRegistrations& arRegistrations, const ZTSFcEvent& acrEvent, const HBA_wwn& acrPort);
