/* A vendor library that delivers as many different PLOGIs as the environment variable ZT_BENCH_EVENTS says,
 * from one thread, as fast as the agent takes them. It begins at the sensor's first fetch, and waits where
 * the collection is nearly full, so that no event is lost: both it sees in the agent's statistics. How many
 * nanoseconds it took from the first call to the last return, and how many of these it waited, it writes into
 * the file ZT_BENCH_RESULT.
 *
 * With ZT_BENCH_RATE it delivers so many events a second instead, of four kinds that alternate over two
 * adapters, waits for nobody, and writes how many nanoseconds that took. */
#define _POSIX_C_SOURCE 200809L
#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include "libdfc_provider.h"

enum { sHeaderSize = 64, sNameSize = 56, sFileSize = 4096, sEventsALook = 16, sRoom = 16384 };

static ZT_generic_callback sCallback;

static uint64_t sNow(void) {
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return (uint64_t)time.tv_sec * 1000000000U + (uint64_t)time.tv_nsec;
}

/* The figure of a row of the statistics; ends the process if there is none. */
static const volatile uint64_t* sFigure(const char* name) {
    static const char* file;
    if (file == NULL) {
        char path[4096];
        snprintf(path, sizeof path, "%s/vrx-sca.stats", getenv("ZT_VRX_SENSOR_DIR"));
        const int opened = open(path, O_RDONLY | O_CLOEXEC);
        void* const mapped = mmap(NULL, sFileSize, PROT_READ, MAP_SHARED, opened, 0);
        if (mapped == MAP_FAILED) {
            perror(path);
            _exit(1);
        }
        file = mapped;
    }
    uint32_t size[2]; /* the number of rows, the size of one */
    memcpy(size, file + 8, sizeof size);
    for (const char* row = file + sHeaderSize; row < file + sHeaderSize + (size_t)size[0] * size[1];
         row += size[1]) {
        if (strcmp(row, name) == 0) {
            return (const volatile uint64_t*)(const void*)(row + sNameSize);
        }
    }
    fprintf(stderr, "the statistics have no %s\n", name);
    _exit(1);
}

static void* sDeliver(void* nothing) {
    const volatile uint64_t* const fetches = sFigure("fetches_total");
    const volatile uint64_t* const held = sFigure("held_bytes");
    const uint64_t limit = *sFigure("held_bytes_limit") - sRoom;
    const uint64_t events = strtoull(getenv("ZT_BENCH_EVENTS"), NULL, 10);
    const HBA_wwn port = {{0x10, 0, 0, 0x25, 0xb5, 0, 0, 1}};
    uint8_t payload[20] = {0};
    const ZT_event_descriptor descriptor = {0, payload};
    const ZT_event event = {1, ZT_EVENT_HEADER + sizeof payload, &descriptor};
    const struct timespec moment = {0, 1000000};
    while (*fetches == 0) {
        nanosleep(&moment, NULL);
    }
    uint64_t waited = 0;
    const uint64_t begin = sNow();
    for (uint64_t at = 0; at < events; ++at) {
        if (at % sEventsALook == 0 && *held > limit) {
            const uint64_t full = sNow();
            while (*held > limit) {
                sched_yield();
            }
            waited += sNow() - full;
        }
        memcpy(payload + 4, &at, sizeof at);
        sCallback(0, port, 1, 1, NULL, &event);
    }
    const uint64_t all = sNow() - begin;
    FILE* const result = fopen(getenv("ZT_BENCH_RESULT"), "w");
    if (result != NULL) {
        fprintf(result, "%llu %llu\n", (unsigned long long)all, (unsigned long long)waited);
        fclose(result);
    }
    return nothing;
}

static unsigned long sRate(void) {
    const char* const rate = getenv("ZT_BENCH_RATE");
    return rate != NULL ? strtoul(rate, NULL, 10) : 0;
}

