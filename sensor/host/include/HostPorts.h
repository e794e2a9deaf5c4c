// The Fibre Channel ports of this host, from the kernel's transport class in sysfs.
#pragma once

#include <memory>
#include <string>

#include "Ports.h"

/// Reads them again and again. What cannot be read is not known; nothing in it is believed longer than it may
/// be. One thread. Only std::bad_alloc is thrown.
class ZTCHostPorts {
  public:
    /// acrRoot: where `sys` is looked for.
    explicit ZTCHostPorts(const std::string& acrRoot);
    ~ZTCHostPorts();
    ZTCHostPorts(const ZTCHostPorts&) = delete;
    ZTCHostPorts& operator=(const ZTCHostPorts&) = delete;

    /// A look: the local ports each time, and a part of the remote ports, so that it stays short; all of them
    /// within a minute, and those of a port whose state has changed at once.
    void look();
    const ZTSHostPorts& getPorts() const;

  private:
    class Impl;
    std::unique_ptr<Impl> mpImpl;
};
