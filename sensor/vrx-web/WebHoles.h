// Where a history has holes.
#pragma once

#include "JsonWriter.h"
#include "StoreReader.h"
#include "WebBins.h"

/// The member "holes": losses and when nobody collected, in the order of their begin. Losses of one reason
/// that touch the same bin, or follow bin on bin, are one. Throws ZTCStoreError.
void putWebHoles(ZTCJsonWriter& arJson, ZTCStoreReader& arReader, const ZTSWebBins& acrBins,
                 ZTNanoseconds aNow);
