#include "PerfProcessor.h"

#include <linux/perf_event.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace {

// A thousand failed commands and more: what a processor brings in 10 ms at 100,000 a second, and in that time
// we are there. The memory is taken for every processor and never swapped, so not more; any user may lock
// four times as much for perf events (perf_event_mlock_kb).
constexpr std::size_t sRoom = 128 * 1024;

[[noreturn]] void sThrow(const char* apCall) {
    throw std::system_error(errno, std::generic_category(), apCall);
}

std::size_t sPage() {
    return static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

ZTCKernelFile sOpen(const ZTSPerfEvent& acrEvent, unsigned int aProcessor) {
    perf_event_attr lAttributes{};
    lAttributes.type = PERF_TYPE_TRACEPOINT;
    lAttributes.size = sizeof lAttributes;
    lAttributes.config = acrEvent.mId;
    lAttributes.sample_period = 1;
    lAttributes.sample_type = PERF_SAMPLE_RAW;
    lAttributes.read_format = PERF_FORMAT_TOTAL_TIME_ENABLED | PERF_FORMAT_LOST;
    lAttributes.wakeup_events = 1;
    lAttributes.disabled = 1;
    const auto lOpen = [&] {
        return static_cast<int>(
            syscall(SYS_perf_event_open, &lAttributes, -1, aProcessor, -1, PERF_FLAG_FD_CLOEXEC));
    };
    int lFile = lOpen();
    if (lFile < 0 && errno == EINVAL) {
        lAttributes.read_format = PERF_FORMAT_TOTAL_TIME_ENABLED;  // before 6.0
        lFile = lOpen();
    }
    return {lFile, "perf_event_open"};
}

std::vector<ZTCKernelFile> sOpenAll(const std::vector<ZTSPerfEvent>& acrEvents, unsigned int aProcessor) {
    std::vector<ZTCKernelFile> lFiles;
    lFiles.reserve(acrEvents.size());
    for (const ZTSPerfEvent& lrEvent : acrEvents) {
        lFiles.push_back(sOpen(lrEvent, aProcessor));
    }
    return lFiles;
}

template <class Argument>
void sControl(const ZTCKernelFile& acrFile, unsigned long aRequest, Argument aArgument) {
    if (ioctl(acrFile.get(), aRequest, aArgument) != 0) {
        sThrow("ioctl of a perf event");
    }
}

// As it is read, but for the last.
struct Counts {
    std::uint64_t mEvents = 0;
    std::uint64_t mTime = 0;
    std::uint64_t mLost = 0;
    bool mHasLost = false;
};

Counts sReadCounts(const ZTCKernelFile& acrFile) {
    Counts lCounts;
    constexpr auto lAll = static_cast<ssize_t>(offsetof(Counts, mHasLost));
    lCounts.mHasLost = read(acrFile.get(), &lCounts, lAll) == lAll;
    return lCounts;
}

}  // namespace

ZTCPerfProcessor::ZTCPerfProcessor(const std::vector<ZTSPerfEvent>& acrEvents, unsigned int aNumber)
    : mFiles(sOpenAll(acrEvents, aNumber)),
      mMapping(map(getFile())),
      mRing(static_cast<perf_event_mmap_page*>(mMapping.get()),
            static_cast<unsigned char*>(mMapping.get()) + sPage(), mMapping.get_deleter().mSize - sPage()) {
    for (std::size_t lAt = 0; lAt < mFiles.size(); ++lAt) {
        if (!acrEvents[lAt].mFilter.empty()) {
            sControl(mFiles[lAt], PERF_EVENT_IOC_SET_FILTER, acrEvents[lAt].mFilter.c_str());
        }
        if (lAt != 0) {
            sControl(mFiles[lAt], PERF_EVENT_IOC_SET_OUTPUT, getFile());
        }
    }
}

void ZTCPerfProcessor::Unmap::operator()(void* apStart) const {
    munmap(apStart, mSize);
}

// If others have used up what may be locked, less room is better than none.
ZTCPerfProcessor::Mapping ZTCPerfProcessor::map(int aFile) {
    for (std::size_t lRoom = sRoom; lRoom >= sPage(); lRoom /= 2) {
        const std::size_t lSize = sPage() + lRoom;  // before the data a page that controls them
        void* const lpStart = mmap(nullptr, lSize, PROT_READ | PROT_WRITE, MAP_SHARED, aFile, 0);
        if (lpStart != MAP_FAILED) {
            return {lpStart, Unmap{lSize}};
        }
    }
    sThrow("mmap of perf events");
}

void ZTCPerfProcessor::start() const {
    for (const ZTCKernelFile& lrFile : mFiles) {
        sControl(lrFile, PERF_EVENT_IOC_ENABLE, 0);
    }
}

// The events of a processor that goes stop for good: their time stands still.
bool ZTCPerfProcessor::isRunning() const {
    return sReadCounts(mFiles.front()).mTime != sReadCounts(mFiles.front()).mTime;
}

void ZTCPerfProcessor::read(const ZTCPerfRing::Take& acrTake) {
    mHadAny = mRing.read(acrTake, mLosses) || mHadAny;
}

// The kernel asks the processor itself for its counts: only for a ring that had something in it, for no other
// was ever full.
std::uint64_t ZTCPerfProcessor::takeLost() {
    const ZTSPerfLosses lLosses = std::exchange(mLosses, {});
    if (!std::exchange(mHadAny, false)) {
        return lLosses.mMalformed;
    }
    std::uint64_t lDropped = 0;
    bool lIsCounted = true;
    for (const ZTCKernelFile& lrFile : mFiles) {
        const Counts lCounts = sReadCounts(lrFile);
        lDropped += lCounts.mLost;
        lIsCounted = lIsCounted && lCounts.mHasLost;
    }
    if (!lIsCounted) {
        return lLosses.mMalformed + lLosses.mTold;
    }
    return lLosses.mMalformed + lDropped - std::exchange(mDropped, lDropped);
}
