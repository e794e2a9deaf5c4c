#include "ScsiPerf.h"

#include <new>
#include <system_error>
#include <utility>

#include "PerfEvents.h"
#include "ScsiSample.h"

namespace {

class ScsiPerf final : public ZTCScsiSource {
  public:
    // A time-out's result says GOOD.
    ScsiPerf(const std::string& acrTracing, const std::string& acrSysfs)
        : mDone(ZTCTraceFormat(acrTracing, "scsi", "scsi_dispatch_cmd_done"), ZTST_Done),
          mTimedOut(ZTCTraceFormat(acrTracing, "scsi", "scsi_dispatch_cmd_timeout"), ZTST_TimedOut),
          mEvents({{mDone.getId(), "result != 0"}, {mTimedOut.getId(), ""}}, acrSysfs) {}

    int getFile() const override { return mEvents.getFile(); }

    // For want of memory a failure counts as lost, or it would wait for the next one to be told of.
    void take(ZTScsiFailures& arFailures) override {
        mEvents.take([&](const unsigned char* apSample, std::size_t aSize) {
            auto lFailure = mDone.read(apSample, aSize);
            if (!lFailure) {
                lFailure = mTimedOut.read(apSample, aSize);
            }
            try {
                lFailure ? arFailures.push_back(*lFailure) : void(++mLost);
            } catch (const std::bad_alloc&) {
                ++mLost;
            }
        });
    }

    void takeRepeats(ZTScsiFailures&) override {}
    std::uint64_t takeLost() override { return std::exchange(mLost, 0) + mEvents.takeLost(); }
    void lookForProcessors() override { mEvents.lookForProcessors(); }

    std::string describe() const override {
        const std::string& lrRefusal = mEvents.getRefusal();
        return std::string("perf events, without residuals") +
               (mDone.hasSense() ? "" : ", without sense data") + ", with 32 bits of a LUN" +
               (lrRefusal.empty() ? "" : ", not on all processors (" + lrRefusal + ")");
    }

  private:
    const ZTCScsiSample mDone;
    const ZTCScsiSample mTimedOut;
    ZTCPerfEvents mEvents;
    std::uint64_t mLost = 0;  // samples that could not be handed on
};

}  // namespace

std::unique_ptr<ZTCScsiSource> openScsiPerf(const std::string& acrTracing, const std::string& acrSysfs) {
    try {
        return std::make_unique<ScsiPerf>(acrTracing, acrSysfs);
    } catch (const std::system_error& lrError) {
        throw ZTCScsiNotAvailable(lrError.what());
    }
}
