// Events as they are delivered, and the registrations that they are delivered to.
#pragma once

#include <atomic>
#include <memory>

#include "Scenario.h"
#include "libdfc_provider.h"

/// A registration that was made, and where its callbacks go.
struct ZTSSimRegistration {
    ZTSSimEventId mId;
    uint32_t mBoard = 0;
    HBA_wwn mPort{};
    uint32_t mHandle = 0;
    void* mpContext = nullptr;
    ZT_generic_callback mpGeneric = nullptr;
    ZT_dfc_callback mpByMask = nullptr;
    bool mIsLate = false;  // ended, but called back all the same
    std::atomic<bool> mIsEnded{false};
};

HBA_wwn makeSimName(uint64_t aName);

/// An event of one board, ready to be delivered any number of times by any number of threads.
class ZTCSimEvent {
  public:
    /// Of a statement for a kind or of a raw one.
    ZTCSimEvent(const ZTSSimStatement& acrStatement, uint32_t aBoard, uint64_t aPort);
    /// The kind's event with all its defaults; without payload if there is no such kind.
    explicit ZTCSimEvent(const ZTSSimRegistration& acrRegistration);

    const ZTSSimEventId& getId() const { return mId; }
    uint32_t getBoard() const { return mBoard; }
    /// Whether it may go to a registration that is not for just this event.
    bool isRaw() const { return mIsRaw; }

    void callBack(const ZTSSimRegistration& acrRegistration) const;

  private:
    void setPayload(const std::vector<uint8_t>& acrBytes);

    ZTSSimEventId mId;
    uint32_t mBoard;
    HBA_wwn mPort;
    bool mIsRaw = false;
    uint32_t mLength = 0;
    std::unique_ptr<uint8_t[]> mpPayload;  // a block of just its size, so that a read beyond it shows
};
