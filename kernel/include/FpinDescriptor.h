// What a fabric tells of its performance: the descriptors of an FPIN, as an ELS brings them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

enum ZTEFpinKind : unsigned char {
    ZTFK_LinkIntegrity,
    ZTFK_Delivery,
    ZTFK_PeerCongestion,
    ZTFK_Congestion,
    ZTFK_Other,
    ZTFK_Count,
};

/// A field that its kind does not have is 0.
struct ZTSFpinDescriptor {
    ZTEFpinKind mKind = ZTFK_Other;
    std::uint32_t mTag = 0;
    std::uint64_t mDetecting = 0;  ///< port names
    std::uint64_t mAttached = 0;
    std::uint32_t mEvent = 0;  ///< of a delivery the reason
    std::uint32_t mModifier = 0;
    std::uint32_t mThreshold = 0;  ///< of a link's integrity: the time that errors are counted in, ms
    std::uint32_t mCount = 0;      ///< of a link's integrity: the errors in it
    std::uint32_t mPeriod = 0;     ///< of a congestion: how long it was, ms
    std::uint8_t mSeverity = 0;    ///< of a congestion of the port itself
    std::span<const unsigned char> mPortBytes;  ///< names of the ports that are affected

    std::size_t countPorts() const { return mPortBytes.size() / 8; }
    std::uint64_t getPort(std::size_t aAt) const;
    /// "loss of signal", "credit stall", "unable to route"; null: the number has no name.
    const char* getEventText() const;
    /// "warning", "alarm"; null: the number has no name.
    const char* getSeverityText() const;
};

/// "link integrity", "peer congestion"; null: another kind.
const char* getFpinText(ZTEFpinKind aKind);

/// Calls the function with each descriptor that is whole; of a list of ports that claims to be longer than
/// the descriptor, what is there. The bytes are used, not copied. False: something is not what its length
/// says.
bool readFpin(std::span<const unsigned char> aEls,
              const std::function<void(const ZTSFpinDescriptor&)>& acrDo);
