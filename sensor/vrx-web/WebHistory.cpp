#include "WebHistory.h"

#include <sqlite3.h>

namespace {

constexpr int sStepsBetweenLooks = 1000;  // of SQLite's machine: some ten microseconds

bool sIsOver(ZTCWebHistory::Clock::time_point aEnd) {
    return ZTCWebHistory::Clock::now() >= aEnd;
}

int sLook(void* apEnd) {
    return sIsOver(*static_cast<const ZTCWebHistory::Clock::time_point*>(apEnd)) ? 1 : 0;
}

}  // namespace

ZTCWebHistory::ZTCWebHistory(std::string aPath) : mPath(std::move(aPath)) {}

void ZTCWebHistory::begin(Clock::time_point aEnd) {
    mEnd = aEnd;
}

ZTCStoreReader& ZTCWebHistory::getReader() {
    if (sIsOver(mEnd)) {
        throw ZTCStoreError(ZTEStoreFault::Busy, "what was asked for takes too long: ask for less");
    }
    if (mpReader && mpReader->isReplaced()) {
        close();
    }
    if (!mpReader) {
        mpReader = std::make_unique<ZTCStoreReader>(mPath);
        sqlite3_progress_handler(mpReader->getDatabase().getHandle(), sStepsBetweenLooks, &sLook, &mEnd);
    }
    return *mpReader;
}
