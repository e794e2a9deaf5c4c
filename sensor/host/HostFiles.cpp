#include "HostFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <optional>
#include <set>

#include "SysfsFolder.h"

namespace {

constexpr std::size_t sLongestStat = std::size_t{4} << 20;  // /proc/stat has a line a processor
constexpr std::size_t sLongestConfig = std::size_t{1} << 20;
constexpr std::size_t sMostConfigs = 256;

enum class Outcome : unsigned char { Read, IsNotThere, Failed };

class File {
  public:
    explicit File(const std::string& acrPath)
        : mFile(open(acrPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)), mError(errno) {}
    ~File() {
        if (mFile >= 0) {
            close(mFile);
        }
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    Outcome read(std::string& arText, std::size_t aLongest) const {
        struct stat lStatus {};
        if (mFile < 0) {
            return mError == ENOENT ? Outcome::IsNotThere : Outcome::Failed;
        }
        if (fstat(mFile, &lStatus) != 0 || !S_ISREG(lStatus.st_mode)) {
            return Outcome::Failed;
        }
        for (char lBytes[16384];;) {
            const ssize_t lRead = ::read(mFile, lBytes, sizeof lBytes);
            if (lRead <= 0) {
                return lRead == 0 ? Outcome::Read : Outcome::Failed;
            }
            arText.append(lBytes, static_cast<std::size_t>(lRead));
            if (arText.size() > aLongest) {
                return Outcome::Failed;
            }
        }
    }

  private:
    const int mFile;
    const int mError;
};

// The seconds behind "btime"; 0: there are none.
ZTNanoseconds sBootedIn(const std::string& acrStat) {
    constexpr std::string_view lName = "\nbtime ";
    const std::size_t lAt = acrStat.find(lName);
    std::int64_t lSeconds = 0;
    if (lAt != std::string::npos) {
        const char* const lpEnd = acrStat.data() + acrStat.size();
        std::from_chars(acrStat.data() + lAt + lName.size(), lpEnd, lSeconds);
    }
    const bool lIsTime = lSeconds > 0 && lSeconds <= std::numeric_limits<std::int64_t>::max() / ZTSecond;
    return lIsTime ? lSeconds * ZTSecond : 0;
}

// FNV-1a: it is to be another one for another text, and nothing else.
void sHash(std::uint64_t& arHash, std::string_view aText) {
    for (const char lByte : aText) {
        arHash = (arHash ^ static_cast<unsigned char>(lByte)) * 0x100000001b3;
    }
    arHash = (arHash ^ 0xff) * 0x100000001b3;  // no byte of UTF-8: where the text ends
}

}  // namespace

void readKernelFacts(const std::string& acrRoot, ZTSHostFacts& arFacts) {
    constexpr const char* lNames[] = {"osrelease", "random/boot_id"};
    ZTCSysfsFolder lKernel(acrRoot + "/proc/sys/kernel", lNames);
    arFacts.mKernel = lKernel.read(0).value_or("");
    arFacts.mBoot = lKernel.read(1).value_or("");
    std::string lStat;
    arFacts.mBooted =
        File(acrRoot + "/proc/stat").read(lStat, sLongestStat) == Outcome::Read ? sBootedIn(lStat) : 0;
}

std::string hashMultipathConfig(const std::string& acrRoot) {
    const std::string lFolder = acrRoot + "/etc/multipath/conf.d/";
    std::set<std::string> lNames;
    const bool lIsListed = eachSysfsName(lFolder, [&](const char* apName, std::uint64_t) {
        if (std::string_view(apName).ends_with(".conf")) {
            lNames.insert(apName);
        }
    });
    if (!lIsListed || lNames.size() > sMostConfigs) {
        return "";
    }
    std::uint64_t lHash = 0xcbf29ce484222325;
    std::string lText;
    const Outcome lMain = File(acrRoot + "/etc/multipath.conf").read(lText, sLongestConfig);
    if (lMain == Outcome::Failed) {
        return "";
    }
    if (lMain == Outcome::IsNotThere && lNames.empty()) {
        return "none";
    }
    sHash(lHash, lMain == Outcome::Read ? "multipath.conf" : "");
    sHash(lHash, lText);
    for (const std::string& lrName : lNames) {
        lText.clear();
        if (File(lFolder + lrName).read(lText, sLongestConfig) != Outcome::Read) {
            return "";  // one that went meanwhile too: the next look is as good
        }
        sHash(lHash, lrName);
        sHash(lHash, lText);
    }
    return fmt::format("{:016x}", lHash);
}
