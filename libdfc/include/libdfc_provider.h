/* The interface between the agent and an adapter vendor's management library: the whole contract.
 *
 * A provider is a shared object that exports one function, zt_libdfc_provider. It may call back from any
 * number of its own threads, from the moment a registration succeeds until its unregistration or close()
 * returns, and holds meanwhile no lock that number_of_adapters() needs. It does not cancel a thread that may
 * be calling back. What a callback is given is valid until the callback returns. Plain C11; docs/provider.md
 * is the guide. */
#ifndef LIBDFC_PROVIDER_H
#define LIBDFC_PROVIDER_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The version of this interface. */
#define ZT_LIBDFC_ABI 1U

/* What is exported although the provider is compiled with hidden symbols. */
#ifdef __GNUC__
#define ZT_LIBDFC_EXPORT __attribute__((visibility("default")))
#else
#define ZT_LIBDFC_EXPORT
#endif

/* The name of the function that a provider exports. */
#define ZT_LIBDFC_ENTRY "zt_libdfc_provider"

/* The bytes of a ZT_event's total_length that are not payload. */
#define ZT_EVENT_HEADER 20U

/* The event masks of dfc_reg_event, one event each. */
#define ZT_DFC_LINK 1U
#define ZT_DFC_RSCN 2U
#define ZT_DFC_TEMPERATURE 32U

/* The bytes of the registration context that a link event delivers. */
#define ZT_DFC_LINK_CONTEXT 168U

/* A Fibre Channel world wide name, in Fibre Channel order. */
typedef struct HBA_wwn {
    uint8_t wwn[8];
} HBA_wwn;

typedef struct ZT_event_descriptor {
    uintptr_t kind;         /* the library's own */
    const uint8_t* payload; /* the bytes of the event */
} ZT_event_descriptor;

typedef struct ZT_event {
    uint32_t version;
    uint32_t total_length;                 /* ZT_EVENT_HEADER + payload bytes */
    const ZT_event_descriptor* descriptor; /* null: no payload */
} ZT_event;

/* An event that was registered by category and subcategory. */
typedef void (*ZT_generic_callback)(uint32_t board, HBA_wwn port, uint32_t category, uint32_t subcategory,
                                    void* context, const ZT_event* event);

/* An event that was registered by mask. data: for link the ZT_DFC_LINK_CONTEXT bytes of the registration
 * context, whose first 8 are the port's name; for RSCN the ELS payload, of length bytes; for temperature
 * whatever the library has, or null. */
typedef void (*ZT_dfc_callback)(uint32_t board, const void* data, uint32_t length);

typedef struct ZT_libdfc_provider {
    uint32_t abi;  /* ZT_LIBDFC_ABI */
    uint32_t size; /* of this structure; a later one may be larger */
    /* Called once, before all that follows; 0 is success. After a failure only another init follows. */
    int (*init)(void);
    /* Boards are 0 to this less one. */
    uint32_t (*number_of_adapters)(void);
    /* 0: the driver is too old to offer the events that are registered by category. */
    int (*ztapi_supported)(void);
    /* The names of a board's port; 0 is success. */
    int (*adapter_info)(uint32_t board, HBA_wwn* node, HBA_wwn* port);
    /* Fills in the handle. 0, 5, 6 and 7 are success. */
    uint32_t (*ztapi_reg_event)(uint32_t board, HBA_wwn port, uint32_t category, uint32_t subcategory,
                                void* context, uint32_t* handle, ZT_generic_callback callback);
    /* 0 is success. */
    uint32_t (*ztapi_unreg_event)(uint32_t board, HBA_wwn port, uint32_t handle);
    /* mask: one of ZT_DFC_. Returns a handle, 0 is failure. */
    uint32_t (*dfc_reg_event)(uint32_t board, uint32_t mask, uintptr_t argument, uint32_t size,
                              ZT_dfc_callback callback);
    uint32_t (*dfc_unreg_event)(uint32_t board, uint32_t handle);
    /* Ends all registrations. init may follow. */
    void (*close)(void);
} ZT_libdfc_provider;

/* What a provider exports: its functions, valid for the life of the process; null for an interface version
 * that it does not speak. */
ZT_LIBDFC_EXPORT const ZT_libdfc_provider* zt_libdfc_provider(uint32_t abi);

#ifdef __cplusplus
}
#endif

#endif
