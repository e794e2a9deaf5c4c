// The Fibre Channel ports of this host, from the kernel's transport class in sysfs.
#pragma once

#include <compare>
#include <map>
#include <string>

#include "Ports.h"
#include "SysfsFolder.h"

/// Reads them again and again. What cannot be read is not known; nothing in it is believed longer than it may
/// be: a port's names as long as it is there, its fabric as long as its link is down, for that is where it
/// was. What it is made of, its symbolic name, model, firmware and driver, is what was told of it last: it is
/// read each minute, and when something else of it has changed. A port that comes back has these as it had
/// them at the first look, so that what has become of them is seen at the next. One thread. Only
/// std::bad_alloc is thrown; the next look is as good as any.
class ZTCHostPorts {
  public:
    /// What there is beyond is left out.
    static constexpr std::size_t MostLocal = 256;
    static constexpr std::size_t MostRemote = 4096;

    /// acrRoot: where `sys` is looked for.
    explicit ZTCHostPorts(const std::string& acrRoot);
    ZTCHostPorts(const ZTCHostPorts&) = delete;
    ZTCHostPorts& operator=(const ZTCHostPorts&) = delete;

    /// A look: the local ports each time, and a part of the remote ports, so that it stays short; all of them
    /// within a minute of looks, and those of a port whose state or address has changed at once and for some
    /// looks more, for they follow. The first look reads all. True: something is not as it was.
    bool look();
    const ZTSHostPorts& getPorts() const { return mPorts; }
    /// How many ports the last look left out.
    std::size_t getLeftOut() const { return mLeftOut; }

  private:
    struct Local {
        Local(const std::string& acrFolder, std::uint64_t aInode);

        const std::uint64_t mInode;
        std::uint64_t mLook = 0;      // the last one that found it
        unsigned int mMakingDue = 0;  // what it is made of is read in so many looks
        std::string mDriver, mDriverVersion;
        ZTCSysfsFolder mFolder;
        ZTSLocalPort mPort;
    };
    // As rport-H:C-I has them: the host, the channel, the port's number.
    struct RemoteKey {
        std::uint32_t mHost, mChannel, mNumber;
        auto operator<=>(const RemoteKey&) const = default;
    };
    struct Remote {
        std::uint64_t mInode = 0;
        std::uint64_t mLook = 0;
        unsigned int mDue = 0;  // it is read at each of so many looks
        ZTSRemotePort mPort;
    };

    void lookAtLocal();
    void lookAtRemote();
    void listRemote();
    bool readLocal(Local& arLocal);
    void readMaking(Local& arLocal, ZTSLocalPort& arPort);
    void forget(std::map<std::uint32_t, Local>::iterator aAt);
    void readRemote(const RemoteKey& acrKey, Remote& arRemote);
    void makeDue(std::uint32_t aHost);
    void tell();

    const std::string mLocalPath;
    const std::string mScsiPath;
    const std::string mRemotePath;
    std::map<std::uint32_t, Local> mLocal;
    std::map<ZTSWwn, ZTSLocalPort> mGone;  // by port name
    std::map<RemoteKey, Remote> mRemote;
    RemoteKey mReadLast{};  // of the round over all remote ports
    std::uint64_t mLook = 0;
    std::size_t mLeftOut = 0;
    bool mHasChanged = true;  // since mPorts was made
    ZTSHostPorts mPorts;
};
