#include "KernelMessages.h"

#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "HostDescriptor.h"

namespace {

// A uevent is of some 2 KiB, a transport's message too: what is longer is none that is known.
constexpr std::size_t sLongest = std::size_t{64} << 10;
// Of the kernel's queue for us: some thousands of messages.
constexpr int sRoom = 8 << 20;
constexpr unsigned int sMostForeign = 64;

struct Source {
    int mProtocol;
    unsigned int mGroup;
    const char* mpPath;
};
constexpr Source sSources[] = {{NETLINK_SCSITRANSPORT, 4, "/run/kernel/transport"},
                               {NETLINK_KOBJECT_UEVENT, 1, "/run/kernel/uevent"}};

const Source& sSourceOf(ZTCKernelMessages::What aWhat) {
    return sSources[static_cast<std::size_t>(aWhat)];
}

}  // namespace

ZTCKernelMessages::ZTCKernelMessages(const std::string& acrRoot, What aWhat) : mBytes(sLongest) {
    if (acrRoot.find_first_not_of('/') == std::string::npos) {
        openNetlink(aWhat);
    } else {
        openUnix(acrRoot, aWhat);
    }
}

ZTCKernelMessages::~ZTCKernelMessages() {
    if (mSocket >= 0) {
        close(mSocket);
    }
    if (!mPath.empty()) {
        unlink(mPath.c_str());
    }
}

void ZTCKernelMessages::openNetlink(What aWhat) {
    mIsNetlink = true;
    const Source& lrSource = sSourceOf(aWhat);
    ZTCHostDescriptor lSocket(
        socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, lrSource.mProtocol));
    sockaddr_nl lAddress{};
    lAddress.nl_family = AF_NETLINK;
    if (!lSocket.isOpen() ||
        bind(lSocket.get(), reinterpret_cast<const sockaddr*>(&lAddress), sizeof lAddress) != 0) {
        giveUp("no netlink socket", errno);
        return;
    }
    // More than is usual takes a right that we may not have; less only means that more may be lost, and told.
    if (setsockopt(lSocket.get(), SOL_SOCKET, SO_RCVBUFFORCE, &sRoom, sizeof sRoom) != 0) {
        setsockopt(lSocket.get(), SOL_SOCKET, SO_RCVBUF, &sRoom, sizeof sRoom);
    }
    if (setsockopt(lSocket.get(), SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &lrSource.mGroup,
                   sizeof lrSource.mGroup) != 0) {
        giveUp("the kernel's messages may not be joined", errno);
        return;
    }
    mSocket = lSocket.release();
}

void ZTCKernelMessages::openUnix(const std::string& acrRoot, What aWhat) {
    const std::string lPath = acrRoot + sSourceOf(aWhat).mpPath;
    sockaddr_un lAddress{};
    lAddress.sun_family = AF_UNIX;
    if (lPath.size() >= sizeof lAddress.sun_path) {
        giveUp("no socket", ENAMETOOLONG);
        return;
    }
    memcpy(lAddress.sun_path, lPath.c_str(), lPath.size());
    std::error_code lRefused;
    std::filesystem::create_directories(std::filesystem::path(lPath).parent_path(), lRefused);
    unlink(lPath.c_str());  // of one that did not end in order
    ZTCHostDescriptor lSocket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!lSocket.isOpen() ||
        bind(lSocket.get(), reinterpret_cast<const sockaddr*>(&lAddress), sizeof lAddress) != 0) {
        giveUp("no socket", errno);
        return;
    }
    mPath = lPath;
    mSocket = lSocket.release();
}

void ZTCKernelMessages::giveUp(const char* apWhat, int aError) {
    if (mSocket >= 0) {
        close(std::exchange(mSocket, -1));
    }
    mWhyNot = apWhat + (": " + std::system_category().message(aError));
}

ZTCKernelMessages::Got ZTCKernelMessages::receive(std::span<const unsigned char>& arBytes) {
    for (unsigned int lForeign = 0; mSocket >= 0 && lForeign < sMostForeign; ++lForeign) {
        sockaddr_nl lFrom{};
        iovec lPiece{mBytes.data(), mBytes.size()};
        msghdr lMessage{};
        lMessage.msg_name = &lFrom;
        lMessage.msg_namelen = sizeof lFrom;
        lMessage.msg_iov = &lPiece;
        lMessage.msg_iovlen = 1;
        const ssize_t lRead = recvmsg(mSocket, &lMessage, 0);
        if (lRead < 0) {
            if (errno == EINTR) {
                continue;
            }
            if (errno != EAGAIN && errno != ENOBUFS && errno != ENOMEM) {
                giveUp("the kernel's messages cannot be received", errno);
            }
            return errno == EAGAIN ? Got::Nothing : Got::Lost;
        }
        // Any process may send to the group, or to the socket itself.
        if (mIsNetlink && (lMessage.msg_namelen != sizeof lFrom || lFrom.nl_pid != 0)) {
            continue;
        }
        if (lRead == 0 || (lMessage.msg_flags & MSG_TRUNC) != 0) {
            return Got::Lost;
        }
        arBytes = std::span(mBytes).first(static_cast<std::size_t>(lRead));
        return Got::Message;
    }
    return Got::Nothing;
}
