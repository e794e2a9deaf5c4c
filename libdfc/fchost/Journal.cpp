#include "Journal.h"

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>

namespace {

constexpr char sName[] = "libdfc-fchost: ";
constexpr std::size_t sMaxLine = 512;

}  // namespace

void ZTCFcJournal::note(const char* apFormat, ...) const {
    char lLine[sMaxLine];
    const int lName = snprintf(lLine, sizeof lLine, "%s", sName);
    va_list lArguments;
    va_start(lArguments, apFormat);
    vsnprintf(lLine + lName, sizeof lLine - static_cast<std::size_t>(lName), apFormat, lArguments);
    va_end(lArguments);
    if (mPath.empty()) {
        syslog(LOG_DAEMON | LOG_NOTICE, "%s", lLine);
        return;
    }
    constexpr int lFlags =
        O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK;  // for a pipe
    const int lFile = open(mPath.c_str(), lFlags, 0640);
    if (lFile >= 0) {
        dprintf(lFile, "%s\n", lLine);
        close(lFile);
    }
}
