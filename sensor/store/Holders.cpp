#include "Holders.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <utility>
#include <vector>

#include "ShownText.h"

namespace {

constexpr std::size_t sMost = 3;

// The bytes of the file beside the log on which SQLite's locks are: one that writers hold, two of checkpoints
// and recovery, five of snapshots. Behind them is one that everybody holds who has the file open.
constexpr std::uint64_t sWriteLock = 120;
constexpr std::uint64_t sLastSnapshot = 127;

struct Lock {
    int mProcess = 0;
    bool mIsWrite = false;
    std::string mFile;  // device and inode, as the kernel has them
    std::uint64_t mBegin = 0;
    std::uint64_t mEnd = 0;
};

// "3: POSIX  ADVISORY  READ 1234 08:01:5678 123 123", with "->" behind the number for one that waits.
bool sReadLock(const std::string& acrLine, Lock& arLock) {
    std::istringstream lLine(acrLine);
    std::string lNumber, lKind, lHow, lType, lEnd;
    if (!(lLine >> lNumber >> lKind >> lHow >> lType >> arLock.mProcess >> arLock.mFile >> arLock.mBegin >>
          lEnd) ||
        lKind == "->") {
        return false;
    }
    arLock.mIsWrite = lType == "WRITE";
    arLock.mEnd = lEnd == "EOF" ? UINT64_MAX : std::strtoull(lEnd.c_str(), nullptr, 10);
    return lKind == "POSIX" || lKind == "OFDLCK";
}

std::vector<Lock> sListLocks(const std::string& acrPath) {
    std::vector<Lock> lLocks;
    std::ifstream lFile(acrPath);
    for (std::string lLine; std::getline(lFile, lLine);) {
        Lock lLock;
        if (sReadLock(lLine, lLock)) {
            lLocks.push_back(std::move(lLock));
        }
    }
    return lLocks;
}

// The end of such a file's name: stat may say another device than the kernel's list of locks does.
std::string sInodeOf(const std::string& acrPath) {
    struct stat lFacts {};
    return stat(acrPath.c_str(), &lFacts) == 0 ? ':' + std::to_string(lFacts.st_ino) : "?";
}

// This process has the file beside the log open, so it is in the list.
std::string sDeviceOf(const std::vector<Lock>& acrLocks, const std::string& acrInode) {
    const auto lOwn = std::find_if(acrLocks.begin(), acrLocks.end(), [&](const Lock& acrLock) {
        return acrLock.mProcess == getpid() && acrLock.mFile.ends_with(acrInode);
    });
    return lOwn != acrLocks.end() ? lOwn->mFile.substr(0, lOwn->mFile.size() - acrInode.size()) : "";
}

std::string sDescribe(int aProcess, const std::string& acrProc) {
    std::string lName;
    std::getline(std::ifstream(acrProc + '/' + std::to_string(aProcess) + "/comm") >> std::ws, lName);
    return "process " + std::to_string(aProcess) + (lName.empty() ? "" : " (" + toShownText(lName) + ')');
}

}  // namespace

std::string describeHolders(const std::string& acrPath, const std::string& acrProc) {
    const std::vector<Lock> lLocks = sListLocks(acrProc + "/locks");
    const std::string lFile = sInodeOf(acrPath);
    const std::string lShared = sInodeOf(acrPath + "-shm");
    const std::string lDevice = sDeviceOf(lLocks, lShared);
    std::vector<std::pair<bool, int>> lHolders;  // false, which comes first: it holds up all that write
    for (const Lock& lrLock : lLocks) {
        const bool lIsSnapshot =
            lrLock.mFile == lDevice + lShared && lrLock.mEnd >= sWriteLock && lrLock.mBegin <= sLastSnapshot;
        const bool lIsWrite = lrLock.mIsWrite && (lIsSnapshot || lrLock.mFile == lDevice + lFile);
        if ((lIsSnapshot || lIsWrite) && lrLock.mProcess != getpid() && lrLock.mProcess > 0) {
            lHolders.emplace_back(!lIsWrite, lrLock.mProcess);
        }
    }
    std::sort(lHolders.begin(), lHolders.end());
    std::string lText;
    std::vector<int> lTold;
    for (const auto& [lIsReader, lProcess] : lHolders) {
        if (lTold.size() < sMost && std::find(lTold.begin(), lTold.end(), lProcess) == lTold.end()) {
            lTold.push_back(lProcess);
            lText += (lText.empty() ? "" : ", ") + sDescribe(lProcess, acrProc);
        }
    }
    return lText;
}
