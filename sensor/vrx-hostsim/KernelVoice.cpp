#include "KernelVoice.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "HostWords.h"

namespace {

constexpr std::uint16_t sTransportType = 0x11;
constexpr std::size_t sNetlinkSize = 16;
constexpr std::size_t sEventSize = 36;

// Appends a number as it lies in memory.
template <class Number>
void sPut(std::vector<unsigned char>& arBytes, Number aNumber) {
    unsigned char lBytes[sizeof aNumber];
    memcpy(lBytes, &aNumber, sizeof aNumber);
    arBytes.insert(arBytes.end(), std::begin(lBytes), std::end(lBytes));
}

// A socket of Unix holds few messages. A listener that is there gets this long to make room.
constexpr timeval sPatience{2, 0};

}  // namespace

ZTCKernelVoice::ZTCKernelVoice(const std::string& acrRoot)
    : mTransport{acrRoot + "run/kernel/transport"},
      mUevents{acrRoot + "run/kernel/uevent"},
      mSocket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    if (mSocket < 0 || mTransport.mPath.size() >= sizeof(sockaddr_un::sun_path)) {
        throw ZTCHostSimError(mTransport.mPath + ": no socket can be there, expected a shorter root");
    }
    setsockopt(mSocket, SOL_SOCKET, SO_SNDTIMEO, &sPatience, sizeof sPatience);
}

ZTCKernelVoice::~ZTCKernelVoice() {
    close(mSocket);
}

// True: it is there; errno says of a failure whether somebody could have had it.
bool ZTCKernelVoice::send(const Listener& acrListener, std::span<const unsigned char> aBytes) const {
    sockaddr_un lAddress{AF_UNIX, ""};
    acrListener.mPath.copy(lAddress.sun_path, sizeof lAddress.sun_path - 1);
    const int lFlags = MSG_NOSIGNAL | (acrListener.mHasMissed ? MSG_DONTWAIT : 0);
    ssize_t lSent = 0;
    do {
        lSent = sendto(mSocket, aBytes.data(), aBytes.size(), lFlags,
                       reinterpret_cast<const sockaddr*>(&lAddress), sizeof lAddress);
    } while (lSent < 0 && errno == EINTR);
    return lSent >= 0;
}

// Who has not made room once is not waited for, until he has taken the empty message that tells him so.
void ZTCKernelVoice::say(Listener& arListener, std::span<const unsigned char> aBytes) {
    if (arListener.mHasMissed && (send(arListener, {}) || errno != EAGAIN)) {
        arListener.mHasMissed = false;
    }
    if (send(arListener, aBytes)) {
        ++mSaid;
    } else if (errno == EAGAIN) {
        arListener.mHasMissed = true;
        ++mLost;
    }
}

void ZTCKernelVoice::sayTransport(unsigned int aHost, std::uint32_t aCode,
                                  std::span<const unsigned char> aData) {
    const std::size_t lSize = (sEventSize + std::max<std::size_t>(aData.size(), 4) + 7) / 8 * 8;
    std::vector<unsigned char> lBytes;
    lBytes.reserve(sNetlinkSize + lSize);
    sPut(lBytes, static_cast<std::uint32_t>(sNetlinkSize + lSize));
    sPut(lBytes, sTransportType);
    sPut(lBytes, std::uint16_t{0});
    sPut(lBytes, std::uint64_t{0});  // no sequence, and from the kernel
    sPut(lBytes, std::uint8_t{1});
    sPut(lBytes, std::uint8_t{1});
    sPut(lBytes, std::uint16_t{0xa1b2});
    sPut(lBytes, std::uint16_t{0x0100});
    sPut(lBytes, static_cast<std::uint16_t>(lSize));
    sPut(lBytes, static_cast<std::uint64_t>(time(nullptr)));
    sPut(lBytes, std::uint64_t{0});
    sPut(lBytes, static_cast<std::uint16_t>(aHost));
    sPut(lBytes, static_cast<std::uint16_t>(aData.size() < 4 ? 0 : aData.size()));
    sPut(lBytes, ++mEvents);
    sPut(lBytes, aCode);
    lBytes.insert(lBytes.end(), aData.begin(), aData.end());
    lBytes.resize(sNetlinkSize + lSize);
    say(mTransport, lBytes);
}

void ZTCKernelVoice::sayUevent(const char* apAction, const std::string& acrPath, const Values& acrValues) {
    std::string lText = std::string(apAction) + "@" + acrPath + '\0';
    const auto lPut = [&](const std::string& acrName, const std::string& acrValue) {
        lText.append(acrName).append("=").append(acrValue) += '\0';
    };
    lPut("ACTION", apAction);
    lPut("DEVPATH", acrPath);
    for (const auto& [lrName, lrValue] : acrValues) {
        lPut(lrName, lrValue);
    }
    lPut("SEQNUM", std::to_string(++mNumber));
    say(mUevents, {reinterpret_cast<const unsigned char*>(lText.data()), lText.size()});
}
