#include "LibdfcCallbacks.h"

#include <iterator>
#include <memory>

#include "BigEndian.h"
#include "ClibMemory.h"
#include "Exception.h"
#include "Immortal.h"
#include "Log.h"
#include "Rscn.h"
#include "ScopeAgentLosses.h"

namespace {

constexpr char sFile[] = "LibdfcCallbacks";

// More payload than any event has: a record that claims more lies.
constexpr unsigned int sMaxPayload = 65536;

constinit std::atomic<ZT_generic_callback> sGeneric{nullptr};

// Lets a thread of the library in and has the work done, unless the gate is shut.
template <class Work>
void sLetIn(const char* apCallback, const Work& acrWork) {
    const ZTCCallbackGate::Passage lPassage(LibdfcGate());
    if (!lPassage.isIn()) {
        return;
    }
    try {
        acrWork();
        return;
    } catch (const ZTCException& lrException) {
        LogBy(apCallback, ZTLL_Error, sFile, "An event is lost: %s", lrException.what());
    } catch (...) {
        LogBy(apCallback, ZTLL_Error, sFile, "An event is lost: unknown exception");
    }
    ZTCScopeAgentLosses::count(ZTSAL_NoMemory);
}

bool sIsWhole(const ZT_event* apEvent) {
    if (apEvent == nullptr) {
        return false;
    }
    if (apEvent->descriptor == nullptr) {
        return true;
    }
    const unsigned int lPayload =
        apEvent->total_length - ZT_EVENT_HEADER;  // wraps when there is not even that
    return lPayload <= sMaxPayload && (lPayload == 0 || apEvent->descriptor->payload != nullptr);
}

// An RSCN's payload with no more pages than were delivered. Its own length field is the only bound of those
// who read it, so one that claims more becomes a copy that does not.
class RscnPayload {
  public:
    RscnPayload(unsigned int aBoard, const void* apData, unsigned int aLength)
        : mpBytes(static_cast<const unsigned char*>(apData)), mLength(apData == nullptr ? 0 : aLength) {
        if (mLength < ZTRscnLeast) {
            return;
        }
        const unsigned int lClaimed = ztwire::get<unsigned short>(mpBytes + ZTRscnLengthAt);
        if (lClaimed / ZTRscnPageSize <= mLength / ZTRscnPageSize) {
            return;
        }
        Log(ZTLL_Warning, sFile,
            "An RSCN of board %u claims %u bytes and has %u: the pages that it has are taken", aBoard,
            lClaimed, mLength);
        const auto lWhole =
            static_cast<unsigned short>(mLength / ZTRscnPageSize * ZTRscnPageSize);  // below lClaimed
        mCopy.reset(new (std::nothrow) unsigned char[lWhole]);
        if (mCopy == nullptr) {
            throwNoMemory();
        }
        ClibMemcpy(mCopy.get(), mpBytes, lWhole);
        ztwire::put(mCopy.get() + ZTRscnLengthAt, lWhole);
        mpBytes = mCopy.get();
        mLength = lWhole;
    }

    const unsigned char* getBytes() const { return mpBytes; }
    unsigned int getLength() const { return mLength; }

