#include "WebServer.h"

#include <fmt/format.h>
#include <strings.h>
#include <sys/socket.h>

#include <algorithm>
#include <new>

#include "WebReply.h"

namespace {

using namespace std::chrono_literals;

constexpr char sCurves[] = "/usr/share/javascript/dygraphs";
constexpr std::chrono::seconds sStateEvery = 1s;
constexpr std::chrono::seconds sQuiet = 30s;  // without any, a trouble is over

ZTNanoseconds sNow() {
    const auto lNow = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(lNow).count();
}

std::string_view sText(const char* apText) {
    return apText != nullptr ? std::string_view(apText) : std::string_view();
}

// The headers that matter, as libmicrohttpd counts them up.
MHD_Result sTakeHeader(void* apAsked, MHD_ValueKind /*aKind*/, const char* apName, const char* apValue) {
    static constexpr std::pair<const char*, std::string_view ZTSWebAsked::*> lTexts[] = {
        {"Host", &ZTSWebAsked::mHost},
        {"Authorization", &ZTSWebAsked::mAuthorization},
        {"If-None-Match", &ZTSWebAsked::mKnownTag},
        {"Last-Event-ID", &ZTSWebAsked::mLastEventId}};
    ZTSWebAsked& lrAsked = *static_cast<ZTSWebAsked*>(apAsked);
    for (const auto& [lpName, lpMember] : lTexts) {
        if (strcasecmp(apName, lpName) == 0) {
            lrAsked.*lpMember = sText(apValue);
        }
    }
    lrAsked.mHosts += strcasecmp(apName, "Host") == 0 ? 1 : 0;
    lrAsked.mHasBody = lrAsked.mHasBody || strcasecmp(apName, "Transfer-Encoding") == 0 ||
                       (strcasecmp(apName, "Content-Length") == 0 && sText(apValue) != "0");
    return MHD_YES;
}

ZTSWebAsked sReadAsked(MHD_Connection* apConnection, const char* apMethod) {
    ZTSWebAsked lAsked;
    lAsked.mMethod = sText(apMethod);
    lAsked.mHosts = 0;
    MHD_get_connection_values(apConnection, MHD_HEADER_KIND, &sTakeHeader, &lAsked);
    return lAsked;
}

}  // namespace

ZTCWebServer::ZTCWebServer(const ZTSWebOptions& acrOptions, const ZTSWebPeriods& acrPeriods,
                           ZTSWebAccess aAccess, ZTCServiceLog& arLog, const std::function<void()>& acrWake)
    : mPeriods(acrPeriods),
      mrLog(arLog),
      mCrowd(arLog, "connections are refused"),
      mSlow(arLog, "connections are shut that are too slow"),
      mSilent(arLog, "nothing is collected"),
      mUnread(arLog, "the history cannot be read"),
      mKept(arLog, "the history does not answer"),
      mPage(sCurves),
      mHealth(acrOptions.mFigures),
      mDesk(mPage, mHealth),
      mStream(acrOptions.mStore, mHealth, acrWake),
      mWorkers(acrOptions.mStore, acrWake) {
    if (!mPage.getTrouble().empty()) {
        mrLog.note(ZTSL_Warning, "the page has no curves: %s", mPage.getTrouble().c_str());
    }
    mpPlain = std::make_unique<ZTCWebDaemon>(*this, ZTSWebKeys{});
    setAccess(std::move(aAccess), acrOptions.mAllowHosts);
}

ZTCWebServer::~ZTCWebServer() {
    mConnections.forEach([&](ZTSWebConnection& arConnection) {
        shutdown(arConnection.mSocket, SHUT_RDWR);
        const bool lIsSuspended =
            arConnection.mPhase == Phase::Waiting || arConnection.mPhase == Phase::Following;
        lIsSuspended ? resume(arConnection) : void();
    });
}

void ZTCWebServer::setAccess(ZTSWebAccess aAccess, const std::vector<std::string>& acrNames) {
    if (!aAccess.mKeys.mCertificate.empty()) {
        mSecure.push_back(std::make_unique<ZTCWebDaemon>(*this, aAccess.mKeys));
    }
    mDesk.setTokens(std::move(aAccess.mTokens));
    mDesk.setNames(acrNames);
}

// ---- Connections ----

ZTCWebDaemon& ZTCWebServer::daemonFor(const ZTSListenAddress& acrPeer) {
    return acrPeer.isUnix() || mSecure.empty() ? *mpPlain : *mSecure.back();
}

void ZTCWebServer::take(ZTCSensorDescriptor aSocket, const ZTSListenAddress& acrPeer) {
    const int lSocket = aSocket.get();
    ZTSWebConnection* const lpConnection = mConnections.add(lSocket, acrPeer.toPeer(), mPeriods);
    if (lpConnection == nullptr) {
        mShutLast = Clock::now();
        mCrowd.met(fmt::format("{} are there, at most {} in all and {} of one address", mConnections.count(),
                               ZTCWebConnections::Most, ZTCWebConnections::MostOfPeer),
                   mShutLast);
        return;
    }
    if (!daemonFor(acrPeer).add(std::move(aSocket), acrPeer)) {
        ZTSWebConnection* const lpLeft = mConnections.find(lSocket);
        lpLeft != nullptr ? mConnections.remove(*lpLeft) : void();
    }
}

