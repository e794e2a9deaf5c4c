// A host that is made up: its folders below a root, and what becomes of it.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <unordered_map>

#include "HostSite.h"
#include "HostTree.h"
#include "HostWords.h"
#include "KernelVoice.h"

struct ZTSHostRemote;

/// A block device: a path's disk, a map, a volume, a partition, a disk of its own.
struct ZTSHostDisk {
    enum class What : unsigned char { Path, Map, Volume, Partition, Plain };

    What mWhat = What::Plain;
    std::pair<unsigned int, unsigned int> mNumber;  ///< major and minor
    std::string mDisk;                              ///< "sdb", "dm-3"
    std::string mName;                              ///< of device mapper's, "vg0-root"; else the disk's
    std::string mFolder;                            ///< "sys/devices/virtual/block/dm-3"
    std::vector<ZTSHostDisk*> mOver;
    std::vector<ZTSHostDisk*> mAbove;
    const ZTSSiteLun* mpLun = nullptr;  ///< of a path and a map

    std::string mAddress;  ///< of a path: "1:0:0:12"
    ZTSHostRemote* mpRemote = nullptr;
    bool mIsUsable = true;
    bool mHasFailed = false;  ///< it was failed by hand: a link that is back does not bring it back

    bool mIsStalled = false;
    double mRate = 0;    ///< commands a second that begin here
    double mTime = 0.8;  ///< milliseconds a command
    double mCommands = 0;
    double mMilliseconds = 0;

    std::string numberText() const {
        return std::to_string(mNumber.first) + ":" + std::to_string(mNumber.second);
    }
};

/// A port beyond the fabric, as one port of the host sees it.
struct ZTSHostRemote {
    unsigned int mHost = 0;
    unsigned int mNumber = 0;  ///< of the remote port and of the target
    const ZTSSiteTarget* mpTarget = nullptr;
    std::string mFolder;   ///< ".../host1/rport-1:0-0"
    bool mIsLost = false;  ///< it has logged out, whatever the links do
    bool mIsGone = false;  ///< and its disks with it
};

/// Everything below the root is made anew at the begin. One thread. Throws ZTCHostSimError.
class ZTCMadeUpHost {
  public:
    using Clock = std::chrono::steady_clock;
    using Time = std::chrono::milliseconds;

    ZTCMadeUpHost(const std::string& acrRoot, ZTSSite aSite);
    ZTCMadeUpHost(const ZTCMadeUpHost&) = delete;
    ZTCMadeUpHost& operator=(const ZTCMadeUpHost&) = delete;

    /// What is due; and disks complete commands for the time since the last call, at most a second.
    void step(Clock::time_point aNow);
    /// multipathd's answer: a line each path, "sdb mpatha active".
    std::string listPaths() const;
    bool isMultipathdHere() const { return mIsMultipathdHere; }
    /// How many paths each map has left, and what was said.
    std::string report() const;

    // What may become of it. A name of a disk is the kernel's or device mapper's.
    ZTSHostDisk& findDisk(const std::string& acrName);
    /// A path, or those of a map, of a target, of an array, or of ARRAY/CONTROLLER.
    std::vector<ZTSHostDisk*> findPaths(const std::string& acrName);
    ZTSSitePort& findPort(const std::string& acrHost);
    /// Those of a target, of an array, or of ARRAY/CONTROLLER.
    std::vector<ZTSHostRemote*> findRemotes(const std::string& acrName);
    /// A port of the site, or any world wide name.
    ZTSWwn findName(const std::string& acrName) const;

    void setPath(ZTSHostDisk& arPath, bool aIsUsable);
    /// aAfter: until device mapper fails the paths, or takes them back; until then their commands wait.
    void setLink(ZTSSitePort& arPort, bool aIsUp, Time aAfter);
    void setTarget(const std::string& acrName, bool aIsHere, Time aAfter);
    void removeTarget(const std::string& acrName);
    void removePath(ZTSHostDisk& arPath);
    /// Adds whatever paths the site has to a map's LUN and the host has not.
    void addPaths(const std::string& acrMap);
    void setAttribute(ZTSSitePort& arPort, const std::string& acrName, const std::string& acrText);
    void setDeviceAttribute(ZTSHostDisk& arPath, const std::string& acrName, const std::string& acrText);
    void setRemoteAttribute(const std::string& acrName, const std::string& acrAttribute,
                            const std::string& acrText);
    /// Of a host, or of HOST/TARGET.
    void count(const std::string& acrWhere, const std::string& acrName, std::uint64_t aMore);
    void tellFpin(ZTSSitePort& arPort, ZTCHostWords& arWords);
    void tellTransport(const ZTSSitePort& acrPort, std::uint32_t aCode, std::uint32_t aData);
    void addVolume(const std::string& acrName, const std::vector<std::string>& acrOver);
    void removeVolume(const std::string& acrName);
    void mount(const std::string& acrPoint, const std::string& acrName, const std::string& acrType);
    void unmount(const std::string& acrPoint);
    void setConfig(const std::string& acrMore);
    void setMultipathd(bool aIsHere) { mIsMultipathdHere = aIsHere; }
    void reboot(const std::string& acrKernel);
    ZTCKernelVoice& getVoice() { return mVoice; }

