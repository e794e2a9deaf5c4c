// The kernel's half: looks at each SCSI command that ends or times out, and tells of those that fail. The
// first one of a key goes through the ring and wakes the reader, the others are counted behind it. Each
// failed command is in the ring, in the counts, or counted as lost.
#include <linux/bpf.h>
// Behind the types that they need.
#include <bpf/bpf_core_read.h>
#include <bpf/bpf_helpers.h>

#include "ScsiEvents.h"
#include "ScsiSense.h"

// Most helpers are there only for programs that say so.
char gLicense[] SEC("license") = "GPL";

enum {
    ZT_Keys = 16384,           // 104 bytes each, allocated ahead, twice: 4 MiB with the tables
    ZT_RingBytes = 256 * 1024  // more than 4,600 records
};

// Of the kernel's structures, the members that are used; where they lie is found out when the program is
// loaded.
#pragma clang attribute push(__attribute__((preserve_access_index)), apply_to = record)
struct class {
    const char* name;
};
struct attribute_container {
    struct class* class;
};
struct transport_container {
    struct attribute_container ac;
};
struct scsi_transport_template {
    struct transport_container host_attrs;
};
struct Scsi_Host {
    struct scsi_transport_template* transportt;
    unsigned int host_no;
};
struct scsi_device {
    struct Scsi_Host* host;
    unsigned int id;
    unsigned int channel;
    __u64 lun;
};
struct scsi_cmnd {
    struct scsi_device* device;
    unsigned char cmnd[32];
    unsigned int resid_len;
    unsigned char* sense_buffer;
    int result;
};
struct request {
    int tag;
};
#pragma clang attribute pop

// The transport class of the hosts that are looked at, with its NUL; 0: of all hosts.
const volatile __u64 gTransportClass = 0;

struct {
    __uint(type, BPF_MAP_TYPE_RINGBUF);
    __uint(max_entries, ZT_RingBytes);
} gRing SEC(".maps");

struct ZTSCounts {
    __uint(type, BPF_MAP_TYPE_HASH);
    __uint(max_entries, ZT_Keys);
    __type(key, struct ZTSScsiKey);
    __type(value, struct ZTSScsiRepeats);
};
struct ZTSCounts gCountsA SEC(".maps");
struct ZTSCounts gCountsB SEC(".maps");

// The one that is counted in. The reader puts the other one in its place, and reads what all have left.
struct {
    __uint(type, BPF_MAP_TYPE_ARRAY_OF_MAPS);
    __uint(max_entries, 1);
    __type(key, __u32);
    __array(values, struct ZTSCounts);
} gCounts SEC(".maps") = {.values = {&gCountsA}};

struct {
    __uint(type, BPF_MAP_TYPE_PERCPU_ARRAY);
    __uint(max_entries, 1);
    __type(key, __u32);
    __type(value, __u64);
} gLost SEC(".maps");

static const __u32 sOnly = 0;

static __always_inline void sLose(void) {
    __u64* const lpLost = bpf_map_lookup_elem(&gLost, &sOnly);
    if (lpLost) {
        __sync_fetch_and_add(lpLost, 1);  // the other program may interrupt this one
    }
}

static __always_inline void sRepeat(struct ZTSScsiRepeats* apRepeats, __u32 aTag) {
    __sync_fetch_and_add(&apRepeats->mCount, 1);
    apRepeats->mTag = aTag;
}

// Also one that finds no room in the ring counts as a repeat.
static __always_inline void sTellFirst(void* apCounts, const struct ZTSScsiKey* apKey, __u32 aTag) {
    struct ZTSScsiRecord* const lpRecord = bpf_ringbuf_reserve(&gRing, sizeof *lpRecord, 0);
    if (lpRecord) {
        lpRecord->mKey = *apKey;
        lpRecord->mTag = aTag;
        lpRecord->mZero = 0;
        bpf_ringbuf_submit(lpRecord, 0);
        return;
    }
    struct ZTSScsiRepeats* const lpRepeats = bpf_map_lookup_elem(apCounts, apKey);
    lpRepeats ? sRepeat(lpRepeats, aTag) : sLose();
}

static __always_inline void sTell(const struct ZTSScsiKey* apKey, __u32 aTag) {
    void* const lpCounts = bpf_map_lookup_elem(&gCounts, &sOnly);
    if (!lpCounts) {
        sLose();
        return;
    }
    struct ZTSScsiRepeats* lpRepeats = bpf_map_lookup_elem(lpCounts, apKey);
    if (!lpRepeats) {
        const struct ZTSScsiRepeats lNone = {.mTag = aTag};
        if (bpf_map_update_elem(lpCounts, apKey, &lNone, BPF_NOEXIST) == 0) {
            sTellFirst(lpCounts, apKey, aTag);
            return;
        }
        // Another processor was faster; or there is no room, or the kernel does not let us in just now.
        lpRepeats = bpf_map_lookup_elem(lpCounts, apKey);
    }
    lpRepeats ? sRepeat(lpRepeats, aTag) : sLose();
}

