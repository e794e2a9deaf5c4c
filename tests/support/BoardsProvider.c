/* A vendor library that tells of as many adapters as the environment variable ZT_TEST_BOARDS says at the
 * moment, and takes every registration. It never calls back: the test does that itself. */
#include <stdlib.h>

#include "libdfc_provider.h"

static int init(void) {
    return 0;
}

static uint32_t number_of_adapters(void) {
    const char* count = getenv("ZT_TEST_BOARDS");
    return count == NULL ? 0 : (uint32_t)strtoul(count, NULL, 10);
}

static int ztapi_supported(void) {
    return 1;
}

static int adapter_info(uint32_t board, HBA_wwn* node, HBA_wwn* port) {
    const HBA_wwn name = {{0x20, 0, 0, 0x25, 0xb5, 0, 0, (uint8_t)board}};
    *node = *port = name;
    port->wwn[0] = 0x10;
    return 0;
}

static uint32_t ztapi_reg_event(uint32_t board, HBA_wwn port, uint32_t category, uint32_t subcategory,
                                void* context, uint32_t* handle, ZT_generic_callback callback) {
    (void)board, (void)port, (void)context, (void)callback;
    *handle = category << 8 | subcategory;
    return 0;
}

static uint32_t ztapi_unreg_event(uint32_t board, HBA_wwn port, uint32_t handle) {
    (void)board, (void)port, (void)handle;
    return 0;
}

static uint32_t dfc_reg_event(uint32_t board, uint32_t mask, uintptr_t argument, uint32_t size,
                              ZT_dfc_callback callback) {
    (void)board, (void)argument, (void)size, (void)callback;
    return mask;
}

static uint32_t dfc_unreg_event(uint32_t board, uint32_t handle) {
    (void)board, (void)handle;
    return 0;
}

static void close_library(void) {}

const ZT_libdfc_provider* zt_libdfc_provider(uint32_t abi) {
    static const ZT_libdfc_provider provider = {
        ZT_LIBDFC_ABI,   sizeof provider,   init,          number_of_adapters, ztapi_supported, adapter_info,
        ztapi_reg_event, ztapi_unreg_event, dfc_reg_event, dfc_unreg_event,    close_library};
    return abi == ZT_LIBDFC_ABI ? &provider : NULL;
}
