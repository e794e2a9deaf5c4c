// Sockets of Unix, as the made-up host has them at its paths.
#pragma once

#include <sys/un.h>

#include <string>
#include <string_view>

/// A socket that is bound at a path, and goes with it. Throws ZTCHostSimError.
class ZTCHostSocket {
  public:
    /// aType: SOCK_DGRAM; or SOCK_STREAM, which listens. What is left there of a process that has ended is
    /// removed.
    ZTCHostSocket(std::string aPath, int aType);
    ~ZTCHostSocket();
    ZTCHostSocket(const ZTCHostSocket&) = delete;
    ZTCHostSocket& operator=(const ZTCHostSocket&) = delete;

    int get() const { return mSocket; }

  private:
    std::string mPath;
    int mSocket = -1;
};

/// Throws ZTCHostSimError where the path is too long.
sockaddr_un makeHostAddress(std::string_view aPath);

/// Takes one connection, reads one question and answers it as multipathd does: a length of 8 bytes, then so
/// many bytes, the last of them 0. Who is slower than a second is left.
void answerAsMultipathd(int aListener, const std::string& acrPaths);

/// Has the host at a control socket play a line, and returns its answer: "ok", what was asked for, or what is
/// wrong behind "error: ". Throws ZTCHostSimError where nobody answers.
std::string askHost(const std::string& acrSocket, const std::string& acrLine);