// A kernel that does not say what class its hosts have lets us see all of them.
static __always_inline int sIsLookedAt(struct Scsi_Host* apHost) {
    __u64 lName = 0;
    if (gTransportClass == 0 || !bpf_core_field_exists(struct Scsi_Host, transportt) ||
        !bpf_core_field_exists(struct scsi_transport_template, host_attrs.ac.class) ||
        !bpf_core_field_exists(struct class, name)) {
        return 1;
    }
    const char* const lpName = BPF_CORE_READ(apHost, transportt, host_attrs.ac.class, name);
    return bpf_probe_read_kernel(&lName, sizeof lName, lpName) == 0 && lName == gTransportClass;
}

static __always_inline void sReadSense(struct scsi_cmnd* apCommand, struct ZTSScsiKey* apKey) {
    __u8 lBytes[16] = {0};
    struct ZTSScsiSense lSense = {0};
    if (bpf_core_field_exists(struct scsi_cmnd, sense_buffer) &&
        bpf_probe_read_kernel(lBytes, sizeof lBytes, BPF_CORE_READ(apCommand, sense_buffer)) == 0 &&
        ZTReadScsiSense(lBytes, sizeof lBytes, &lSense)) {
        apKey->mHasSense = 1;
        apKey->mSenseKey = lSense.mKey;
        apKey->mAsc = lSense.mAsc;
        apKey->mAscq = lSense.mAscq;
    }
}

// The request that a command belongs to lies before it.
static __always_inline __u32 sReadTag(struct scsi_cmnd* apCommand) {
    if (!bpf_core_field_exists(struct request, tag)) {
        return 0;
    }
    const struct request* const lpRequest = (const void*)apCommand - bpf_core_type_size(struct request);
    return (__u32)BPF_CORE_READ(lpRequest, tag);
}

static __always_inline void sReadOutcome(struct scsi_cmnd* apCommand, struct ZTSScsiKey* apKey) {
    const __u32 lResult = (__u32)BPF_CORE_READ(apCommand, result);
    const __u32 lStatus = lResult & 0xff;
    apKey->mResult = lResult & 0xff00ff;
    if (lStatus == 0x02) {  // CHECK CONDITION
        sReadSense(apCommand, apKey);
    } else if (lStatus == 0 && apKey->mIsRead && bpf_core_field_exists(struct scsi_cmnd, resid_len)) {
        apKey->mResidual = BPF_CORE_READ(apCommand, resid_len);
    }
}

static __always_inline int sLookAt(struct scsi_cmnd* apCommand, enum ZTEScsiTrace aTrace) {
    struct ZTSScsiKey lKey;
    __u8 lCdb[16] = {0};
    __builtin_memset(&lKey, 0, sizeof lKey);
    struct scsi_device* const lpDevice = BPF_CORE_READ(apCommand, device);
    struct Scsi_Host* const lpHost = BPF_CORE_READ(lpDevice, host);
    if (!lpHost || bpf_core_read(lCdb, sizeof lCdb, &apCommand->cmnd) != 0) {
        sLose();
        return 0;
    }
    if (!sIsLookedAt(lpHost)) {
        return 0;
    }
    lKey.mLun = BPF_CORE_READ(lpDevice, lun);
    lKey.mHost = BPF_CORE_READ(lpHost, host_no);
    lKey.mChannel = BPF_CORE_READ(lpDevice, channel);
    lKey.mTarget = BPF_CORE_READ(lpDevice, id);
    lKey.mOperationCode = lCdb[0];
    lKey.mIsRead = (__u8)ZTIsScsiRead(lCdb, sizeof lCdb);
    lKey.mTrace = aTrace;
    if (aTrace == ZTST_Done) {
        sReadOutcome(apCommand, &lKey);
    }
    sTell(&lKey, sReadTag(apCommand));
    return 0;
}

// What succeeds comes a million times a second: by tp_btf one load tells it. A kernel may ask for the test of
// the pointer.
SEC("?tp_btf/scsi_dispatch_cmd_done")
int ZTScsiDone(__u64* apArguments) {
    struct scsi_cmnd* const lpCommand = (struct scsi_cmnd*)apArguments[0];
    return !lpCommand || lpCommand->result == 0 ? 0 : sLookAt(lpCommand, ZTST_Done);
}

SEC("?raw_tp/scsi_dispatch_cmd_done")
int ZTScsiDoneRaw(__u64* apArguments) {
    struct scsi_cmnd* const lpCommand = (struct scsi_cmnd*)apArguments[0];
    return BPF_CORE_READ(lpCommand, result) == 0 ? 0 : sLookAt(lpCommand, ZTST_Done);
}

// One that has timed out has no result yet.
SEC("?tp_btf/scsi_dispatch_cmd_timeout")
int ZTScsiLate(__u64* apArguments) {
    struct scsi_cmnd* const lpCommand = (struct scsi_cmnd*)apArguments[0];
    return !lpCommand ? 0 : sLookAt(lpCommand, ZTST_TimedOut);
}

SEC("?raw_tp/scsi_dispatch_cmd_timeout")
int ZTScsiLateRaw(__u64* apArguments) {
    return sLookAt((struct scsi_cmnd*)apArguments[0], ZTST_TimedOut);
}
