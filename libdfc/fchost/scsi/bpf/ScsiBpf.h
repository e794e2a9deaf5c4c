// Failed SCSI commands from a BPF program of our own.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "ScsiSource.h"

class ZTCSmallBtf;
struct ring_buffer;
struct ZTSScsiEvents;  // the program, its maps and links: made from ScsiEvents.bpf.c

/// Takes CAP_BPF and CAP_PERFMON, which may be given up then. Throws ZTCScsiNotAvailable.
std::unique_ptr<ZTCScsiSource> openScsiBpf();

class ZTCScsiBpf : public ZTCScsiSource {
  public:
    enum class Way : unsigned char {
        Typed,  ///< tp_btf: the quickest; of a module's tracepoint, it takes CAP_SYS_ADMIN
        Raw,    ///< raw_tp
    };
    /// What is otherwise only where there is no SCSI to be looked at.
    struct Setup {
        const char* mpDone = "scsi_dispatch_cmd_done";  ///< null: attached to none, and by Raw only loaded
        const char* mpLate = "scsi_dispatch_cmd_timeout";
        const char* mpTransportClass = "fc_host";  ///< empty: of any
        std::uint32_t mKeys = 0;                   ///< 0, and the next: as many as the program says
        std::uint32_t mRingBytes = 0;
    };

    ZTCScsiBpf(Way aWay, const ZTCSmallBtf& acrBtf, const Setup& acrSetup);
    ~ZTCScsiBpf() override;

    int getFile() const override;
    void take(ZTScsiFailures& arFailures) override;
    void takeRepeats(ZTScsiFailures& arFailures) override;
    std::uint64_t takeLost() override;
    std::uint64_t takeUnseen() override;
    std::string describe() const override;

    /// The programs of the two tracepoints, for their statistics.
    int getDoneProgram() const { return mPrograms[0]; }
    int getLateProgram() const { return mPrograms[1]; }

  private:
    struct Close {
        void operator()(ZTSScsiEvents* apEvents) const;
        void operator()(ring_buffer* apRing) const;
    };
    static int onRecord(void* apThis, void* apRecord, std::size_t aSize);
    void attach(Way aWay, const Setup& acrSetup);
    bool readBatch();
    void readLeft(ZTScsiFailures& arFailures);
    void handOver(ZTScsiFailures& arFailures);
    std::uint64_t countLost() const;

    const std::string mDescription;
    const std::unique_ptr<ZTSScsiEvents, Close> mpEvents;
    int mPrograms[2]{-1, -1};
    std::unique_ptr<ring_buffer, Close> mpRing;

    ZTScsiFailures* mpTaken = nullptr;  // where onRecord adds to
    std::uint64_t mMalformed = 0;
    std::uint64_t mLostBefore = 0;
    std::uint64_t mUnseenBefore = 0;
    unsigned int mProcessors = 0;

    // The counts that the programs have left, and what was read of them and not handed over.
    int mCounted = 0;  // which of the two is counted in
    bool mHasLeft = false;
    static constexpr std::uint32_t sBatch = 512;
    ZTSScsiKey mKeys[sBatch];
    ZTSScsiRepeats mRepeats[sBatch];
    std::uint32_t mRead = 0;
};
