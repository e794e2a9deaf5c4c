#include "WebListeners.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <optional>
#include <stdexcept>

#include "ServiceUsage.h"

namespace {

constexpr int sBacklog = 4096;          // of a crowd too: whom the kernel drops comes again a second later
constexpr int sSendBuffer = 128 << 10;  // the kernel's for each, so that many who take nothing are bounded

const sockaddr_in& sIn4(const ZTSListenAddress& acrAddress) {
    return *reinterpret_cast<const sockaddr_in*>(&acrAddress.mBytes);
}
const sockaddr_in6& sIn6(const ZTSListenAddress& acrAddress) {
    return *reinterpret_cast<const sockaddr_in6*>(&acrAddress.mBytes);
}
const char* sPathOf(const ZTSListenAddress& acrAddress) {
    return reinterpret_cast<const sockaddr_un*>(&acrAddress.mBytes)->sun_path;
}

ZTSListenAddress sUnixAddress(const std::string& acrPath) {
    sockaddr_un lAddress{};
    if (acrPath.size() >= sizeof lAddress.sun_path) {
        throw ZTCServiceUsage("'" + acrPath + "' is too long for a Unix socket");
    }
    lAddress.sun_family = AF_UNIX;
    acrPath.copy(lAddress.sun_path, acrPath.size());
    ZTSListenAddress lResult;
    memcpy(&lResult.mBytes, &lAddress, sizeof lAddress);
    lResult.mSize = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + acrPath.size() + 1);
    return lResult;
}

std::optional<in_port_t> sPortOf(const std::string& acrText) {
    const bool lIsNumber = !acrText.empty() && acrText.size() <= 5 &&
                           acrText.find_first_not_of("0123456789") == std::string::npos;
    const int lPort = lIsNumber ? std::stoi(acrText) : -1;
    return lPort >= 0 && lPort <= 65535 ? std::optional(htons(static_cast<std::uint16_t>(lPort)))
                                        : std::nullopt;
}

template <class Address>
ZTSListenAddress sAddressOf(const Address& acrAddress) {
    ZTSListenAddress lResult;
    memcpy(&lResult.mBytes, &acrAddress, sizeof acrAddress);
    lResult.mSize = sizeof acrAddress;
    return lResult;
}

// A socket that is left of one who has been killed is in the way of the next.
void sRemoveLeft(const ZTSListenAddress& acrAddress) {
    struct stat lStatus {};
    const char* const lpPath = sPathOf(acrAddress);
    if (lstat(lpPath, &lStatus) != 0 || !S_ISSOCK(lStatus.st_mode)) {
        return;
    }
    const ZTCSensorDescriptor lSocket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (connect(lSocket.get(), acrAddress.get(), acrAddress.mSize) != 0 && errno == ECONNREFUSED) {
        unlink(lpPath);
    }
}

int sBind(int aSocket, const ZTSListenAddress& acrAddress) {
    const mode_t lBefore = umask(0117);  // whoever is in the group may connect
    const int lResult = bind(aSocket, acrAddress.get(), acrAddress.mSize);
    umask(lBefore);
    return lResult;
}

}  // namespace

bool ZTSListenAddress::isLoopback() const {
    switch (mBytes.ss_family) {
        case AF_INET:
            return (ntohl(sIn4(*this).sin_addr.s_addr) >> 24) == IN_LOOPBACKNET;
        case AF_INET6:
            return IN6_IS_ADDR_LOOPBACK(&sIn6(*this).sin6_addr);
        default:
            return true;
    }
}

std::string ZTSListenAddress::toText() const {
    char lText[INET6_ADDRSTRLEN] = "";
    switch (mBytes.ss_family) {
        case AF_INET:
            inet_ntop(AF_INET, &sIn4(*this).sin_addr, lText, sizeof lText);
            return std::string(lText) + ":" + std::to_string(ntohs(sIn4(*this).sin_port));
        case AF_INET6:
            inet_ntop(AF_INET6, &sIn6(*this).sin6_addr, lText, sizeof lText);
            return std::string("[") + lText + "]:" + std::to_string(ntohs(sIn6(*this).sin6_port));
        default:
            return std::string("unix ") + sPathOf(*this);
    }
}

