// From an event to the callbacks of those who have registered for it.
#pragma once

#include <span>

#include "Registrations.h"
#include "Watcher.h"

/// Calls back, one after the other, whoever wants the event. acrPort: the name of its board's port. Allocates
/// nothing.
void deliverFcEvent(ZTCFcRegistrations& arRegistrations, const ZTSFcEvent& acrEvent, const HBA_wwn& acrPort);

/// The same of an event by category with these bytes. False: nobody has registered for it with this board.
bool deliverFcEvent(ZTCFcRegistrations& arRegistrations, std::uint32_t aBoard, const ZTSFcEventId& acrId,
                    const HBA_wwn& acrPort, std::span<const unsigned char> aPayload);