/* In steps of a millisecond, as long as the machine keeps up. */
static void* sDeliverMix(void* nothing) {
    static const struct {
        uint32_t category, subcategory, length;
    } kinds[] = {{1, 1, 20}, {4, 1, 16}, {4, 2, 16}, {2, 2, 12}};
    const volatile uint64_t* const fetches = sFigure("fetches_total");
    const uint64_t events = strtoull(getenv("ZT_BENCH_EVENTS"), NULL, 10);
    const uint64_t rate = sRate();
    uint8_t payload[20] = {0, 0, 0, 0, 0x50, 0x06, 0x01, 0x60, 0x3b, 0x20, 0x11, 0x0c};
    const struct timespec moment = {0, 1000000};
    while (*fetches == 0) {
        nanosleep(&moment, NULL);
    }
    const uint64_t begin = sNow();
    for (uint64_t at = 0; at < events; ++at) {
        while (at % 16 == 0 && (sNow() - begin) / 1000 * rate < at * 1000000) {
            nanosleep(&moment, NULL);
        }
        const uint32_t board = (uint32_t)(at / 4 % 2);
        const ZT_event_descriptor descriptor = {0, payload};
        const ZT_event event = {1, ZT_EVENT_HEADER + kinds[at % 4].length, &descriptor};
        const HBA_wwn port = {{0x10, 0, 0, 0x25, 0xb5, 0, 0, (uint8_t)board}};
        sCallback(board, port, kinds[at % 4].category, kinds[at % 4].subcategory, NULL, &event);
    }
    FILE* const result = fopen(getenv("ZT_BENCH_RESULT"), "w");
    if (result != NULL) {
        fprintf(result, "%llu 0\n", (unsigned long long)(sNow() - begin));
        fclose(result);
    }
    return nothing;
}

static int sInit(void) {
    return 0;
}

static uint32_t sNumberOfAdapters(void) {
    return sRate() != 0 ? 2 : 1;
}

static int sZtapiSupported(void) {
    return 1;
}

static int sAdapterInfo(uint32_t board, HBA_wwn* node, HBA_wwn* port) {
    const HBA_wwn name = {{0x20, 0, 0, 0x25, 0xb5, 0, 0, (uint8_t)board}};
    *node = *port = name;
    port->wwn[0] = 0x10;
    return 0;
}

static uint32_t sZtapiRegEvent(uint32_t board, HBA_wwn port, uint32_t category, uint32_t subcategory,
                               void* context, uint32_t* handle, ZT_generic_callback callback) {
    (void)port, (void)context;
    *handle = category << 8 | subcategory;
    if (board == 0 && category == 1 && subcategory == 1) {
        pthread_t thread;
        sCallback = callback;
        return pthread_create(&thread, NULL, sRate() != 0 ? sDeliverMix : sDeliver, NULL) == 0
                   ? (uint32_t)pthread_detach(thread)
                   : 1;
    }
    return 0;
}

static uint32_t sZtapiUnregEvent(uint32_t board, HBA_wwn port, uint32_t handle) {
    (void)board, (void)port, (void)handle;
    return 0;
}

static uint32_t sDfcRegEvent(uint32_t board, uint32_t mask, uintptr_t argument, uint32_t size,
                             ZT_dfc_callback callback) {
    (void)board, (void)argument, (void)size, (void)callback;
    return mask;
}

static uint32_t sDfcUnregEvent(uint32_t board, uint32_t handle) {
    (void)board, (void)handle;
    return 0;
}

static void sClose(void) {}

const ZT_libdfc_provider* zt_libdfc_provider(uint32_t abi) {
    static const ZT_libdfc_provider sProvider = {
        ZT_LIBDFC_ABI,  sizeof sProvider, sInit,        sNumberOfAdapters, sZtapiSupported, sAdapterInfo,
        sZtapiRegEvent, sZtapiUnregEvent, sDfcRegEvent, sDfcUnregEvent,    sClose};
    return abi == ZT_LIBDFC_ABI ? &sProvider : NULL;
}
