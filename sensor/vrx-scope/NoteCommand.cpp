#include <fmt/format.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "CommandParts.h"
#include "Failure.h"
#include "ShownText.h"
#include "StoreReader.h"
#include "TimeText.h"
#include "Waiting.h"

namespace {

constexpr std::size_t sLongestNote = 1000;
constexpr std::size_t sLongestSubject = 200;
constexpr std::chrono::seconds sTakenWithin(10);  // vrx-sn looks each two seconds
constexpr std::chrono::milliseconds sLookEvery(100);

void sCheck(const char* apWhat, const std::string& acrText, std::size_t aLongest) {
    if (acrText.size() > aLongest) {
        throw ZTCScopeUsage(fmt::format("{} has {} bytes: {} at most", apWhat, acrText.size(), aLongest));
    }
    if (toShownText(acrText) != acrText) {
        throw ZTCScopeUsage(
            fmt::format("{} has what is no UTF-8, or cannot be shown: one line of text", apWhat));
    }
}

std::string sTextOf(const std::vector<std::string>& acrWords) {
    std::string lText = fmt::format("{}", fmt::join(acrWords, " "));
    sCheck("the note", lText, sLongestNote);
    if (lText.find_first_not_of(' ') == std::string::npos) {
        throw ZTCScopeUsage("a note has a text");
    }
    return lText;
}

std::string sNameOf(uid_t aUser) {
    const passwd* const lpUser = getpwuid(aUser);
    const std::string lName = lpUser != nullptr ? lpUser->pw_name : "";
    return lName.empty() || toShownText(lName) != lName ? fmt::format("user {}", aUser) : lName;
}

// Who has logged in, as the kernel knows it, also behind su and sudo; else who runs it.
std::string sWho() {
    uid_t lUser = static_cast<uid_t>(-1);
    std::ifstream("/proc/self/loginuid") >> lUser;
    return sNameOf(lUser == static_cast<uid_t>(-1) ? getuid() : lUser);
}

void sCheckStore(const std::string& acrStore) {
    // A reader finds what is no history, and says so in its own line.
    const ZTCStoreReader lReader(acrStore);
    if (access(acrStore.c_str(), W_OK) != 0) {
        throw ZTCScopeFailure(fmt::format("no note without the right to write {}: do it as root", acrStore));
    }
    if (!findStoreHolder(acrStore).mIsHere) {
        throw ZTCScopeFailure(
            "vrx-sn does not run, and it is what writes notes down: systemctl start vrx-sn");
    }
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

int runNote(const ZTSScopeOptions& acrOptions) {
    const std::string& lrStore = acrOptions.mHistory.mStore;
    ZTSStoreRequest lRequest;
    lRequest.mWhat = "note";
    lRequest.mText = sTextOf(acrOptions.mHistory.mNote);
    lRequest.mSubject = acrOptions.mHistory.mAbout;
    sCheck("--about", lRequest.mSubject, sLongestSubject);
    sCheckStore(lrStore);
    lRequest.mTime = toNanoseconds(toSensorTime(std::chrono::system_clock::now()));
    lRequest.mWho = sWho();
    addStoreRequest(lrStore, lRequest);
    if (!sWaitUntilTaken(lrStore, lRequest)) {
        throw ZTCScopeFailure(
            "the note lies in the history, but vrx-sn has not taken it yet: look at its journal");
    }
    putDone(acrOptions, "note", "noted");
    return 0;
}
