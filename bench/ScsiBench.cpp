// What the BPF program costs a SCSI command that succeeds, and one that fails. There need not be any SCSI: it
// is attached to where system calls begin, fitted to a layout in which their registers are the command. The
// times are the kernel's own, which cost some themselves: those of an empty program at the same place tell
// how much.
#include <fmt/format.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>

#include "Bench.h"
#include "FakeCommand.h"
#include "ScsiBpf.h"
#include "SmallBtf.h"

#if defined(__x86_64__)

namespace {

constexpr unsigned int sCalls = 20000;  // in a turn
constexpr unsigned int sTurns = 61;
constexpr std::size_t sDevice = 2048;  // places in the page
constexpr std::size_t sSense = 1024;

// The places of registers on the kernel's stack, where a system call begins.
ZTFakeLayout sRegisters() {
    ZTFakeLayout lLayout = fakeLayout();
    lLayout["scsi_cmnd.cmnd"] = 56;          // r10, r9, r8
    lLayout["scsi_cmnd.sense_buffer"] = 96;  // rdx
    lLayout["scsi_cmnd.device"] = 104;       // rsi
    lLayout["scsi_cmnd.result"] = 112;       // rdi
    lLayout["scsi_cmnd.resid_len"] = 116;
    lLayout["request.tag"] = FakeRequestSize + 120;  // the number of the call
    return lLayout;
}

// The kernel's figures of a program.
struct Runs {
    double mTime;  // nanoseconds
    double mCount;

    static Runs of(int aProgram) {
        bpf_prog_info lInfo{};
        std::uint32_t lSize = sizeof lInfo;
        bpf_obj_get_info_by_fd(aProgram, &lInfo, &lSize);
        return {static_cast<double>(lInfo.run_time_ns), static_cast<double>(lInfo.run_cnt)};
    }
    double eachSince(const Runs& acrBefore) const {
        return (mTime - acrBefore.mTime) / (mCount - acrBefore.mCount);
    }
};

class File {
  public:
    File(const char* apWhat, int aFile) : mFile(aFile) {
        if (aFile < 0) {
            throw std::runtime_error(std::string(apWhat) + ": " + strerror(errno));
        }
    }
    ~File() { close(mFile); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    int get() const { return mFile; }

  private:
    const int mFile;
};

int sLoadEmpty() {
    const bpf_insn lCode[] = {{BPF_ALU64 | BPF_MOV | BPF_K, 0, 0, 0, 0}, {BPF_JMP | BPF_EXIT, 0, 0, 0, 0}};
    return bpf_prog_load(BPF_PROG_TYPE_RAW_TRACEPOINT, "empty", "GPL", lCode, std::size(lCode), nullptr);
}

// Shows that the program went all the way.
std::uint64_t sCountRepeats(ZTCScsiBpf& arBpf) {
    ZTScsiFailures lFailures;
    arBpf.takeRepeats(lFailures);
    std::uint64_t lCount = 0;
    for (const ZTSScsiFailure& lrFailure : lFailures) {
        lCount += lrFailure.mKey.mHasSense != 0 ? lrFailure.mCount : 0;
    }
    return lCount;
}

struct Command {
    const char* mpName;
    long mResult;
};

class Stand {
  public:
    Stand() {
        writeFakeBtf(mPath, mLayout);
        putFakeDevice(mPage, mLayout, sDevice, "fc_host");
        mPage.putBytes(sSense, std::string("\x72\x05\x20", 4));
    }
    ~Stand() { std::filesystem::remove(mPath); }
    Stand(const Stand&) = delete;
    Stand& operator=(const Stand&) = delete;

    void measure(ZTCScsiBpf::Way aWay, const Command& acrCommand) const {
        ZTCScsiBpf::Setup lSetup;
        lSetup.mpDone = "sys_enter";
        lSetup.mpLate = nullptr;
        ZTCScsiBpf lBpf(aWay, ZTCSmallBtf(mPath, mPath + ".none"), lSetup);
        ZTSBenchRow lRow{std::string("scsi: ") + acrCommand.mpName + ", " +
                         (aWay == ZTCScsiBpf::Way::Typed ? "tp_btf" : "raw_tp")};
        std::vector<double> lEmpty;
        turn(acrCommand);
        for (unsigned int lLeft = sTurns; lLeft > 0; --lLeft) {
            const Runs lBefore = Runs::of(lBpf.getDoneProgram()), lFloor = Runs::of(mEmpty.get());
            turn(acrCommand);
            lRow.mTimes.push_back(Runs::of(lBpf.getDoneProgram()).eachSince(lBefore));
            lEmpty.push_back(Runs::of(mEmpty.get()).eachSince(lFloor));
            lRow.mRatios.push_back(lRow.mTimes.back() / lEmpty.back());
        }
        lRow.mMore = fmt::format("the empty program {:.1f} ns; counted {}", ztbench::quantile(lEmpty, 0.5),
                                 sCountRepeats(lBpf));
        lRow.print();
    }

  private:
    void turn(const Command& acrCommand) const {
        for (unsigned int lLeft = sCalls; lLeft > 0; --lLeft) {
            syscall(SYS_getppid, acrCommand.mResult, mPage.at(sDevice), mPage.at(sSense), 0xc1, 0, 0);
        }
    }

    const File mStatistics{"the kernel's statistics", bpf_enable_stats(BPF_STATS_RUN_TIME)};
    const File mEmpty{"an empty program", sLoadEmpty()};
    const File mLink{"its tracepoint", bpf_raw_tracepoint_open("sys_enter", mEmpty.get())};
    const ZTCKernelPage mPage;
    const ZTFakeLayout mLayout = sRegisters();
    const std::string mPath = "/tmp/zt-bench-btf." + std::to_string(getpid());
};

}  // namespace

void ztbench::scsi() try {
    fmt::print("\n");
    const Stand lStand;
    for (const Command& lrCommand : {Command{"a command that succeeded", 0},
                                     Command{"CHECK CONDITION with sense data, as the one before", 2}}) {
        for (const auto lWay : {ZTCScsiBpf::Way::Typed, ZTCScsiBpf::Way::Raw}) {
            lStand.measure(lWay, lrCommand);
        }
    }
} catch (const std::runtime_error& lrError) {
    fmt::print("scsi: not measured, which takes root and a kernel with BPF: {}\n", lrError.what());
}

#else

void ztbench::scsi() {
    fmt::print("\nscsi: not measured, for the registers of this processor are not known here\n");
}

#endif
