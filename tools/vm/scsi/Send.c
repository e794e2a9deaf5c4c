// Sends SCSI commands through the generic driver, past file systems and caches.
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <getopt.h>
#include <pthread.h>
#include <scsi/sg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

#include "Scsi.h"

enum { sMaxThreads = 64, sMaxOutcomes = 32, sMaxRead = 65536 };

// What all threads send.
static const char* spDevice;
static uint8_t sCdb[16];
static uint8_t sCdbLength;
static uint32_t sRead;             // bytes that a command brings
static uint32_t sTimeout = 60000;  // milliseconds
static uint64_t sLeft;             // commands
static time_t sUntil;              // 0: until none is left

// How commands have ended, and how many.
typedef struct {
    uint8_t mStatus;
    uint8_t mHost;
    uint8_t mSense[3];
    uint8_t mErrno;  // of the call itself
    uint16_t mMissing;
} Outcome;
static Outcome sOutcomes[sMaxOutcomes];
static uint64_t sCounts[sMaxOutcomes];
static pthread_mutex_t sLock = PTHREAD_MUTEX_INITIALIZER;

static void sCount(Outcome aOutcome) {
    pthread_mutex_lock(&sLock);
    for (int lAt = 0; lAt < sMaxOutcomes; ++lAt) {
        if (sCounts[lAt] == 0) {
            sOutcomes[lAt] = aOutcome;
        }
        if (memcmp(&sOutcomes[lAt], &aOutcome, sizeof aOutcome) == 0) {
            ++sCounts[lAt];
            break;
        }
    }
    pthread_mutex_unlock(&sLock);
}

static time_t sNow(void) {
    struct timespec lNow;
    clock_gettime(CLOCK_MONOTONIC, &lNow);
    return lNow.tv_sec;
}

static Outcome sSend(int aDevice) {
    uint8_t lData[sMaxRead];
    uint8_t lSense[64] = {0};
    sg_io_hdr_t lCommand = {.interface_id = 'S',
                            .dxfer_direction = sRead != 0 ? SG_DXFER_FROM_DEV : SG_DXFER_NONE,
                            .cmd_len = sCdbLength,
                            .mx_sb_len = sizeof lSense,
                            .dxfer_len = sRead,
                            .dxferp = lData,
                            .cmdp = sCdb,
                            .sbp = lSense,
                            .timeout = sTimeout};
    if (ioctl(aDevice, SG_IO, &lCommand) != 0) {
        return (Outcome){.mErrno = (uint8_t)errno};
    }
    const int lIsDescriptor = (lSense[0] & 0x7e) == 0x72;
    return (Outcome){.mStatus = lCommand.status,
                     .mHost = (uint8_t)lCommand.host_status,
                     .mSense = {lSense[lIsDescriptor ? 1 : 2] & 0xf, lSense[lIsDescriptor ? 2 : 12],
                                lSense[lIsDescriptor ? 3 : 13]},
                     .mMissing = (uint16_t)lCommand.resid};
}

static int sOpen(const char* apPath) {
    const int lFile = open(apPath, O_RDWR | O_CLOEXEC | O_NONBLOCK);
    if (lFile < 0) {
        fail(apPath);
    }
    return lFile;
}

// A device that has gone brings errors of the call at once: one ends the thread.
static void* sRun(void* apNothing) {
    const int lDevice = sOpen(spDevice);
    while ((sUntil == 0 || sNow() < sUntil) && __atomic_load_n(&sLeft, __ATOMIC_RELAXED) > 0) {
        if (__atomic_fetch_sub(&sLeft, 1, __ATOMIC_RELAXED) > INT64_MAX) {
            __atomic_store_n(&sLeft, 0, __ATOMIC_RELAXED);
            break;
        }
        const Outcome lOutcome = sSend(lDevice);
        sCount(lOutcome);
        if (lOutcome.mErrno != 0) {
            break;
        }
    }
    close(lDevice);
    return apNothing;
}

static void sPrint(void) {
    for (int lAt = 0; lAt < sMaxOutcomes && sCounts[lAt] != 0; ++lAt) {
        const Outcome* const lpOutcome = &sOutcomes[lAt];
        printf("%llu status=%02x host=%02x sense=%x/%02x/%02x missing=%u errno=%u\n",
               (unsigned long long)sCounts[lAt], lpOutcome->mStatus, lpOutcome->mHost, lpOutcome->mSense[0],
               lpOutcome->mSense[1], lpOutcome->mSense[2], lpOutcome->mMissing, lpOutcome->mErrno);
    }
}

int sendCommands(int aCount, char** apArguments) {
    enum { Threads, Seconds, Timeout, Read };
    static const struct option sOptions[] = {{"threads", 1, NULL, Threads},
                                             {"seconds", 1, NULL, Seconds},
                                             {"timeout", 1, NULL, Timeout},
                                             {"read", 1, NULL, Read},
                                             {0}};
    uint64_t lThreads = 1;
    int lOption = 0;
    --apArguments;  // getopt leaves out what it takes for the program's name
    while ((lOption = getopt_long(aCount + 1, apArguments, "+", sOptions, NULL)) >= 0) {
        switch (lOption) {
            case Threads:
                lThreads = toNumber(optarg, 10, sMaxThreads);
                break;
            case Seconds:
                sUntil = sNow() + (time_t)toNumber(optarg, 10, 3600);
                break;
            case Timeout:
                sTimeout = (uint32_t)toNumber(optarg, 10, 3600000);
                break;
            case Read:
                sRead = (uint32_t)toNumber(optarg, 10, sMaxRead);
                break;
            default:
                return 2;
        }
    }
    spDevice = apArguments[optind++];
    sLeft = toNumber(apArguments[optind++], 10, INT64_MAX);
    for (; optind <= aCount && sCdbLength < sizeof sCdb; ++optind) {
        sCdb[sCdbLength++] = (uint8_t)toNumber(apArguments[optind], 16, 0xff);
    }
    pthread_t lThread[sMaxThreads];
    for (uint64_t lAt = 0; lAt < lThreads; ++lAt) {
        if (pthread_create(&lThread[lAt], NULL, sRun, NULL) != 0) {
            fail("a thread");
        }
    }
    for (uint64_t lAt = 0; lAt < lThreads; ++lAt) {
        pthread_join(lThread[lAt], NULL);
    }
    sPrint();
    return 0;
}

int resetDevice(int aCount, char** apArguments) {
    (void)aCount;
    static const struct {
        const char* mpName;
        int mScope;
    } sScopes[] = {{"device", SG_SCSI_RESET_DEVICE},
                   {"target", 4 /* SG_SCSI_RESET_TARGET */},
                   {"host", SG_SCSI_RESET_HOST}};
    for (unsigned int lAt = 0; lAt < sizeof sScopes / sizeof *sScopes; ++lAt) {
        int lScope = sScopes[lAt].mScope | 0x100;  // no wider one, should it fail
        if (strcmp(apArguments[1], sScopes[lAt].mpName) == 0) {
            if (ioctl(sOpen(apArguments[0]), SG_SCSI_RESET, &lScope) != 0) {
                fail(apArguments[1]);
            }
            return 0;
        }
    }
    return 2;
}
