// The language of scenarios: its verbs, their keys and the kinds of events. The reader, the help and the
// player go by these tables, so that a new kind of event is one row.
#pragma once

#include <cstdint>
#include <span>

enum class ZTESimVerb {
    Event,
    Adapters,
    Raw,
    Storm,
    Wait,
    OnRegister,
    OnUnregister,
    Fault,
    Report,
    Host,
    Count
};

enum class ZTESimValue { Flag, Number, Duration, Name, Sense, Pages, Bytes, Choice, Kind, Count };

// The choices of the keys `fail` and `name`, in the order of their texts.
enum ZTESimFailingCall { ZTSFC_Init, ZTSFC_Info };
enum ZTESimFault {
    ZTSF_LateCallbacks,
    ZTSF_CallbacksDuringClose,
    ZTSF_CallbacksAfterClose,
    ZTSF_StuckCallback,
    ZTSF_SlowClose,
    ZTSF_Count
};

/// How a key is written.
enum class ZTESimForm {
    Pair,      // key=value
    Word,      // the value may stand without its key
    KeyAlone,  // the key may stand without a value
};

struct ZTSSimKey {
    const char* mpName = "";
    ZTESimValue mValue = ZTESimValue::Number;
    ZTESimForm mForm = ZTESimForm::Pair;
    bool mIsRequired = false;
    bool mHasDefault = false;
    uint64_t mDefault = 0;
    uint64_t mLeast = 0;
    uint64_t mMost = UINT32_MAX;
    const char* mpNames = "";  // choices with a | between; of a number: the name of the greatest
    uint32_t mOffset = 0;      // of a payload's field
};

/// What an event is registered by: a mask, or without one a category and a subcategory.
struct ZTSSimEventId {
    uint32_t mMask = 0;
    uint32_t mCategory = 0;
    uint32_t mSubcategory = 0;

    bool operator==(const ZTSSimEventId&) const = default;
};

struct ZTSSimKind {
    const char* mpName;
    ZTSSimEventId mId;
    uint32_t mSize;  // of the payload, 0: none
    std::span<const ZTSSimKey> mFields;
    const char* mpExample;
    const char* mpHelp;
};

struct ZTSSimStatement;

struct ZTSSimVerb {
    ZTESimVerb mVerb;
    const char* mpName;
    std::span<const ZTSSimKey> mKeys;
    // What a statement should have had, null if nothing: for what the keys alone do not tell.
    const char* (*mCheck)(const ZTSSimStatement&);
    const char* mpExample;
    const char* mpHelp;
};

std::span<const ZTSSimKind> getSimKinds();
/// In the order of ZTESimVerb. The first stands for all kinds of events.
std::span<const ZTSSimVerb> getSimVerbs();
