#include "WebDaemon.h"

#include <cstring>
#include <stdexcept>

#include "WebServer.h"

namespace {

constexpr std::size_t sMemory =
    16 << 10;  // bytes a connection: a request's line and headers fit, or are refused

constexpr char sVersions[] = "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2";  // of TLS

ZTCWebServer& sServer(void* apServer) {
    return *static_cast<ZTCWebServer*>(apServer);
}

ZTSWebConnection* sConnectionOf(MHD_Connection* apConnection) {
    const MHD_ConnectionInfo* const lpInfo =
        MHD_get_connection_info(apConnection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
    return lpInfo != nullptr ? static_cast<ZTSWebConnection*>(lpInfo->socket_context) : nullptr;
}

void sNotify(void* apServer, MHD_Connection* apConnection, void** appContext,
             MHD_ConnectionNotificationCode aCode) {
    if (aCode == MHD_CONNECTION_NOTIFY_STARTED) {
        const MHD_ConnectionInfo* const lpInfo =
            MHD_get_connection_info(apConnection, MHD_CONNECTION_INFO_CONNECTION_FD);
        *appContext =
            lpInfo != nullptr ? sServer(apServer).takeOpened(lpInfo->connect_fd, apConnection) : nullptr;
    } else if (*appContext != nullptr) {
        sServer(apServer).takeClosed(*static_cast<ZTSWebConnection*>(*appContext));
        *appContext = nullptr;
    }
}

// The target as it was sent; what libmicrohttpd makes of it is not used.
void* sTakeTarget(void* apServer, const char* apTarget, MHD_Connection* apConnection) {
    ZTSWebConnection* const lpConnection = sConnectionOf(apConnection);
    if (lpConnection != nullptr) {
        sServer(apServer).takeTarget(*lpConnection, apTarget);
    }
    return nullptr;
}

std::size_t sDecodeNothing(void* /*apServer*/, MHD_Connection* /*apConnection*/, char* apText) {
    return strlen(apText);
}

MHD_Result sTakeRequest(void* apServer, MHD_Connection* apConnection, const char* /*apUrl*/,
                        const char* apMethod, const char* /*apVersion*/, const char* /*apBody*/,
                        std::size_t* apBodySize, void** /*appContext*/) {
    ZTSWebConnection* const lpConnection = sConnectionOf(apConnection);
    *apBodySize = 0;
    return lpConnection != nullptr ? sServer(apServer).takeRequest(*lpConnection, apMethod) : MHD_NO;
}

void sTakeEnd(void* apServer, MHD_Connection* apConnection, void** /*appContext*/,
              MHD_RequestTerminationCode /*aCode*/) {
    ZTSWebConnection* const lpConnection = sConnectionOf(apConnection);
    if (lpConnection != nullptr) {
        sServer(apServer).takeEnd(*lpConnection);
    }
}

}  // namespace

ZTCWebDaemon::ZTCWebDaemon(ZTCWebServer& arServer, const ZTSWebKeys& acrKeys) {
    const bool lIsPlain = acrKeys.mCertificate.empty();
    const unsigned int lFlags = MHD_USE_EPOLL | MHD_USE_NO_LISTEN_SOCKET | MHD_ALLOW_SUSPEND_RESUME |
                                (lIsPlain ? 0U : static_cast<unsigned int>(MHD_USE_TLS));
    MHD_OptionItem lKeys[] = {{MHD_OPTION_HTTPS_PRIORITIES, 0, const_cast<char*>(sVersions)},
                              {MHD_OPTION_HTTPS_MEM_CERT, 0, const_cast<char*>(acrKeys.mCertificate.c_str())},
                              {MHD_OPTION_HTTPS_MEM_KEY, 0, const_cast<char*>(acrKeys.mKey.c_str())},
                              {MHD_OPTION_END, 0, nullptr}};
    if (lIsPlain) {
        lKeys[0] = lKeys[3];
    }
    // Times and numbers of connections are limited by us, who know what they are for.
    mpDaemon = MHD_start_daemon(
        lFlags, 0, nullptr, nullptr, &sTakeRequest, &arServer, MHD_OPTION_NOTIFY_CONNECTION, &sNotify,
        &arServer, MHD_OPTION_NOTIFY_COMPLETED, &sTakeEnd, &arServer, MHD_OPTION_URI_LOG_CALLBACK,
        &sTakeTarget, &arServer, MHD_OPTION_UNESCAPE_CALLBACK, &sDecodeNothing, nullptr,
        MHD_OPTION_CONNECTION_MEMORY_LIMIT, sMemory, MHD_OPTION_CONNECTION_LIMIT,
        static_cast<unsigned int>(2 * ZTCWebConnections::Most), MHD_OPTION_CONNECTION_TIMEOUT, 0U,
        MHD_OPTION_STRICT_FOR_CLIENT, 1, MHD_OPTION_ARRAY, lKeys, MHD_OPTION_END);
    if (mpDaemon == nullptr) {
        throw std::runtime_error(lIsPlain
                                     ? "libmicrohttpd does not start"
                                     : "the certificate and its key cannot be used: they are no PEM, or do "
                                       "not fit");
    }
}

ZTCWebDaemon::~ZTCWebDaemon() {
    MHD_stop_daemon(mpDaemon);
}

int ZTCWebDaemon::getDescriptor() const {
    return MHD_get_daemon_info(mpDaemon, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd;
}

bool ZTCWebDaemon::hasConnections() const {
    return MHD_get_daemon_info(mpDaemon, MHD_DAEMON_INFO_CURRENT_CONNECTIONS)->num_connections > 0;
}

bool ZTCWebDaemon::add(ZTCSensorDescriptor aSocket, const ZTSListenAddress& acrPeer) {
    return MHD_add_connection(mpDaemon, aSocket.release(), acrPeer.get(), acrPeer.mSize) == MHD_YES;
}

void ZTCWebDaemon::run() {
    MHD_run(mpDaemon);
}

std::optional<std::chrono::milliseconds> ZTCWebDaemon::getTimeout() {
    MHD_UNSIGNED_LONG_LONG lMilliseconds = 0;
    return MHD_get_timeout(mpDaemon, &lMilliseconds) == MHD_YES
               ? std::optional(std::chrono::milliseconds(lMilliseconds))
               : std::nullopt;
}