  private:
    struct Due {
        Clock::time_point mTime;
        std::function<void()> mDo;
    };

    void build();
    void buildPorts();
    void buildRemotes(const ZTSSitePort& acrPort);
    void buildPath(ZTSHostRemote& arRemote, const ZTSSiteLun& acrLun);
    void buildMap(const ZTSSiteLun& acrLun);
    void buildBlock(const ZTSSiteBlock& acrBlock);
    void buildTarget(const ZTSHostRemote& acrRemote);
    void buildProc();
    void writeMounts();
    void writeDiskStats();
    void writeCommandCounts();
    ZTSHostDisk& addDisk(ZTSHostDisk aDisk, const std::string& acrFolder, ZTCHostTree::Files aFiles);
    unsigned int takeDiskIndex();
    ZTSHostDisk& addMapped(ZTSHostDisk::What aWhat, const std::string& acrName, const std::string& acrUuid,
                           std::uint64_t aGib);
    void removeDisk(ZTSHostDisk& arDisk);
    void setOver(ZTSHostDisk& arUpper, ZTSHostDisk& arLower, bool aIsOver);
    void sayDisk(const char* apAction, const ZTSHostDisk& acrDisk, ZTCKernelVoice::Values aMore = {});
    void saySdev(const char* apAction, const ZTSHostDisk& acrPath,
                 const ZTCKernelVoice::Values& acrMore = {});
    void addMissing(const std::function<bool(const ZTSHostRemote&, const ZTSSiteLun&)>& acrWhich);
    ZTSHostDisk* findPath(const ZTSHostRemote& acrRemote, const ZTSSiteLun& acrLun);
    bool isOnline(const ZTSHostRemote& acrRemote) const;
    /// The remote ports' and their paths' states follow the links.
    void followLinks(const std::function<bool(const ZTSHostRemote&)>& acrWhich, Time aAfter);
    void settlePaths(const std::vector<ZTSHostRemote*>& acrRemotes);
    void schedule(Time aAfter, std::function<void()> aDo);
    static ZTSHostDisk* mapOf(const ZTSHostDisk& acrPath);
    std::string hostFolder(const ZTSSitePort& acrPort) const;
    std::string statisticsOf(const std::string& acrWhere);
    void countFile(const std::string& acrPath, std::uint64_t aMore);

    // How commands go on.
    bool isStanding(const ZTSHostDisk& acrDisk) const;
    static bool hasCommands(const ZTSHostDisk& acrDisk);
    std::uint64_t countWaiting(const ZTSHostDisk& acrDisk) const;
    void complete(double aSeconds);
    void completeAbove(ZTSHostDisk& arDisk, double aCommands);

    ZTSSite mSite;
    ZTCHostTree mTree;
    ZTCKernelVoice mVoice;
    std::map<unsigned int, bool> mIsUp;  ///< by host: its link
    std::vector<std::unique_ptr<ZTSHostRemote>> mRemotes;
    std::map<std::pair<unsigned int, unsigned int>, std::unique_ptr<ZTSHostDisk>> mDisks;
    std::unordered_map<std::string, ZTSHostDisk*> mByName;
    std::map<const ZTSSiteLun*, ZTSHostDisk*> mMaps;
    unsigned int mDiskIndices = 0;
    std::set<unsigned int> mFreeIndices;
    unsigned int mMapperMinors = 0;
    std::vector<Due> mDue;
    Clock::time_point mLast = Clock::now();
    std::pair<unsigned int, unsigned int> mCounted{};
    std::uint64_t mMapperEvents = 0;
    bool mIsQuiet = true;  ///< it boots: nobody listens yet
    bool mIsMultipathdHere = true;
};
