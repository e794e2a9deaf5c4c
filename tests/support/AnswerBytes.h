// An answer to a fetch, as bytes.
#pragma once

#include "AgentClient.h"

/// A text behind its length.
inline std::string sizedOf(const std::string& acrText) {
    return wordOf(acrText.size()) + acrText;
}

/// A record of events from 2128-06-11T08:53:20.000000007Z to 08:53:21.999999999Z. acrTarget: a 1 and its
/// names.
inline std::string recordOf(std::size_t aOccurrences, const std::string& acrKind, const std::string& acrBlock,
                            const std::string& acrTarget = std::string(1, '\0')) {
    return wordOf(aOccurrences) + bytesOf("00000001 2a05f200 00000007 00000001 2a05f201 3b9ac9ff") + acrKind +
           acrTarget + sizedOf(acrBlock);
}

inline std::string listOf(const std::string& acrLabel, const std::vector<std::string>& acrRecords) {
    std::string lList = sizedOf(acrLabel) + wordOf(acrRecords.size());
    for (const std::string& lrRecord : acrRecords) {
        lList += lrRecord;
    }
    return lList;
}

/// The answer to a fetch from an agent with one adapter port.
inline std::string answerOf(const std::vector<std::string>& acrRecords) {
    return messageOf(
        77, "\x02" + wordOf(1) + listOf("20:00:00:25:b5:01:00:00.10:00:00:25:b5:01:00:00", acrRecords));
}
