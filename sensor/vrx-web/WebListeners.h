// Where the program is to be reached.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <string>
#include <vector>

#include "SensorFiles.h"

/// An address with a port, or the path of a Unix socket, as the system takes it.
struct ZTSListenAddress {
    sockaddr_storage mBytes{};
    socklen_t mSize = 0;

    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&mBytes); }
    sockaddr* get() { return reinterpret_cast<sockaddr*>(&mBytes); }
    bool isUnix() const { return mBytes.ss_family == AF_UNIX; }
    bool isLoopback() const;  ///< also a Unix socket
    /// As --listen takes it; "unix /path" for a Unix socket.
    std::string toText() const;
    /// Whose it is: what shares it has a common share of the connections. Of version 6 the network, for one
    /// machine has all of its addresses.
    std::string toPeer() const;
};

/// "127.0.0.1:9180", "[::1]:9180", "localhost:9180" or a path. Throws ZTCServiceUsage.
ZTSListenAddress readListenAddress(const std::string& acrText);

/// A socket that others connect to. Does not wait. Whoever has it removes what it has made in a folder.
class ZTCWebListener {
  public:
    /// Throws std::runtime_error with one line. What is left of a Unix socket that nobody listens on is taken
    /// away first; one that it makes is for its user and group.
    explicit ZTCWebListener(const std::string& acrText);
    ~ZTCWebListener();
    ZTCWebListener(ZTCWebListener&&) = default;
    ZTCWebListener(const ZTCWebListener&) = delete;
    ZTCWebListener& operator=(const ZTCWebListener&) = delete;

    int getDescriptor() const { return mSocket.get(); }
    /// With the port that it has got.
    const ZTSListenAddress& getAddress() const { return mAddress; }
    /// The next who waits; not open: nobody does, or it cannot be taken, as errno says (EAGAIN: nobody).
    ZTCSensorDescriptor accept(ZTSListenAddress& arPeer) const;

  private:
    ZTSListenAddress mAddress;
    ZTCSensorDescriptor mSocket;
};
