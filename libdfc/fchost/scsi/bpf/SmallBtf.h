// Where the kernel's structures have the members that the BPF program reads, copied out of the kernel's BTF
// into a small one of our own. With it, the program can be fitted to the kernel by whoever may load it; the
// library's own search through the modules' BTF takes CAP_SYS_ADMIN.
#pragma once

#include <string>

class ZTCSmallBtf {
  public:
    /// Of the kernel's BTF, and of the SCSI module's, which is not there if it is no module. Throws
    /// ZTCScsiNotAvailable.
    ZTCSmallBtf(const std::string& acrKernel, const std::string& acrModule);
    ~ZTCSmallBtf();
    ZTCSmallBtf(const ZTCSmallBtf&) = delete;
    ZTCSmallBtf& operator=(const ZTCSmallBtf&) = delete;

    /// Of a file in memory, as long as this lives.
    std::string getPath() const { return "/proc/self/fd/" + std::to_string(mFile); }
    bool isOfModule() const { return mIsOfModule; }
    /// What this kernel does not tell: "sense data, tags", or nothing.
    const std::string& getMissing() const { return mMissing; }

  private:
    bool mIsOfModule;
    std::string mMissing;
    int mFile = -1;
};
