// The road of an event from the vendor library to a record: callbacks with their gates, dispatch by kind, and
// consolidation. The four callbacks are ZTCScopeAgentProtocolHandler's; the rest is known to nobody else.
#pragma once

#include "CallbackEventData.h"

class ZTCScopeAgentSystem;

/// Dispatches an event: of a known board, of a known kind, with enough payload, it folds into the record that
/// is held back or becomes a new one. What does not is logged and counted. Any thread, without the scope-data
/// lock. Throws ZTCNoMemoryEx.
void sProcessScopeEvent(ZTCScopeAgentSystem& arSystem, ZTCLogMask aMask,
                        const ZTCCallbackEventData& acrEvent);
