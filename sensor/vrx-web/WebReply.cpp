#include "WebReply.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr std::size_t sBlock = 16 << 10;  // bytes, in which an answer is taken

// The page loads what the program serves, and nothing else; nobody shows it within his own.
constexpr std::pair<const char*, const char*> sEveryHeader[] = {
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src 'self'; font-src "
     "'none'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Resource-Policy", "same-origin"}};

const ZTWebPiece& sFirstPiece() {
    static const auto lpPiece = std::make_shared<const std::string>("retry: 2000\n\n");
    return lpPiece;
}

ssize_t sCopy(char* apTo, std::size_t aRoom, const std::string& acrFrom, std::size_t aAt) {
    const std::size_t lSize = std::min(aRoom, acrFrom.size() - aAt);
    memcpy(apTo, acrFrom.data() + aAt, lSize);
    return static_cast<ssize_t>(lSize);
}

ssize_t sReadBody(void* apConnection, std::uint64_t aAt, char* apTo, std::size_t aRoom) {
    auto& lrConnection = *static_cast<ZTSWebConnection*>(apConnection);
    lrConnection.enter(ZTEWebPhase::Taking, lrConnection.mpPeriods->mTaking);
    return sCopy(apTo, aRoom, *lrConnection.mRequest.mAnswer->mpBody, aAt);
}

// The next piece that somebody takes, if there is one. False: he is to begin anew.
bool sNextPiece(ZTSWebConnection::Request& arRequest) {
    arRequest.mTaken = 0;
    arRequest.mpPiece = nullptr;
    if (arRequest.mpCaughtUp) {
        arRequest.mpPiece = {arRequest.mpCaughtUp, &arRequest.mpCaughtUp->mText};
        arRequest.mpCaughtUp = nullptr;
        return true;
    }
    ZTCWebStream::Taken lTaken = arRequest.mpStream->take(arRequest.mPlace);
    arRequest.mpPiece = std::move(lTaken.mpPiece);
    return !lTaken.mIsBehind;
}

ssize_t sReadStream(void* apConnection, std::uint64_t /*aAt*/, char* apTo, std::size_t aRoom) {
    auto& lrConnection = *static_cast<ZTSWebConnection*>(apConnection);
    ZTSWebConnection::Request& lrRequest = lrConnection.mRequest;
    ssize_t lSize = 0;
    while (static_cast<std::size_t>(lSize) < aRoom) {
        if (lrRequest.mpPiece && lrRequest.mTaken < lrRequest.mpPiece->size()) {
            const auto lFilled = static_cast<std::size_t>(lSize);
            const ssize_t lPart = sCopy(apTo + lSize, aRoom - lFilled, *lrRequest.mpPiece, lrRequest.mTaken);
            lrRequest.mTaken += static_cast<std::size_t>(lPart);
            lSize += lPart;
        } else if (!sNextPiece(lrRequest)) {
            return lSize > 0 ? lSize : MHD_CONTENT_READER_END_OF_STREAM;
        } else if (!lrRequest.mpPiece) {
            break;
        }
    }
    if (lSize > 0) {
        lrConnection.enter(ZTEWebPhase::Taking, lrConnection.mpPeriods->mTaking);
    } else {
        lrConnection.enter(ZTEWebPhase::Following, lrConnection.mpPeriods->mAlive);
        MHD_suspend_connection(lrConnection.mpConnection);
    }
    return lSize;
}

MHD_Response* sMakeResponse(ZTSWebConnection& arConnection) {
    ZTSWebConnection::Request& lrRequest = arConnection.mRequest;
    if (lrRequest.mpStream != nullptr) {
        lrRequest.mpPiece = sFirstPiece();
        return MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, sBlock, &sReadStream, &arConnection,
                                                 nullptr);
    }
    const std::size_t lSize = lrRequest.mAnswer->mpBody->size();
    return lSize == 0 ? MHD_create_response_from_buffer(0, nullptr, MHD_RESPMEM_PERSISTENT)
                      : MHD_create_response_from_callback(lSize, std::min(lSize, sBlock), &sReadBody,
                                                          &arConnection, nullptr);
}

bool sAddHeaders(MHD_Response* apResponse, const ZTSWebAnswer& acrAnswer) {
    bool lIsAdded = MHD_add_response_header(apResponse, "Content-Type", acrAnswer.mpType) == MHD_YES;
    bool lIsKept = false;
    for (const auto& [lpName, lpValue] : sEveryHeader) {
        lIsAdded = MHD_add_response_header(apResponse, lpName, lpValue) == MHD_YES && lIsAdded;
    }
    for (const auto& [lpName, lrValue] : acrAnswer.mHeaders) {
        lIsAdded = MHD_add_response_header(apResponse, lpName, lrValue.c_str()) == MHD_YES && lIsAdded;
        lIsKept = lIsKept || strcmp(lpName, "Cache-Control") == 0;
    }
    return lIsAdded &&
           (lIsKept || MHD_add_response_header(apResponse, "Cache-Control", "no-store") == MHD_YES);
}

}  // namespace

MHD_Result sendReply(ZTSWebConnection& arConnection) {
    MHD_Response* const lpResponse = sMakeResponse(arConnection);
    if (lpResponse == nullptr) {
        return MHD_NO;
    }
    const ZTSWebAnswer& lrAnswer = *arConnection.mRequest.mAnswer;
    const MHD_Result lResult =
        sAddHeaders(lpResponse, lrAnswer)
            ? MHD_queue_response(arConnection.mpConnection, lrAnswer.mStatus, lpResponse)
            : MHD_NO;
    MHD_destroy_response(lpResponse);
    arConnection.enter(ZTEWebPhase::Taking, arConnection.mpPeriods->mTaking);
    return lResult;
}

ZTSWebAnswer answerStream() {
    ZTSWebAnswer lAnswer;
    lAnswer.mpType = "text/event-stream";
    return lAnswer;
}

const ZTWebPiece& keepAlivePiece() {
    static const auto lpPiece = std::make_shared<const std::string>(": keep-alive\n\n");
    return lpPiece;
}
