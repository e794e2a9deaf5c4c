#include "ServiceMain.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <new>

#include "ServiceUsage.h"

namespace {

constexpr int sFailed = 1;
constexpr int sWrongUsage = 2;

int sRun(const ZTServiceRun& acrRun, const std::vector<std::string>& acrWords, ZTCServiceLog& arLog) {
    try {
        return acrRun(acrWords, arLog);
    } catch (const ZTCServiceShown& lrShown) {
        return fputs(lrShown.what(), stdout) >= 0 && fflush(stdout) == 0 ? 0 : sFailed;
    } catch (const ZTCServiceUsage& lrError) {
        arLog.note(ZTSL_Error, "%s", lrError.what());
        return sWrongUsage;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& lrError) {
        arLog.note(ZTSL_Error, "%s", lrError.what());
        return sFailed;
    }
}

}  // namespace

int runService(const char* apName, int argc, char** argv, const ZTServiceRun& acrRun) {
    // What is opened must not get the number of a standard stream that somebody has closed.
    for (const int lStream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(lStream, F_GETFD) < 0 && open("/dev/null", O_RDWR) < 0) {
            return sFailed;
        }
    }
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
    ZTCServiceLog lLog(apName);
    try {
        return sRun(acrRun, {argv + (argc > 0 ? 1 : 0), argv + argc}, lLog);
    } catch (const std::bad_alloc&) {
        lLog.note(ZTSL_Error, "no memory");
        return sFailed;
    }
}
