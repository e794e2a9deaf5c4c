// The JSON of what the host tells (docs/json.md): one writer for all programs.
#pragma once

#include "Fpin.h"
#include "HostNews.h"
#include "JsonWriter.h"
#include "Ports.h"
#include "Stall.h"

// Each writes members into an object that has been begun.
void putFpin(ZTCJsonWriter& arJson, std::uint64_t aId, const ZTSFpin& acrFpin, const ZTPortLabels& acrLabels,
             std::string_view aHost);
void putStall(ZTCJsonWriter& arJson, std::uint64_t aId, const ZTSStall& acrStall, std::string_view aHost);
/// The maintenance window that it fell into: its text, else what it is about; null for none.
void putWindow(ZTCJsonWriter& arJson, const ZTSWindow* apWindow);
void putBlindSpot(ZTCJsonWriter& arJson, const ZTSBlindSpot& acrBlindSpot);
void putBlindSpots(ZTCJsonWriter& arJson, const std::vector<ZTSBlindSpot>& acrBlindSpots);
