#include "WebServer.h"

#include <fmt/format.h>
#include <strings.h>
#include <sys/socket.h>

#include <algorithm>
#include <new>

#include "WebReply.h"

namespace {

constexpr char sCurves[] = "/usr/share/javascript/dygraphs";
constexpr char sSinks[] = "/run/vrx-ship";
constexpr std::size_t sLarge = std::size_t{64} << 10;  // bytes of an answer that is counted

std::string_view sText(const char* apText) {
    return apText != nullptr ? std::string_view(apText) : std::string_view();
}

// The headers that matter, as libmicrohttpd counts them up.
MHD_Result sTakeHeader(void* apHead, MHD_ValueKind /*aKind*/, const char* apName, const char* apValue) {
    static constexpr std::pair<const char*, std::string_view ZTSWebHead::*> sTexts[] = {
        {"Host", &ZTSWebHead::mHost},
        {"Authorization", &ZTSWebHead::mAuthorization},
        {"If-None-Match", &ZTSWebHead::mKnownTag},
        {"Last-Event-ID", &ZTSWebHead::mLastEventId}};
    ZTSWebHead& lrHead = *static_cast<ZTSWebHead*>(apHead);
    for (const auto& [lpName, lpMember] : sTexts) {
        if (strcasecmp(apName, lpName) == 0) {
            lrHead.*lpMember = sText(apValue);
        }
    }
    lrHead.mHosts += strcasecmp(apName, "Host") == 0 ? 1 : 0;
    lrHead.mHasBody = lrHead.mHasBody || strcasecmp(apName, "Transfer-Encoding") == 0 ||
                      (strcasecmp(apName, "Content-Length") == 0 && sText(apValue) != "0");
    return MHD_YES;
}

ZTSWebHead sReadHead(MHD_Connection* apConnection, const char* apMethod) {
    ZTSWebHead lHead;
    lHead.mMethod = sText(apMethod);
    lHead.mHosts = 0;
    MHD_get_connection_values(apConnection, MHD_HEADER_KIND, &sTakeHeader, &lHead);
    return lHead;
}

// What somebody has missed is there, or cannot be had.
void sTakeCaught(ZTSWebFollower& arFollower, bool aIsThere) {
    const std::shared_ptr<ZTCWebStream::Caught> lpCaught = std::move(arFollower.mpCaught);
    const bool lGoesOn =
        aIsThere && (!lpCaught->mpPieces->empty() || lpCaught->mEventId != arFollower.mEventId);
    arFollower.mIsOver = !lGoesOn;
    if (lGoesOn) {
        arFollower.mpPiece = lpCaught->mpPieces;
        arFollower.mTaken = 0;
        arFollower.mEventId = lpCaught->mEventId;
    }
}

// What is held for somebody alone.
std::size_t sBytesOf(const ZTSWebConnection& acrConnection) {
    const ZTSWebConnection::Request& lrRequest = acrConnection.mRequest;
    const bool lCounts = acrConnection.mPhase == ZTEWebPhase::Taking && lrRequest.mIsMade;
    const ZTWebPiece lpNone;
    const ZTWebPiece& lrpPiece = lrRequest.mFollower ? lrRequest.mFollower->mpPiece : lpNone;
    return !lCounts            ? 0
           : lrpPiece          ? lrpPiece->size()
           : lrRequest.mAnswer ? lrRequest.mAnswer->mpBody->size()
                               : 0;
}

void sShut(ZTSWebConnection& arConnection) {
    arConnection.mPhase = ZTEWebPhase::Shut;
    shutdown(arConnection.mSocket, SHUT_RDWR);
}

void sResume(ZTSWebConnection& arConnection, std::chrono::milliseconds aTime) {
    arConnection.enter(ZTEWebPhase::Taking, aTime);
    MHD_resume_connection(arConnection.mpConnection);
}

}  // namespace

ZTCWebServer::ZTCWebServer(const ZTSWebOptions& acrOptions, const ZTSWebPeriods& acrPeriods,
                           ZTSWebAccess aAccess, ZTCServiceLog& arLog, const std::function<void()>& acrWake)
    : mPeriods(acrPeriods),
      mPage(sCurves),
      mHealth(acrOptions.mFigures),
      mTroubles(arLog, mHealth),
      mMetrics(mHealth, sSinks),
      mDesk(mPage, mHealth, mMetrics),
      mpHasStreamNews(std::make_shared<std::atomic<bool>>(false)),
      mStream(acrOptions.mStore, mHealth,
              [lpHasNews = mpHasStreamNews, acrWake] {
                  *lpHasNews = true;
                  acrWake();
              }),
      mWorkers(acrOptions.mStore, acrWake),
      mpPlain(std::make_unique<ZTCWebDaemon>(*this, ZTSWebKeys{})) {
    if (!mPage.getTrouble().empty()) {
        arLog.note(ZTSL_Warning, "the page has no curves: %s", mPage.getTrouble().c_str());
    }
    if (!aAccess.mKeys.mCertificate.empty()) {
        mSecure.push_back(std::make_unique<ZTCWebDaemon>(*this, aAccess.mKeys));
    }
    mDesk.setTokens(std::move(aAccess.mTokens));
    mDesk.setNames(acrOptions.mAllowHosts);
}

