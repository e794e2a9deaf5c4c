// Who of us is inside the vendor library: in which of its functions, and since when.
//
// A library may hang wherever it is called. Every call is marked, so that whoever watches can name the
// function, and can keep the thread from coming back once the process goes on without it.
#pragma once

#include "ForeignCall.h"
#include "Statistics.h"

/// Loading the library and asking for its table; then the table's functions (libdfc_provider.h), in their
/// order.
#define ZT_LIBDFC_FUNCTIONS(FUNCTION)              \
    FUNCTION(Load, loading)                        \
    FUNCTION(Init, init)                           \
    FUNCTION(NumberOfAdapters, number_of_adapters) \
    FUNCTION(ZtapiSupported, ztapi_supported)      \
    FUNCTION(AdapterInfo, adapter_info)            \
    FUNCTION(ZtapiRegEvent, ztapi_reg_event)       \
    FUNCTION(ZtapiUnregEvent, ztapi_unreg_event)   \
    FUNCTION(DfcRegEvent, dfc_reg_event)           \
    FUNCTION(DfcUnregEvent, dfc_unreg_event)       \
    FUNCTION(Close, close)

enum ZTELibdfcFunction : unsigned char {
#define ZT_FUNCTION(Name, Label) ZTELF_##Name,
    ZT_LIBDFC_FUNCTIONS(ZT_FUNCTION)
#undef ZT_FUNCTION
        ZTELF_Count
};
static_assert(ZTRowOf(ZTS_LibraryCalls, ZTELF_Count) == ZTS_Collecting, "a row a function");

#define ZT_FUNCTION(Name, Label) #Label,
inline constexpr const char* ZTLibdfcFunctions[] = {ZT_LIBDFC_FUNCTIONS(ZT_FUNCTION)};
#undef ZT_FUNCTION

/// When the thread that is inside the function went in, in nanoseconds since 1970; 0: nobody is.
inline std::atomic<std::uint64_t>& LibdfcSince(ZTELibdfcFunction aFunction) {
    return ZTStatistic(ZTRowOf(ZTS_LibraryCalls, aFunction));
}

/// Marks a call while it stands. One thread at a time in a function.
class ZTCLibdfcCall {
  public:
    explicit ZTCLibdfcCall(ZTELibdfcFunction aFunction);
    /// Does not return as long as LibdfcKeepThreads keeps it.
    ~ZTCLibdfcCall();
    ZTCLibdfcCall(const ZTCLibdfcCall&) = delete;
    ZTCLibdfcCall& operator=(const ZTCLibdfcCall&) = delete;

  private:
    const ZTELibdfcFunction mFunction;
};

/// The call that has lasted longest, but for that of close, which is waited for only so long in any case. Any
/// thread; takes no lock.
ZTSForeignCall LibdfcLongestCall();

/// While it is on, a thread that comes out of the library stops there: the process ends without it.
void LibdfcKeepThreads(bool aOn);
