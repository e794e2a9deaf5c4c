// Any text is read as statements or refused with one line that says what was expected.
#include <algorithm>
#include <cstdlib>

#include "Scenario.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* apData, size_t aSize) {
    const std::string_view lText(reinterpret_cast<const char*>(apData), aSize);
    try {
        const auto lStatements = readScenario(lText, "text");
        const auto lLines = static_cast<size_t>(std::ranges::count(lText, '\n')) + 1;
        const bool lIsWhole = std::ranges::all_of(
            lStatements, [](const ZTSSimStatement& acrStatement) { return acrStatement.mpVerb != nullptr; });
        if (lStatements.size() > lLines || !lIsWhole) {
            abort();
        }
    } catch (const ZTCSimError& lrError) {
        const std::string_view lWhat(lrError.what());
        if (lWhat.find(", expected ") == std::string_view::npos ||
            !std::ranges::all_of(lWhat, [](char aChar) { return aChar >= ' ' && aChar <= '~'; })) {
            abort();
        }
    }
    return 0;
}
