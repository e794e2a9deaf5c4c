// Why events were lost, in words.
#pragma once

#include <string>
#include <vector>

#include "Record.h"

/// A reason as the history has it (docs/store.md), and what follows "1,234 events lost: ".
struct ZTSLossReason {
    const char* mpSource;
    const char* mpReason;
    const char* mpText;
};
const std::vector<ZTSLossReason>& listLossReasons();

/// "1,234 events lost by the agent: it held as much as it may". Reasons that are not known stand there as
/// they are.
std::string lossText(const ZTSLoss& acrLoss);
/// What the change says: "port 10:00:00:25:b5:01:00:00: state was Online, is Linkdown".
std::string changeText(const ZTSChange& acrChange);
/// With commas between thousands.
std::string groupedText(std::uint64_t aNumber);
