// A notice of congestion or of an ailing link, in the kernel's own form: the driver here never gets one of a
// fabric. Who believes whoever sends takes it over netlink too, where it must not count: the kernel has no
// port, and this has one.
#include <endian.h>
#include <linux/netlink.h>
#include <stddef.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "Scsi.h"

enum {
    sGroup = 4,
    sHostEvent = 0x100,
    sLinkFpin = 0x501,
    sEls = 0x16,
    sLinkIntegrity = 0x20001,
    sInvalidCrc = 6
};

typedef struct __attribute__((packed)) {
    struct nlmsghdr mHeader;
    uint8_t mVersion, mTransport;
    uint16_t mMagic, mType, mLength;
    uint64_t mSeconds, mVendor;
    uint16_t mHost, mDataLength;
    uint32_t mNumber, mCode;
    // From here on as on the wire, the largest digits first.
    uint32_t mEls, mDescriptors, mTag, mTagLength;
    uint64_t mDetecting, mAttached;
    uint16_t mEvent, mModifier;
    uint32_t mThreshold, mCount, mPorts;
    uint64_t mPort;
} Message;

static const size_t sData = sizeof(Message) - offsetof(Message, mEls);

static Message sMake(uint16_t aHost, uint64_t aDetecting, uint64_t aAttached, uint32_t aCount) {
    const uint32_t lDescriptor = (uint32_t)sData - 16;
    return (Message){.mHeader = {.nlmsg_len = sizeof(Message), .nlmsg_type = 0x11},
                     .mVersion = 1,
                     .mTransport = 1,
                     .mMagic = 0xa1b2,
                     .mType = sHostEvent,
                     .mLength = sizeof(Message) - sizeof(struct nlmsghdr),
                     .mHost = aHost,
                     .mDataLength = (uint16_t)sData,
                     .mCode = sLinkFpin,
                     .mEls = htobe32((uint32_t)sEls << 24),
                     .mDescriptors = htobe32((uint32_t)sData - 8),
                     .mTag = htobe32(sLinkIntegrity),
                     .mTagLength = htobe32(lDescriptor),
                     .mDetecting = htobe64(aDetecting),
                     .mAttached = htobe64(aAttached),
                     .mEvent = htobe16(sInvalidCrc),
                     .mThreshold = htobe32(1000),
                     .mCount = htobe32(aCount),
                     .mPorts = htobe32(1),
                     .mPort = htobe64(aAttached)};
}

int sendFpin(int aCount, char** apArguments) {
    const Message lMessage =
        sMake((uint16_t)toNumber(apArguments[0], 10, UINT16_MAX), toNumber(apArguments[1], 16, UINT64_MAX),
              toNumber(apArguments[2], 16, UINT64_MAX), (uint32_t)toNumber(apArguments[3], 10, UINT32_MAX));
    struct sockaddr_nl lGroup = {.nl_family = AF_NETLINK, .nl_groups = 1U << (sGroup - 1)};
    struct sockaddr_un lFile = {.sun_family = AF_UNIX};
    if (aCount > 4) {
        strncpy(lFile.sun_path, apArguments[4], sizeof lFile.sun_path - 1);
    }
    const int lSocket = aCount > 4 ? socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)
                                   : socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SCSITRANSPORT);
    const struct sockaddr* const lpTo = aCount > 4 ? (const void*)&lFile : (const void*)&lGroup;
    const socklen_t lSize = aCount > 4 ? sizeof lFile : sizeof lGroup;
    if (lSocket < 0 || sendto(lSocket, &lMessage, sizeof lMessage, 0, lpTo, lSize) != sizeof lMessage) {
        fail("the message");
    }
    close(lSocket);
    return 0;
}
