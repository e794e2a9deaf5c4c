/* A provider that misbehaves as the words in ZT_BAD say; without any it has three adapters, or as many as
 * ZT_BAD_BOARDS says at the moment, where nothing happens. With "storm" eight threads call back from the
 * first registration until zt_bad_join, also after close has returned. With "hang=FUNCTION;" that function
 * ("loading": the library's initialiser) says so on standard error and does not return before there is a file
 * by the name in ZT_BAD_UNTIL. With "raise=NUMBER" init gets that signal, with "exits" it ends the process.
 */
#include <pthread.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <threads.h>
#include <unistd.h>

#include "libdfc_provider.h"

enum { GENERIC_HANDLE = 77, STORM_THREADS = 8 };

/* What a test asks for by dlsym: the rounds of calls so far, and the end of the storm. */
ZT_LIBDFC_EXPORT unsigned long zt_bad_calls(void);
ZT_LIBDFC_EXPORT void zt_bad_join(void);

static _Atomic(ZT_generic_callback) sGeneric;
static _Atomic(void*) sContext;
static _Atomic(ZT_dfc_callback) sLink;
static atomic_ulong sCalls;
static atomic_bool sIsStorming;
static pthread_t sThreads[STORM_THREADS];

static const char* find(const char* word) {
    const char* const lpWords = getenv("ZT_BAD");
    return lpWords == NULL ? NULL : strstr(lpWords, word);
}

__attribute__((destructor)) static void tell_of_destruction(void) {
    if (find("exit-told")) {
        fputs("destroyed\n", stderr);
    }
}

static void hang_in(const char* function) {
    char lWord[64];
    snprintf(lWord, sizeof lWord, "hang=%s;", function);
    if (find(lWord) == NULL) {
        return;
    }
    fprintf(stderr, "hanging\n");
    const char* const lpUntil = getenv("ZT_BAD_UNTIL");
    while (lpUntil == NULL || access(lpUntil, F_OK) != 0) {
        const struct timespec lTime = {0, 1000000};
        thrd_sleep(&lTime, NULL);
    }
}

__attribute__((constructor)) static void load(void) {
    hang_in("loading");
}

static int init(void) {
    hang_in("init");
    const char* const lpRaise = find("raise=");
    if (lpRaise != NULL) {
        raise(atoi(lpRaise + 6));
    }
    if (find("exits")) {
        exit(0);
    }
    return find("init-fails") ? 7 : 0;
}

static uint32_t number_of_adapters(void) {
    hang_in("number_of_adapters");
    const char* const lpBoards = getenv("ZT_BAD_BOARDS");
    const uint32_t lBoards = lpBoards == NULL ? 3 : (uint32_t)atoi(lpBoards);
    return find("no-adapters") ? 0 : find("countless") ? UINT32_MAX : lBoards;
}

static int ztapi_supported(void) {
    hang_in("ztapi_supported");
    return find("old-driver") == NULL;
}

static int adapter_info(uint32_t board, HBA_wwn* node, HBA_wwn* port) {
    hang_in("adapter_info");
    *node = (HBA_wwn){{0x20, 0, 0, 0x25, 0xb5, 0, 0, (uint8_t)board}};
    *port = (HBA_wwn){{0x10, 0, 0, 0x25, 0xb5, 0, 0, (uint8_t)board}};
    return board == 1 && find("nameless") ? 5 : 0;
}

static void* storm(void* unused) {
    const uint8_t lPort[ZT_DFC_LINK_CONTEXT] = {0x10};
    const ZT_event_descriptor lDescriptor = {0, lPort};
    const ZT_event lEvent = {1, ZT_EVENT_HEADER + sizeof lPort, &lDescriptor};
    for (; sIsStorming; ++sCalls) {
        const ZT_generic_callback lpGeneric = sGeneric;
        if (lpGeneric != NULL) {
            lpGeneric(2, (HBA_wwn){{0x10}}, 4, 1, sContext, &lEvent);
        }
        const ZT_dfc_callback lpLink = sLink;
        if (lpLink != NULL) {
            lpLink(2, lPort, sizeof lPort);
        }
        thrd_yield();
    }
    return unused;
}

static void begin(void) {
    if (find("storm") && !sIsStorming) {
        sIsStorming = 1;
        for (int lAt = 0; lAt < STORM_THREADS; ++lAt) {
            pthread_create(&sThreads[lAt], NULL, storm, NULL);
        }
    }
}

static uint32_t ztapi_reg_event(uint32_t board, HBA_wwn port, uint32_t category, uint32_t subcategory,
                                void* context, uint32_t* handle, ZT_generic_callback callback) {
    (void)board, (void)port, (void)category, (void)subcategory;
    hang_in("ztapi_reg_event");
    sContext = context;
    sGeneric = callback;
    *handle = GENERIC_HANDLE;
    begin();
    return 0;
}

static uint32_t ztapi_unreg_event(uint32_t board, HBA_wwn port, uint32_t handle) {
    (void)board, (void)port;
    hang_in("ztapi_unreg_event");
    sGeneric = (ZT_generic_callback)NULL;
    return handle == GENERIC_HANDLE ? 0 : 1;
}

static uint32_t dfc_reg_event(uint32_t board, uint32_t mask, uintptr_t argument, uint32_t size,
                              ZT_dfc_callback callback) {
    (void)board, (void)argument, (void)size;
    hang_in("dfc_reg_event");
    sLink = callback;
    begin();
    return mask;
}

static uint32_t dfc_unreg_event(uint32_t board, uint32_t handle) {
    (void)board;
    hang_in("dfc_unreg_event");
    sLink = (ZT_dfc_callback)NULL;
    return handle == ZT_DFC_LINK ? 0 : 1;
}

static void close_library(void) {
    hang_in("close");
    const struct timespec lTime = {find("close-hangs") ? 3600 : 0, find("close-slow") ? 200000000 : 0};
    thrd_sleep(&lTime, NULL);
    if (find("close-")) {
        fputs("closed\n", stderr);
    }
}

unsigned long zt_bad_calls(void) {
    return sCalls;
}

void zt_bad_join(void) {
    sIsStorming = 0;
    for (int lAt = 0; lAt < STORM_THREADS; ++lAt) {
        pthread_join(sThreads[lAt], NULL);
    }
}

const ZT_libdfc_provider* zt_libdfc_provider(uint32_t abi) {
    static ZT_libdfc_provider sProvider;
    sProvider = (ZT_libdfc_provider){abi,
                                     sizeof sProvider,
                                     init,
                                     number_of_adapters,
                                     ztapi_supported,
                                     adapter_info,
                                     ztapi_reg_event,
                                     ztapi_unreg_event,
                                     dfc_reg_event,
                                     dfc_unreg_event,
                                     close_library};
    sProvider.abi += find("other-abi") ? 1 : 0;
    sProvider.size += find("larger") ? 8 : 0;
    sProvider.size -= find("smaller") ? 8 : 0;
    const char* const lpNull = find("null=");
    if (lpNull != NULL) {
        void** const lppFunctions = (void**)(void*)&sProvider.init;
        memset(lppFunctions + (lpNull[5] - '0'), 0, sizeof *lppFunctions);
    }
    return find("no-version") ? NULL : &sProvider;
}
