#include "WebMain.h"

#include <malloc.h>
#include <sys/resource.h>

#include <algorithm>

#include "ServiceMain.h"
#include "WebLoop.h"

namespace {

// Each connection is one, and the history has some: more than are there as a rule.
void sRaiseDescriptors() {
    constexpr rlim_t lWanted = 4096;
    rlimit lLimit{};
    if (getrlimit(RLIMIT_NOFILE, &lLimit) == 0 && lLimit.rlim_cur < lWanted) {
        lLimit.rlim_cur = std::min(lLimit.rlim_max, lWanted);
        setrlimit(RLIMIT_NOFILE, &lLimit);
    }
}

}  // namespace

int runWeb(int argc, char** argv, const ZTSWebPeriods& acrPeriods) {
    return runService("vrx-web", argc, argv,
                      [&](const std::vector<std::string>& acrWords, ZTCServiceLog& arLog) {
                          const ZTSWebSettings lSettings = readWebSettings(acrWords);
                          sRaiseDescriptors();
                          mallopt(M_ARENA_MAX, 2);  // few heaps that each keep what they once had
                          ZTCWebLoop lLoop(lSettings, acrPeriods, acrWords, arLog);
                          lLoop.run();
                          return 0;
                      });
}
