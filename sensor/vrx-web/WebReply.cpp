#include "WebReply.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "WebServer.h"

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

ssize_t sCopy(char* apTo, std::size_t aRoom, const std::string& acrFrom, std::size_t aAt) {
    const std::size_t lSize = std::min(aRoom, acrFrom.size() - aAt);
    std::copy_n(acrFrom.data() + aAt, lSize, apTo);
    return static_cast<ssize_t>(lSize);
}

// Lives as long as its response, which its connection outlives.
struct Reading {
    ZTCWebServer& mrServer;
    ZTSWebConnection& mrConnection;

    static Reading& of(void* apReading) { return *static_cast<Reading*>(apReading); }
    static void free(void* apReading) { delete &of(apReading); }
};

ssize_t sReadBody(void* apReading, std::uint64_t aAt, char* apTo, std::size_t aRoom) {
    const auto& [lrServer, lrConnection] = Reading::of(apReading);
    lrServer.noteTaken(lrConnection);
    return sCopy(apTo, aRoom, *lrConnection.mRequest.mAnswer->mpBody, aAt);
}

std::size_t sFill(ZTCWebServer& arServer, ZTSWebFollower& arFollower, char* apTo, std::size_t aRoom) {
    std::size_t lSize = 0;
    while (lSize < aRoom && !arFollower.mIsOver) {
        if (arFollower.mpPiece && arFollower.mTaken < arFollower.mpPiece->size()) {
            const auto lPart = static_cast<std::size_t>(
                sCopy(apTo + lSize, aRoom - lSize, *arFollower.mpPiece, arFollower.mTaken));
            arFollower.mTaken += lPart;
            lSize += lPart;
        } else if (!arServer.hasNext(arFollower)) {
            break;
        }
    }
    return lSize;
}

ssize_t sReadStream(void* apReading, std::uint64_t /*aAt*/, char* apTo, std::size_t aRoom) {
    const auto& [lrServer, lrConnection] = Reading::of(apReading);
    try {
        ZTSWebFollower& lrFollower = *lrConnection.mRequest.mFollower;
        const std::size_t lSize = sFill(lrServer, lrFollower, apTo, aRoom);
        if (lSize == 0 && lrFollower.mIsOver) {
            return MHD_CONTENT_READER_END_OF_STREAM;
        }
        lSize > 0 ? lrServer.noteTaken(lrConnection) : lrServer.waitForNext(lrConnection);
        return static_cast<ssize_t>(lSize);
    } catch (const std::bad_alloc&) {
        return MHD_CONTENT_READER_END_WITH_ERROR;
    }
}

MHD_Response* sMakeResponse(ZTCWebServer& arServer, ZTSWebConnection& arConnection) {
    const std::size_t lSize = arConnection.mRequest.mAnswer->mpBody->size();
    const bool lIsStream = arConnection.mRequest.mFollower.has_value();
    if (!lIsStream && lSize == 0) {
        return MHD_create_response_from_buffer(0, nullptr, MHD_RESPMEM_PERSISTENT);
    }
    auto lpReading = std::make_unique<Reading>(Reading{arServer, arConnection});
    MHD_Response* const lpResponse =
        lIsStream ? MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, sBlock, &sReadStream, lpReading.get(),
                                                      &Reading::free)
                  : MHD_create_response_from_callback(lSize, std::min(lSize, sBlock), &sReadBody,
                                                      lpReading.get(), &Reading::free);
    lpResponse != nullptr ? void(lpReading.release()) : void();
    return lpResponse;
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

MHD_Result sendReply(ZTCWebServer& arServer, ZTSWebConnection& arConnection) {
    MHD_Response* const lpResponse = sMakeResponse(arServer, arConnection);
    if (lpResponse == nullptr) {
        return MHD_NO;
    }
    arServer.noteTaken(arConnection);
    const ZTSWebAnswer& lrAnswer = *arConnection.mRequest.mAnswer;
    const MHD_Result lResult =
        sAddHeaders(lpResponse, lrAnswer)
            ? MHD_queue_response(arConnection.mpConnection, lrAnswer.mStatus, lpResponse)
            : MHD_NO;
    MHD_destroy_response(lpResponse);
    return lResult;
}

void beginStream(ZTSWebConnection::Request& arRequest, const std::string& acrLastEventId) {
    static const auto sFirst = std::make_shared<const std::string>("retry: 2000\n\n");
    ZTSWebAnswer lAnswer;
    lAnswer.mpType = "text/event-stream";
    arRequest.mFollower = ZTSWebFollower{acrLastEventId};
    arRequest.mFollower->mpPiece = sFirst;
    arRequest.mAnswer = std::move(lAnswer);
}

void keepAlive(ZTSWebFollower& arFollower) {
    static const auto sAlive = std::make_shared<const std::string>(": keep-alive\n\n");
    arFollower.mpPiece = sAlive;
    arFollower.mTaken = 0;
}
