// What the library exports. Nothing thrown leaves it.
#include <cstdio>
#include <memory>

#include "Session.h"

namespace {

constexpr std::uint32_t sBadArgument = 1;

std::unique_ptr<ZTCFcSession>& sSession() {
    static auto& srSession =
        *new std::unique_ptr<ZTCFcSession>;  // outlives the threads of a process that ends
    return srSession;
}

int sInitialise() {
    try {
        sSession() = std::make_unique<ZTCFcSession>(ZTSFcSettings::fromEnvironment());
        return 0;
    } catch (const std::exception& lrError) {
        // The agent's start fails, and its standard error is still somebody's.
        fprintf(stderr, "libdfc-fchost: %s\n", lrError.what());
        return 1;
    }
}

std::uint32_t sCountBoards() {
    return sSession() != nullptr ? sSession()->boards().count() : 0;
}

int sIsSupported() {
    return 1;
}

int sTellNames(std::uint32_t aBoard, HBA_wwn* apNode, HBA_wwn* apPort) {
    return sSession() != nullptr && sSession()->boards().getNames(aBoard, *apNode, *apPort) ? 0 : 1;
}

std::uint32_t sRegisterEvent(std::uint32_t aBoard, HBA_wwn /*aPort*/, std::uint32_t aCategory,
                             std::uint32_t aSubcategory, void* apContext, std::uint32_t* apHandle,
                             ZT_generic_callback apCallback) {
    if (aBoard >= sCountBoards() || apHandle == nullptr || apCallback == nullptr) {
        return sBadArgument;
    }
    *apHandle = sSession()->registrations().add({.mBoard = aBoard,
                                                 .mId = {0, aCategory, aSubcategory},
                                                 .mpGeneric = apCallback,
                                                 .mpContext = apContext});
    return *apHandle != 0 ? 0 : sBadArgument;
}

std::uint32_t sUnregisterEvent(std::uint32_t aBoard, HBA_wwn /*aPort*/, std::uint32_t aHandle) {
    return sSession() != nullptr && sSession()->registrations().remove(aBoard, aHandle, false) ? 0
                                                                                               : sBadArgument;
}

std::uint32_t sRegisterMask(std::uint32_t aBoard, std::uint32_t aMask, uintptr_t /*aArgument*/,
                            std::uint32_t /*aSize*/, ZT_dfc_callback apCallback) {
    const bool lIsMask = aMask == ZT_DFC_LINK || aMask == ZT_DFC_RSCN || aMask == ZT_DFC_TEMPERATURE;
    if (aBoard >= sCountBoards() || !lIsMask || apCallback == nullptr) {
        return 0;
    }
    return sSession()->registrations().add({.mBoard = aBoard, .mId = {aMask, 0, 0}, .mpByMask = apCallback});
}

std::uint32_t sUnregisterMask(std::uint32_t aBoard, std::uint32_t aHandle) {
    return sSession() != nullptr && sSession()->registrations().remove(aBoard, aHandle, true) ? 0
                                                                                              : sBadArgument;
}

void sCloseSession() {
    sSession().reset();
}

constexpr ZT_libdfc_provider sProvider{
    ZT_LIBDFC_ABI,  sizeof(ZT_libdfc_provider), sInitialise,   sCountBoards,    sIsSupported,  sTellNames,
    sRegisterEvent, sUnregisterEvent,           sRegisterMask, sUnregisterMask, sCloseSession,
};

}  // namespace

const ZT_libdfc_provider* zt_libdfc_provider(std::uint32_t aAbi) {
    return aAbi == ZT_LIBDFC_ABI ? &sProvider : nullptr;
}
