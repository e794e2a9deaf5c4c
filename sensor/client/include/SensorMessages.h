// The messages on the pipes, as a sensor sees them (docs/protocol.md): commands to bytes, answers from bytes.
#pragma once

#include <optional>
#include <vector>

#include "ScopeWire.h"
#include "SensorTime.h"
#include "WireReader.h"

using ZTSensorBytes = std::vector<std::uint8_t>;

/// What every message begins with.
struct ZTSSensorHeader {
    static constexpr std::size_t Size = ZTWireHeaderSize;

    std::uint32_t mTag = 0;
    std::uint32_t mLength = 0;  ///< of the body, in bytes

    /// Nothing if the magic is another. Takes Size bytes.
    static std::optional<ZTSSensorHeader> decode(std::span<const std::uint8_t> aBytes);
};

/// A port beyond the fabric that records are to name.
struct ZTSSensorTarget {
    ZTSPortNames mNames;
    std::uint32_t mAddress = 0;  ///< its Fibre Channel address, 24 bits
};

/// How many targets one RegisterTargets holds.
inline constexpr std::size_t ZTSensorMaxTargets = (ZTWireMaxCommand - 5) / 20;

// ---- Commands: the whole message, header and body ----

ZTSensorBytes encodeCommand(std::uint32_t aTag, ZTEScopeAgentCommand aCommand);
/// A command with one number: StartScope (the ceiling of a record's data, in bytes), CollectionPeriod
/// (seconds).
ZTSensorBytes encodeCommand(std::uint32_t aTag, ZTEScopeAgentCommand aCommand, std::uint32_t aValue);
/// RegisterTargets. At most ZTSensorMaxTargets.
ZTSensorBytes encodeTargets(std::uint32_t aTag, std::span<const ZTSSensorTarget> aTargets);

// ---- Answers: their bodies ----

/// Events that repeated one another, of one kind.
struct ZTSSensorRecord {
    std::uint32_t mOccurrences = 0;
    ZTSSensorTime mFirst;
    ZTSSensorTime mLast;
    std::uint8_t mCategory = 0;
    std::uint8_t mSubcategory = 0;
    std::optional<ZTSPortNames> mTarget;  ///< the registered target that they concern
    ZTSensorBytes mData;                  ///< the block of the kind (EventBlock.h)
};

/// What one adapter port has collected, the oldest record first.
struct ZTSSensorRecordList {
    ZTSPortNames mInitiator;
    std::vector<ZTSSensorRecord> mRecords;
};

/// What a fetch answers.
using ZTSensorScopeData = std::vector<ZTSSensorRecordList>;

/// Whose lists there are.
std::vector<ZTSPortNames> listInitiators(const ZTSensorScopeData& acrData);
std::uint64_t countRecords(const ZTSensorScopeData& acrData);
std::uint64_t countEvents(const ZTSensorScopeData& acrData);
/// Whether there is something that a SCSI device answered: a check condition, queue full, busy.
bool hasScsiAnswers(const ZTSensorScopeData& acrData);

/// Reads an answer without values. Throws ZTCRefusedError, ZTCMalformedAnswerError.
void decodeSuccess(std::span<const std::uint8_t> aBody);
/// Reads the answer to a fetch to its end: the number of lists that it tells is no promise. Memory is bounded
/// by a small multiple of the body's size. Throws ZTCRefusedError, ZTCMalformedAnswerError.
ZTSensorScopeData decodeScopeData(std::span<const std::uint8_t> aBody);
