#include "Delivery.h"

#include <cstring>

namespace {

constexpr std::uint32_t sSubcategory = 1;  // of both
constexpr std::uint32_t sPortInterruptError = 8;
constexpr std::uint32_t sAdapterArrival = 16;

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

// An event without a payload. False: nobody has registered for it with this board.
bool sDeliverByCategory(ZTCFcRegistrations& arRegistrations, std::uint32_t aBoard, std::uint32_t aCategory,
                        const HBA_wwn& acrPort) {
    const ZT_event lEvent{1, ZT_EVENT_HEADER, nullptr};
    const auto lCall = [&](const ZTSFcRegistration& acrTo) {
        acrTo.mpGeneric(aBoard, acrPort, aCategory, sSubcategory, acrTo.mpContext, &lEvent);
    };
    return arRegistrations.each(aBoard, {0, aCategory, sSubcategory}, lCall) != 0;
}

// Nobody can have registered with an adapter before it is there: the first board that somebody has registered
// with stands for it. The name is the new port's.
void sDeliverArrival(ZTCFcRegistrations& arRegistrations, std::uint32_t aBoard, const HBA_wwn& acrPort) {
    const auto lDeliverTo = [&](std::uint32_t aTo) {
        return sDeliverByCategory(arRegistrations, aTo, sAdapterArrival, acrPort);
    };
    if (lDeliverTo(aBoard)) {
        return;
    }
    for (std::uint32_t lBoard = 0; lBoard < aBoard && !lDeliverTo(lBoard); ++lBoard) {
    }
}

}  // namespace

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
            sDeliverByCategory(arRegistrations, lBoard, sPortInterruptError, acrPort);
            break;
        case ZTFEK_AdapterArrival:
            sDeliverArrival(arRegistrations, lBoard, acrPort);
            break;
    }
}
