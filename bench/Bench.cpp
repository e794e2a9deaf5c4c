#include "Bench.h"

#include <fmt/format.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <ctime>
#include <thread>

#include "BenchAgent.h"
#include "Mutex.h"

namespace {

using Clock = std::chrono::steady_clock;
using Singles = std::vector<std::uint64_t>;

constexpr auto sTime = std::chrono::milliseconds(1000);  // of a row
constexpr unsigned int sLeastTurns = 15;
constexpr unsigned int sWarmUp = 25;  // a thread makes one in so many calls before a turn begins

// Of the processors that this process may use, one after the other.
std::vector<unsigned int> sProcessors() {
    std::vector<unsigned int> lProcessors;
    cpu_set_t lSet;
    if (sched_getaffinity(0, sizeof lSet, &lSet) == 0) {
        for (unsigned int lAt = 0; lAt < CPU_SETSIZE; ++lAt) {
            if (CPU_ISSET(lAt, &lSet)) {
                lProcessors.push_back(lAt);
            }
        }
    }
    return lProcessors;
}

// Moves the calling thread to a processor. Where that is refused it stays where it is.
void sPin(unsigned int aThread) {
    const std::vector<unsigned int> lProcessors = sProcessors();
    if (lProcessors.size() > 1) {
        cpu_set_t lSet;
        CPU_ZERO(&lSet);
        CPU_SET(lProcessors[aThread % lProcessors.size()], &lSet);
        sched_setaffinity(0, sizeof lSet, &lSet);
    }
}

// What reading the clock twice takes by itself.
std::uint64_t sClockCost() {
    static const std::uint64_t sCost = [] {
        Singles lTimes(1001);
        for (std::uint64_t& lrTime : lTimes) {
            const std::uint64_t lBefore = ztbench::ticks();
            lrTime = ztbench::ticks() - lBefore;
        }
        std::nth_element(lTimes.begin(), lTimes.begin() + 500, lTimes.end());
        return lTimes[500];
    }();
    return sCost;
}

double sNanoseconds(std::uint64_t aTicks) {
    return static_cast<double>(aTicks - std::min(aTicks, sClockCost())) * ztbench::tickLength();
}

struct Turn {
    double mTime = 0;         // nanoseconds of one call, the mean of all threads
    double mTogether = 0;     // the part of the turn in which all threads ran
    double mAllocations = 0;  // a call
};

// Threads that make their calls at the same time, turn by turn. Between the turns they sleep.
class Crew {
  public:
    Crew(unsigned int aThreads, const ZTSBenchLoad& acrFloor, const ZTSBenchLoad& acrLoad)
        : mpLoads{&acrFloor, &acrLoad}, mMembers(aThreads) {
        for (unsigned int lThread = 0; lThread < aThreads; ++lThread) {
            mMembers[lThread].mSingles.resize(std::max(acrFloor.mCalls, acrLoad.mCalls));
        }
        for (unsigned int lThread = 0; lThread < aThreads; ++lThread) {
            mThreads.emplace_back([=, this] { work(lThread); });
        }
    }
    ~Crew() {
        mEnds = true;
        next();
        for (std::thread& lrThread : mThreads) {
            lrThread.join();
        }
    }
    Crew(const Crew&) = delete;
    Crew& operator=(const Crew&) = delete;

    // A turn of load 0, the floor, or 1. With singles each call is timed, too, and its time added to them.
    Turn run(unsigned int aLoad, std::vector<double>* apSingles) {
        const ZTSBenchLoad& lrLoad = *mpLoads[aLoad];
        mLoad = aLoad;
        mAreSingles = apSingles != nullptr && lrLoad.mCalls > 1;
        if (lrLoad.mPrepare) {
            lrLoad.mPrepare();
        }
        next();
        for (unsigned int lDone; (lDone = mDone.load()) != mTurn.load() * mMembers.size();) {
            mDone.wait(lDone);
        }
        return sum(apSingles);
    }

  private:
    struct alignas(64) Member {
        std::uint64_t mBegin = 0;
        std::uint64_t mEnd = 0;
        std::uint64_t mAllocations = 0;
        Singles mSingles{};
    };

    void next() {
        ++mTurn;
        mTurn.notify_all();
    }

