// Runs a process's one system object from its first step to its last.
#pragma once

class ZTCException;
class ZTCSystem;

/// Registers the system object; not owned, and never deleted here.
void setSystemObject(ZTCSystem* apSystem);

/// The registered system object, or null. Any thread, once it is registered.
ZTCSystem* getSystemObject();

/// Runs the registered system: preInit, command line, log, single instance, init, threads, and, once those
/// have ended, destroy and postDestroy. Returns 0 then. A failure is logged and thrown on, after what had
/// been set up was taken down. Main thread, once. Without a system object: a fatal assertion.
int SystemMain(int argc, char** argv);

/// Tells why the process does not run, in the log and on standard error, whatever the log code is.
void tellFailure(const char* apName, const ZTCException& acrException);