std::string ZTSListenAddress::toPeer() const {
    constexpr std::size_t lNetwork = 8;
    switch (mBytes.ss_family) {
        case AF_INET:
            return {reinterpret_cast<const char*>(&sIn4(*this).sin_addr), sizeof(in_addr)};
        case AF_INET6:
            return {reinterpret_cast<const char*>(&sIn6(*this).sin6_addr), lNetwork};
        default:
            return "";
    }
}

ZTSListenAddress readListenAddress(const std::string& acrText) {
    if (acrText.starts_with('/')) {
        return sUnixAddress(acrText);
    }
    const std::size_t lColon = acrText.rfind(':');
    const std::string lHost = acrText.substr(0, std::min(lColon, acrText.size()));
    const auto lPort = sPortOf(lColon == std::string::npos ? "" : acrText.substr(lColon + 1));
    sockaddr_in lFour{};
    sockaddr_in6 lSix{};
    lFour.sin_family = AF_INET;
    lSix.sin6_family = AF_INET6;
    lFour.sin_port = lSix.sin6_port = lPort.value_or(0);
    if (lPort && lHost.size() > 2 && lHost.front() == '[' && lHost.back() == ']' &&
        inet_pton(AF_INET6, lHost.substr(1, lHost.size() - 2).c_str(), &lSix.sin6_addr) == 1) {
        return sAddressOf(lSix);
    }
    if (lPort &&
        inet_pton(AF_INET, lHost == "localhost" ? "127.0.0.1" : lHost.c_str(), &lFour.sin_addr) == 1) {
        return sAddressOf(lFour);
    }
    throw ZTCServiceUsage(
        "'" + acrText +
        "' is neither ADDRESS:PORT (127.0.0.1:9180, [::1]:9180) nor the path of a Unix socket");
}

ZTCWebListener::ZTCWebListener(const std::string& acrText)
    : mAddress(readListenAddress(acrText)),
      mSocket(socket(mAddress.mBytes.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    const int lOn = 1;
    if (mAddress.isUnix()) {
        sRemoveLeft(mAddress);
    } else {
        setsockopt(mSocket.get(), SOL_SOCKET, SO_REUSEADDR, &lOn, sizeof lOn);
    }
    if (mAddress.mBytes.ss_family == AF_INET6) {
        setsockopt(mSocket.get(), IPPROTO_IPV6, IPV6_V6ONLY, &lOn, sizeof lOn);
    }
    if (!mSocket.isOpen() || sBind(mSocket.get(), mAddress) != 0 || listen(mSocket.get(), sBacklog) != 0) {
        throw std::runtime_error("cannot listen on " + mAddress.toText() + ": " + strerror(errno));
    }
    if (!mAddress.isUnix()) {
        mAddress.mSize = sizeof mAddress.mBytes;
        getsockname(mSocket.get(), mAddress.get(), &mAddress.mSize);
    }
}

ZTCWebListener::~ZTCWebListener() {
    if (mSocket.isOpen() && mAddress.isUnix()) {
        unlink(sPathOf(mAddress));
    }
}

ZTCSensorDescriptor ZTCWebListener::accept(ZTSListenAddress& arPeer) const {
    arPeer.mSize = sizeof arPeer.mBytes;
    ZTCSensorDescriptor lSocket(
        accept4(mSocket.get(), arPeer.get(), &arPeer.mSize, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (lSocket.isOpen()) {
        setsockopt(lSocket.get(), SOL_SOCKET, SO_SNDBUF, &sSendBuffer, sizeof sSendBuffer);
        if (!mAddress.isUnix()) {
            const int lOn = 1;
            setsockopt(lSocket.get(), IPPROTO_TCP, TCP_NODELAY, &lOn, sizeof lOn);
        }
    }
    return lSocket;
}
