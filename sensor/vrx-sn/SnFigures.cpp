#include "SnFigures.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "Incident.h"
#include "StatisticsBlock.h"

namespace {

constexpr const char* sNames[] = {
    "fetches_total",
    "last_fetch_time_ns",
    "events_total",
    "records_total",
    "rows_total",
    "commits_total",
    "last_commit_time_ns",
    "uncommitted_bytes",
    "store_stands_since_ns",
    "store_bytes",
    "store_wal_bytes",
    "store_records",
    "agent_up",
    "ports",
    "log_lost_total",
    "period_ms",
    "luns",
    "maps",
    "whole_maps",
    "paths",
    "usable_paths",
    "stalled_disks",
    "stalls_total",
    "fpins_total",
    "lost_messages_total",
    "requests_total",
    "longest_slice_ns",
    "incidents",
    "incidents_collector_silent",
    "incidents_port_down",
    "incidents_redundancy_lost",
    "incidents_link_flap",
    "incidents_link_degraded",
    "incidents_fabric_change",
    "incidents_slow_drain",
    "incidents_target_errors",
    "incidents_device_errors",
    "incidents_login_rejected",
    "incidents_overload",
    "incidents_resets",
    "incidents_io_stall",
    "incidents_told_total",
    "incident_events_lost_total",
    "commands_total",
    "commands_failed_total",
    "commands_dropped_total",
    "store_limit_bytes",
};
static_assert(ZTSN_LastIncidents - ZTSN_FirstIncidents + 1 == static_cast<int>(ZTEIncidentClass::Count));
static_assert(std::size(sNames) == ZTSN_Count && ZTSN_Count <= ZTSStatisticsBlock::MaxRows);

constexpr std::size_t sSize = ZTSStatisticsBlock::Size;
constexpr mode_t sMode = 0640;

// Filled with zeros.
ZTSStatisticsBlock* sMakeBlock() {
    void* const lpBlock = mmap(nullptr, sSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (lpBlock == MAP_FAILED) {
        throw std::bad_alloc();
    }
    return static_cast<ZTSStatisticsBlock*>(lpBlock);
}

void sFill(ZTSStatisticsBlock& arBlock) {
    memcpy(arBlock.mMagic, ZTStatisticsMagic, sizeof arBlock.mMagic);
    arBlock.mRowCount = ZTSN_Count;
    arBlock.mRowSize = sizeof(ZTSStatisticsRow);
    arBlock.mStart = static_cast<std::uint64_t>(
        std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count());
    arBlock.mProcess = static_cast<std::uint64_t>(getpid());
    for (std::size_t lRow = 0; lRow < ZTSN_Count; ++lRow) {
        strncpy(arBlock.mRows[lRow].mName, sNames[lRow], ZTSStatisticsRow::NameSize - 1);
    }
}

// A store into a page of a file on a disk could wait for it.
bool sIsInMemory(int aFile) {
    struct statfs lSystem {};
    return fstatfs(aFile, &lSystem) == 0 && lSystem.f_type == TMPFS_MAGIC;
}

}  // namespace

ZTCSnFigures::ZTCSnFigures(const std::string& acrDirectory) : mpBlock(sMakeBlock()) {
    sFill(*mpBlock);
    if (!acrDirectory.empty()) {
        mPath = acrDirectory + "/vrx-sn.stats";
        show();
    }
}

// Made by another name and then put into its place: nobody sees half of it.
void ZTCSnFigures::show() {
    const std::string lNew = mPath + ".new";
    unlink(lNew.c_str());  // left by one that was killed
    ZTCSensorDescriptor lFile(open(lNew.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, sMode));
    void* lpMapped = MAP_FAILED;
    if (!lFile.isOpen()) {
        mTrouble = mPath + ": " + strerror(errno);
    } else if (!sIsInMemory(lFile.get())) {
        mTrouble = mPath + ": not on tmpfs";
    } else if (posix_fallocate(lFile.get(), 0, sSize) != 0 || fchmod(lFile.get(), sMode) != 0 ||
               (lpMapped = mmap(nullptr, sSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE,
                                lFile.get(), 0)) == MAP_FAILED) {
        mTrouble = mPath + ": there is no room for it";
    } else {
        sFill(*static_cast<ZTSStatisticsBlock*>(lpMapped));
        if (rename(lNew.c_str(), mPath.c_str()) == 0) {
            munmap(std::exchange(mpBlock, static_cast<ZTSStatisticsBlock*>(lpMapped)), sSize);
            mFile = std::move(lFile);
            return;
        }
        mTrouble = mPath + ": " + strerror(errno);
        munmap(lpMapped, sSize);
    }
    unlink(lNew.c_str());
    mPath.clear();
}

ZTCSnFigures::~ZTCSnFigures() {
    withdraw();
    munmap(mpBlock, sSize);
}

// Another vrx-sn may have put its own there meanwhile.
void ZTCSnFigures::withdraw() const {
    struct stat lOurs {};
    struct stat lThere {};
    if (!mPath.empty() && fstat(mFile.get(), &lOurs) == 0 && stat(mPath.c_str(), &lThere) == 0 &&
        lOurs.st_ino == lThere.st_ino && lOurs.st_dev == lThere.st_dev) {
        unlink(mPath.c_str());
    }
}

std::atomic<std::uint64_t>& ZTCSnFigures::at(ZTESnFigure aFigure) const {
    return mpBlock->mRows[aFigure].mValue;
}
