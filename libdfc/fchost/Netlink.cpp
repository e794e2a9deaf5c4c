#include "Netlink.h"

#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace {

constexpr int sRoom = 1024 * 1024;  // of the kernel's queue for us, in bytes

}  // namespace

ZTCFcSocket::ZTCFcSocket(int aProtocol, unsigned int aGroup, std::uint32_t aSender)
    : mSocket(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, aProtocol)), mSender(aSender) {
    sockaddr_nl lAddress{};
    lAddress.nl_family = AF_NETLINK;
    if (mSocket >= 0 && bind(mSocket, reinterpret_cast<const sockaddr*>(&lAddress), sizeof lAddress) == 0 &&
        setsockopt(mSocket, SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &aGroup, sizeof aGroup) == 0) {
        // More than is usual takes a right that we may have not; less only means that more may be lost, and
        // told.
        if (setsockopt(mSocket, SOL_SOCKET, SO_RCVBUFFORCE, &sRoom, sizeof sRoom) != 0) {
            setsockopt(mSocket, SOL_SOCKET, SO_RCVBUF, &sRoom, sizeof sRoom);
        }
        return;
    }
    mError = errno;
    if (mSocket >= 0) {
        close(mSocket);
        mSocket = -1;
    }
}

ZTCFcSocket::~ZTCFcSocket() {
    if (mSocket >= 0) {
        close(mSocket);
    }
}

ZTEFcReceipt ZTCFcSocket::receive(unsigned char* apBytes, std::size_t aRoom, std::size_t& arSize) {
    sockaddr_nl lFrom{};
    iovec lPiece{apBytes, aRoom};
    msghdr lMessage{};
    lMessage.msg_name = &lFrom;
    lMessage.msg_namelen = sizeof lFrom;
    lMessage.msg_iov = &lPiece;
    lMessage.msg_iovlen = 1;
    ssize_t lRead = -1;
    do {
        lRead = recvmsg(mSocket, &lMessage, 0);
    } while (lRead < 0 && errno == EINTR);
    if (lRead < 0) {
        return errno == ENOBUFS ? ZTFR_Loss : ZTFR_Nothing;
    }
    const bool lIsOurs = lMessage.msg_namelen == sizeof lFrom && lFrom.nl_pid == mSender &&
                         (lMessage.msg_flags & MSG_TRUNC) == 0;
    arSize = static_cast<std::size_t>(lRead);
    return lIsOurs ? ZTFR_Message : ZTFR_Foreign;
}