ZTSWebConnection* ZTCWebServer::takeOpened(int aSocket, MHD_Connection* apConnection) {
    ZTSWebConnection* const lpConnection = mConnections.find(aSocket);
    if (lpConnection != nullptr) {
        lpConnection->mpConnection = apConnection;
    }
    return lpConnection;
}

void ZTCWebServer::takeClosed(const ZTSWebConnection& acrConnection) {
    mConnections.remove(acrConnection);
}

// ---- Requests ----

void ZTCWebServer::takeTarget(ZTSWebConnection& arConnection, const char* apTarget) noexcept {
    try {
        arConnection.mRequest.mTarget = apTarget;
    } catch (const std::bad_alloc&) {
        arConnection.mRequest.mTarget.clear();  // which is no target
    }
}

MHD_Result ZTCWebServer::takeRequest(ZTSWebConnection& arConnection, const char* apMethod) noexcept {
    try {
        ZTSWebConnection::Request& lrRequest = arConnection.mRequest;
        if (lrRequest.mAnswer) {
            return sendReply(arConnection);
        }
        ZTSWebAsked lAsked = sReadAsked(arConnection.mpConnection, apMethod);
        if (!lrRequest.mHasHead && !lAsked.mHasBody) {  // it is called again when it could have a body
            lrRequest.mHasHead = true;
            return MHD_YES;
        }
        arConnection.mHasAsked = true;
        const auto lGuesses = mGuesses.find(arConnection.mPeer);
        lAsked.mTarget = lrRequest.mTarget;
        lAsked.mMayGuess = lGuesses == mGuesses.end() || lGuesses->second < MostGuesses;
        react(arConnection, mDesk.decide(lAsked));
        if (lrRequest.mAnswer) {
            return sendReply(arConnection);
        }
        MHD_suspend_connection(arConnection.mpConnection);
        return MHD_YES;
    } catch (const std::bad_alloc&) {
        forget(arConnection);
        return MHD_NO;  // it is shut
    }
}

void ZTCWebServer::takeEnd(ZTSWebConnection& arConnection) noexcept {
    forget(arConnection);
    arConnection.mRequest = {};
    arConnection.mPhase == Phase::Shut ? void() : arConnection.enter(Phase::Asking, mPeriods.mIdle);
}

// What others know of its request.
void ZTCWebServer::forget(ZTSWebConnection& arConnection) {
    ZTSWebConnection::Request& lrRequest = arConnection.mRequest;
    mByTicket.erase(std::exchange(lrRequest.mTicket, 0));
    const auto lGuesses = mGuesses.find(arConnection.mPeer);
    if (std::exchange(lrRequest.mIsGuess, false) && lGuesses != mGuesses.end() && --lGuesses->second == 0) {
        mGuesses.erase(lGuesses);
    }
}

void ZTCWebServer::react(ZTSWebConnection& arConnection, ZTSWebReaction aReaction) {
    using What = ZTSWebReaction::What;
    switch (aReaction.mWhat) {
        case What::Answer:
            arConnection.mRequest.mAnswer = std::move(aReaction.mAnswer);
            return;
        case What::Guess:
            ++mGuesses[arConnection.mPeer];
            arConnection.mRequest.mIsGuess = true;
            return wait(arConnection, mPeriods.mToken, std::move(aReaction.mAnswer));
        case What::Work:
            return work(arConnection, std::move(aReaction.mWork));
        case What::Stream:
            return follow(arConnection, aReaction.mLastEventId);
    }
}

void ZTCWebServer::wait(ZTSWebConnection& arConnection, std::chrono::milliseconds aTime, ZTSWebAnswer aLate) {
    arConnection.mRequest.mLate = std::move(aLate);
    arConnection.enter(Phase::Waiting, aTime);
}

void ZTCWebServer::work(ZTSWebConnection& arConnection, ZTCWebWorkers::Work aWork) {
    ZTSWebConnection::Request& lrRequest = arConnection.mRequest;
    wait(arConnection, mPeriods.mRequest, answerLater(503, "the history does not answer in time"));
    mByTicket[++mLastTicket] = &arConnection;
    lrRequest.mTicket = mLastTicket;
    if (const auto lWhyNot = mWorkers.ask(mLastTicket, arConnection.mDue, std::move(aWork))) {
        forget(arConnection);
        lrRequest.mAnswer = answerLater(503, *lWhyNot);
    }
}

void ZTCWebServer::follow(ZTSWebConnection& arConnection, const std::string& acrLastEventId) {
    ZTSWebConnection::Request& lrRequest = arConnection.mRequest;
    if (const auto lPlace = mStream.begin(acrLastEventId)) {
        lrRequest.mPlace = *lPlace;
        lrRequest.mpStream = &mStream;
        lrRequest.mAnswer = answerStream();
        return;
    }
    lrRequest.mpCaughtUp = std::make_shared<ZTCWebStream::CaughtUp>();
    work(arConnection,
         [&lrStream = mStream, acrLastEventId, lpCaughtUp = lrRequest.mpCaughtUp](ZTCWebHistory& arHistory) {
             *lpCaughtUp = lrStream.catchUp(arHistory, acrLastEventId);
             return answerStream();
         });
}

