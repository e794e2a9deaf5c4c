// Plays statements.
#pragma once

#include "Storm.h"

class ZTCSimPlayer {
  public:
    ZTCSimPlayer(ZTCSimulator& arSimulator, ZTCSimStorms& arStorms)
        : mrSimulator(arSimulator), mrStorms(arStorms) {}

    /// Returns what the statement has to report, mostly nothing. Throws ZTCSimError if it cannot be played.
    std::string play(const ZTSSimStatement& acrStatement);

  private:
    void playEvent(const ZTSSimStatement& acrStatement);
    void playStorm(const ZTSSimStatement& acrStatement);
    void playWait(const ZTSSimStatement& acrStatement);
    void playFault(const ZTSSimStatement& acrStatement);

    ZTCSimulator& mrSimulator;
    ZTCSimStorms& mrStorms;
};
