#include "LibdfcAbs.h"

#include <dlfcn.h>
#include <link.h>

#include <climits>
#include <cstdio>

#include "Conditional.h"
#include "DetachedThread.h"
#include "Immortal.h"
#include "LibdfcCallbacks.h"
#include "LibdfcCalls.h"
#include "Periods.h"
#include "SafeFile.h"

namespace {

constexpr char sFile[] = "LibdfcAbs";
constexpr char sLibraryVariable[] = "ZT_LIBDFC";
constexpr char sLibraryName[] = "libdfc.so";
constexpr char sDisabled[] = "none";

// Callbacks that did not return when they were waited for.
constinit std::atomic<bool> sHaveStayed{false};

constexpr std::size_t sFunctionsAt = offsetof(ZT_libdfc_provider, init);
static_assert(sizeof(ZT_libdfc_provider) == sFunctionsAt + sizeof(void*) * (ZTELF_Count - ZTELF_Init));

// The name of the first function that is not there, else null.
const char* sFindMissing(const ZT_libdfc_provider& acrProvider) {
    const auto* lpAt = reinterpret_cast<const unsigned char*>(&acrProvider) + sFunctionsAt;
    for (unsigned int lFunction = ZTELF_Init; lFunction < ZTELF_Count; ++lFunction) {
        void* lpFunction = nullptr;
        ClibMemcpy(&lpFunction, lpAt, sizeof lpFunction);
        if (lpFunction == nullptr) {
            return ZTLibdfcFunctions[lFunction];
        }
        lpAt += sizeof lpFunction;
    }
    return nullptr;
}

HBA_wwn sNameOf(const ZTCPointer<ZTCWorldWideName>& acrName) {
    HBA_wwn lName;
    ClibMemcpy(lName.wwn, acrName->getBinaryForm(), sizeof lName.wwn);
    return lName;
}

// Every call into the library goes through here.
template <class Function, class... Arguments>
auto sCall(ZTELibdfcFunction aWhich, Function* apFunction, Arguments... aArguments) {
    const ZTCLibdfcCall lCall(aWhich);
    return apFunction(aArguments...);
}

// Signalled when the library's close has returned. Whoever waits for that may be gone by then.
ZTCConditional& sCloseReturned() {
    static ZTCImmortal<ZTCConditional> sReturned;
    return sReturned.get();
}

void* sCloseThread(void* apClose) {
    sCall(ZTELF_Close, reinterpret_cast<decltype(ZT_libdfc_provider::close)>(apClose));
    sCloseReturned().signal();
    return nullptr;
}

// Whether there is a thread that does it. What the thread is given is all that it needs: no memory.
bool sStartToClose(decltype(ZT_libdfc_provider::close) apClose) {
    return startDetachedThread("library-close", sCloseThread, reinterpret_cast<void*>(apClose)) == 0;
}

}  // namespace

ZTCLibdfcAbs::~ZTCLibdfcAbs() {
    LIBDFC_FreeLibrary();
}

void ZTCLibdfcAbs::refuse(const char* apReason) {
    Log(ZTLL_Error, sFile, "The vendor library %s is not used: %s", mFile.get(), apReason);
    const ZTCString lReason(apReason);  // which may go with the library
    LIBDFC_FreeLibrary();
    throw ZTCNotFoundEx(lReason.get());
}

const ZT_libdfc_provider& ZTCLibdfcAbs::provider() const {
    const bool lIsLoaded = mpLibrary != nullptr;
    ZT_ASSERT_NAMED(lIsLoaded, "mpLibrary != 0", __LINE__, sFile);
    return mProvider;
}