void ZTCWebServer::answerNow(ZTSWebConnection& arConnection, ZTSWebAnswer aAnswer) {
    ZTSWebConnection::Request& lrRequest = arConnection.mRequest;
    forget(arConnection);
    if (lrRequest.mpCaughtUp && aAnswer.mStatus == 200) {
        lrRequest.mPlace = lrRequest.mpCaughtUp->mPlace;
        lrRequest.mpStream = &mStream;
    }
    lrRequest.mAnswer = std::move(aAnswer);
    resume(arConnection);
}

void ZTCWebServer::resume(ZTSWebConnection& arConnection) {
    arConnection.enter(Phase::Taking, mPeriods.mTaking);
    MHD_resume_connection(arConnection.mpConnection);
}

// ---- What comes with time ----

void ZTCWebServer::takeNews() {
    for (ZTCWebWorkers::Done& lrDone : mWorkers.take()) {
        const auto lAt = mByTicket.find(lrDone.mTicket);
        lAt != mByTicket.end() ? answerNow(*lAt->second, std::move(lrDone.mAnswer)) : void();
    }
    mConnections.forEach([&](ZTSWebConnection& arConnection) {
        arConnection.mPhase == Phase::Following ? resume(arConnection) : void();
    });
}

void ZTCWebServer::tick(Clock::time_point aNow) {
    mConnections.forEach(
        [&](ZTSWebConnection& arConnection) { arConnection.mDue <= aNow ? meetEnd(arConnection) : void(); });
    if (aNow - mStateTold >= sStateEvery) {
        mStateTold = aNow;
        tellState(aNow);
    }
}

void ZTCWebServer::meetEnd(ZTSWebConnection& arConnection) {
    switch (arConnection.mPhase) {
        case Phase::Waiting:
            return answerNow(arConnection, std::move(arConnection.mRequest.mLate));
        case Phase::Following:
            arConnection.mRequest.mpPiece = keepAlivePiece();
            arConnection.mRequest.mTaken = 0;
            return resume(arConnection);
        case Phase::Asking:
        case Phase::Taking:
            if (arConnection.mPhase == Phase::Taking || !arConnection.mHasAsked) {
                mShutLast = Clock::now();
                mSlow.met(
                    arConnection.mPhase == Phase::Taking ? "an answer was not taken" : "no request came",
                    mShutLast);
            }
            arConnection.mPhase = Phase::Shut;
            shutdown(arConnection.mSocket, SHUT_RDWR);
            return;
        case Phase::Shut:
            return;
    }
}

void ZTCWebServer::tellState(Clock::time_point aNow) {
    const ZTSWebState lState = mHealth.getState(sNow());
    lState.mCollector.empty() ? mSilent.over(aNow) : mSilent.lasts(lState.mCollector, aNow);
    lState.mHistory.empty() ? mUnread.over(aNow) : mUnread.lasts(lState.mHistory, aNow);
    const std::size_t lKept = mWorkers.countKept(aNow);
    lKept == 0
        ? mKept.over(aNow)
        : mKept.lasts(fmt::format("{} of {} threads wait for its disk", lKept, ZTCWebWorkers::Threads), aNow);
    if (aNow - mShutLast >= sQuiet) {
        mCrowd.over(aNow);
        mSlow.over(aNow);
    }
}

std::string ZTCWebServer::getStatus() {
    const ZTSWebState lState = mHealth.getState(sNow());
    std::string lText =
        fmt::format("{} connections, {} follow", mConnections.count(), mConnections.count(Phase::Following));
    for (const std::string& lrTrouble : {lState.mCollector, lState.mHistory}) {
        lText += lrTrouble.empty() ? "" : "; " + lrTrouble;
    }
    return lText;
}

// ---- libmicrohttpd ----

void ZTCWebServer::run() {
    mpPlain->run();
    for (const auto& lrpDaemon : mSecure) {
        lrpDaemon->run();
    }
    // Those whose keys are no more in use go with the last who has them.
    while (mSecure.size() > 1 && !mSecure.front()->hasConnections()) {
        mSecure.pop_front();
    }
}

std::vector<int> ZTCWebServer::listDescriptors() const {
    std::vector<int> lDescriptors{mpPlain->getDescriptor()};
    for (const auto& lrpDaemon : mSecure) {
        lDescriptors.push_back(lrpDaemon->getDescriptor());
    }
    return lDescriptors;
}

std::optional<std::chrono::milliseconds> ZTCWebServer::getTimeout() const {
    std::optional<std::chrono::milliseconds> lLeast = mpPlain->getTimeout();
    for (const auto& lrpDaemon : mSecure) {
        const auto lTimeout = lrpDaemon->getTimeout();
        lLeast = !lLeast ? lTimeout : !lTimeout ? lLeast : std::min(lLeast, lTimeout);
    }
    return lLeast;
}
