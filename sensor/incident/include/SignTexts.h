// What stands in the texts of changes and stalls.
#pragma once

#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "Wwn.h"

/// A port of the host, and one beyond the fabric.
using ZTPortPair = std::pair<ZTSWwn, ZTSWwn>;

/// "50:... seen from 10:...", "50:... LUN 2 seen from 10:...". Zeros: it is none of these.
ZTPortPair readPair(std::string_view aName);

struct ZTSPathCount {
    std::uint32_t mLeft = 0;
    std::uint32_t mTotal = 0;
};
/// "4 of 8".
std::optional<ZTSPathCount> readPathCount(std::string_view aText);

/// "10:...>50:... 10:...>50:... +2".
struct ZTSMissingPaths {
    std::set<ZTPortPair> mPairs;
    bool mIsAll = true;  ///< false: there are more
};
ZTSMissingPaths readMissingPaths(std::string_view aText);
