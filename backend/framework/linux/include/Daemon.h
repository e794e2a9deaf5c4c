// Runs the process detached from the terminal that it was started on.
//
// The process that was started stays until the detached one is ready, or has ended: then it ends with the
// same status; one that ended without a word of its own, such as by a signal, it tells on standard error,
// with status 1. Until it is ready, the detached one writes to the terminal's standard error as before.
#pragma once

#include "Descriptor.h"
#include "ZTString.h"

class ZTCDaemon {
  public:
    /// Forks; returns in the child, which leads a session of its own and works in aDirectory. Main thread,
    /// before any other is started. The name is the program's, for what is told. Throws ZTCOsException.
    void detach(const ZTCString& acrDirectory, const ZTCString& acrName);

    bool isDetached() const { return mReport.isOpen(); }

    /// Opens these in the place of standard input, output and error, and lets the starting process go.
    /// Throws ZTCOsException.
    void ready(const ZTCString& acrInput, const ZTCString& acrOutput, const ZTCString& acrError);

    /// The pipe to the process that waits, until it has been let go; else -1. When that process ends, this
    /// has an error to be polled.
    int getStarter() const { return mReport.get(); }

    /// This process ends before it was ready, and has said why.
    void end() {
        tellEnd(mReport);
        mReport.close();
    }
    static void tellEnd(const ZTCDescriptor& acrStarter);

  private:
    ZTCDescriptor mReport;
};

/// Opens /dev/null in the place of each standard descriptor that is closed: else the next file that is opened
/// would take it, and get what is written to standard error. Before any file is opened.
void OsOpenStandardDescriptors();

/// Tells the service manager, if one has set NOTIFY_SOCKET, a state such as "READY=1". Failing is not an
/// error.
void OsNotifyServiceManager(const char* apState);
