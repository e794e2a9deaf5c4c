#include "PerfEvents.h"

#include <sys/epoll.h>

#include <cerrno>
#include <charconv>
#include <iterator>
#include <set>
#include <system_error>
#include <utility>

#include "ScsiSource.h"

namespace {

constexpr unsigned int sProcessorLimit = 8192;  // more than the kernel can be built for

// Such as "0-3,5".
std::set<unsigned int> sParseProcessors(const std::string& acrText) {
    std::set<unsigned int> lProcessors;
    const char* lpAt = acrText.data();
    const char* const lpEnd = lpAt + acrText.size();
    while (lpAt < lpEnd && *lpAt >= '0' && *lpAt <= '9') {
        unsigned int lFirst = 0;
        lpAt = std::from_chars(lpAt, lpEnd, lFirst).ptr;
        unsigned int lLast = lFirst;
        if (lpAt < lpEnd && *lpAt == '-') {
            lpAt = std::from_chars(lpAt + 1, lpEnd, lLast).ptr;
        }
        for (; lFirst <= lLast && lFirst < sProcessorLimit; ++lFirst) {
            lProcessors.insert(lFirst);
        }
        lpAt += lpAt < lpEnd && *lpAt == ',' ? 1 : 0;
    }
    return lProcessors;
}

// What to do, for whoever reads the journal.
std::string sAdvise(const std::system_error& acrError) {
    const int lError = acrError.code().value();
    const char* const lpAdvice =
        lError == EACCES || lError == EPERM
            ? ": it takes CAP_PERFMON, or CAP_SYS_ADMIN if kernel.perf_event_paranoid is above 2, and a "
              "SystemCallFilter that has perf_event_open"
        : lError == EMFILE ? ": it takes two a processor"
                           : "";
    return acrError.what() + std::string(lpAdvice);
}

}  // namespace

ZTCPerfEvents::ZTCPerfEvents(std::vector<ZTSPerfEvent> aEvents, std::string aSysfs)
    : mEvents(std::move(aEvents)),
      mSysfs(std::move(aSysfs)),
      mFile(epoll_create1(EPOLL_CLOEXEC), "epoll_create") {
    lookForProcessors();
    if (!mRefusal.empty()) {
        throw ZTCScsiNotAvailable(mRefusal);
    }
}

// One that has gone is read out first: that may be more than is wanted now. What cannot be opened is tried
// again the next time.
void ZTCPerfEvents::lookForProcessors() {
    mRefusal.clear();
    std::set<unsigned int> lOnline;
    try {
        lOnline = sParseProcessors(readKernelFile(mSysfs + "/devices/system/cpu/online"));
    } catch (const std::system_error& lrError) {
        mRefusal = lrError.what();
    }
    if (lOnline.empty()) {
        mRefusal = mRefusal.empty() ? "no processors below " + mSysfs : mRefusal;
        return;
    }
    for (auto lAt = mProcessors.begin(); lAt != mProcessors.end();) {
        if (lOnline.contains(lAt->first) && lAt->second->isRunning()) {
            ++lAt;
        } else {
            mStopped.push_back(std::move(lAt->second));
            lAt = mProcessors.erase(lAt);
        }
    }
    for (const unsigned int lNumber : lOnline) {
        if (!mProcessors.contains(lNumber)) {
            open(lNumber);
        }
    }
}

void ZTCPerfEvents::open(unsigned int aNumber) {
    try {
        auto lProcessor = std::make_unique<ZTCPerfProcessor>(mEvents, aNumber);
        // By the edge: an event that can only tell of its end would do so for ever.
        epoll_event lWanted{};
        lWanted.events = EPOLLIN | EPOLLET;
        if (epoll_ctl(mFile.get(), EPOLL_CTL_ADD, lProcessor->getFile(), &lWanted) != 0) {
            throw std::system_error(errno, std::generic_category(), "epoll_ctl");
        }
        mProcessors.emplace(aNumber, std::move(lProcessor)).first->second->start();
    } catch (const std::system_error& lrError) {
        if (lrError.code().value() != ENODEV) {  // that one has just gone
            mRefusal = sAdvise(lrError);
        }
    }
}

// The edges are taken off before the rings are read: what comes behind makes new ones. If there are more,
// this is called again.
void ZTCPerfEvents::take(const ZTCPerfRing::Take& acrTake) {
    epoll_event lEdges[64];
    epoll_wait(mFile.get(), lEdges, std::size(lEdges), 0);
    for (const auto& [lNumber, lrProcessor] : mProcessors) {
        lrProcessor->read(acrTake);
    }
    for (const auto& lrProcessor : mStopped) {
        lrProcessor->read(acrTake);
        mLost += lrProcessor->takeLost();
    }
    mStopped.clear();
}

std::uint64_t ZTCPerfEvents::takeLost() {
    std::uint64_t lLost = std::exchange(mLost, 0);
    for (const auto& [lNumber, lrProcessor] : mProcessors) {
        lLost += lrProcessor->takeLost();
    }
    return lLost;
}
