// The functions of a provider (libdfc/include/libdfc_provider.h), in their order.
#pragma once

#include "Statistics.h"

#define ZT_LIBDFC_FUNCTIONS(FUNCTION) \
    FUNCTION(init)                    \
    FUNCTION(number_of_adapters)      \
    FUNCTION(ztapi_supported)         \
    FUNCTION(adapter_info)            \
    FUNCTION(ztapi_reg_event)         \
    FUNCTION(ztapi_unreg_event)       \
    FUNCTION(dfc_reg_event)           \
    FUNCTION(dfc_unreg_event)         \
    FUNCTION(close)

enum ZTELibdfcFunction : unsigned char {
#define ZT_FUNCTION(Name) ZTLF_##Name,
    ZT_LIBDFC_FUNCTIONS(ZT_FUNCTION)
#undef ZT_FUNCTION
        ZTLF_Count
};
static_assert(ZTRowOf(ZTS_LibraryCalls, ZTLF_Count) == ZTS_Count, "a row a function");

/// When the oldest call of the function that is under way began, in nanoseconds since 1970; 0: there is none.
inline std::atomic<std::uint64_t>& ZTLibraryCallSince(ZTELibdfcFunction aFunction) {
    return ZTStatistic(ZTRowOf(ZTS_LibraryCalls, aFunction));
}
