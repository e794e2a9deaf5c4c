// A client of vrx-web that sends bytes as they are, right ones and others.
#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>

#include "TestSupport.h"

struct ZTSWebReply {
    unsigned int mStatus = 0;  ///< 0: the connection ended without an answer
    std::string mHead;         ///< its lines, each with "\r\n" at its end
    std::string mBody;

    /// Empty: it has none of that name, which is given as it is written.
    std::string getHeader(const std::string& acrName) const {
        const std::size_t lAt = mHead.find("\r\n" + acrName + ": ");
        const std::size_t lValue = lAt + acrName.size() + 4;
        return lAt == std::string::npos ? "" : mHead.substr(lValue, mHead.find("\r\n", lValue) - lValue);
    }
};

/// "GET PATH" with a Host that is taken, and with more lines, each with its end.
inline std::string ZTWebGet(const std::string& acrPath, const std::string& acrMore = "") {
    return "GET " + acrPath + " HTTP/1.1\r\nHost: localhost\r\n" + acrMore + "\r\n";
}

/// One connection. What does not come within half a minute fails the test.
class ZTCWebClient {
  public:
    /// Over TCP, to 127.0.0.1; apFrom: by another address of this machine, such as "127.0.0.7".
    explicit ZTCWebClient(unsigned int aPort, const char* apFrom = nullptr)
        : mSocket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const auto lAddressOf = [](const char* apAddress, unsigned int aPortOf) {
            sockaddr_in lAddress{};
            lAddress.sin_family = AF_INET;
            lAddress.sin_port = htons(static_cast<std::uint16_t>(aPortOf));
            inet_pton(AF_INET, apAddress, &lAddress.sin_addr);
            return lAddress;
        };
        if (apFrom != nullptr) {
            const int lOn = 1;  // the port is chosen when the other end is known: it may be anybody's besides
            setsockopt(mSocket.get(), IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, &lOn, sizeof lOn);
            const sockaddr_in lFrom = lAddressOf(apFrom, 0);
            EXPECT_EQ(bind(mSocket.get(), reinterpret_cast<const sockaddr*>(&lFrom), sizeof lFrom), 0);
        }
        const sockaddr_in lTo = lAddressOf("127.0.0.1", aPort);
        join(reinterpret_cast<const sockaddr*>(&lTo), sizeof lTo);
    }
    /// Over a Unix socket.
    explicit ZTCWebClient(const std::string& acrPath)
        : mSocket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un lTo{AF_UNIX, ""};
        acrPath.copy(lTo.sun_path, sizeof lTo.sun_path - 1);
        join(reinterpret_cast<const sockaddr*>(&lTo), sizeof lTo);
    }

    virtual ~ZTCWebClient() = default;

    int getSocket() const { return mSocket.get(); }
    bool isJoined() const { return mIsJoined; }

    /// False: the other end has gone, or takes nothing for half a minute.
    virtual bool send(std::string_view aBytes) {
        while (!aBytes.empty()) {
            const ssize_t lSent =
                ::send(mSocket.get(), aBytes.data(), aBytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
            if (lSent < 0 && (errno != EAGAIN || !waitFor(POLLOUT))) {
                return false;
            }
            aBytes.remove_prefix(lSent > 0 ? static_cast<std::size_t>(lSent) : 0);
        }
        return true;
    }
    /// Nothing more is sent; the other end may go on.
    void close() const { shutdown(mSocket.get(), SHUT_WR); }

    /// The next whole answer. aHasBody: not to HEAD.
    ZTSWebReply receive(bool aHasBody = true) {
        ZTSWebReply lReply;
        if (!readUntil("\r\n\r\n")) {
            return lReply;
        }
        lReply.mHead = take(mBytes.find("\r\n\r\n") + 2);
        take(2);
        lReply.mStatus = static_cast<unsigned int>(atoi(lReply.mHead.c_str() + strlen("HTTP/1.1 ")));
        const std::string lLength = lReply.getHeader("Content-Length");
        if (lReply.getHeader("Transfer-Encoding") == "chunked") {
            lReply.mBody = aHasBody ? readChunks() : "";
        } else if (aHasBody && readSize(std::strtoull(lLength.c_str(), nullptr, 10))) {
            lReply.mBody = take(std::strtoull(lLength.c_str(), nullptr, 10));
        }
        return lReply;
    }
    ZTSWebReply ask(const std::string& acrRequest, bool aHasBody = true) {
        send(acrRequest);
        return receive(aHasBody);
    }
    ZTSWebReply get(const std::string& acrPath, const std::string& acrMore = "") {
        return ask(ZTWebGet(acrPath, acrMore));
    }

    /// Whether that part comes; what came with it and before stays.
    bool readUntil(const std::string& acrPart) {
        while (!contains(mBytes, acrPart)) {
            if (!readMore()) {
                return false;
            }
        }
        return true;
    }
    /// What has come and is not taken yet.
    const std::string& getBytes() const { return mBytes; }
    /// Takes what is there up to the end of that part.
    void skip(const std::string& acrPart) { take(mBytes.find(acrPart) + acrPart.size()); }
    /// Whether the other end closes, whatever it says before.
    bool waitForEnd() {
        while (readMore()) {
            mBytes.clear();
        }
        return mHasEnded;
    }
    bool hasEnded() const {
        pollfd lPoll{mSocket.get(), POLLIN | POLLRDHUP, 0};
        return poll(&lPoll, 1, 0) == 1 && (lPoll.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
    }

  protected:
    /// What TLS does otherwise.
    virtual ssize_t readSome(char* apBytes, std::size_t aSize) {
        return recv(mSocket.get(), apBytes, aSize, 0);
    }
    bool waitFor(short aEvents) const {
        pollfd lPoll{mSocket.get(), aEvents, 0};
        const bool lIsThere = poll(&lPoll, 1, ZTIsSanitized ? 60000 : 30000) == 1;
        EXPECT_TRUE(lIsThere) << "nothing comes";
        return lIsThere;
    }

  private:
    void join(const sockaddr* apTo, socklen_t aSize) { mIsJoined = connect(mSocket.get(), apTo, aSize) == 0; }
    bool readMore() {
        char lBytes[65536];
        if (mHasEnded || !waitFor(POLLIN)) {
            return false;
        }
        const ssize_t lRead = readSome(lBytes, sizeof lBytes);
        mHasEnded = lRead <= 0;
        mBytes.append(lBytes, static_cast<std::size_t>(std::max<ssize_t>(lRead, 0)));
        return !mHasEnded;
    }
    bool readSize(std::size_t aSize) {
        while (mBytes.size() < aSize) {
            if (!readMore()) {
                return false;
            }
        }
        return true;
    }
    std::string take(std::size_t aSize) {
        std::string lTaken = mBytes.substr(0, aSize);
        mBytes.erase(0, aSize);
        return lTaken;
    }
    std::string readChunks() {
        std::string lBody;
        while (readUntil("\r\n")) {
            const std::size_t lSize = std::strtoull(mBytes.c_str(), nullptr, 16);
            skip("\r\n");
            if (!readSize(lSize + 2)) {
                break;
            }
            lBody += take(lSize);
            take(2);
            if (lSize == 0) {
                break;
            }
        }
        return lBody;
    }

    const ZTCDescriptor mSocket;
    bool mIsJoined = false;
    bool mHasEnded = false;
    std::string mBytes;
};
