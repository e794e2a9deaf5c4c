// Linked to a program, sets its periods before it begins, from what a test has put into its environment:
// ZT_TEST_PERIODS=NAME=MILLISECONDS,... A name that there is not ends it.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "Periods.h"

namespace {

#define ZT_ROW(Name, Milliseconds) #Name,
constexpr const char* sNames[] = {ZT_PERIODS(ZT_ROW)};
#undef ZT_ROW

void sSet(const std::string& acrName, int aMilliseconds) {
    for (unsigned char lPeriod = 0; lPeriod < ZTP_Count; ++lPeriod) {
        if (acrName == sNames[lPeriod]) {
            ZTSetPeriod(static_cast<ZTEPeriod>(lPeriod), std::chrono::milliseconds(aMilliseconds));
            return;
        }
    }
    fprintf(stderr, "there is no period %s\n", acrName.c_str());
    abort();
}

[[maybe_unused]] const bool sAreSet = [] {
    const char* const lpPeriods = getenv("ZT_TEST_PERIODS");
    std::string lRest = lpPeriods != nullptr ? lpPeriods : "";
    while (!lRest.empty()) {
        const std::size_t lEquals = lRest.find('=');
        const std::size_t lEnd = lRest.find(',');
        sSet(lRest.substr(0, lEquals), atoi(lRest.c_str() + lEquals + 1));
        lRest.erase(0, lEnd == std::string::npos ? lEnd : lEnd + 1);
    }
    return true;
}();

}  // namespace
