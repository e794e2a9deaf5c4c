#include "ProcessTable.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include "SensorFiles.h"
#include "ShownText.h"

namespace {

struct DirectoryCloser {
    void operator()(DIR* apDirectory) const { closedir(apDirectory); }
};

// The entries of a directory that are numbers, until one is what was looked for.
template <class Found>
void sEachNumber(const std::string& acrDirectory, const Found& acrFound) {
    const std::unique_ptr<DIR, DirectoryCloser> lDirectory(opendir(acrDirectory.c_str()));
    while (const dirent* const lpEntry = lDirectory != nullptr ? readdir(lDirectory.get()) : nullptr) {
        int lNumber = 0;
        const std::string lName(static_cast<const char*>(lpEntry->d_name));
        const auto lParsed = std::from_chars(lName.data(), lName.data() + lName.size(), lNumber);
        if (lParsed.ec == std::errc() && lParsed.ptr == lName.data() + lName.size() && acrFound(lNumber)) {
            return;
        }
    }
}

std::string sFolderOf(pid_t aProcess) {
    return "/proc/" + std::to_string(aProcess);
}

// What the kernel says of a descriptor: a line a fact.
void sReadFacts(const std::string& acrInfo, ZTSOpenFile& arFile) {
    std::ifstream lInfo(acrInfo);
    for (std::string lLine; std::getline(lInfo, lLine);) {
        if (lLine.starts_with("flags:")) {
            const unsigned long lFlags =
                std::stoul("0" + lLine.substr(lLine.find_first_not_of("\t ", 6)), nullptr, 8);
            arFile.mIsWritten = (lFlags & O_ACCMODE) != O_RDONLY;
            arFile.mIsAppended = (lFlags & O_APPEND) != 0;
        }
        if (lLine.starts_with("lock:") && lLine.find(" WRITE ") != std::string::npos) {
            std::istringstream(lLine) >> arFile.mLock >> arFile.mLock >> arFile.mLock;
        }
    }
}

}  // namespace

std::optional<ZTSOpenFile> findOpenFile(pid_t aProcess, const std::string& acrPart,
                                        const std::function<bool(const ZTSOpenFile&)>& acrCondition) {
    std::optional<ZTSOpenFile> lFound;
    sEachNumber(sFolderOf(aProcess) + "/fd", [&](int aDescriptor) {
        const std::string lDescriptor = std::to_string(aDescriptor);
        const std::string lLink = sFolderOf(aProcess) + "/fd/" + lDescriptor;
        ZTSOpenFile lFile;
        char lPath[4096];
        const ssize_t lLength = readlink(lLink.c_str(), lPath, sizeof lPath);
        lFile.mPath.assign(lPath, lLength > 0 ? static_cast<std::size_t>(lLength) : 0);
        if (lFile.mPath.find(acrPart) == std::string::npos || stat(lLink.c_str(), &lFile.mStatus) != 0) {
            return false;
        }
        sReadFacts(sFolderOf(aProcess) + "/fdinfo/" + lDescriptor, lFile);
        if (acrCondition(lFile)) {
            lFound = std::move(lFile);
        }
        return lFound.has_value();
    });
    return lFound;
}

pid_t findProcessWith(const struct stat& acrFile, const std::string& acrPath,
                      const std::function<bool(const ZTSOpenFile&)>& acrCondition) {
    pid_t lHolder = 0;
    const std::string lName = "/" + std::filesystem::path(acrPath).filename().string();
    sEachNumber("/proc", [&](int aProcess) {
        const auto lFile = findOpenFile(aProcess, lName, [&](const ZTSOpenFile& acrOpen) {
            return acrOpen.mStatus.st_dev == acrFile.st_dev && acrOpen.mStatus.st_ino == acrFile.st_ino &&
                   acrCondition(acrOpen);
        });
        lHolder = lFile ? aProcess : 0;
        return lFile.has_value();
    });
    return lHolder;
}

std::string describeProcess(pid_t aProcess) {
    if (aProcess == 0) {
        return "another process";
    }
    std::string lName;
    std::ifstream lFile(sFolderOf(aProcess) + "/comm");
    std::getline(lFile, lName, '\0');
    lName.resize(lName.empty() ? 0 : lName.size() - 1);  // the line end behind it; the name may hold others
    return "process " + std::to_string(aProcess) + (lName.empty() ? "" : " (" + toShownText(lName) + ")");
}

std::optional<std::chrono::system_clock::time_point> getProcessStart(pid_t aProcess) {
    std::ifstream lFile(sFolderOf(aProcess) + "/stat");
    std::string lText;
    std::getline(lFile, lText, '\0');
    // The name, in brackets, may hold anything. Behind it the start is the 20th field, in ticks since the
    // boot.
    const std::size_t lEnd = lText.rfind(')');
    if (lEnd == std::string::npos) {
        return {};
    }
    std::istringstream lFields(lText.substr(lEnd + 1));
    std::string lField;
    lFields >> lField;
    if (lField == "Z" || lField == "X") {
        return {};  // it has ended, and nobody has asked for its status
    }
    for (int lLeft = 19; lLeft > 0; --lLeft) {
        lFields >> lField;
    }
    std::ifstream lSystem("/proc/stat");
    for (std::string lLine; std::getline(lSystem, lLine);) {
        if (lLine.starts_with("btime ")) {
            const auto lSeconds =
                std::stoull(lLine.substr(6)) +
                std::stoull("0" + lField) / static_cast<unsigned long>(sysconf(_SC_CLK_TCK));
            return std::chrono::system_clock::time_point(std::chrono::seconds(lSeconds));
        }
    }
    return {};
}

bool waitForEnd(pid_t aProcess, std::chrono::milliseconds aTime) {
    const ZTCSensorDescriptor lProcess(static_cast<int>(syscall(SYS_pidfd_open, aProcess, 0)));
    pollfd lPoll{lProcess.get(), POLLIN, 0};
    return !lProcess.isOpen() || poll(&lPoll, 1, static_cast<int>(aTime.count())) == 1;
}
