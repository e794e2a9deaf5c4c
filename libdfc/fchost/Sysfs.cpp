#include "Sysfs.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <memory>
#include <string_view>

namespace {

constexpr std::size_t sMaxAttribute = 4096;

struct DirectoryCloser {
    void operator()(DIR* apDirectory) const { closedir(apDirectory); }
};

// The first line of an attribute, without blanks at its ends. Empty if there is none, or none that is text.
std::string sReadText(const std::string& acrPath) {
    // O_NONBLOCK: for a pipe in its place. A driver that takes its time for an attribute is waited for.
    const int lFile = open(acrPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (lFile < 0) {
        return {};
    }
    char lBytes[sMaxAttribute];
    const ssize_t lRead = read(lFile, lBytes, sizeof lBytes);
    close(lFile);
    std::string_view lText(lBytes, lRead > 0 ? static_cast<std::size_t>(lRead) : 0);
    lText = lText.substr(0, lText.find('\n'));
    const bool lIsText = std::all_of(lText.begin(), lText.end(), [](char aByte) {
        return aByte == '\t' || (aByte >= ' ' && aByte <= '~');
    });
    if (!lIsText || lText.size() == sMaxAttribute) {
        return {};
    }
    const std::size_t lFirst = lText.find_first_not_of(" \t");
    if (lFirst == std::string_view::npos) {
        return {};
    }
    return std::string(lText.substr(lFirst, lText.find_last_not_of(" \t") - lFirst + 1));
}

// A number as sysfs writes those of Fibre Channel: hexadecimal, with 0x.
std::optional<std::uint64_t> sReadNumber(const std::string& acrPath) {
    const std::string lText = sReadText(acrPath);
    std::uint64_t lNumber = 0;
    if (!lText.starts_with("0x")) {
        return {};
    }
    const char* const lpEnd = lText.data() + lText.size();
    const auto lParsed = std::from_chars(lText.data() + 2, lpEnd, lNumber, 16);
    return lParsed.ec == std::errc() && lParsed.ptr == lpEnd ? std::optional(lNumber) : std::nullopt;
}

// All ones: the driver does not count that. Of a name and a port id: there is none.
std::optional<std::uint64_t> sUnlessAllOnes(std::optional<std::uint64_t> aNumber,
                                            std::uint64_t aAllOnes = UINT64_MAX) {
    return aNumber == aAllOnes ? std::nullopt : aNumber;
}

std::optional<std::uint64_t> sReadName(const std::string& acrPath) {
    const auto lName = sUnlessAllOnes(sReadNumber(acrPath));
    return lName == 0 ? std::nullopt : lName;
}

// The number that a name such as host3 or rport-3:0-1 has behind the prefix.
std::optional<std::uint32_t> sNumberIn(std::string_view aName, std::string_view aPrefix, char aEnd) {
    std::uint32_t lNumber = 0;
    if (!aName.starts_with(aPrefix)) {
        return {};
    }
    const char* const lpBegin = aName.data() + aPrefix.size();
    const char* const lpEnd = aName.data() + aName.size();
    const auto lParsed = std::from_chars(lpBegin, lpEnd, lNumber);
    const bool lIsWhole =
        lParsed.ec == std::errc() && (lParsed.ptr == lpEnd ? aEnd == '\0' : *lParsed.ptr == aEnd);
    return lIsWhole ? std::optional(lNumber) : std::nullopt;
}

// Calls the function with each name in a directory. False: it cannot be read; one that is not there is empty.
template <class Do>
bool sEachName(const std::string& acrDirectory, const Do& acrDo) {
    const std::unique_ptr<DIR, DirectoryCloser> lDirectory(opendir(acrDirectory.c_str()));
    if (lDirectory == nullptr) {
        return errno == ENOENT;
    }
    errno = 0;
    while (const dirent* const lpEntry = readdir(lDirectory.get())) {
        acrDo(std::string(static_cast<const char*>(lpEntry->d_name)));
        errno = 0;
    }
    return errno == 0;
}

// Adds a host, unless it has gone since its name was read. False: whether it is there cannot be known.
bool sReadHost(const std::string& acrFolder, std::uint32_t aNumber, ZTFcHosts& arHosts) {
    struct stat lFolder {};
    if (stat(acrFolder.c_str(), &lFolder) != 0) {
        return errno == ENOENT || errno == ENOTDIR || errno == ENODEV;
    }
    ZTSFcHost& lrHost = arHosts[aNumber];
    lrHost.mIdentity = lFolder.st_ino;
    lrHost.mState = sReadText(acrFolder + "port_state");
    lrHost.mNode = sReadName(acrFolder + "node_name");
    lrHost.mPort = sReadName(acrFolder + "port_name");
    if (!lrHost.mPort) {
        lrHost.mPermanentPort = sReadName(acrFolder + "permanent_port_name");
    }
    for (std::size_t lAt = 0; lAt < lrHost.mCounters.size(); ++lAt) {
        lrHost.mCounters[lAt] = sUnlessAllOnes(sReadNumber(acrFolder + "statistics/" + ZTFcCounters[lAt]));
    }
    return true;
}

}  // namespace

std::optional<ZTFcHosts> readFcHosts(const std::string& acrRoot) {
    ZTFcHosts lHosts;
    const std::string lFolder = acrRoot + "/class/fc_host/";
    bool lAreHostsRead = true;
    const bool lIsListRead = sEachName(lFolder, [&](const std::string& acrName) {
        if (const auto lNumber = sNumberIn(acrName, "host", '\0')) {
            lAreHostsRead = sReadHost(lFolder + acrName + "/", *lNumber, lHosts) && lAreHostsRead;
        }
    });
    const std::string lPorts = acrRoot + "/class/fc_remote_ports/";
    const bool lArePortsRead = sEachName(lPorts, [&](const std::string& acrName) {
        const auto lNumber = sNumberIn(acrName, "rport-", ':');
        const auto lHost = lNumber ? lHosts.find(*lNumber) : lHosts.end();
        if (lHost == lHosts.end()) {
            return;
        }
        const std::string lPort = lPorts + acrName + "/";
        const auto lId = sUnlessAllOnes(sReadNumber(lPort + "port_id"), UINT32_MAX);
        lHost->second.mRemotePorts[acrName] = {
            lId && *lId <= 0xffffff ? std::optional(static_cast<std::uint32_t>(*lId)) : std::nullopt,
            sReadText(lPort + "port_state")};
    });
    return lIsListRead && lAreHostsRead && lArePortsRead ? std::optional(std::move(lHosts)) : std::nullopt;
}
