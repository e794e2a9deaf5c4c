// A SCSI command that has failed, as the BPF program and the library both see it. C11 and C++; all numbers
// are in the host's order.
#pragma once

#include <linux/types.h>

/// Which tracepoint has told of it.
enum ZTEScsiTrace {
    ZTST_Done = 0,  ///< scsi_dispatch_cmd_done: it has ended, with an error
    ZTST_TimedOut,  ///< scsi_dispatch_cmd_timeout: its result says nothing
};

/// What commands have in common that are counted together. Zero where there is nothing to say; no padding,
/// for the kernel compares the bytes.
struct ZTSScsiKey {
    __u64 mLun;      ///< as the kernel numbers it
    __u32 mHost;     ///< hostN
    __u32 mChannel;  ///< and the target's number on it: both as in sysfs
    __u32 mTarget;
    __u32 mResult;    ///< the status in bits 0 to 7, the host byte in bits 16 to 23; nothing else
    __u32 mResidual;  ///< bytes that a read with status GOOD did not bring
    __u8 mOperationCode;
    __u8 mSenseKey;  ///< of CHECK CONDITION, with the next two, if mHasSense
    __u8 mAsc;
    __u8 mAscq;
    __u8 mHasSense;  ///< 1, or 0
    __u8 mTrace;     ///< a ZTEScsiTrace
    __u8 mIsRead;    ///< 1, or 0: of 32 bytes, the operation code alone does not say
    __u8 mZeros[5];
};

/// What the ring brings: the first command with a key since the counts were taken last.
struct ZTSScsiRecord {
    struct ZTSScsiKey mKey;
    __u32 mTag;  ///< of the request: the driver's number for the command while it was under way
    __u32 mZero;
};

/// What is counted by key: the commands behind that one.
struct ZTSScsiRepeats {
    __u64 mCount;
    __u32 mTag;  ///< of the last one
    __u32 mZero;
};
