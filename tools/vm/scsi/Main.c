#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "Scsi.h"

_Noreturn void fail(const char* apWhat) {
    fprintf(stderr, "zt-vm-scsi: %s: %s\n", apWhat, strerror(errno));
    exit(1);
}

uint64_t toNumber(const char* apText, int aBase, uint64_t aMost) {
    char* lpEnd = NULL;
    const uint64_t lNumber = strtoull(apText, &lpEnd, aBase);
    if (*apText == '\0' || *lpEnd != '\0' || lNumber > aMost) {
        errno = EINVAL;
        fail(apText);
    }
    return lNumber;
}

void readSense(const char* apText, uint8_t aSense[3]) {
    char lEnd = '\0';
    if (sscanf(apText, "%2hhx/%2hhx/%2hhx%c", &aSense[0], &aSense[1], &aSense[2], &lEnd) != 3) {
        errno = EINVAL;
        fail(apText);
    }
}

static const struct {
    const char* mpName;
    int mLeast;
    int (*mpRun)(int, char**);
    const char* mpHelp;
} sCommands[] = {
    {"serve", 2, serve, "UIO TABLE: answers what a device of target_core_user is asked"},
    {"tell", 4, tell,
     "TABLE OPCODE COUNT STATUS [KEY/ASC/ASCQ | late:MS]: how the next COUNT commands with this operation code end, or "
     "how much later"},
    {"told", 2, told,
     "TABLE OPCODE: how many of those are left, and how many were answered as they were told"},
    {"send", 3, sendCommands,
     "[--threads N] [--seconds N] [--timeout MS] [--read BYTES] DEVICE COUNT CDB...: sends a command, by each thread "
     "in its turn, and prints how many ended how"},
    {"reset", 2, resetDevice, "DEVICE device|target|host: asks the kernel for a reset"},
    {"fpin", 4, sendFpin,
     "HOST DETECTING ATTACHED COUNT [SOCKET]: tells of so many errors of a link, in the kernel's place"},
};

int main(int aCount, char** apArguments) {
    const int lCommands = sizeof sCommands / sizeof *sCommands;
    for (int lAt = 0; aCount > 1 && lAt < lCommands; ++lAt) {
        const int lArguments = aCount - 2;
        if (strcmp(apArguments[1], sCommands[lAt].mpName) == 0 && lArguments >= sCommands[lAt].mLeast) {
            return sCommands[lAt].mpRun(lArguments, apArguments + 2);
        }
    }
    for (int lAt = 0; lAt < lCommands; ++lAt) {
        fprintf(stderr, "zt-vm-scsi %s %s\n", sCommands[lAt].mpName, sCommands[lAt].mpHelp);
    }
    return 2;
}
