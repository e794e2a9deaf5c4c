// What the vendor library calls: functions that let its threads in one by one, check the lengths they
// deliver, and call the agent's callbacks. Nothing thrown leaves them.
#pragma once

#include "CallbackGate.h"
#include "libdfc_provider.h"

/// The gate that all of them pass.
ZTCCallbackGate& LibdfcGate();

/// Sets the callback for all events that are registered by category, and returns what the library is given in
/// its place. A record that claims a payload that cannot be is dropped.
ZT_generic_callback LibdfcWrap(ZT_generic_callback apCallback);

/// The same for the event of a mask (ZT_DFC_); throws ZTCInvalidEx for another mask. An RSCN that claims more
/// than was delivered becomes one of the pages that were, a link event without the registration context one
/// of zeros.
ZT_dfc_callback LibdfcWrap(unsigned int aMask, ZT_dfc_callback apCallback);
