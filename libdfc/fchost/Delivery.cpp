#include "Delivery.h"

#include <cstring>

namespace {

constexpr ZTSFcEventId sPortInterruptError{0, 8, 1};
constexpr ZTSFcEventId sAdapterArrival{0, 16, 1};

void sPutWord(unsigned char* apBytes, std::uint32_t aWord) {
    for (const unsigned int lShift : {24U, 16U, 8U, 0U}) {
        *apBytes++ = static_cast<unsigned char>(aWord >> lShift);
    }
}

void sDeliverByMask(ZTCFcRegistrations& arRegistrations, std::uint32_t aBoard, std::uint32_t aMask,
                    unsigned char* apBytes, std::uint32_t aSize) {
    arRegistrations.each(aBoard, {aMask, 0, 0},
                         [=](const ZTSFcRegistration& acrTo) { acrTo.mpByMask(aBoard, apBytes, aSize); });
}

// Nobody can have registered with an adapter before it is there: the first board that somebody has registered
// with stands for it. The name is the new port's.
void sDeliverArrival(ZTCFcRegistrations& arRegistrations, std::uint32_t aBoard, const HBA_wwn& acrPort) {
    const auto lDeliverTo = [&](std::uint32_t aTo) {
        return deliverFcEvent(arRegistrations, aTo, sAdapterArrival, acrPort, {});
    };
    if (lDeliverTo(aBoard)) {
        return;
    }
    for (std::uint32_t lBoard = 0; lBoard < aBoard && !lDeliverTo(lBoard); ++lBoard) {
    }
}

}  // namespace

bool deliverFcEvent(ZTCFcRegistrations& arRegistrations, std::uint32_t aBoard, const ZTSFcEventId& acrId,
                    const HBA_wwn& acrPort, std::span<const unsigned char> aPayload) {
    const ZT_event_descriptor lDescriptor{acrId.mCategory, aPayload.data()};
    const ZT_event lEvent{1, ZT_EVENT_HEADER + static_cast<std::uint32_t>(aPayload.size()),
                          aPayload.empty() ? nullptr : &lDescriptor};
    const auto lCall = [&](const ZTSFcRegistration& acrTo) {
        acrTo.mpGeneric(aBoard, acrPort, acrId.mCategory, acrId.mSubcategory, acrTo.mpContext, &lEvent);
    };
    return arRegistrations.each(aBoard, acrId, lCall) != 0;
}

void deliverFcEvent(ZTCFcRegistrations& arRegistrations, const ZTSFcEvent& acrEvent, const HBA_wwn& acrPort) {
    const std::uint32_t lBoard = acrEvent.mBoard;
    switch (acrEvent.mKind) {
        case ZTFEK_Link: {
            unsigned char lContext[ZT_DFC_LINK_CONTEXT]{};
            memcpy(lContext, acrPort.wwn, sizeof acrPort.wwn);
            sDeliverByMask(arRegistrations, lBoard, ZT_DFC_LINK, lContext, sizeof lContext);
            break;
        }
        case ZTFEK_Rscn: {
            // The ELS: command, page length, payload length, and one page.
            unsigned char lPayload[8]{0x61, 4, 0, 8};
            sPutWord(lPayload + 4, acrEvent.mPage);
            sDeliverByMask(arRegistrations, lBoard, ZT_DFC_RSCN, lPayload, sizeof lPayload);
            break;
        }
        case ZTFEK_PortInterruptError:
            deliverFcEvent(arRegistrations, lBoard, sPortInterruptError, acrPort, {});
            break;
        case ZTFEK_AdapterArrival:
            sDeliverArrival(arRegistrations, lBoard, acrPort);
            break;
    }
}