    void work(unsigned int aThread) {
        if (mMembers.size() > 1) {
            sPin(aThread);
        }
        Member& lrMine = mMembers[aThread];
        const ZTBenchCall lCalls[] = {mpLoads[0]->mMake(), mpLoads[1]->mMake()};
        unsigned int lNumber = aThread << 28;
        for (unsigned int lTurn = 0;; ++lTurn) {
            mTurn.wait(lTurn);
            if (mEnds) {
                return;
            }
            const ZTBenchCall& lrCall = lCalls[mLoad];
            const unsigned int lCount = mpLoads[mLoad]->mCalls;
            for (unsigned int lAt = 0; lAt < lCount / sWarmUp; ++lAt) {
                lrCall(++lNumber);
            }
            arrive(lTurn);
            const std::uint64_t lAllocated = ztbench::allocations();
            lrMine.mBegin = ztbench::ticks();
            for (unsigned int lAt = 0; lAt < lCount; ++lAt) {
                if (!mAreSingles) {
                    lrCall(++lNumber);
                    continue;
                }
                const std::uint64_t lBefore = ztbench::ticks();
                lrCall(++lNumber);
                lrMine.mSingles[lAt] = ztbench::ticks() - lBefore;
            }
            lrMine.mEnd = ztbench::ticks();
            lrMine.mAllocations = ztbench::allocations() - lAllocated;
            ++mDone;
            mDone.notify_one();
        }
    }

    // Returns to all threads at the same moment: none is woken, each spins until the last one is there.
    void arrive(unsigned int aTurn) {
        constexpr unsigned int lManyLooks = 100000;
        const unsigned int lAll = (aTurn + 1) * static_cast<unsigned int>(mMembers.size());
        ++mArrived;
        for (unsigned int lLook = 0; mArrived.load(std::memory_order_acquire) < lAll; ++lLook) {
            if (lLook > lManyLooks) {
                sched_yield();  // there are fewer processors than threads
            }
        }
    }

    Turn sum(std::vector<double>* apSingles) {
        const ZTSBenchLoad& lrLoad = *mpLoads[mLoad];
        const double lCalls = static_cast<double>(lrLoad.mCalls) * lrLoad.mEach;
        Turn lTurn;
        std::uint64_t lFirst = ~std::uint64_t{0};
        std::uint64_t lLast = 0;
        std::uint64_t lBegin = 0;
        std::uint64_t lEnd = ~std::uint64_t{0};
        for (const Member& lrMember : mMembers) {
            const double lTime = sNanoseconds(lrMember.mEnd - lrMember.mBegin) / lCalls;
            lTurn.mTime += lTime / static_cast<double>(mMembers.size());
            lTurn.mAllocations +=
                static_cast<double>(lrMember.mAllocations) / lCalls / static_cast<double>(mMembers.size());
            lFirst = std::min(lFirst, lrMember.mBegin);
            lLast = std::max(lLast, lrMember.mEnd);
            lBegin = std::max(lBegin, lrMember.mBegin);
            lEnd = std::min(lEnd, lrMember.mEnd);
            if (mAreSingles) {
                for (unsigned int lAt = 0; lAt < lrLoad.mCalls; ++lAt) {
                    apSingles->push_back(sNanoseconds(lrMember.mSingles[lAt]) / lrLoad.mEach);
                }
            } else if (apSingles != nullptr) {
                apSingles->push_back(lTime);
            }
        }
        lTurn.mTogether =
            static_cast<double>(lEnd - std::min(lEnd, lBegin)) / static_cast<double>(lLast - lFirst);
        return lTurn;
    }

    const ZTSBenchLoad* const mpLoads[2];
    std::vector<Member> mMembers;
    std::vector<std::thread> mThreads;
    unsigned int mLoad = 0;
    bool mAreSingles = false;
    bool mEnds = false;
    std::atomic<unsigned int> mTurn{0};
    std::atomic<unsigned int> mArrived{0};
    std::atomic<unsigned int> mDone{0};
};

std::string sRatio(double aRatio) {
    return fmt::format("{:.{}f}", aRatio, aRatio < 100 ? 2 : 0);
}

// Nanoseconds.
std::string sText(double aNumber) {
    return aNumber < 1000 ? fmt::format("{:.1f}", aNumber) : fmt::format("{:.0f}", aNumber);
}

std::string sQuantiles(std::vector<double>& arSingles) {
    std::string lText;
    for (const double lPart : {0.5, 0.99, 0.999}) {
        // Of too few calls there is no such quantile.
        const bool lIsThere = static_cast<double>(arSingles.size()) * (1 - lPart) >= 1;
        lText += fmt::format(" {:>7}", lIsThere ? sText(ztbench::quantile(arSingles, lPart)) : "");
    }
    return lText;
}

}  // namespace

