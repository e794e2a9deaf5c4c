// Looks at LUNs, paths, and what stands above, at disks that stand still, and at what the kernel tells of its
// own accord. It reads from memory alone, as sysfs and procfs have it.
#pragma once

#include "DiskTimes.h"
#include "FcMessages.h"
#include "FilesLook.h"
#include "HostBook.h"
#include "HostStorage.h"
#include "KernelMessages.h"
#include "LookThread.h"
#include "Stalls.h"

/// A slice of a look each second, and all that the kernel tells at once.
class ZTCDisksLook : public ZTCLooker {
  public:
    /// aAskForPaths: has multipathd asked, as that question.
    ZTCDisksLook(const std::string& acrRoot, std::shared_ptr<ZTCHostBook> apBook,
                 std::shared_ptr<ZTCFilesLook> apFiles, std::function<void(std::uint64_t)> aAskForPaths);

    Clock::time_point look() override;
    void end() override;
    std::array<int, 2> getDescriptors() const override;
    void tellSlow(unsigned int aSeconds) override;
    void tellFailed(const char* apWhy) override;
    void tellHangs(unsigned int aSeconds) override;

  private:
    void takeTransport();
    void takeUevents();
    void takeUevent(std::span<const unsigned char> aBytes);
    void noteLostMessages();
    void lookAtStorage(Clock::time_point aNow);
    void askForPaths(Clock::time_point aNow);
    void lookAtDisks(Clock::time_point aNow);
    void noteLeftOut();

    const std::string mRoot;
    const std::shared_ptr<ZTCHostBook> mpBook;
    const std::shared_ptr<ZTCFilesLook> mpFiles;
    const std::function<void(std::uint64_t)> mAskForPaths;
    ZTCKernelMessages mTransport;
    ZTCKernelMessages mUevents;
    ZTCFcMessages mMessages;
    std::uint64_t mLostMessages = 0;  // that were told
    ZTCHostStorage mStorage;
    ZTCStalls mStalls;
    ZTCDiskTimes mTimes;
    ZTCMeasures mMeasures;
    Clock::time_point mBegan;
    Clock::time_point mNextSlice;
    Clock::time_point mNextDisks;
    Clock::time_point mNextDoubt;
    bool mIsUntold = true;
    std::size_t mLeftOut = 0;
    std::vector<ZTSFpin> mFpins;  // not told yet
};
