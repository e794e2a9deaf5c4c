// Whatever a names file holds: each line is a port or a mistake, and what is told of either can be shown.
#include <cstdlib>
#include <vector>

#include "PortLabels.h"
#include "ShownText.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* apInput, std::size_t aSize) {
    const std::vector<char> lExact(apInput, apInput + aSize);
    const ZTSNamesFile lFile = readPortLabels({lExact.data(), lExact.size()});
    for (const auto& [lrLine, lrText] : lFile.mMistakes) {
        if (toShownText(lrText) != lrText) {
            abort();
        }
    }
    for (const auto& [lrPort, lrLabel] : lFile.mLabels) {
        if (lrLabel.mName.empty() || lrLabel.mName.size() > ZTLongestLabel ||
            toShownText(lrLabel.mName + lrLabel.mFabric) != lrLabel.mName + lrLabel.mFabric) {
            abort();
        }
    }
    return 0;
}
