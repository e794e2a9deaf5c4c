#include "DiskStats.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>

#include "HostDescriptor.h"

namespace {

constexpr std::size_t sChunk = std::size_t{64} << 10;
constexpr std::size_t sLongest = std::size_t{8} << 20;  // some ten thousands of disks

// The numbers of a line behind the disk's name, by place. Kernels before 4.18 end behind the eleventh, those
// before 5.5 know no flushes.
enum Field : unsigned char {
    F_Reads = 0,
    F_ReadMs = 3,
    F_Writes = 4,
    F_WriteMs = 7,
    F_InFlight = 8,
    F_Fewest = 11,
    F_Discards = 11,
    F_DiscardMs = 14,
    F_Flushes = 15,
    F_FlushMs = 16,
    F_Count = 17
};

std::string_view sTakeWord(std::string_view& arLine) {
    arLine.remove_prefix(std::min(arLine.find_first_not_of(' '), arLine.size()));
    const std::string_view lWord = arLine.substr(0, arLine.find(' '));
    arLine.remove_prefix(lWord.size());
    return lWord;
}

bool sIsDigit(char aByte) {
    return aByte >= '0' && aByte <= '9';
}
bool sAreDigits(std::string_view aText) {
    return !aText.empty() && std::all_of(aText.begin(), aText.end(), sIsDigit);
}

bool sHasNoPath(std::string_view aDisk) {
    static constexpr std::string_view sKinds[] = {"loop", "ram", "zram", "sr", "fd", "nbd"};
    return std::any_of(std::begin(sKinds), std::end(sKinds), [&](std::string_view aKind) {
        return aDisk.starts_with(aKind) && sAreDigits(aDisk.substr(aKind.size()));
    });
}

// Partitions follow their disk: "sda1" and "nvme0n1p1", but "dm-10" is none of "dm-1".
bool sIsPartition(std::string_view aName, std::string_view aDisk) {
    if (aDisk.empty() || !aName.starts_with(aDisk)) {
        return false;
    }
    aName.remove_prefix(aDisk.size());
    if (sIsDigit(aDisk.back())) {
        if (!aName.starts_with('p')) {
            return false;
        }
        aName.remove_prefix(1);
    }
    return sAreDigits(aName);
}

// Returns how many there are.
std::size_t sReadNumbers(std::string_view aLine, std::array<std::uint64_t, F_Count>& arNumbers) {
    arNumbers.fill(0);
    for (std::size_t lAt = 0; lAt < F_Count; ++lAt) {
        const std::string_view lWord = sTakeWord(aLine);
        const auto lParsed = std::from_chars(lWord.begin(), lWord.end(), arNumbers[lAt]);
        if (lParsed.ec != std::errc() || lParsed.ptr != lWord.end()) {
            return lWord.empty() ? lAt : 0;
        }
    }
    return F_Count;
}

// Some kernels let it fall below 0, and tell of it so.
std::uint64_t sInFlight(std::uint64_t aTold) {
    return aTold < (std::uint64_t{1} << 31U) ? aTold : 0;
}

}  // namespace

std::vector<ZTSDiskStats> readDiskStats(std::string_view aText) {
    std::vector<ZTSDiskStats> lStats;
    lStats.reserve(aText.size() / 128);
    std::string_view lDisk;  // the last one that was no partition
    std::array<std::uint64_t, F_Count> lNumbers{};
    while (!aText.empty()) {
        std::string_view lLine = aText.substr(0, aText.find('\n'));
        aText.remove_prefix(std::min(lLine.size() + 1, aText.size()));
        bool lIsNumbered = sAreDigits(sTakeWord(lLine));
        lIsNumbered &= sAreDigits(sTakeWord(lLine));
        const std::string_view lName = sTakeWord(lLine);
        if (!lIsNumbered || lName.empty() || sHasNoPath(lName) || sIsPartition(lName, lDisk) ||
            sReadNumbers(lLine, lNumbers) < F_Fewest) {
            continue;
        }
        lDisk = lName;
        lStats.push_back(
            {std::string(lName),
             lNumbers[F_Reads] + lNumbers[F_Writes] + lNumbers[F_Discards] + lNumbers[F_Flushes],
             lNumbers[F_ReadMs] + lNumbers[F_WriteMs] + lNumbers[F_DiscardMs] + lNumbers[F_FlushMs],
             sInFlight(lNumbers[F_InFlight])});
    }
    return lStats;
}

std::optional<std::string> readDiskStatsFile(const std::string& acrRoot) {
    const ZTCHostDescriptor lFile(
        open((acrRoot + "/proc/diskstats").c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat lStatus {};
    if (!lFile.isOpen() || fstat(lFile.get(), &lStatus) != 0 || !S_ISREG(lStatus.st_mode) ||
        lStatus.st_size > static_cast<off_t>(sLongest)) {
        return {};
    }
    std::string lText;
    for (std::size_t lSize = 0; lSize < sLongest;) {
        lText.resize(lSize + sChunk);
        const ssize_t lRead = read(lFile.get(), lText.data() + lSize, sChunk);
        if (lRead <= 0) {
            lText.resize(lSize);
            return lRead == 0 ? std::optional(std::move(lText)) : std::nullopt;
        }
        lSize += static_cast<std::size_t>(lRead);
    }
    return {};
}
