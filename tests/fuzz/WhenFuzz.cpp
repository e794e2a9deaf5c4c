// Times as people write them: whatever stands there, it is a moment or none, and says the same when it is
// printed.
#include <cstdlib>

#include "TimeText.h"
#include "WhenText.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* apData, std::size_t aSize) {
    constexpr ZTNanoseconds lNow = 1'795'000'000 * ZTSecond;
    const std::string_view lText(reinterpret_cast<const char*>(apData), aSize);
    // Clocks that are set an hour forth and back every second week.
    const ZTZone lZone = [](std::int64_t aSeconds) {
        const bool lIsSummer = aSeconds / (14 * 86400) % 2 == 0;
        return ZTSZoneTime{lIsSummer ? 7200 : 3600, lIsSummer ? "CEST" : "CET"};
    };
    if (const auto lWhen = readWhen(lText, lNow, lZone)) {
        if (readWhen(isoText(toSensorTime(*lWhen)), lNow, lZone) != lWhen) {
            abort();
        }
    }
    return 0;
}
