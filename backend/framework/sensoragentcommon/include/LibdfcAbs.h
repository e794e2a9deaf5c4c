// The adapter vendor's library (libdfc/include/libdfc_provider.h), behind the agent's checks: which file is
// loaded, who is let in when it calls back, and that what it delivers is as long as it says.
#pragma once

#include <cstddef>

#include "ScopeEvent.h"
#include "WorldWideName.h"
#include "libdfc_provider.h"

/// One in a process: the library calls back without a word of who registered. The operations are called by
/// one thread at a time, except shutCallbacks, which is any thread's.
///
/// The file is the one that the environment variable ZT_LIBDFC names (an absolute path; "none": no library is
/// to be used; empty counts as unset), else libdfc.so by the loader's rules. A file that somebody other than
/// root or the caller could change is not used; one that only the loader can find is looked at when its
/// initialisers have run.
class ZTCLibdfcAbs {
  public:
    /// More adapters than this are not believed.
    static constexpr unsigned int MaxAdapters = 65536;

    ZTCLibdfcAbs() = default;
    ~ZTCLibdfcAbs();
    ZTCLibdfcAbs(const ZTCLibdfcAbs&) = delete;
    ZTCLibdfcAbs& operator=(const ZTCLibdfcAbs&) = delete;

    /// Throws ZTCNotFoundEx, after an error record with the file and the reason, when there is no library
    /// that can be used. The library's code stays in memory for good.
    void LIBDFC_LoadLibrary();
    /// Throws as above, the library unloaded, when the library's init fails. Callbacks are let in from now
    /// on.
    void LIBDFC_Init();
    unsigned int LIBDFC_GetNumberOfAdapters() const;
    bool LIBDFC_IsZtapiSupported() const;
    /// Fills both names in; with zeros, after a warning, when the library does not tell them.
    void LIBDFC_GetAdapterInfo(unsigned int aBoard, ZTCPointer<ZTCWorldWideName>& arNode,
                               ZTCPointer<ZTCWorldWideName>& arPort) const;

    /// Registers for a kind of event by its category and subcategory. Returns the library's status: 0, 5, 6
    /// and 7 are success. All registrations share the callback given last.
    unsigned int LIBDFC_ZtapiRegEvent(unsigned int aBoard, const ZTCPointer<ZTCWorldWideName>& acrPort,
                                      const ZTCPointer<ZTCScopeEvent>& acrEvent, void* apContext,
                                      unsigned int* apHandle, ZT_generic_callback apCallback) const;
    /// Returns the library's status, 0 is success.
    unsigned int LIBDFC_ZtapiUnregEvent(unsigned int aBoard, const ZTCPointer<ZTCWorldWideName>& acrPort,
                                        unsigned int aHandle) const;
    /// Registers for the event of a mask (ZT_DFC_). Returns a handle, 0 is failure. The registrations of a
    /// mask share the callback given last.
    unsigned int LIBDFC_DfcRegEvent(unsigned int aBoard, unsigned int aMask, std::uintptr_t aArgument,
                                    unsigned int aSize, ZT_dfc_callback apCallback) const;
    unsigned int LIBDFC_DfcUnregEvent(unsigned int aBoard, unsigned int aHandle) const;

    /// Shuts out the library's callbacks, waits for those inside and closes the library. What does not come
    /// back is left behind with a warning: a callback after 1 second, the library's close after 5.
    void LIBDFC_Close();
    void LIBDFC_FreeLibrary();

    /// From now on nobody is let in.
    static void shutCallbacks();
    /// The same, and waits for those inside, at most 1 second. False: some have stayed.
    static bool waitForCallbacks();

  private:
    [[noreturn]] void refuse(const char* apReason);
    void load(const char* apFile);
    void takeProvider();
    const ZT_libdfc_provider& provider() const;

    ZTCString mFile{""};
    void* mpLibrary = nullptr;
    ZT_libdfc_provider mProvider{};  ///< a copy: what has been checked does not change
};
