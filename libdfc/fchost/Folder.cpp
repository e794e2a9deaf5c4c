#include "Folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <memory>
#include <utility>

namespace {

constexpr std::uint64_t sRarestTry = 64;  // in looks

struct DirectoryCloser {
    void operator()(DIR* apDirectory) const { closedir(apDirectory); }
};

// Of what has just been opened, or not.
void sNote(bool aIsOpen, ZTSFcKept& arKept) {
    arKept.mHasRunOut = arKept.mHasRunOut || (!aIsOpen && (errno == EMFILE || errno == ENFILE));
}

// Whether what could not be opened is not there, or not for us. Anything else passes: memory that is short.
bool sIsAbsent(int aError) {
    constexpr int lAbsent[] = {ENOENT, ENOTDIR, ENODEV, ENXIO, EACCES, ELOOP};
    return std::find(std::begin(lAbsent), std::end(lAbsent), aError) != std::end(lAbsent);
}

std::string_view sFirstLine(std::string_view aText) {
    const std::string_view lLine = aText.substr(0, aText.find('\n'));
    const bool lIsText = std::all_of(lLine.begin(), lLine.end(), [](char aByte) {
        return aByte == '\t' || (aByte >= ' ' && aByte <= '~');
    });
    const std::size_t lFirst = lLine.find_first_not_of(" \t");
    if (!lIsText || lLine.size() == sizeof(ZTCFcFolder::Bytes) || lFirst == std::string_view::npos) {
        return {};
    }
    return lLine.substr(lFirst, lLine.find_last_not_of(" \t") - lFirst + 1);
}

}  // namespace

int countFcDescriptors(unsigned int aEighths) {
    rlimit lLimit{};
    getrlimit(RLIMIT_NOFILE, &lLimit);
    return static_cast<int>(std::min<rlim_t>(lLimit.rlim_cur, INT_MAX) / 8 * aEighths);
}

bool eachFcName(const std::string& acrDirectory, ZTSFcKept& arKept,
                const std::function<void(const char*, std::uint64_t)>& acrDo) {
    const std::unique_ptr<DIR, DirectoryCloser> lDirectory(opendir(acrDirectory.c_str()));
    sNote(lDirectory != nullptr, arKept);
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

std::optional<std::uint64_t> toFcNumber(std::string_view aText, int aBase) {
    std::uint64_t lNumber = 0;
    const auto lParsed = std::from_chars(aText.begin(), aText.end(), lNumber, aBase);
    return lParsed.ec == std::errc() && lParsed.ptr == aText.end() ? std::optional(lNumber) : std::nullopt;
}

ZTCFcFolder::ZTCFcFolder(std::string aPath, std::span<const char* const> aNames, ZTSFcKept& arKept)
    : mrKept(arKept), mPath(std::move(aPath)), mNames(aNames), mFiles(aNames.size(), Closed) {}

ZTCFcFolder::~ZTCFcFolder() {
    close();
}

void ZTCFcFolder::begin() {
    if (mLooks == mNextTry) {
        mNextTry += std::min(mLooks, sRarestTry);
    }
    ++mLooks;
}

int ZTCFcFolder::find() {
    mIsFound = mIsFound || openFolder() >= 0;
    return mIsFound ? 0 : errno;
}

int ZTCFcFolder::openFolder() {
    if (mFolder < 0) {
        mFolder = ::open(mPath.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        sNote(mFolder >= 0, mrKept);
    }
    return mFolder;
}

std::string_view ZTCFcFolder::read(std::size_t aAttribute, Bytes& arBytes) {
    int& lrKept = mFiles[aAttribute];
    if (lrKept == Absent && mLooks != mNextTry) {
        return {};
    }
    if (lrKept < 0) {
        // O_NONBLOCK: for a pipe in its place. A driver that takes its time for an attribute is waited for.
        const int lFolder = openFolder();
        lrKept = lFolder < 0
                     ? -1
                     : openat(lFolder, mNames[aAttribute], O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
        sNote(lrKept >= 0, mrKept);
    }
    const int lFile = lrKept;
    if (lFile < 0) {
        lrKept = sIsAbsent(errno) ? Absent : Closed;
        return {};
    }
    const ssize_t lRead = pread(lFile, arBytes, sizeof arBytes, 0);
    const bool lHasGone = lRead < 0 && errno == ENODEV;
    if (lHasGone || lFile >= mrKept.mBelow) {
        ::close(lFile);
        lrKept = lHasGone ? Absent : Closed;
    }
    return sFirstLine({arBytes, lRead > 0 ? static_cast<std::size_t>(lRead) : 0});
}

void ZTCFcFolder::end() {
    if (mFolder >= 0) {
        ::close(std::exchange(mFolder, Closed));
    }
}

void ZTCFcFolder::close() {
    end();
    for (int& lrFile : mFiles) {
        if (lrFile >= 0) {
            ::close(std::exchange(lrFile, Closed));
        }
    }
}
