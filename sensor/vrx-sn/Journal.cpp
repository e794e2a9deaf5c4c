#include "Journal.h"

#include <endian.h>

// A line, or, where the value has several, its length in eight bytes and then the value.
void ZTCJournalEntry::add(std::string_view aName, std::string_view aValue) {
    mBytes.append(aName);
    if (aValue.find('\n') == std::string_view::npos) {
        mBytes += '=';
    } else {
        const std::uint64_t lLength = htole64(aValue.size());
        mBytes += '\n';
        mBytes.append(reinterpret_cast<const char*>(&lLength), sizeof lLength);
    }
    mBytes.append(aValue) += '\n';
}

ZTCJournal::ZTCJournal(const std::string& acrPath)
    : mSocket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    acrPath.copy(mAddress.sun_path, sizeof mAddress.sun_path - 1);
}

bool ZTCJournal::send(const ZTCJournalEntry& acrEntry) const {
    const std::string& lrBytes = acrEntry.getBytes();
    return sendto(mSocket.get(), lrBytes.data(), lrBytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
                  reinterpret_cast<const sockaddr*>(&mAddress),
                  sizeof mAddress) == static_cast<ssize_t>(lrBytes.size());
}
