// A made-up host that goes on: takes lines, answers as multipathd, and lets time pass.
#pragma once

#include <optional>

#include "HostSockets.h"
#include "HostVerbs.h"

/// One thread. Throws ZTCHostSimError at its begin.
class ZTCHostLoop {
  public:
    /// What takes lines, and what vrx-hostsim send is told by ZT_VRX_HOSTSIM.
    static constexpr char ControlPath[] = "run/hostsim.socket";

    /// Makes the host below the root. aInput: lines are read there too; -1: not.
    ZTCHostLoop(const std::string& acrRoot, ZTSSite aSite, int aInput);

    /// Until something can be read from the descriptor.
    void run(int aEnd);

  private:
    void takeDatagram();
    void takeInput();
    std::string play(std::string_view aLines);

    ZTCMadeUpHost mHost;
    const std::string mMultipathdPath;
    int mInput = -1;
    std::string mLine;
    std::optional<ZTCHostSocket> mMultipathd;
    ZTCHostSocket mControl;  // the last: where it is, all is
};
