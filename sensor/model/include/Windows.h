// Maintenance windows: what happens in one is recorded as ever, marked, and told to nobody.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Ports.h"
#include "Record.h"
#include "SensorTime.h"

/// A plain value: any thread.
struct ZTSWindow {
    std::string mWhat;  ///< "host", a port's name or number, an array, ARRAY/CONTROLLER, or "fabric=NAME"
    ZTNanoseconds mFirst = 0;
    ZTNanoseconds mLast = 0;
    std::string mText;  ///< why

    bool operator==(const ZTSWindow&) const = default;
};

/// "array1 2026-11-21T20:00 2026-11-21T23:00 new firmware": what, from, until, and why, which may be missing.
/// What has blanks stands in double quotes. Times as ZTSWhen takes absolute ones. Throws std::runtime_error
/// with one line.
ZTSWindow parseWindow(std::string_view aText);

/// Whether something at that moment, at these ports, is in a window. Zeros: no port; empty: no fabric.
const ZTSWindow* findWindow(const std::vector<ZTSWindow>& acrWindows, const ZTPortLabels& acrLabels,
                            ZTNanoseconds aFirst, ZTNanoseconds aLast, const ZTSWwn& acrInitiator,
                            const ZTSWwn& acrRemote, std::string_view aFabric);
/// Of what concerns several pairs of ports, or none: only their ports and fabrics count.
const ZTSWindow* findWindow(const std::vector<ZTSWindow>& acrWindows, const ZTPortLabels& acrLabels,
                            ZTNanoseconds aFirst, ZTNanoseconds aLast, std::span<const ZTSSeries> aPairs);
