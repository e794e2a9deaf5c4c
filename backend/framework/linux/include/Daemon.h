// Runs the process detached from the terminal that it was started on.
//
// The process that was started stays until the detached one is ready, or has ended: then it ends with the
// same status. Until it is ready, the detached one writes to the terminal's standard error as before.
#pragma once

#include "Descriptor.h"
#include "ZTString.h"

class ZTCDaemon {
  public:
    /// Forks; returns in the child, which leads a session of its own and works in aDirectory. Main thread,
    /// before any other is started. Throws ZTCOsException.
    void detach(const ZTCString& acrDirectory);

    bool isDetached() const { return mReport.isOpen(); }

    /// Opens these in the place of standard input, output and error, and lets the starting process go.
    /// Throws ZTCOsException.
    void ready(const ZTCString& acrInput, const ZTCString& acrOutput, const ZTCString& acrError);

  private:
    ZTCDescriptor mReport;
};

/// Opens /dev/null in the place of each standard descriptor that is closed: else the next file that is opened
/// would take it, and get what is written to standard error. Before any file is opened.
void OsOpenStandardDescriptors();

/// Tells the service manager, if one has set NOTIFY_SOCKET, a state such as "READY=1". Failing is not an
/// error.
void OsNotifyServiceManager(const char* apState);
