// A large history: of a month, of four ports of a host and sixteen beyond two fabrics.
#pragma once

#include <cstdint>
#include <string>

#include "SensorTime.h"

namespace ztbench {

inline constexpr ZTNanoseconds largeStoreSpan = 30 * 24 * 3600 * ZTSecond;

/// Makes it anew. The last of so many records began shortly before aEnd. Throws ZTCStoreError.
void makeLargeStore(const std::string& acrPath, std::uint64_t aRecords, ZTNanoseconds aEnd);

/// The first of the host's ports.
std::string largeStoreInitiator();

}  // namespace ztbench