  private:
    const unsigned char* mpBytes;
    unsigned int mLength;
    std::unique_ptr<unsigned char[]> mCopy;
};

bool sIsRscn(unsigned int aCategory, unsigned int aSubcategory) {
    return (aCategory & 0xff) == ZTRscnCategory && (aSubcategory & 0xff) == ZTRscnSubcategory;
}

void sPassGeneric(std::uint32_t aBoard, HBA_wwn aPort, std::uint32_t aCategory, std::uint32_t aSubcategory,
                  void* apContext, const ZT_event* apEvent) {
    if (!sIsWhole(apEvent)) {
        Log(ZTLL_Warning, sFile,
            "Event (%u, %u) of board %u is dropped: its record of %u bytes claims a payload that cannot be",
            aCategory, aSubcategory, aBoard, apEvent == nullptr ? 0 : apEvent->total_length);
        ZTCScopeAgentLosses::count(ZTSAL_Malformed);
        return;
    }
    const ZT_generic_callback lpCallback = sGeneric.load();
    if (!sIsRscn(aCategory, aSubcategory) || apEvent->descriptor == nullptr) {
        lpCallback(aBoard, aPort, aCategory, aSubcategory, apContext, apEvent);
        return;
    }
    const RscnPayload lPayload(aBoard, apEvent->descriptor->payload, apEvent->total_length - ZT_EVENT_HEADER);
    const ZT_event_descriptor lDescriptor{apEvent->descriptor->kind, lPayload.getBytes()};
    const ZT_event lEvent{apEvent->version, ZT_EVENT_HEADER + lPayload.getLength(), &lDescriptor};
    lpCallback(aBoard, aPort, aCategory, aSubcategory, apContext, &lEvent);
}

void sGenericCallback(std::uint32_t aBoard, HBA_wwn aPort, std::uint32_t aCategory,
                      std::uint32_t aSubcategory, void* apContext, const ZT_event* apEvent) {
    sLetIn(__func__, [&] { sPassGeneric(aBoard, aPort, aCategory, aSubcategory, apContext, apEvent); });
}

void sPassLink(ZT_dfc_callback apCallback, unsigned int aBoard, const void* apData, unsigned int aLength) {
    static constexpr unsigned char sNoContext[ZT_DFC_LINK_CONTEXT]{};
    if (apData == nullptr || aLength < ZT_DFC_LINK_CONTEXT) {
        Log(ZTLL_Warning, sFile, "A link event of board %u comes with %u bytes of %u: its port is not known",
            aBoard, aLength, ZT_DFC_LINK_CONTEXT);
        apData = sNoContext;
        aLength = ZT_DFC_LINK_CONTEXT;
    }
    apCallback(aBoard, apData, aLength);
}

void sPassRscn(ZT_dfc_callback apCallback, unsigned int aBoard, const void* apData, unsigned int aLength) {
    const RscnPayload lPayload(aBoard, apData, aLength);
    apCallback(aBoard, lPayload.getBytes(), lPayload.getLength());
}

void sPassTemperature(ZT_dfc_callback apCallback, unsigned int aBoard, const void* apData,
                      unsigned int aLength) {
    apCallback(aBoard, apData, aLength);  // its bytes are not read
}

// The events by mask: how each passes, and what the agent wants called.
struct DfcRow {
    unsigned int mMask;
    void (*mpPass)(ZT_dfc_callback, unsigned int, const void*, unsigned int);
    ZT_dfc_callback mpForLibrary;
    std::atomic<ZT_dfc_callback> mCallback{nullptr};
};

template <unsigned int Row>
void sDfcCallback(std::uint32_t aBoard, const void* apData, std::uint32_t aLength);

constinit DfcRow sDfcRows[] = {{ZT_DFC_LINK, sPassLink, sDfcCallback<0>},
                               {ZT_DFC_RSCN, sPassRscn, sDfcCallback<1>},
                               {ZT_DFC_TEMPERATURE, sPassTemperature, sDfcCallback<2>}};

template <unsigned int Row>
void sDfcCallback(std::uint32_t aBoard, const void* apData, std::uint32_t aLength) {
    sLetIn(__func__, [&] { sDfcRows[Row].mpPass(sDfcRows[Row].mCallback.load(), aBoard, apData, aLength); });
}

}  // namespace

ZTCCallbackGate& LibdfcGate() {
    static ZTCImmortal<ZTCCallbackGate> sGate;  // outlives the library's threads
    return sGate.get();
}

ZT_generic_callback LibdfcWrap(ZT_generic_callback apCallback) {
    sGeneric.store(apCallback);
    return sGenericCallback;
}

ZT_dfc_callback LibdfcWrap(unsigned int aMask, ZT_dfc_callback apCallback) {
    for (DfcRow& lrRow : sDfcRows) {
        if (lrRow.mMask == aMask) {
            lrRow.mCallback.store(apCallback);
            return lrRow.mpForLibrary;
        }
    }
    throwInvalidValue();
}