void ZTCLibdfcAbs::LIBDFC_LoadLibrary() {
    const ZTCTraceScope lTrace(sFile);
    const char* const lpNamed = getenv(sLibraryVariable);
    const bool lIsNamed = lpNamed != nullptr && *lpNamed != '\0';
    mFile = lIsNamed ? lpNamed : sLibraryName;
    if (mFile == sDisabled) {
        refuse("ZT_LIBDFC says that there is to be none");
    }
    try {
        if (lIsNamed) {
            if (*lpNamed != '/') {
                refuse("ZT_LIBDFC must name it by an absolute path, or be none");
            }
            char lPath[PATH_MAX];
            OsCheckCode(lpNamed, lPath);
            load(lPath);
        } else {
            load(sLibraryName);
            // The loader alone knows where it looks, so this one is looked at when it has been found.
            const link_map* lpMap = nullptr;
            char lPath[PATH_MAX];
            if (dlinfo(mpLibrary, RTLD_DI_LINKMAP, &lpMap) != 0) {
                refuse(dlerror());
            }
            OsCheckCode(lpMap->l_name, lPath);
        }
    } catch (const ZTCOsException& lrException) {
        refuse(lrException.what());
    }
    takeProvider();
    Log(ZTLL_Information, sFile, "Loaded the vendor library %s", mFile.get());
}

