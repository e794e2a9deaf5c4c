// Who of us is inside the vendor library: in which of its functions, and since when.
//
// A library may hang wherever it is called. Every call is marked, so that whoever watches can name the
// function, and can keep the thread from coming back once the process goes on without it.
#pragma once

#include <atomic>

#include "ForeignCall.h"

/// Loading the library and asking for its table; then the table's functions, in their order.
enum ZTELibdfcFunction : unsigned char {
    ZTELF_Load,
    ZTELF_Init,
    ZTELF_NumberOfAdapters,
    ZTELF_ZtapiSupported,
    ZTELF_AdapterInfo,
    ZTELF_ZtapiRegEvent,
    ZTELF_ZtapiUnregEvent,
    ZTELF_DfcRegEvent,
    ZTELF_DfcUnregEvent,
    ZTELF_Close,
    ZTELF_Count
};

inline constexpr const char* ZTLibdfcFunctions[] = {"loading",
                                                    "init",
                                                    "number_of_adapters",
                                                    "ztapi_supported",
                                                    "adapter_info",
                                                    "ztapi_reg_event",
                                                    "ztapi_unreg_event",
                                                    "dfc_reg_event",
                                                    "dfc_unreg_event",
                                                    "close"};
static_assert(sizeof ZTLibdfcFunctions / sizeof *ZTLibdfcFunctions == ZTELF_Count);

/// When the thread that is inside the function went in, in nanoseconds since 1970; 0: nobody is.
std::atomic<std::uint64_t>& LibdfcSince(ZTELibdfcFunction aFunction);

/// Marks a call while it stands. One thread at a time in a function.
class ZTCLibdfcCall {
  public:
    explicit ZTCLibdfcCall(ZTELibdfcFunction aFunction);
    /// Does not return behind LibdfcKeepThreads.
    ~ZTCLibdfcCall();
    ZTCLibdfcCall(const ZTCLibdfcCall&) = delete;
    ZTCLibdfcCall& operator=(const ZTCLibdfcCall&) = delete;

  private:
    std::atomic<std::uint64_t>& mrSince;
};

/// The call that has lasted longest. Any thread; takes no lock.
ZTSForeignCall LibdfcLongestCall();

/// From now on a thread that comes out of the library stops there, for good: the process ends without it.
void LibdfcKeepThreads();
