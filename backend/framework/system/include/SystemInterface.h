// What a thread, a reader or a handler may ask of the process's one system object.
#pragma once

#include "Buffer.h"
#include "IpAddress.h"
#include "Ipc.h"
#include "Version.h"
#include "ZTString.h"

class ZTCProtocolHelper;

/// Any thread, unless said otherwise.
class ZTCSystemInterface {
  public:
    ZTCSystemInterface() = default;
    virtual ~ZTCSystemInterface() = default;
    ZTCSystemInterface(const ZTCSystemInterface&) = delete;
    ZTCSystemInterface& operator=(const ZTCSystemInterface&) = delete;

    /// An empty buffer with room for aSize bytes. Throws ZTCNoMemoryEx.
    virtual void getBuffer(unsigned int aSize, ZTCPointer<ZTCBuffer>& arBuffer) = 0;
    /// Gives a buffer back; the pointer is empty afterwards.
    virtual void reuseBuffer(ZTCPointer<ZTCBuffer>& arBuffer) = 0;
    /// Makes a buffer's length 0.
    virtual void clearBuffer(ZTCPointer<ZTCBuffer>& arBuffer) = 0;

    /// A number that is not in use, until returnNumericId gives it back. Throws ZTCNoMemoryEx.
    virtual void generateNumericId(unsigned int& arId) = 0;

    /// Wakes the waiters of a conditional. Throws ZTCInvalidEx for an id that is not there.
    virtual void signal(unsigned int aConditionalId) = 0;

    virtual ZTCPointer<ZTCIpAddress> getAddress() = 0;
    /// Whether the whole system is to exit.
    virtual bool isSetForExit() const = 0;
    virtual void setAddress(const ZTCPointer<ZTCIpAddress>& acrAddress) = 0;
    virtual ZTCString getHostName() = 0;
    /// Marks the whole system for exit, and wakes nobody: makeThreadsToExit does.
    virtual void setForExit() = 0;
    virtual ZTCString getOs() = 0;
    virtual ZTCString getOsVariant() = 0;
    virtual ZTCPointer<ZTCVersion>& getVersion() = 0;

    /// A reader or writer by its id; an id that is not there is a fatal assertion.
    virtual ZTCPointer<ZTCReader>& getReader(unsigned int acReaderNo) = 0;
    virtual ZTCPointer<ZTCWriter>& getWriter(unsigned int acWriterNo) = 0;

    virtual ZTCPointer<ZTCProtocolHelper>& getProtocolHelper() = 0;

    // Paths. Set on the main thread before any other is started.

    const ZTCString& getRuntimeDirStr() const { return mRuntimeDir; }
    const ZTCString& getPidFilePathStr() const { return mPidFilePath; }
    const ZTCString& getConfFilePathStr() const { return mConfFilePath; }
    void setRuntimeDirStr(const ZTCString& acrPath) { mRuntimeDir = acrPath; }
    void setPidFilePathStr(const ZTCString& acrPath) { mPidFilePath = acrPath; }
    void setConfFilePathStr(const ZTCString& acrPath) { mConfFilePath = acrPath; }

  private:
    ZTCString mRuntimeDir{""};
    ZTCString mPidFilePath{""};
    ZTCString mConfFilePath{"/etc/vrx-sca.conf"};
};
