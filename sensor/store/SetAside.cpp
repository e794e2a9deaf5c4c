#include "SetAside.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>

#include "StoreLock.h"

std::string nameStoreAside(const std::string& acrPath) {
    const time_t lNow = time(nullptr);
    tm lTime{};
    gmtime_r(&lNow, &lTime);
    char lText[32];
    strftime(lText, sizeof lText, "%Y%m%dT%H%M%SZ", &lTime);
    const std::string lName = acrPath + ".damaged-" + lText;
    std::string lFree = lName;
    for (unsigned int lNext = 2;
         access(lFree.c_str(), F_OK) == 0 || access((lFree + "-wal").c_str(), F_OK) == 0; ++lNext) {
        lFree = lName + "-" + std::to_string(lNext);
    }
    return lFree;
}

// The file goes first: a log without its file tells that this was cut short, a file without its log would
// count as whole.
void setStoreAside(const std::string& acrPath, const std::string& acrAside) {
    for (const char* const lpEnd : {"", "-journal", "-wal"}) {
        if (rename((acrPath + lpEnd).c_str(), (acrAside + lpEnd).c_str()) != 0 && errno != ENOENT) {
            throw toStoreError(errno, acrPath);
        }
    }
    if (unlink((acrPath + "-shm").c_str()) != 0 && errno != ENOENT) {
        throw toStoreError(errno, acrPath);
    }
}
