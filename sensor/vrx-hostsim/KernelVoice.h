// What the kernel says of its own accord, to those who listen below the root.
#pragma once

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

/// Messages go to the sockets that a listener has made: ROOT/run/kernel/transport and uevent. Where nobody
/// listens they are gone, as the kernel's are. One thread.
class ZTCKernelVoice {
  public:
    using Values = std::vector<std::pair<std::string, std::string>>;

    explicit ZTCKernelVoice(const std::string& acrRoot);
    ~ZTCKernelVoice();
    ZTCKernelVoice(const ZTCKernelVoice&) = delete;
    ZTCKernelVoice& operator=(const ZTCKernelVoice&) = delete;

    /// A Fibre Channel event of a host, with a code of the transport class.
    void sayTransport(unsigned int aHost, std::uint32_t aCode, std::span<const unsigned char> aData);
    /// A device's: acrPath below /sys, "/devices/virtual/block/dm-3".
    void sayUevent(const char* apAction, const std::string& acrPath, const Values& acrValues);
    /// So many transport messages were never sent, but counted.
    void lose(std::uint32_t aMessages) { mEvents += aMessages; }

    std::uint64_t countSaid() const { return mSaid; }
    /// A listener was there, and too slow.
    std::uint64_t countLost() const { return mLost; }

  private:
    struct Listener {
        const std::string mPath;
        bool mHasMissed = false;
    };
    void say(Listener& arListener, std::span<const unsigned char> aBytes);
    bool send(const Listener& acrListener, std::span<const unsigned char> aBytes) const;

    Listener mTransport;
    Listener mUevents;
    int mSocket = -1;
    std::uint32_t mEvents = 0;
    std::uint64_t mNumber = 4000;
    std::uint64_t mSaid = 0;
    std::uint64_t mLost = 0;
};