void ZTCLibdfcAbs::load(const char* apFile) {
    mpLibrary = sCall(ZTELF_Load, dlopen, apFile, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (mpLibrary == nullptr) {
        refuse(dlerror());
    }
}

void ZTCLibdfcAbs::takeProvider() {
    using Entry = decltype(&zt_libdfc_provider);
    const auto lpEntry = reinterpret_cast<Entry>(dlsym(mpLibrary, ZT_LIBDFC_ENTRY));
    if (lpEntry == nullptr) {
        refuse("it has no function " ZT_LIBDFC_ENTRY);
    }
    const ZT_libdfc_provider* const lpProvider = sCall(ZTELF_Load, lpEntry, ZT_LIBDFC_ABI);
    char lReason[128];
    if (lpProvider == nullptr || lpProvider->abi != ZT_LIBDFC_ABI) {
        snprintf(lReason, sizeof lReason, "it does not speak version %u of the interface", ZT_LIBDFC_ABI);
        refuse(lReason);
    }
    if (lpProvider->size < sizeof mProvider) {
        snprintf(lReason, sizeof lReason, "its table has %u bytes instead of %zu", lpProvider->size,
                 sizeof mProvider);
        refuse(lReason);
    }
    if (const char* const lpMissing = sFindMissing(*lpProvider); lpMissing != nullptr) {
        snprintf(lReason, sizeof lReason, "its function %s is null", lpMissing);
        refuse(lReason);
    }
    mProvider = *lpProvider;
}

void ZTCLibdfcAbs::LIBDFC_Init() {
    const ZTCTraceScope lTrace(sFile);
    const int lStatus = sCall(ZTELF_Init, provider().init);
    if (lStatus != 0) {
        char lReason[64];
        snprintf(lReason, sizeof lReason, "its init failed with status %d", lStatus);
        refuse(lReason);
    }
    sHaveStayed.store(false);
    LibdfcGate().open();
}

unsigned int ZTCLibdfcAbs::LIBDFC_GetNumberOfAdapters() const {
    const unsigned int lCount = sCall(ZTELF_NumberOfAdapters, provider().number_of_adapters);
    if (lCount > MaxAdapters) {
        Log(ZTLL_Warning, sFile, "The vendor library tells of %u adapters: %u are taken", lCount,
            MaxAdapters);
        return MaxAdapters;
    }
    return lCount;
}

bool ZTCLibdfcAbs::LIBDFC_IsZtapiSupported() const {
    return sCall(ZTELF_ZtapiSupported, provider().ztapi_supported) != 0;
}

void ZTCLibdfcAbs::LIBDFC_GetAdapterInfo(unsigned int aBoard, ZTCPointer<ZTCWorldWideName>& arNode,
                                         ZTCPointer<ZTCWorldWideName>& arPort) const {
    HBA_wwn lNode{};
    HBA_wwn lPort{};
    const int lStatus = sCall(ZTELF_AdapterInfo, provider().adapter_info, aBoard, &lNode, &lPort);
    if (lStatus != 0) {
        Log(ZTLL_Warning, sFile, "The vendor library does not tell the names of board %u: status %d", aBoard,
            lStatus);
        lNode = lPort = {};
    }
    arNode->setBinaryForm(lNode.wwn);
    arPort->setBinaryForm(lPort.wwn);
}

unsigned int ZTCLibdfcAbs::LIBDFC_ZtapiRegEvent(unsigned int aBoard,
                                                const ZTCPointer<ZTCWorldWideName>& acrPort,
                                                const ZTCPointer<ZTCScopeEvent>& acrEvent, void* apContext,
                                                unsigned int* apHandle,
                                                ZT_generic_callback apCallback) const {
    return sCall(ZTELF_ZtapiRegEvent, provider().ztapi_reg_event, aBoard, sNameOf(acrPort),
                 acrEvent->getCategory(), acrEvent->getSubcategory(), apContext, apHandle,
                 LibdfcWrap(apCallback));
}

unsigned int ZTCLibdfcAbs::LIBDFC_ZtapiUnregEvent(unsigned int aBoard,
                                                  const ZTCPointer<ZTCWorldWideName>& acrPort,
                                                  unsigned int aHandle) const {
    return sCall(ZTELF_ZtapiUnregEvent, provider().ztapi_unreg_event, aBoard, sNameOf(acrPort), aHandle);
}

unsigned int ZTCLibdfcAbs::LIBDFC_DfcRegEvent(unsigned int aBoard, unsigned int aMask,
                                              std::uintptr_t aArgument, unsigned int aSize,
                                              ZT_dfc_callback apCallback) const {
    return sCall(ZTELF_DfcRegEvent, provider().dfc_reg_event, aBoard, aMask, aArgument, aSize,
                 LibdfcWrap(aMask, apCallback));
}

unsigned int ZTCLibdfcAbs::LIBDFC_DfcUnregEvent(unsigned int aBoard, unsigned int aHandle) const {
    return sCall(ZTELF_DfcUnregEvent, provider().dfc_unreg_event, aBoard, aHandle);
}

void ZTCLibdfcAbs::LIBDFC_Close() {
    const ZTCTraceScope lTrace(sFile);
    waitForCallbacks();
    // On a thread of its own, if there can be one: a library that hangs would keep the agent from ending.
    const auto lpClose = provider().close;
    ZTCConditional& lrReturned = sCloseReturned();
    const timespec lDeadline = OsDeadlineIn(ZTPeriod(ZTP_LibraryClose));
    const ZTCScopedLock lLock(lrReturned.getMutex());
    const unsigned long lBefore = lrReturned.getSignals();
    if (!sStartToClose(lpClose)) {
        sCall(ZTELF_Close, lpClose);
        return;
    }
    try {
        while (lrReturned.getSignals() == lBefore) {
            lrReturned.waitUntil(lDeadline);
        }
    } catch (const ZTCTimeOutEx&) {
        Log(ZTLL_Warning, sFile, "The vendor library's close does not return: going on without it");
    }
}

void ZTCLibdfcAbs::LIBDFC_FreeLibrary() {
    if (mpLibrary != nullptr) {
        dlclose(mpLibrary);
        mpLibrary = nullptr;
    }
}

void ZTCLibdfcAbs::shutCallbacks() {
    LibdfcGate().shut();
}

bool ZTCLibdfcAbs::waitForCallbacks() {
    LibdfcGate().shut();
    if (sHaveStayed.load()) {
        return false;  // waited for in vain before
    }
    if (const unsigned int lInside = LibdfcGate().waitUntilEmpty(ZTPeriod(ZTP_CallbacksLeave));
        lInside != 0) {
        sHaveStayed.store(true);
        Log(ZTLL_Warning, sFile, "%u callbacks of the vendor library do not return: going on without them",
            lInside);
    }
    return !sHaveStayed.load();
}
