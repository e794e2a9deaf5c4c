// vrx-web with the periods that a test has put into its environment:
// ZT_TEST_WEB_PERIODS=NAME=MILLISECONDS,... A name that there is not ends it.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "WebMain.h"

namespace {

constexpr std::pair<const char*, std::chrono::milliseconds ZTSWebPeriods::*> sNames[] = {
    {"head", &ZTSWebPeriods::mHead},     {"idle", &ZTSWebPeriods::mIdle},
    {"taking", &ZTSWebPeriods::mTaking}, {"request", &ZTSWebPeriods::mRequest},
    {"token", &ZTSWebPeriods::mToken},   {"alive", &ZTSWebPeriods::mAlive}};

void sSet(ZTSWebPeriods& arPeriods, const std::string& acrName, int aMilliseconds) {
    for (const auto& [lpName, lpMember] : sNames) {
        if (acrName == lpName) {
            arPeriods.*lpMember = std::chrono::milliseconds(aMilliseconds);
            return;
        }
    }
    fprintf(stderr, "there is no period %s\n", acrName.c_str());
    abort();
}

}  // namespace

int main(int argc, char** argv) {
    const char* const lpPeriods = getenv("ZT_TEST_WEB_PERIODS");
    std::istringstream lRest(lpPeriods != nullptr ? lpPeriods : "");
    ZTSWebPeriods lPeriods;
    lPeriods.mTick = std::chrono::milliseconds(20);
    for (std::string lOne; std::getline(lRest, lOne, ',');) {
        const std::size_t lEquals = std::min(lOne.find('='), lOne.size() - 1);
        sSet(lPeriods, lOne.substr(0, lEquals), atoi(lOne.c_str() + lEquals + 1));
    }
    return runWeb(argc, argv, lPeriods);
}
