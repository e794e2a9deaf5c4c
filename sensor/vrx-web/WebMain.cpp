#include "WebMain.h"

#include <fcntl.h>
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <new>

#include "WebLoop.h"

namespace {

constexpr int sFailed = 1;
constexpr int sWrongUsage = 2;

// Each connection is one, and the history has some: more than are there as a rule.
void sRaiseDescriptors() {
    constexpr rlim_t lWanted = 4096;
    rlimit lLimit{};
    if (getrlimit(RLIMIT_NOFILE, &lLimit) == 0 && lLimit.rlim_cur < lWanted) {
        lLimit.rlim_cur = std::min(lLimit.rlim_max, lWanted);
        setrlimit(RLIMIT_NOFILE, &lLimit);
    }
}

int sRun(const std::vector<std::string>& acrWords, const ZTSWebPeriods& acrPeriods, ZTCServiceLog& arLog) {
    try {
        const ZTSWebSettings lSettings = readWebSettings(acrWords);
        sRaiseDescriptors();
        mallopt(M_ARENA_MAX, 2);  // few heaps that each keep what they once had
        ZTCWebLoop lLoop(lSettings, acrPeriods, acrWords, arLog);
        lLoop.run();
        return 0;
    } catch (const ZTCServiceShown& lrShown) {
        return fputs(lrShown.what(), stdout) >= 0 && fflush(stdout) == 0 ? 0 : sFailed;
    } catch (const ZTCServiceUsage& lrError) {
        arLog.note(ZTSL_Error, "%s", lrError.what());
        return sWrongUsage;
    } catch (const std::exception& lrError) {
        arLog.note(ZTSL_Error, "%s", lrError.what());
        return sFailed;
    }
}

}  // namespace

int runWeb(int argc, char** argv, const ZTSWebPeriods& acrPeriods) {
    // What is opened must not get the number of a standard stream that somebody has closed.
    for (const int lStream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(lStream, F_GETFD) < 0 && open("/dev/null", O_RDWR) < 0) {
            return sFailed;
        }
    }
    signal(SIGPIPE, SIG_IGN);
    ZTCServiceLog lLog("vrx-web");
    try {
        return sRun({argv + (argc > 0 ? 1 : 0), argv + argc}, acrPeriods, lLog);
    } catch (const std::bad_alloc&) {
        lLog.note(ZTSL_Error, "no memory");
        return sFailed;
    }
}
