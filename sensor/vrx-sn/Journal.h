// Entries of the systemd journal that have fields.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <string>
#include <string_view>

#include "SensorFiles.h"

/// The fields of an entry, as the journal's own protocol has them.
class ZTCJournalEntry {
  public:
    /// The name is of capitals, digits and underscores; a name may come more than once. A value may hold
    /// anything.
    void add(std::string_view aName, std::string_view aValue);
    void add(std::string_view aName, std::uint64_t aValue) { add(aName, std::to_string(aValue)); }
    const std::string& getBytes() const { return mBytes; }

  private:
    std::string mBytes;
};

/// Any thread.
class ZTCJournal {
  public:
    explicit ZTCJournal(const std::string& acrPath);

    /// At once, or not at all: false then.
    bool send(const ZTCJournalEntry& acrEntry) const;

  private:
    ZTCSensorDescriptor mSocket;
    sockaddr_un mAddress{AF_UNIX, ""};
};
