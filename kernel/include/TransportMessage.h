// The messages of the kernel's SCSI transport netlink about Fibre Channel hosts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>

/// The event codes of the kernel's Fibre Channel transport class.
enum ZTEFcCode : std::uint32_t {
    ZTFCC_Lip = 1,
    ZTFCC_LinkUp = 2,
    ZTFCC_LinkDown = 3,
    ZTFCC_LipReset = 4,
    ZTFCC_Rscn = 5,
    ZTFCC_AdapterChange = 0x103,
    ZTFCC_PortUnknown = 0x200,
    ZTFCC_PortOffline = 0x201,
    ZTFCC_PortOnline = 0x202,
    ZTFCC_PortFabric = 0x204,
    ZTFCC_LinkUnknown = 0x500,
    ZTFCC_LinkFpin = 0x501,
    ZTFCC_LinkFpinAck = 0x502,
    ZTFCC_VendorUnique = 0xffff,
};

struct ZTSFcMessage {
    std::uint16_t mHost = 0;               ///< hostN
    std::uint32_t mNumber = 0;             ///< of the event; one counter for all hosts
    std::uint32_t mCode = 0;               ///< a ZTEFcCode, or one that is not known
    std::span<const unsigned char> mData;  ///< the event's, as long as the receipt that it came with

    /// The first 32 bits of the data, if there are as many.
    std::optional<std::uint32_t> getWord() const;
    /// Whether the data is a notification of the fabric's performance.
    bool isFpin() const { return mCode == ZTFCC_LinkFpin || mCode == ZTFCC_LinkFpinAck; }
};

/// Reads what one receive has brought, which may hold several messages, and calls the function with each that
/// is a Fibre Channel host event. Nothing that a length claims is read beyond the bytes. Returns how many
/// pieces were left out: cut short, or not what their headers say. Messages of other transports are neither.
unsigned int readTransportMessages(const unsigned char* apBytes, std::size_t aSize,
                                   const std::function<void(const ZTSFcMessage&)>& acrDo);
