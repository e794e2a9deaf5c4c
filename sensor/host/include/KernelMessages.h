// Datagrams that the kernel sends of its own accord.
#pragma once

#include <span>
#include <string>
#include <vector>

/// Below a root that is not "/" a Unix datagram socket stands in the place: ROOT/run/kernel/transport, or
/// uevent, which this makes; what is sent there are the kernel's own messages. One thread.
class ZTCKernelMessages {
  public:
    enum class What : unsigned char {
        Transport,  ///< of the SCSI transports: Fibre Channel events
        Uevents,    ///< of devices that come, go and change
    };
    enum class Got : unsigned char {
        Nothing,  ///< none waits
        Message,
        Lost,  ///< there were more than the socket holds: look at everything anew
    };
    /// Does not fail: where none can be had it says why.
    ZTCKernelMessages(const std::string& acrRoot, What aWhat);
    ~ZTCKernelMessages();
    ZTCKernelMessages(const ZTCKernelMessages&) = delete;
    ZTCKernelMessages& operator=(const ZTCKernelMessages&) = delete;

    /// To be waited on; -1: none.
    int getDescriptor() const { return mSocket; }
    /// Empty: there is one.
    const std::string& getWhyNot() const { return mWhyNot; }
    /// The next one of the kernel's own, never waits. Others' are left out. The bytes are valid until the
    /// next call.
    Got receive(std::span<const unsigned char>& arBytes);

  private:
    int mSocket = -1;
    std::string mPath;
    std::string mWhyNot;
    std::vector<unsigned char> mBytes;
};
