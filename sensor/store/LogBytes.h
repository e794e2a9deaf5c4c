// How much a batch writes.
#pragma once

#include "StoreBatch.h"

/// What it takes of the log beside the file, about, and rather more.
std::uint64_t estimateLogBytes(const ZTSStoreBatch& acrBatch);
