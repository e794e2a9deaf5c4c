#include "ScsiBpf.h"

#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <linux/capability.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string_view>

#include "Rights.h"
#include "ScsiEvents.skel.h"
#include "SmallBtf.h"

namespace {

constexpr std::uint32_t sOnly = 0;

// The first complaint of libbpf, which would print it on standard error.
thread_local char tComplaint[256];

int sKeepComplaint(libbpf_print_level aLevel, const char* apFormat, va_list aArguments) {
    if (aLevel == LIBBPF_WARN && tComplaint[0] == '\0') {
        vsnprintf(tComplaint, sizeof tComplaint, apFormat, aArguments);
    }
    return 0;
}

void sListenToComplaints() {
    static const libbpf_print_fn_t sBefore = libbpf_set_print(sKeepComplaint);  // of the whole process
    static_cast<void>(sBefore);
    tComplaint[0] = '\0';
}

[[noreturn]] void sFail(const char* apWhat, int aErrno) {
    std::string_view lComplaint(tComplaint);
    lComplaint = lComplaint.substr(0, lComplaint.find('\n'));
    if (constexpr std::string_view lPrefix = "libbpf: "; lComplaint.starts_with(lPrefix)) {
        lComplaint.remove_prefix(lPrefix.size());
    }
    std::string lReason = std::string(apWhat) + ": " + strerror(aErrno);
    if (!lComplaint.empty()) {
        lReason += " (" + std::string(lComplaint) + ")";
    }
    throw ZTCScsiNotAvailable(lReason);
}

ZTSScsiEvents* sOpen(const ZTCSmallBtf& acrBtf) {
    sListenToComplaints();
    const std::string lPath = acrBtf.getPath();
    bpf_object_open_opts lOptions{};
    lOptions.sz = sizeof lOptions;
    lOptions.btf_custom_path = lPath.c_str();
    ZTSScsiEvents* const lpEvents = ZTSScsiEvents::open(&lOptions);
    if (lpEvents == nullptr) {
        sFail("the BPF program cannot be opened", errno);
    }
    return lpEvents;
}

std::string sDescribe(bool aIsTyped, const ZTCSmallBtf& acrBtf) {
    return std::string("BPF, ") + (aIsTyped ? "tp_btf" : "raw_tp") +
           (acrBtf.getMissing().empty() ? "" : "; this kernel does not tell of " + acrBtf.getMissing());
}

bool sIsConfidential() {
    std::string lModes;
    std::getline(std::ifstream("/sys/kernel/security/lockdown"), lModes);
    return lModes.find("[confidentiality]") != std::string::npos;
}

// How often the kernel did not run a program because one was running on that processor already.
std::uint64_t sCountMisses(int aProgram) {
    bpf_prog_info lInfo{};
    std::uint32_t lSize = sizeof lInfo;
    return aProgram >= 0 && bpf_obj_get_info_by_fd(aProgram, &lInfo, &lSize) == 0 ? lInfo.recursion_misses
                                                                                  : 0;
}

// Null: none.
const char* sFindMissingRights() {
    const bool lHasPerfmon = hasFcRight(CAP_PERFMON);
    if (hasFcRight(CAP_BPF)) {
        return lHasPerfmon ? nullptr : "the right CAP_PERFMON is not there";
    }
    return lHasPerfmon ? "the right CAP_BPF is not there"
                       : "the rights CAP_BPF and CAP_PERFMON are not there";
}

}  // namespace

std::unique_ptr<ZTCScsiSource> openScsiBpf() {
    if (access("/sys/bus/scsi", F_OK) != 0) {  // costs less than to look through the kernel's description
        throw ZTCScsiNotAvailable("the kernel has no SCSI, or its module is not loaded");
    }
    if (sIsConfidential()) {
        throw ZTCScsiNotAvailable("the kernel's lockdown keeps its memory from BPF programs");
    }
    const ZTCSmallBtf lBtf("/sys/kernel/btf/vmlinux", "/sys/kernel/btf/scsi_mod");
    // The library asks the kernel once what it can do, and remembers: not without the rights.
    const bool lIsAdmin = hasFcRight(CAP_SYS_ADMIN);
    if (const char* const lpMissing = lIsAdmin ? nullptr : sFindMissingRights()) {
        throw ZTCScsiNotAvailable(lpMissing);
    }
    if (lIsAdmin || !lBtf.isOfModule()) {
        try {
            return std::make_unique<ZTCScsiBpf>(ZTCScsiBpf::Way::Typed, lBtf, ZTCScsiBpf::Setup());
        } catch (const ZTCScsiNotAvailable&) {
            // Not every kernel has it.
        }
    }
    return std::make_unique<ZTCScsiBpf>(ZTCScsiBpf::Way::Raw, lBtf, ZTCScsiBpf::Setup());
}

