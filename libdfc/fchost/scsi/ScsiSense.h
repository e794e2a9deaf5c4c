// Reads the bytes that SCSI commands and their answers are made of. C11 and C++. Part of the BPF program too,
// whose verifier has to see each access within its bounds: so everything is inline, and nothing loops.
#pragma once

#include <linux/types.h>

/// Keeps the compiler from making one read at a computed place out of two reads in two branches, which the
/// verifier refuses.
#define ZT_BRANCH_OF_ITS_OWN() __asm__ volatile("" ::: "memory")

struct ZTSScsiSense {
    __u8 mKey;
    __u8 mAsc;
    __u8 mAscq;
};

/// 1: they are sense data, of either format, and what they do not hold is 0.
inline __attribute__((always_inline)) int ZTReadScsiSense(const __u8* apBytes, __u32 aSize,
                                                          struct ZTSScsiSense* apSense) {
    const __u8 lFormat = aSize < 4 ? 0 : (apBytes[0] & 0x7f);
    if (lFormat == 0x72 || lFormat == 0x73) {  // descriptors
        ZT_BRANCH_OF_ITS_OWN();
        apSense->mKey = apBytes[1] & 0xf;
        apSense->mAsc = apBytes[2];
        apSense->mAscq = apBytes[3];
        return 1;
    }
    if (lFormat == 0x70 || lFormat == 0x71) {  // fixed places, and the number of the bytes behind the eighth
        const __u32 lSize = aSize < 8 ? 0 : 8U + apBytes[7];
        ZT_BRANCH_OF_ITS_OWN();
        apSense->mKey = apBytes[2] & 0xf;
        apSense->mAsc = aSize > 12 && lSize > 12 ? apBytes[12] : 0;
        apSense->mAscq = aSize > 13 && lSize > 13 ? apBytes[13] : 0;
        return 1;
    }
    return 0;
}

/// Whether a CDB is that of a read.
inline __attribute__((always_inline)) int ZTIsScsiRead(const __u8* apCdb, __u32 aSize) {
    if (aSize < 10) {
        return aSize >= 6 && apCdb[0] == 0x08;
    }
    if (apCdb[0] == 0x7f) {  // of variable length: the service action says
        ZT_BRANCH_OF_ITS_OWN();
        return apCdb[8] == 0 && apCdb[9] == 0x09;
    }
    return apCdb[0] == 0x08 || apCdb[0] == 0x28 || apCdb[0] == 0x88 || apCdb[0] == 0xa8;
}
