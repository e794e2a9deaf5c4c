// SCSI commands that have failed, from perf events of the kernel's tracepoints: where BPF is not to be had.
#pragma once

#include <memory>
#include <string>

#include "ScsiSource.h"

/// Where tracefs and sysfs are mounted. Throws ZTCScsiNotAvailable. What fails on a processor that has come
/// is seen from lookForProcessors() on, which wants the rights that this took: describe() says if it had to
/// go without.
std::unique_ptr<ZTCScsiSource> openScsiPerf(const std::string& acrTracing = "/sys/kernel/tracing",
                                            const std::string& acrSysfs = "/sys");
