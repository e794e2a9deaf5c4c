// A disk of target_core_user that ends commands as it is told. What it is told stands in a table that it
// shares with whoever tells it, so a command that is sent behind "tell" has returned finds it there.
#include <fcntl.h>
#include <linux/target_core_user.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "Scsi.h"

enum { sGood = 0, sCheckCondition = 2, sBlock = 512, sBlocks = 32768 };

// How commands with an operation code end, as long as any are left.
typedef struct {
    uint8_t mStatus;
    uint8_t mSense[3];
    uint32_t mLate;  // milliseconds
    uint32_t mLeft;
    uint64_t mAnswered;
} Answer;

static Answer* sMapTable(const char* apPath) {
    const int lFile = open(apPath, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (lFile < 0 || ftruncate(lFile, 256 * sizeof(Answer)) != 0) {
        fail(apPath);
    }
    Answer* const lpTable = mmap(NULL, 256 * sizeof(Answer), PROT_READ | PROT_WRITE, MAP_SHARED, lFile, 0);
    if (lpTable == MAP_FAILED) {
        fail(apPath);
    }
    close(lFile);
    return lpTable;
}

int tell(int aCount, char** apArguments) {
    Answer* const lpAnswer = sMapTable(apArguments[0]) + toNumber(apArguments[1], 16, 0xff);
    const char* const lpMore = aCount > 4 ? apArguments[4] : "";
    Answer lAnswer = {.mStatus = (uint8_t)toNumber(apArguments[3], 16, 0xff)};
    if (strncmp(lpMore, "late:", 5) == 0) {
        lAnswer.mLate = (uint32_t)toNumber(lpMore + 5, 10, UINT32_MAX);
    } else if (*lpMore != '\0') {
        readSense(lpMore, lAnswer.mSense);
    }
    *lpAnswer = lAnswer;
    __atomic_store_n(&lpAnswer->mLeft, (uint32_t)toNumber(apArguments[2], 10, UINT32_MAX), __ATOMIC_RELEASE);
    return 0;
}

int told(int aCount, char** apArguments) {
    (void)aCount;
    const Answer* const lpAnswer = sMapTable(apArguments[0]) + toNumber(apArguments[1], 16, 0xff);
    printf("%u %llu\n", __atomic_load_n(&lpAnswer->mLeft, __ATOMIC_ACQUIRE),
           (unsigned long long)lpAnswer->mAnswered);
    return 0;
}

// A command that is answered: where its data go, and how it ends.
typedef struct {
    unsigned char* mpRing;
    struct tcmu_cmd_entry* mpEntry;
    struct iovec mData[64];
    size_t mVectors;
} Command;

static void sPutData(const Command* apCommand, const void* apData, size_t aSize) {
    const unsigned char* lpData = apData;
    for (size_t lAt = 0; lAt < apCommand->mVectors && aSize > 0; ++lAt) {
        const size_t lPart = aSize < apCommand->mData[lAt].iov_len ? aSize : apCommand->mData[lAt].iov_len;
        memcpy(apCommand->mpRing + (size_t)apCommand->mData[lAt].iov_base, lpData, lPart);
        lpData += lPart;
        aSize -= lPart;
    }
}

static void sEnd(Command* apCommand, uint8_t aStatus, const uint8_t aSense[3]) {
    struct tcmu_cmd_entry* const lpEntry = apCommand->mpEntry;
    memset(&lpEntry->rsp, 0, sizeof lpEntry->rsp);
    lpEntry->rsp.scsi_status = aStatus;
    if (aStatus == sCheckCondition) {
        const uint8_t lSense[ZT_SenseBytes] = {
            0x70, [2] = aSense[0], [7] = ZT_SenseBytes - 8, [12] = aSense[1], [13] = aSense[2]};
        memcpy(lpEntry->rsp.sense_buffer, lSense, sizeof lSense);
    }
}

// What a disk has to say for the kernel to take it for one.
static void sEndAsDisk(Command* apCommand, const uint8_t* apCdb) {
    static const uint8_t sUnknownCode[3] = {5, 0x20, 0}, sInvalidField[3] = {5, 0x24, 0};
    static const uint8_t sInquiry[36] = "\0\0\5\2\37\0\0\2VM      DISK            1   ";
    static const uint8_t sCapacity[32] = {
        [2] = (sBlocks - 1) >> 8, [3] = (sBlocks - 1) & 0xff, [6] = sBlock >> 8};
    static const uint8_t sCapacity16[32] = {
        [6] = (sBlocks - 1) >> 8, [7] = (sBlocks - 1) & 0xff, [10] = sBlock >> 8};
    const void* lpData = NULL;
    size_t lSize = 0;
    const uint8_t* lpSense = NULL;
    switch (apCdb[0]) {
        case 0x00:  // TEST UNIT READY, READ and WRITE, SYNCHRONIZE CACHE
        case 0x08:
        case 0x28:
        case 0x88:
        case 0x2a:
        case 0x35:
            break;
        case 0x12:
            lpData = sInquiry, lSize = sizeof sInquiry;
            lpSense = (apCdb[1] & 1) != 0 ? sInvalidField : NULL;
            break;
        case 0x25:
            lpData = sCapacity, lSize = 8;
            break;
        case 0x9e:
            lpData = sCapacity16, lSize = sizeof sCapacity16;
            break;
        default:
            lpSense = sUnknownCode;
    }
    if (lpSense == NULL && lpData != NULL) {
        sPutData(apCommand, lpData, lSize);
    }
    sEnd(apCommand, lpSense != NULL ? sCheckCondition : sGood, lpSense);
}

static void sAnswer(Command* apCommand, const uint8_t* apCdb, Answer* apAnswer) {
    if (__atomic_load_n(&apAnswer->mLeft, __ATOMIC_ACQUIRE) == 0) {
        sEndAsDisk(apCommand, apCdb);
        return;
    }
    const struct timespec lLate = {apAnswer->mLate / 1000, apAnswer->mLate % 1000 * 1000000L};
    nanosleep(&lLate, NULL);
    sEnd(apCommand, apAnswer->mStatus, apAnswer->mSense);
    ++apAnswer->mAnswered;
    __atomic_fetch_sub(&apAnswer->mLeft, 1, __ATOMIC_RELEASE);
}

// Answers what the ring has.
static void sEmpty(unsigned char* apRing, Answer* apTable) {
    struct tcmu_mailbox* const lpBox = (struct tcmu_mailbox*)(void*)apRing;
    while (lpBox->cmd_tail != __atomic_load_n(&lpBox->cmd_head, __ATOMIC_ACQUIRE)) {
        struct tcmu_cmd_entry* const lpEntry = (void*)(apRing + lpBox->cmdr_off + lpBox->cmd_tail);
        if (tcmu_hdr_get_op(lpEntry->hdr.len_op) == TCMU_OP_CMD) {
            // The answer goes where the question stands.
            Command lCommand = {.mpRing = apRing, .mpEntry = lpEntry};
            uint8_t lCdb[16];
            memcpy(lCdb, apRing + lpEntry->req.cdb_off, sizeof lCdb);
            for (; lCommand.mVectors < lpEntry->req.iov_cnt && lCommand.mVectors < 64; ++lCommand.mVectors) {
                lCommand.mData[lCommand.mVectors] = lpEntry->req.iov[lCommand.mVectors];
            }
            sAnswer(&lCommand, lCdb, &apTable[lCdb[0]]);
        }
        const uint32_t lNext = (lpBox->cmd_tail + tcmu_hdr_get_len(lpEntry->hdr.len_op)) % lpBox->cmdr_size;
        __atomic_store_n(&lpBox->cmd_tail, lNext, __ATOMIC_RELEASE);
    }
}

static size_t sSizeOfRing(const char* apName) {
    char lPath[128];
    char lText[32] = "";
    snprintf(lPath, sizeof lPath, "/sys/class/uio/%s/maps/map0/size", apName);
    const int lFile = open(lPath, O_RDONLY | O_CLOEXEC);
    if (lFile < 0 || read(lFile, lText, sizeof lText - 1) <= 0) {
        fail(lPath);
    }
    close(lFile);
    lText[strcspn(lText, "\n")] = '\0';
    return toNumber(lText, 0, SIZE_MAX);
}

int serve(int aCount, char** apArguments) {
    (void)aCount;
    Answer* const lpTable = sMapTable(apArguments[1]);
    const int lFile = open(apArguments[0], O_RDWR | O_CLOEXEC);
    if (lFile < 0) {
        fail(apArguments[0]);
    }
    const size_t lSize = sSizeOfRing(strrchr(apArguments[0], '/') + 1);
    unsigned char* const lpRing = mmap(NULL, lSize, PROT_READ | PROT_WRITE, MAP_SHARED, lFile, 0);
    if (lpRing == MAP_FAILED) {
        fail("the ring");
    }
    for (;;) {
        uint32_t lAny = 0;
        sEmpty(lpRing, lpTable);
        if (write(lFile, &lAny, sizeof lAny) < 0 || read(lFile, &lAny, sizeof lAny) < 0) {
            fail(apArguments[0]);
        }
    }
}
