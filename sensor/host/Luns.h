// The SCSI devices of this host.
#pragma once

#include <array>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "Measures.h"
#include "Ports.h"
#include "ScsiAddress.h"
#include "Storage.h"
#include "SysfsRound.h"
#include "Uevent.h"

/// Part of ZTCHostStorage, and held as that is.
class ZTCLuns {
  public:
    ZTCLuns(const std::string& acrRoot, std::size_t aMost);

    void take(const ZTSUevent& acrEvent);
    void lookAnew() { mRound.makeAllDue(); }
    /// The ports that its LUNs are seen by.
    void setPorts(const ZTSHostPorts& acrPorts);
    /// These ports, or what they see, are not as they were: so will their LUNs be, some when the time for a
    /// command or a lost port is over.
    void follow(const std::set<ZTSWwn>& acrInitiators);

    void list();
    void readDue(const ZTCSlice& acrSlice, unsigned int aQuarters, ZTNanoseconds aTime,
                 ZTCMeasures& arMeasures);
    void readRound(const ZTCSlice& acrSlice, unsigned int aQuarters, ZTNanoseconds aTime,
                   ZTCMeasures& arMeasures);

    /// Makes arLuns what is known now. False: it is already.
    bool tell(std::vector<ZTSLun>& arLuns);
    bool isWhole() const;
    std::size_t countDue() const { return mRound.countDue(); }
    std::size_t getLeftOut() const { return mRound.getLeftOut(); }

  private:
    static constexpr std::size_t CounterCount = 4;
    struct Lun {
        ZTSLun mLun;
        bool mIsDisk = false;
        bool mHasChanged = true;  // since it was told
        bool mIsTold = false;
        std::uint64_t mSince = 0;  // the step that has found it
        std::array<std::optional<std::uint64_t>, CounterCount> mCounts;
    };
    struct Port {
        ZTSWwn mName;
        std::string mFabric;

        bool operator==(const Port&) const = default;
    };

    bool isKeptBack(const Lun& acrLun) const;
    void makeFollowedDue();
    std::string folderOf(const std::string& acrAddress) const;
    ZTESysfsRead read(const ZTSScsiAddress& acrAddress, Lun& arLun, bool aIsWhole, ZTNanoseconds aTime,
                      ZTCMeasures& arMeasures);
    void readWhole(const ZTSScsiAddress& acrAddress, ZTCSysfsFolder& arFolder, const std::string& acrPath,
                   Lun& arLun);
    void count(ZTCSysfsFolder& arFolder, Lun& arLun, ZTNanoseconds aTime, ZTCMeasures& arMeasures);
    void setTarget(const ZTSScsiTarget& acrTarget, ZTSWwn& arName);
    const std::map<ZTSScsiTarget, ZTSWwn>& targetsOf(std::uint32_t aHost);

    const std::string mBus;
    const std::string mClass;
    const std::string mTargets;
    const std::string mRemotePorts;
    bool mIsBus = true;  // which of the two there is
    ZTCSysfsRound<ZTSScsiAddress, Lun> mRound;
    std::map<std::uint32_t, Port> mPorts;
    std::map<ZTSWwn, unsigned int> mFollowed;  // for so many steps yet
    // Of a host whose targets do not tell their names; for a round at most.
    std::map<std::uint32_t, std::map<ZTSScsiTarget, ZTSWwn>> mOfRemotePorts;
    unsigned int mSinceRemotePorts = 0;
    std::uint64_t mSteps = 0;
    bool mIsAnyKeptBack = false;
    bool mHasChanged = false;
    std::vector<ZTSScsiAddress> mTold;
};
