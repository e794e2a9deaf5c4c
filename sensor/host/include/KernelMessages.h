// Datagrams that the kernel sends of its own accord.
#pragma once

#include <span>
#include <string>
#include <vector>

/// Below a root that is not "/" a Unix datagram socket stands in the place: ROOT/run/kernel/transport, or
/// uevent, which this makes; what is sent there are the kernel's own messages, and an empty one says that
/// some were lost. One thread.
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
    /// Where none can be had it says why. Throws std::bad_alloc alone.
    ZTCKernelMessages(const std::string& acrRoot, What aWhat);
    ~ZTCKernelMessages();
    ZTCKernelMessages(const ZTCKernelMessages&) = delete;
    ZTCKernelMessages& operator=(const ZTCKernelMessages&) = delete;

    /// To be waited on; -1: none, or none any more.
    int getDescriptor() const { return mSocket; }
    /// Empty: there is one.
    const std::string& getWhyNot() const { return mWhyNot; }
    /// The next one of the kernel's own, never waits. Others' are left out: many of them are Nothing, though
    /// more may wait. The bytes are valid until the next call.
    Got receive(std::span<const unsigned char>& arBytes);

  private:
    void openNetlink(What aWhat);
    void openUnix(const std::string& acrRoot, What aWhat);
    void giveUp(const char* apWhat, int aError);

    int mSocket = -1;
    bool mIsNetlink = false;
    std::string mPath;  // of a Unix socket
    std::string mWhyNot;
    std::vector<unsigned char> mBytes;
};
