// What an event costs, from the vendor library's call to its return.
//
// A turn is so short that it wakes nobody: neither the log's writer, which is woken when an eighth of a ring
// is full, nor a sensor that waits for an eighth of the collection's limit. What that costs is in rows of its
// own.
#include <fmt/format.h>

#include <algorithm>
#include <memory>

#include "Bench.h"
#include "BenchAgent.h"
#include "Log.h"

namespace {

constexpr unsigned int sPlogiBytes = 27;  // that its record takes of the limit
constexpr unsigned int sCheckConditionBytes = 135;
constexpr unsigned int sEighthOfLimit = 262144 / 8;
constexpr unsigned int sMostCalls = 400;  // their records take less than an eighth of a ring of the log

struct Kind {
    unsigned int mCategory;
    unsigned int mSubcategory;
    unsigned int mPayload;
    unsigned int mBytes;  // of a record
};
constexpr Kind sPlogi{1, 1, 20, sPlogiBytes};
constexpr Kind sCheckCondition{4, 4, 32, sCheckConditionBytes};

struct EventRow {
    const char* mpName;
    const Kind& mrKind;
    bool mIsNew;
    unsigned int mMask;
};
constexpr EventRow sEvents[] = {
    {"repeated PLOGI, masked", sPlogi, false, 0},
    {"repeated PLOGI, notice logged", sPlogi, false, ZTLogCodeDefault},
    {"repeated check condition (no notice at any mask)", sCheckCondition, false, 0},
    {"new PLOGI, masked", sPlogi, true, 0},
    {"new PLOGI, notice logged", sPlogi, true, ZTLogCodeDefault},
    {"new check condition (no notice at any mask)", sCheckCondition, true, 0},
};

// Delivers events of a kind; new ones have another name each.
std::function<ZTBenchCall()> sMakerOf(const Kind& acrKind, bool aIsNew) {
    return [=] {
        const auto lEvent =
            std::make_shared<ZTCBenchEvent>(acrKind.mCategory, acrKind.mSubcategory, acrKind.mPayload);
        return aIsNew ? ZTBenchCall([=](unsigned int aNumber) {
            lEvent->setName(aNumber);
            lEvent->deliver();
        })
                      : ZTBenchCall([=](unsigned int) { lEvent->deliver(); });
    };
}

}  // namespace

void ztbench::events() {
    useAgent();
    for (const unsigned int lThreads : {1U, 2U, 4U}) {
        if (lThreads > std::max(2U, processors())) {
            break;  // that would measure the scheduler
        }
        const ZTCBenchGroup lGroup(fmt::format("event, {} thread{}", lThreads, lThreads == 1 ? "" : "s"),
                                   eventFloor(), lThreads);
        for (const EventRow& lrRow : sEvents) {
            // What is made before a turn begins counts, too.
            const unsigned int lMost = sEighthOfLimit / lrRow.mrKind.mBytes / lThreads * 9 / 10;
            lGroup.measure({lrRow.mpName, sMakerOf(lrRow.mrKind, lrRow.mIsNew), [&] { empty(lrRow.mMask); },
                            lrRow.mIsNew ? std::min(sMostCalls, lMost) : sMostCalls});
        }
    }
}

void ztbench::fill() {
    constexpr unsigned int lCalls = 300;  // with 23,000 records of 11 bytes, they stay below the limit
    useAgent();
    const ZTCBenchGroup lGroup("fill", eventFloor());
    for (const unsigned int lHeld : {0U, 5000U, 10000U, 23000U}) {
        lGroup.measure({fmt::format("new PLOGI, masked, {} records held", lHeld), sMakerOf(sPlogi, true),
                        [=] {
                            empty(0);
                            addSmallest(lHeld);
                        },
                        lCalls});
    }
}