void ZTSBenchRow::print() {
    const auto lMedian = [](std::vector<double>& arValues) {
        return arValues.empty() ? "" : sText(ztbench::quantile(arValues, 0.5));
    };
    std::string lRatio;
    if (!mRatios.empty()) {
        const double lLow = ztbench::quantile(mRatios, 0.25);
        const double lHigh = ztbench::quantile(mRatios, 0.75);
        lRatio = fmt::format("{} {:>13}", sRatio(ztbench::quantile(mRatios, 0.5)),
                             fmt::format("({}-{})", sRatio(lLow), sRatio(lHigh)));
    }
    fmt::print("{:<66} {:>9} {:>21}  {}  {}  {}\n", mName, lMedian(mTimes), lRatio, sQuantiles(mSingles),
               sQuantiles(mFloorSingles), mMore);
    fflush(stdout);
}

ZTCBenchGroup::ZTCBenchGroup(const std::string& acrName, const ZTSBenchLoad& acrFloor, unsigned int aThreads)
    : mName(acrName), mFloor(acrFloor), mThreads(aThreads) {
    fmt::print("\n");
    ZTSBenchLoad lSelf(acrFloor);
    lSelf.mName += ": the floor";
    measure(lSelf);
}

void ZTCBenchGroup::measure(const ZTSBenchLoad& acrLoad) const {
    ZTSBenchRow lRow{mName + ": " + acrLoad.mName};
    std::vector<double> lTogether;
    double lAllocations = 0;
    {
        Crew lCrew(mThreads, mFloor, acrLoad);
        const auto lEnd = Clock::now() + sTime;
        double lBefore = lCrew.run(0, nullptr).mTime;
        while (lRow.mTimes.size() < sLeastTurns || Clock::now() < lEnd) {
            const Turn lTurn = lCrew.run(1, acrLoad.mCalls == 1 ? &lRow.mSingles : nullptr);
            const double lBehind = lCrew.run(0, mFloor.mCalls == 1 ? &lRow.mFloorSingles : nullptr).mTime;
            lRow.mTimes.push_back(lTurn.mTime);
            lRow.mRatios.push_back(lTurn.mTime / lBefore);
            lRow.mRatios.push_back(lTurn.mTime / lBehind);
            lBefore = lBehind;
            lTogether.push_back(lTurn.mTogether);
            lAllocations += lTurn.mAllocations;
            if (acrLoad.mCalls > 1) {
                lCrew.run(1, &lRow.mSingles);
            }
            if (mFloor.mCalls > 1) {
                lCrew.run(0, &lRow.mFloorSingles);
            }
        }
    }
    lAllocations /= static_cast<double>(lRow.mTimes.size());
    if (lAllocations >= 0.1) {
        lRow.mMore += fmt::format("{:.2f} allocations ", lAllocations);
    }
    if (mThreads > 1) {
        lRow.mMore += fmt::format("{:.0f} % of the time at once ", 100 * ztbench::quantile(lTogether, 0.5));
    }
    lRow.mMore += acrLoad.mMore ? acrLoad.mMore() : "";
    lRow.print();
}

double ztbench::tickLength() {
    static const double sLength = [] {
        const auto lStart = Clock::now();
        const std::uint64_t lFirst = ticks();
        while (Clock::now() - lStart < std::chrono::milliseconds(50)) {
        }
        const std::chrono::duration<double, std::nano> lTime = Clock::now() - lStart;
        return lTime.count() / static_cast<double>(ticks() - lFirst);
    }();
    return sLength;
}

double ztbench::quantile(std::vector<double>& arValues, double aPart) {
    const auto lAt =
        arValues.begin() + static_cast<std::ptrdiff_t>(aPart * static_cast<double>(arValues.size() - 1));
    std::nth_element(arValues.begin(), lAt, arValues.end());
    return *lAt;
}

unsigned int ztbench::processors() {
    return static_cast<unsigned int>(sProcessors().size());
}

ZTSBenchLoad ztbench::eventFloor() {
    static ZTCMutex& srLock = *new ZTCMutex;
    return {"lock, clock, 20 bytes, count", [] {
                return [](unsigned int) {
                    static unsigned char sEvent[20];
                    static unsigned char sCopy[20];
                    static unsigned int sCount;
                    const ZTCScopedLock lLock(srLock);
                    timespec lNow;
                    clock_gettime(CLOCK_REALTIME, &lNow);
                    memcpy(sCopy, sEvent, sizeof sCopy);
                    keep(sCopy);
                    keep(lNow);
                    keep(++sCount);
                };
            }};
}
