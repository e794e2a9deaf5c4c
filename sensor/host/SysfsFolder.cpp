#include "SysfsFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>

namespace {

struct DirectoryCloser {
    void operator()(DIR* apDirectory) const { closedir(apDirectory); }
};

// Whether an error says nothing of what was to be read.
bool sIsPassing(int aError) {
    return aError == EMFILE || aError == ENFILE || aError == ENOMEM || aError == EINTR;
}

std::string_view sFirstLine(std::string_view aText, std::size_t aLongest) {
    const std::string_view lLine = aText.substr(0, aText.find('\n'));
    const bool lIsText = std::all_of(lLine.begin(), lLine.end(), [](char aByte) {
        return aByte == '\t' || (aByte >= ' ' && aByte <= '~');
    });
    const std::size_t lFirst = lLine.find_first_not_of(" \t");
    if (!lIsText || lLine.size() > aLongest || lFirst == std::string_view::npos) {
        return {};
    }
    return lLine.substr(lFirst, lLine.find_last_not_of(" \t") - lFirst + 1);
}

}  // namespace

bool eachSysfsName(const std::string& acrDirectory,
                   const std::function<void(const char*, std::uint64_t)>& acrDo) {
    const std::unique_ptr<DIR, DirectoryCloser> lDirectory(opendir(acrDirectory.c_str()));
    if (lDirectory == nullptr) {
        return errno == ENOENT;
    }
    errno = 0;
    while (const dirent* const lpEntry = readdir(lDirectory.get())) {
        acrDo(static_cast<const char*>(lpEntry->d_name), lpEntry->d_ino);
        errno = 0;
    }
    return errno == 0;
}

ZTCSysfsFolder::ZTCSysfsFolder(std::string aPath, std::span<const char* const> aNames)
    : mPath(std::move(aPath)), mNames(aNames), mFiles(aNames.size(), -1) {}

ZTCSysfsFolder::~ZTCSysfsFolder() {
    end();
    for (std::size_t lAt = 0; lAt < mFiles.size(); ++lAt) {
        close(lAt);
    }
}

std::optional<std::string_view> ZTCSysfsFolder::read(std::size_t aAttribute) {
    const auto lRead = readBytes(aAttribute, {reinterpret_cast<unsigned char*>(mBytes), sizeof mBytes});
    return lRead ? std::optional(sFirstLine({mBytes, *lRead}, LongestText)) : std::nullopt;
}

std::optional<std::size_t> ZTCSysfsFolder::readBytes(std::size_t aAttribute,
                                                     std::span<unsigned char> aBytes) {
    const int lFile = openAttribute(aAttribute);
    const ssize_t lRead = lFile < 0 ? -1 : pread(lFile, aBytes.data(), aBytes.size(), 0);
    const int lError = lRead < 0 ? errno : 0;
    // What has gone is opened anew when it is back.
    if (lError != 0 || lFile >= KeptBelow) {
        close(aAttribute);
    }
    if (sIsPassing(lError)) {
        return {};
    }
    return static_cast<std::size_t>(std::max<ssize_t>(lRead, 0));
}

// O_NONBLOCK: for a pipe in its place. A driver that takes its time for an attribute is waited for.
int ZTCSysfsFolder::openAttribute(std::size_t aAttribute) {
    if (mFiles[aAttribute] < 0) {
        if (mFolder < 0) {
            mFolder = open(mPath.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        }
        if (mFolder >= 0) {
            mFiles[aAttribute] =
                openat(mFolder, mNames[aAttribute], O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
        }
    }
    return mFiles[aAttribute];
}

void ZTCSysfsFolder::close(std::size_t aAttribute) {
    if (mFiles[aAttribute] >= 0) {
        ::close(std::exchange(mFiles[aAttribute], -1));
    }
}

void ZTCSysfsFolder::end() {
    if (mFolder >= 0) {
        ::close(std::exchange(mFolder, -1));
    }
}

bool ZTCSysfsFolder::isHere() const {
    return access(mPath.c_str(), F_OK) == 0 || errno != ENOENT;
}
