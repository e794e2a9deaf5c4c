#include "MountTable.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <optional>
#include <utility>

#include "HostDescriptor.h"
#include "ShownText.h"

namespace {

constexpr std::size_t sLongestFile = std::size_t{4} << 20;
constexpr std::size_t sLongestPath = 4096;
constexpr unsigned int sLooksARound = 30;  // nobody tells of swapping
constexpr char sSwap[] = "[swap]";

// Up to the next blank; takes it off.
std::string_view sTakeWord(std::string_view& arRest) {
    arRest.remove_prefix(std::min(arRest.find_first_not_of(" \t"), arRest.size()));
    const std::string_view lWord = arRest.substr(0, arRest.find_first_of(" \t"));
    arRest.remove_prefix(lWord.size());
    return lWord;
}

std::string_view sTakeLine(std::string_view& arRest) {
    const std::string_view lLine = arRest.substr(0, arRest.find('\n'));
    arRest.remove_prefix(std::min(lLine.size() + 1, arRest.size()));
    return lLine;
}

// A blank is \040, as the kernel writes it.
std::string sUnescape(std::string_view aWord) {
    const auto lIsDigit = [](char aSign) { return aSign >= '0' && aSign <= '7'; };
    std::string lText;
    while (!aWord.empty()) {
        if (aWord.size() >= 4 && aWord[0] == '\\' &&
            std::all_of(aWord.begin() + 1, aWord.begin() + 4, lIsDigit)) {
            lText += static_cast<char>((aWord[1] - '0') << 6 | (aWord[2] - '0') << 3 | (aWord[3] - '0'));
            aWord.remove_prefix(4);
        } else {
            lText += aWord[0];
            aWord.remove_prefix(1);
        }
    }
    return lText;
}

// "36 35 98:0 /root /data rw,noatime shared:1 - xfs /dev/mapper/data rw". Nothing: it is on no disk.
std::optional<ZTSMounted> sReadMount(std::string_view aLine) {
    std::array<std::string_view, 6> lWords;
    for (std::string_view& lrWord : lWords) {
        lrWord = sTakeWord(aLine);
    }
    std::string_view lWord = sTakeWord(aLine);
    while (!lWord.empty() && lWord != "-") {
        lWord = sTakeWord(aLine);
    }
    const std::string_view lType = sTakeWord(aLine);
    const std::string_view lSource = sTakeWord(aLine);
    const ZTDeviceNumber lDevice = readDeviceNumber(lWords[2]);
    // What has a major number of 0 is made by the file system, over several disks perhaps.
    const bool lIsDisk = lDevice >> 32 != 0;
    if (lWord.empty() || !lWords[4].starts_with('/') || (!lIsDisk && !lSource.starts_with("/dev/"))) {
        return {};
    }
    return ZTSMounted{lIsDisk ? lDevice : 0, sUnescape(lSource.substr(0, sLongestPath)),
                      toShownText(sUnescape(lWords[4].substr(0, sLongestPath))),
                      toShownText(lType.substr(0, 64))};
}

// The mount that a file lies in. Null: none of these.
const ZTSMounted* sFindMount(const std::string& acrFile, const std::vector<ZTSMounted>& acrMounts) {
    const ZTSMounted* lpBest = nullptr;
    for (const ZTSMounted& lrMount : acrMounts) {
        const std::string& lrPoint = lrMount.mPoint;
        const bool lIsIn =
            acrFile.starts_with(lrPoint) &&
            (lrPoint == "/" || acrFile.size() == lrPoint.size() || acrFile[lrPoint.size()] == '/');
        if (lIsIn && (lpBest == nullptr || lrPoint.size() >= lpBest->mPoint.size())) {
            lpBest = &lrMount;
        }
    }
    return lpBest;
}

struct FileText {
    std::string mText;
    bool mIsWhole = true;
    bool mCanBeKnown = true;  // not while descriptors or memory are short
};

FileText sReadAll(int aFile) {
    FileText lFile;
    if (aFile < 0) {
        lFile.mCanBeKnown = errno != EMFILE && errno != ENFILE && errno != ENOMEM;
        return lFile;
    }
    for (char lBytes[16384]; lFile.mIsWhole;) {
        const ssize_t lRead = read(aFile, lBytes, sizeof lBytes);
        if (lRead <= 0) {
            lFile.mCanBeKnown = lRead == 0 || (errno != EINTR && errno != ENOMEM);
            break;
        }
        lFile.mText.append(lBytes, static_cast<std::size_t>(lRead));
        lFile.mIsWhole = lFile.mText.size() <= sLongestFile;
    }
    // The last line of what is too long is there in part.
    lFile.mText.resize(lFile.mIsWhole ? lFile.mText.size() : lFile.mText.rfind('\n') + 1);
    return lFile;
}

int sOpen(const std::string& acrPath) {
    return open(acrPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
}

// Another one: the file is not what it was. Of what the kernel makes up as it is read it says nothing.
std::uint64_t sStateOf(const std::string& acrPath) {
    struct stat lState {};
    if (stat(acrPath.c_str(), &lState) != 0) {
        return 0;
    }
    std::uint64_t lSum = 0;
    for (const auto lPart :
         {static_cast<std::uint64_t>(lState.st_ino), static_cast<std::uint64_t>(lState.st_size),
          static_cast<std::uint64_t>(lState.st_mtim.tv_sec),
          static_cast<std::uint64_t>(lState.st_mtim.tv_nsec)}) {
        lSum = lSum * 0x100000001b3 + lPart;
    }
    return lSum;
}

}  // namespace

ZTDeviceNumber readDeviceNumber(std::string_view aText) {
    std::uint32_t lParts[2] = {};
    const auto lMajor = std::from_chars(aText.begin(), aText.end(), lParts[0]);
    if (lMajor.ec != std::errc() || lMajor.ptr == aText.end() || *lMajor.ptr != ':') {
        return 0;
    }
    const auto lMinor = std::from_chars(lMajor.ptr + 1, aText.end(), lParts[1]);
    const bool lIsNumber = lMinor.ec == std::errc() && lMinor.ptr == aText.end();
    return lIsNumber ? ZTDeviceNumber{lParts[0]} << 32 | lParts[1] : 0;
}

std::vector<ZTSMounted> readMountInfo(std::string_view aText, std::size_t aMost, std::size_t& arLeftOut) {
    std::vector<ZTSMounted> lMounts;
    while (!aText.empty()) {
        auto lMount = sReadMount(sTakeLine(aText));
        if (lMount && lMounts.size() == aMost) {
            ++arLeftOut;
        } else if (lMount) {
            lMounts.push_back(std::move(*lMount));
        }
    }
    return lMounts;
}

std::vector<ZTSMounted> readSwaps(std::string_view aText, const std::vector<ZTSMounted>& acrMounts) {
    constexpr std::size_t lMost = 32;  // the kernel has no more
    std::vector<ZTSMounted> lSwaps;
    sTakeLine(aText);
    while (!aText.empty() && lSwaps.size() < lMost) {
        std::string_view lLine = sTakeLine(aText);
        const std::string lPath = sUnescape(sTakeWord(lLine).substr(0, sLongestPath));
        const std::string_view lType = sTakeWord(lLine);
        if (lType == "partition" && lPath.starts_with("/dev/")) {
            lSwaps.push_back({0, lPath, sSwap, "swap"});
        } else if (const auto* const lpMount = sFindMount(lPath, acrMounts);
                   lType == "file" && lpMount != nullptr) {
            lSwaps.push_back({lpMount->mDevice, lpMount->mSource, sSwap, "swap"});
        }
    }
    return lSwaps;
}

ZTCMountTable::ZTCMountTable(const std::string& acrRoot, std::size_t aMost) : mRoot(acrRoot), mMost(aMost) {}

ZTCMountTable::~ZTCMountTable() {
    const ZTCHostDescriptor lMounts(mMounts);
}

// Of this process where the first one's may not be seen.
int ZTCMountTable::openMounts() {
    const ZTCHostDescriptor lBefore(std::exchange(mMounts, -1));
    mMounts = sOpen(mRoot + "/proc/1/mountinfo");
    if (mMounts < 0 && (errno == ENOENT || errno == EACCES || errno == EPERM)) {
        mMounts = sOpen(mRoot + "/proc/self/mountinfo");
    }
    return mMounts;
}

bool ZTCMountTable::hasChanged() {
    pollfd lPoll{mMounts, POLLPRI, 0};
    const bool lIsTold = mMounts >= 0 && poll(&lPoll, 1, 0) > 0 && (lPoll.revents & (POLLPRI | POLLERR)) != 0;
    std::uint64_t lState = 0;
    for (const char* const lpFile : {"/proc/1/mountinfo", "/proc/self/mountinfo", "/proc/swaps"}) {
        lState = lState * 3 + sStateOf(mRoot + lpFile);
    }
    const bool lIsOther = std::exchange(mState, lState) != lState;
    return ++mSinceRead >= sLooksARound || lIsTold || lIsOther;
}

bool ZTCMountTable::look() {
    mIsDue |= hasChanged();
    if (!mIsDue) {
        return false;
    }
    const FileText lMounts = sReadAll(openMounts());
    const ZTCHostDescriptor lSwaps(sOpen(mRoot + "/proc/swaps"));
    const FileText lSwapped = sReadAll(lSwaps.get());
    if (!lMounts.mCanBeKnown || !lSwapped.mCanBeKnown) {
        return false;
    }
    std::size_t lLeftOut = lMounts.mIsWhole ? 0 : 1;
    auto lMounted = readMountInfo(lMounts.mText, mMost, lLeftOut);
    for (ZTSMounted& lrSwap : readSwaps(lSwapped.mText, lMounted)) {
        lMounted.push_back(std::move(lrSwap));
    }
    mIsDue = false;
    mHasLooked = true;
    mSinceRead = 0;
    mLeftOut = lLeftOut;
    const bool lIsOther = lMounted != mMounted;
    mMounted = std::move(lMounted);
    return lIsOther;
}
