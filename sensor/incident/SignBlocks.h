// What a record is a sign of: its kind, and what the block of its data adds, read no further than that takes.
#pragma once

#include "Record.h"
#include "Sign.h"

/// Sets what the sign is, and its detail. ZTESign::Count: it is none.
void readSignBlock(const ZTSRecord& acrRecord, ZTSSign& arSign);