void ZTCScsiBpf::Close::operator()(ZTSScsiEvents* apEvents) const {
    ZTSScsiEvents::destroy(apEvents);
}

void ZTCScsiBpf::Close::operator()(ring_buffer* apRing) const {
    ring_buffer__free(apRing);
}

ZTCScsiBpf::ZTCScsiBpf(Way aWay, const ZTCSmallBtf& acrBtf, const Setup& acrSetup)
    : mDescription(sDescribe(aWay == Way::Typed, acrBtf)), mpEvents(sOpen(acrBtf)) {
    const std::string_view lClass(acrSetup.mpTransportClass);
    __u64 lName = 0;
    lClass.copy(reinterpret_cast<char*>(&lName), sizeof lName);
    mpEvents->rodata->gTransportClass = lName;
    if (acrSetup.mKeys != 0) {
        bpf_map__set_max_entries(mpEvents->maps.gCountsA, acrSetup.mKeys);
        bpf_map__set_max_entries(mpEvents->maps.gCountsB, acrSetup.mKeys);
    }
    if (acrSetup.mRingBytes != 0) {
        bpf_map__set_max_entries(mpEvents->maps.gRing, acrSetup.mRingBytes);
    }
    const int lProcessors = libbpf_num_possible_cpus();  // each has a count of its own
    if (lProcessors <= 0) {
        sFail("the number of processors", -lProcessors);
    }
    mProcessors = static_cast<unsigned int>(lProcessors);
    attach(aWay, acrSetup);
    mpRing.reset(ring_buffer__new(bpf_map__fd(mpEvents->maps.gRing), onRecord, this, nullptr));
    if (mpRing == nullptr) {
        sFail("the ring of the BPF program", errno);
    }
    mLostBefore = countLost();
}

ZTCScsiBpf::~ZTCScsiBpf() = default;

void ZTCScsiBpf::attach(Way aWay, const Setup& acrSetup) {
    const bool lIsTyped = aWay == Way::Typed;
    auto& lrPrograms = mpEvents->progs;
    auto& lrLinks = mpEvents->links;
    const struct {
        bpf_program* mpProgram;
        bpf_link** mpLink;
        const char* mpTracepoint;
    } lRows[] = {
        {lIsTyped ? lrPrograms.ZTScsiDone : lrPrograms.ZTScsiDoneRaw, &lrLinks.ZTScsiDone, acrSetup.mpDone},
        {lIsTyped ? lrPrograms.ZTScsiLate : lrPrograms.ZTScsiLateRaw, &lrLinks.ZTScsiLate, acrSetup.mpLate}};
    for (const auto& lrRow : lRows) {
        bpf_program__set_autoload(lrRow.mpProgram, !lIsTyped || lrRow.mpTracepoint != nullptr);
        if (lIsTyped && lrRow.mpTracepoint != nullptr) {
            bpf_program__set_attach_target(lrRow.mpProgram, 0, lrRow.mpTracepoint);
        }
    }
    if (const int lError = ZTSScsiEvents::load(mpEvents.get())) {
        sFail("the BPF program cannot be loaded", -lError);
    }
    for (std::size_t lAt = 0; lAt < std::size(lRows); ++lAt) {
        const auto& lrRow = lRows[lAt];
        mPrograms[lAt] = bpf_program__fd(lrRow.mpProgram);
        if (lrRow.mpTracepoint == nullptr) {
            continue;
        }
        *lrRow.mpLink = lIsTyped ? bpf_program__attach(lrRow.mpProgram)
                                 : bpf_program__attach_raw_tracepoint(lrRow.mpProgram, lrRow.mpTracepoint);
        if (*lrRow.mpLink == nullptr) {
            sFail("the BPF program cannot be attached", errno);
        }
    }
}

