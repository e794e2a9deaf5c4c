// What the host tells, in words.
#pragma once

#include "Fpin.h"
#include "HostNews.h"
#include "Ports.h"
#include "Stall.h"

/// "34 s", "5 min 12 s", "2 h 5 min", "3 d 4 h".
std::string durationText(ZTNanoseconds aTime);

/// What a fabric says: "link integrity: loss of signal, 12 errors, found by sw1, affects array1-A0". Fit to
/// be shown.
std::string fpinText(const ZTSFpin& acrFpin, const ZTPortLabels& acrLabels);
/// The port that it is about: the one that is attached where something was found, else who found it.
std::optional<ZTSWwn> portOf(const ZTSFpin& acrFpin);

/// "/data (mpatha, dm-3): 12 commands, none completes", and behind its end for how long. Fit to be shown.
std::string stallText(const ZTSStall& acrStall, const ZTPortLabels& acrLabels);

/// A line each: "cannot see FPINs of server1-hba0: the driver posts none". Fit to be shown.
std::string blindSpotsText(const std::vector<ZTSBlindSpot>& acrBlindSpots, const ZTPortLabels& acrLabels);
