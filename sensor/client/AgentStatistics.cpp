#include "AgentStatistics.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "AgentStatus.h"
#include "ProcessTable.h"
#include "StatisticsBlock.h"

namespace {

constexpr std::size_t sHeaderSize = ZTSStatisticsBlock::HeaderSize;
constexpr std::size_t sWakeAt = offsetof(ZTSStatisticsBlock, mWake);
constexpr std::size_t sMostRow = 4096;
constexpr std::size_t sMostRows = 65536;

// An agent whose file is on a disk wakes nobody: it is looked at this often.
constexpr std::chrono::milliseconds sLook(1000);

template <class Value>
Value sValueAt(const std::string& acrBytes, std::size_t aOffset) {
    Value lValue;
    memcpy(&lValue, acrBytes.data() + aOffset, sizeof lValue);
    return lValue;
}

bool sIsPrintable(const std::string& acrText) {
    return !acrText.empty() && std::all_of(acrText.begin(), acrText.end(),
                                           [](char aSign) { return aSign >= ' ' && aSign <= '~'; });
}

// The number of a process that was killed may be another's by now: the lock is nobody else's. Nothing: the
// agent's group may read the figures, and not the pid file.
std::optional<ZTCSensorDescriptor> sOpenLock(const std::string& acrDirectory) {
    try {
        return openAgentLock(acrDirectory);
    } catch (const ZTCNoPermissionError&) {
        return {};
    } catch (const ZTCSensorError&) {
        return ZTCSensorDescriptor();
    }
}

}  // namespace

std::optional<std::uint64_t> ZTSStatistics::get(std::string_view aName) const {
    const auto lRow = std::find_if(mRows.begin(), mRows.end(),
                                   [=](const ZTSStatistic& acrRow) { return acrRow.mName == aName; });
    return lRow != mRows.end() ? std::optional(lRow->mValue) : std::nullopt;
}

ZTCAgentStatistics::ZTCAgentStatistics(const std::string& acrDirectory, const char* apFile,
                                       ZTEStatisticsOf aOf)
    : mPath(acrDirectory + apFile),
      mFile(openSensorFile(mPath, O_RDONLY, S_IFREG,
                           aOf == ZTEStatisticsOf::Anybody ? ZTEFileOf::Anybody : ZTEFileOf::Ours)),
      mLock(sOpenLock(acrDirectory)) {
    read();  // refuses what is none
    mProcess = static_cast<pid_t>(headerAt<std::uint64_t>(offsetof(ZTSStatisticsBlock, mProcess)));
    mStart = Time(std::chrono::duration_cast<Time::duration>(
        std::chrono::nanoseconds(headerAt<std::int64_t>(offsetof(ZTSStatisticsBlock, mStart)))));
    mRunning = ZTCSensorDescriptor(static_cast<int>(syscall(SYS_pidfd_open, mProcess, 0)));
    if (aOf == ZTEStatisticsOf::Running && hasGone()) {
        throw ZTCNoAgentError("no agent serves " + acrDirectory + ": process " + std::to_string(mProcess) +
                              ", whose figures are left there, has gone");
    }
    void* const lpHeader = mmap(nullptr, sHeaderSize, PROT_READ, MAP_SHARED, mFile.get(), 0);
    if (lpHeader == MAP_FAILED) {
        throwSensorErrno(mPath, errno);
    }
    mpHeader = lpHeader;
}

ZTCAgentStatistics::~ZTCAgentStatistics() {
    if (mpHeader != nullptr) {
        munmap(const_cast<void*>(mpHeader), sHeaderSize);
    }
}

void ZTCAgentStatistics::refuse(const std::string& acrWhy) const {
    throw ZTCSensorError(mPath + " holds no statistics: " + acrWhy);
}

std::string ZTCAgentStatistics::load(std::size_t aSize) const {
    std::string lBytes(aSize, '\0');
    const ssize_t lRead = pread(mFile.get(), lBytes.data(), aSize, 0);
    if (lRead < 0) {
        throwSensorErrno(mPath, errno);
    }
    if (static_cast<std::size_t>(lRead) < aSize) {
        refuse("it is cut short");
    }
    return lBytes;
}

template <class Value>
Value ZTCAgentStatistics::headerAt(std::size_t aOffset) const {
    return sValueAt<Value>(load(sHeaderSize), aOffset);
}

bool ZTCAgentStatistics::isInMemory() const {
    struct statfs lSystem {};
    return fstatfs(mFile.get(), &lSystem) == 0 && lSystem.f_type == TMPFS_MAGIC;
}

std::uint32_t ZTCAgentStatistics::readWake() const {
    return headerAt<std::uint32_t>(sWakeAt);
}

ZTSStatistics ZTCAgentStatistics::read(std::size_t aMostRows) const {
    const std::string lHeader = load(sHeaderSize);
    if (!lHeader.starts_with(ZTStatisticsMagic)) {
        refuse("it begins with something else");
    }
    const auto lCount = sValueAt<std::uint32_t>(lHeader, offsetof(ZTSStatisticsBlock, mRowCount));
    const auto lSize = sValueAt<std::uint32_t>(lHeader, offsetof(ZTSStatisticsBlock, mRowSize));
    if (lCount > sMostRows || lSize < sizeof(ZTSStatisticsRow) || lSize > sMostRow) {
        refuse("its header cannot be");
    }
    const std::string lBytes = load(sHeaderSize + std::min<std::size_t>(lCount, aMostRows) * lSize);
    ZTSStatistics lAll;
    lAll.mRows.reserve(lBytes.size() / lSize);
    lAll.mWake = sValueAt<std::uint32_t>(lBytes, sWakeAt);
    for (std::size_t lAt = sHeaderSize; lAt < lBytes.size(); lAt += lSize) {
        const char* const lpName = lBytes.data() + lAt;
        std::string lName(lpName, strnlen(lpName, ZTSStatisticsRow::NameSize));
        if (!sIsPrintable(lName)) {
            refuse("a name in it cannot be");
        }
        lAll.mRows.push_back(
            {std::move(lName), sValueAt<std::uint64_t>(lBytes, lAt + offsetof(ZTSStatisticsRow, mValue))});
    }
    return lAll;
}

bool ZTCAgentStatistics::hasGone() const {
    struct stat lFile {};
    if (fstat(mFile.get(), &lFile) != 0 || lFile.st_nlink == 0 || (mLock && !isAgentLock(mLock->get()))) {
        return true;
    }
    pollfd lPoll{mRunning.get(), POLLIN, 0};
    return mRunning.isOpen() ? poll(&lPoll, 1, 0) != 0 : !getProcessStart(mProcess);
}

bool ZTCAgentStatistics::waitForWake(std::uint32_t aSeen, std::chrono::milliseconds aTime,
                                     const ZTCWaitEnd* apEnd) const {
    using Clock = ZTCWaitEnd::Clock;
    const ZTCWaitEnd lNever;
    const ZTCWaitEnd& lrEnd = apEnd != nullptr ? *apEnd : lNever;
    const void* const lpWake = static_cast<const char*>(mpHeader) + sWakeAt;
    const auto lEnd = Clock::now() + aTime;
    for (;;) {
        if (readWake() != aSeen) {
            return true;
        }
        const auto lNow = Clock::now();
        if (lNow >= lEnd || lrEnd.hasEnded() || hasGone() ||
            !lrEnd.waitUntil(std::min(lEnd, lNow + sLook), lpWake, aSeen)) {
            return false;
        }
    }
}
