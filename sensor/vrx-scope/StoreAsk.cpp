#include "StoreAsk.h"

#include <fmt/format.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "Failure.h"
#include "ShownText.h"
#include "StoreReader.h"
#include "TimeText.h"
#include "Waiting.h"

namespace {

constexpr std::chrono::seconds sTakenWithin(10);  // vrx-sn looks each two seconds
constexpr std::chrono::milliseconds sLookEvery(100);

std::string sNameOf(uid_t aUser) {
    const passwd* const lpUser = getpwuid(aUser);
    const std::string lName = lpUser != nullptr ? lpUser->pw_name : "";
    return lName.empty() || toShownText(lName) != lName ? fmt::format("user {}", aUser) : lName;
}

// Whether vrx-sn has it by now.
bool sIsTaken(const std::string& acrStore, const ZTSStoreRequest& acrRequest) {
    ZTCStoreReader lReader(acrStore);
    const std::vector<ZTSStoreRequest> lWaiting = lReader.readRequests();
    return std::none_of(lWaiting.begin(), lWaiting.end(), [&](const ZTSStoreRequest& acrOther) {
        return acrOther.mTime == acrRequest.mTime && acrOther.mText == acrRequest.mText;
    });
}

bool sWaitUntilTaken(const std::string& acrStore, const ZTSStoreRequest& acrRequest) {
    ZTCWaiting lWaiting;
    const auto lEnd = ZTCWaiting::Clock::now() + sTakenWithin;
    while (!sIsTaken(acrStore, acrRequest)) {
        const auto lNow = ZTCWaiting::Clock::now();
        if (lNow >= lEnd || lWaiting.until(lNow + sLookEvery) == ZTCWaiting::Reason::End) {
            return false;
        }
    }
    return true;
}

}  // namespace

void checkAskText(const char* apWhat, const std::string& acrText, std::size_t aLongest) {
    if (acrText.size() > aLongest) {
        throw ZTCScopeUsage(fmt::format("{} has {} bytes: {} at most", apWhat, acrText.size(), aLongest));
    }
    if (toShownText(acrText) != acrText) {
        throw ZTCScopeUsage(
            fmt::format("{} has what is no UTF-8, or cannot be shown: one line of text", apWhat));
    }
}

std::string whoAsks() {
    uid_t lUser = static_cast<uid_t>(-1);
    std::ifstream("/proc/self/loginuid") >> lUser;
    return sNameOf(lUser == static_cast<uid_t>(-1) ? getuid() : lUser);
}

void checkAsking(const std::string& acrStore, const std::string& acrThing) {
    if (access(acrStore.c_str(), W_OK) != 0) {
        throw ZTCScopeFailure(
            fmt::format("no {} without the right to write {}: do it as root", acrThing, acrStore));
    }
    if (!findStoreHolder(acrStore).mIsHere) {
        throw ZTCScopeFailure("vrx-sn does not run, and it is what writes this down: systemctl start vrx-sn");
    }
}

ZTNanoseconds askThroughStore(const std::string& acrStore, ZTSStoreRequest aRequest,
                              const std::string& acrThing) {
    aRequest.mTime = toNanoseconds(toSensorTime(std::chrono::system_clock::now()));
    aRequest.mWho = whoAsks();
    addStoreRequest(acrStore, aRequest);
    if (!sWaitUntilTaken(acrStore, aRequest)) {
        throw ZTCScopeFailure(fmt::format(
            "the {} lies in the history, but vrx-sn has not taken it yet: look at its journal", acrThing));
    }
    return aRequest.mTime;
}
