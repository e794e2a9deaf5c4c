// One event on its way from the vendor library's callback to the dispatch.
#pragma once

#include "ClibMemory.h"
#include "Log.h"

inline constexpr char ZTCallbackEventDataFile[] = "backend/sensor/agentcommon/include/CallbackEventData";

/// Lives for the callback: the payload stays the library's.
struct ZTCCallbackEventData {
    static constexpr unsigned int NameSize = 8;

    /// apWwn: the port's name, or null for zeros. apData: aDataLength bytes, or null for none.
    ZTCCallbackEventData(unsigned int aBoardId, const unsigned char* apWwn, unsigned int aCategory,
                         unsigned int aSubcategory, const unsigned char* apData, unsigned int aDataLength,
                         ZTCLogMask aMask = {})
        : mBoardId(aBoardId),
          mCategory(aCategory),
          mSubcategory(aSubcategory),
          mpData(apData),
          mDataLength(aDataLength) {
        const ZTCTraceScope lTrace(aMask, ZTCallbackEventDataFile);
        if (apWwn != nullptr) {
            ClibMemcpy(mWwn, apWwn, NameSize);
        }
    }

    unsigned int mBoardId;
    unsigned char mWwn[NameSize]{};
    unsigned int mCategory;
    unsigned int mSubcategory;
    const unsigned char* mpData;
    unsigned int mDataLength;
};