ZTCWebServer::~ZTCWebServer() {
    mConnections.forEach([&](ZTSWebConnection& arConnection) {
        const bool lIsSuspended = arConnection.isSuspended();
        sShut(arConnection);
        lIsSuspended ? MHD_resume_connection(arConnection.mpConnection) : void();
    });
}

void ZTCWebServer::setAccess(ZTSWebAccess aAccess, const std::vector<std::string>& acrNames) {
    const bool lSpeaksTls = !mSecure.empty();  // which does not become otherwise
    if (lSpeaksTls && !aAccess.mKeys.mCertificate.empty()) {
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
    if (mConnections.add(lSocket, acrPeer.toPeer(), mPeriods.mHead) == nullptr) {
        return mTroubles.noteRefused(mConnections.count());
    }
    if (!daemonFor(acrPeer).add(std::move(aSocket), acrPeer)) {
        const ZTSWebConnection* const lpLeft = mConnections.find(lSocket);
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

bool ZTCWebServer::mayGuess(const std::string& acrPeer) const {
    const auto lGuesses = mGuesses.find(acrPeer);
    return lGuesses == mGuesses.end() || lGuesses->second < MostGuesses;
}

MHD_Result ZTCWebServer::takeRequest(ZTSWebConnection& arConnection, const char* apMethod) noexcept {
    try {
        ZTSWebConnection::Request& lrRequest = arConnection.mRequest;
        if (lrRequest.mAnswer) {
            return sendReply(*this, arConnection);
        }
        ZTSWebHead lHead = sReadHead(arConnection.mpConnection, apMethod);
        if (!lrRequest.mHasHead && !lHead.mHasBody) {  // it is called again where a body would be over
            lrRequest.mHasHead = true;
            return MHD_YES;
        }
        arConnection.mHasAsked = true;
        lHead.mTarget = lrRequest.mTarget;
        lHead.mMayGuess = mayGuess(arConnection.mPeer);
        react(arConnection, mDesk.decide(lHead));
        if (lrRequest.mAnswer) {
            return sendReply(*this, arConnection);
        }
        MHD_suspend_connection(arConnection.mpConnection);
        return MHD_YES;
    } catch (const std::bad_alloc&) {
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
    ZTSWebConnection::Request& lrRequest = arConnection.mRequest;
    switch (aReaction.mWhat) {
        case What::Answer:
            lrRequest.mAnswer = std::move(aReaction.mAnswer);
            return;
        case What::Guess:
            ++mGuesses[arConnection.mPeer];
            lrRequest.mIsGuess = true;
            return wait(
                arConnection, mPeriods.mToken,
                [lAnswer = std::move(aReaction.mAnswer)](const std::string& /*acrWhy*/) { return lAnswer; });
        case What::Work:
            wait(arConnection, mPeriods.mRequest, std::move(aReaction.mInstead));
            if (const auto lWhyNot = work(arConnection, std::move(aReaction.mWork))) {
                lrRequest.mAnswer = lrRequest.mLate(*lWhyNot);
            }
            return;
        case What::Stream:
            return beginStream(lrRequest, aReaction.mLastEventId);
    }
}

void ZTCWebServer::wait(ZTSWebConnection& arConnection, std::chrono::milliseconds aTime,
                        ZTSWebReaction::Making aLate) {
    arConnection.mRequest.mLate = std::move(aLate);
    arConnection.enter(Phase::Waiting, aTime);
}

// Returns why it is not done.
std::optional<std::string> ZTCWebServer::work(ZTSWebConnection& arConnection, ZTCWebWorkers::Work aWork) {
    mByTicket[++mLastTicket] = &arConnection;
    arConnection.mRequest.mTicket = mLastTicket;
    auto lWhyNot = mWorkers.ask(mLastTicket, arConnection.mPeer, arConnection.mDue, std::move(aWork));
    lWhyNot ? forget(arConnection) : void();
    return lWhyNot;
}

// To somebody who waits.
void ZTCWebServer::answerNow(ZTSWebConnection& arConnection, ZTSWebAnswer aAnswer) {
    ZTSWebConnection::Request& lrRequest = arConnection.mRequest;
    forget(arConnection);
    if (lrRequest.mFollower) {
        sTakeCaught(*lrRequest.mFollower, aAnswer.mStatus == 200);
    } else {
        lrRequest.mAnswer = std::move(aAnswer);
    }
    lrRequest.mIsMade = true;
    lrRequest.mMade = Clock::now();
    sResume(arConnection, mPeriods.mTaking);
    makeRoom(sBytesOf(arConnection));
}

// Many who take large answers slowly would fill the memory: who has been at it for the longest goes first.
void ZTCWebServer::makeRoom(std::size_t aBytes) const {
    while (aBytes >= sLarge) {
        std::size_t lBytes = 0;
        ZTSWebConnection* lpSlowest = nullptr;
        mConnections.forEach([&](ZTSWebConnection& arConnection) {
            const std::size_t lOfOne = sBytesOf(arConnection);
            lBytes += lOfOne;
            if (lOfOne >= sLarge &&
                (lpSlowest == nullptr || arConnection.mRequest.mMade < lpSlowest->mRequest.mMade)) {
                lpSlowest = &arConnection;
            }
        });
        if (lBytes <= MostBytes || lpSlowest == nullptr) {
            return;
        }
        sShut(*lpSlowest);
    }
}

// ---- Answers that are taken ----

void ZTCWebServer::noteTaken(ZTSWebConnection& arConnection) const {
    arConnection.mPhase == Phase::Shut ? void() : arConnection.enter(Phase::Taking, mPeriods.mTaking);
}

bool ZTCWebServer::hasNext(ZTSWebFollower& arFollower) const {
    arFollower.mTaken = 0;
    arFollower.mpPiece = nullptr;
    if (!arFollower.mPlace) {
        arFollower.mPlace = mStream.begin(arFollower.mEventId);
    }
    if (arFollower.mPlace) {
        ZTCWebStream::Taken lTaken = mStream.take(*arFollower.mPlace);
        arFollower.mpPiece = std::move(lTaken.mpPiece);
        arFollower.mIsOver = lTaken.mIsBehind;
    }
    return arFollower.mpPiece || arFollower.mIsOver;
}

void ZTCWebServer::waitForNext(ZTSWebConnection& arConnection) {
    ZTSWebFollower& lrFollower = *arConnection.mRequest.mFollower;
    if (arConnection.mPhase == Phase::Shut) {
        lrFollower.mIsOver = true;
        return;
    }
    if (lrFollower.mPlace) {
        arConnection.enter(Phase::Following, mPeriods.mAlive);
    } else {
        lrFollower.mpCaught = std::make_shared<ZTCWebStream::Caught>();
        wait(arConnection, mPeriods.mRequest,
             [](const std::string& acrWhy) { return answerLater(503, acrWhy); });
        const auto lWhyNot = work(arConnection, [&lrStream = mStream, lId = lrFollower.mEventId,
                                                 lpCaught = lrFollower.mpCaught](ZTCWebHistory& arHistory) {
            *lpCaught = lrStream.catchUp(arHistory.getReader(), lId);
            return ZTSWebAnswer{};
        });
        if (lWhyNot) {
            lrFollower.mIsOver = true;
            return noteTaken(arConnection);
        }
    }
    MHD_suspend_connection(arConnection.mpConnection);
}

// ---- What comes with time ----

void ZTCWebServer::takeNews() {
    for (ZTCWebWorkers::Done& lrDone : mWorkers.take()) {
        const auto lAt = mByTicket.find(lrDone.mTicket);
        lAt != mByTicket.end() ? answerNow(*lAt->second, std::move(lrDone.mAnswer)) : void();
    }
    if (!mpHasStreamNews->exchange(false)) {
        return;
    }
    mConnections.forEach([&](ZTSWebConnection& arConnection) {
        arConnection.mPhase == Phase::Following ? sResume(arConnection, mPeriods.mTaking) : void();
    });
}

void ZTCWebServer::tick(Clock::time_point aNow) {
    mConnections.forEach(
        [&](ZTSWebConnection& arConnection) { arConnection.mDue <= aNow ? meetEnd(arConnection) : void(); });
    mTroubles.tick(aNow, mWorkers.countKept(aNow));
}

void ZTCWebServer::meetEnd(ZTSWebConnection& arConnection) {
    switch (arConnection.mPhase) {
        case Phase::Waiting:
            return answerNow(arConnection,
                             arConnection.mRequest.mLate("the history does not answer in time"));
        case Phase::Following:
            keepAlive(*arConnection.mRequest.mFollower);
            return sResume(arConnection, mPeriods.mTaking);
        case Phase::Asking:
            arConnection.mHasAsked ? void() : mTroubles.noteSlow("no request came");
            return sShut(arConnection);
        case Phase::Taking:
            mTroubles.noteSlow("an answer was not taken");
            return sShut(arConnection);
        case Phase::Shut:
            return;
    }
}

std::string ZTCWebServer::getStatus() {
    return fmt::format("{} connections, {} follow{}", mConnections.count(), mConnections.countFollowers(),
                       mTroubles.getStatus());
}

// ---- libmicrohttpd ----

void ZTCWebServer::run() {
    mpPlain->run();
    for (const auto& lrpDaemon : mSecure) {
        lrpDaemon->run();
    }
    // A certificate that is no more in use goes with the last who was given it.
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
