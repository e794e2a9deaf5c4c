// The sockets on which the kernel tells of changes.
#pragma once

#include <cstddef>
#include <cstdint>

/// What receiving has brought.
enum ZTEFcReceipt : unsigned char {
    ZTFR_Nothing,  ///< there is no more
    ZTFR_Message,
    ZTFR_Foreign,  ///< one that somebody else has sent, or that is longer than any: not to be read
    ZTFR_Loss,     ///< the kernel had more to say than there was room for
};

/// One thread.
class ZTCFcSocket {
  public:
    /// Joins a group of a protocol. Throws nothing: one that cannot be had is not open, and getError says
    /// why.
    ZTCFcSocket(int aProtocol, unsigned int aGroup, std::uint32_t aSender);
    ~ZTCFcSocket();
    ZTCFcSocket(const ZTCFcSocket&) = delete;
    ZTCFcSocket& operator=(const ZTCFcSocket&) = delete;

    bool isOpen() const { return mSocket >= 0; }
    int get() const { return mSocket; }
    int getError() const { return mError; }

    /// Takes what there is next, without waiting.
    ZTEFcReceipt receive(unsigned char* apBytes, std::size_t aRoom, std::size_t& arSize);
    /// Calls the function with what there is, but not without end: the outcome, and the bytes of a message.
    template <class Take>
    void receiveAll(const Take& acrTake) {
        alignas(std::uint64_t) unsigned char lBytes[MaxMessage];
        std::size_t lSize = 0;
        for (unsigned int lLeft = AtOnce; isOpen() && lLeft > 0; --lLeft) {
            const ZTEFcReceipt lReceipt = receive(lBytes, sizeof lBytes, lSize);
            if (lReceipt == ZTFR_Nothing) {
                break;
            }
            acrTake(lReceipt, lBytes, lSize);
        }
    }

  private:
    static constexpr std::size_t MaxMessage = 64 * 1024;
    static constexpr unsigned int AtOnce = 1000;  // messages between two looks, however many there are

    int mSocket;
    int mError = 0;
    const std::uint32_t mSender;
};