int ZTCScsiBpf::getFile() const {
    return ring_buffer__epoll_fd(mpRing.get());
}

// There is room for one. A result below 0: take() has to make some, before the next one.
int ZTCScsiBpf::onRecord(void* apThis, void* apRecord, std::size_t aSize) {
    auto& lrThis = *static_cast<ZTCScsiBpf*>(apThis);
    ZTSScsiRecord lRecord;
    if (aSize != sizeof lRecord) {
        ++lrThis.mMalformed;
        return 0;
    }
    memcpy(&lRecord, apRecord, sizeof lRecord);
    lrThis.mpTaken->push_back({lRecord.mKey, lRecord.mTag, 1});
    return lrThis.mpTaken->size() < lrThis.mpTaken->capacity() ? 0 : -ENOSPC;
}

// The kernel makes no more of them than the counts have room for keys, until takeRepeats().
void ZTCScsiBpf::take(ZTScsiFailures& arFailures) {
    mpTaken = &arFailures;
    do {
        arFailures.reserve(arFailures.size() + sBatch);
    } while (ring_buffer__consume(mpRing.get()) == -ENOSPC);
}

// False: there is nothing more.
bool ZTCScsiBpf::readBatch() {
    const int lCounts = bpf_map__fd(mCounted == 0 ? mpEvents->maps.gCountsB : mpEvents->maps.gCountsA);
    std::uint32_t lNext = 0;  // where to go on, which is the beginning: what was read is gone
    std::uint32_t lCount = sBatch;
    const int lError =
        bpf_map_lookup_and_delete_batch(lCounts, nullptr, &lNext, mKeys, mRepeats, &lCount, nullptr);
    if (lError != 0 && lError != -ENOENT) {
        throw std::bad_alloc();
    }
    mRead = lCount;
    return lError == 0;
}

void ZTCScsiBpf::handOver(ZTScsiFailures& arFailures) {
    for (; mRead > 0; --mRead) {
        const ZTSScsiRepeats& lrRepeats = mRepeats[mRead - 1];
        if (lrRepeats.mCount != 0) {
            arFailures.push_back({mKeys[mRead - 1], lrRepeats.mTag, lrRepeats.mCount});
        }
    }
}

void ZTCScsiBpf::readLeft(ZTScsiFailures& arFailures) {
    handOver(arFailures);
    while (mHasLeft) {
        mHasLeft = readBatch();
        handOver(arFailures);
    }
}

void ZTCScsiBpf::takeRepeats(ZTScsiFailures& arFailures) {
    readLeft(arFailures);  // what memory did not suffice for
    const int lOther = bpf_map__fd(mCounted == 0 ? mpEvents->maps.gCountsB : mpEvents->maps.gCountsA);
    // Returns when no program counts in the one before any more.
    if (bpf_map_update_elem(bpf_map__fd(mpEvents->maps.gCounts), &sOnly, &lOther, BPF_ANY) != 0) {
        throw std::bad_alloc();
    }
    mCounted = 1 - mCounted;
    mHasLeft = true;
    readLeft(arFailures);
}

std::uint64_t ZTCScsiBpf::countLost() const {
    std::vector<std::uint64_t> lByProcessor(mProcessors);
    std::uint64_t lLost = mMalformed;
    if (bpf_map_lookup_elem(bpf_map__fd(mpEvents->maps.gLost), &sOnly, lByProcessor.data()) == 0) {
        for (const std::uint64_t lOne : lByProcessor) {
            lLost += lOne;
        }
    }
    return lLost;
}

std::uint64_t ZTCScsiBpf::takeLost() {
    const std::uint64_t lBefore = mLostBefore;
    mLostBefore = std::max(countLost(), lBefore);
    return mLostBefore - lBefore;
}

std::uint64_t ZTCScsiBpf::takeUnseen() {
    const std::uint64_t lBefore = mUnseenBefore;
    mUnseenBefore = std::max(sCountMisses(mPrograms[0]) + sCountMisses(mPrograms[1]), lBefore);
    return mUnseenBefore - lBefore;
}

std::string ZTCScsiBpf::describe() const {
    return mDescription;
}
