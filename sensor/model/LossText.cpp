#include "LossText.h"

#include <fmt/format.h>

std::string groupedText(std::uint64_t aNumber) {
    std::string lText = std::to_string(aNumber);
    for (std::size_t lAt = lText.size(); lAt > 3;) {
        lText.insert(lAt -= 3, 1, ',');
    }
    return lText;
}

const std::vector<ZTSLossReason>& listLossReasons() {
    static const std::vector<ZTSLossReason> sReasons = {
        {"agent", "limit", "it held as much as it may, and nobody fetched in time"},
        {"agent", "unknown_board", "they were of an adapter that it does not know"},
        {"agent", "too_short", "the vendor's library gave less data than their kind has"},
        {"agent", "unknown_kind", "they were of no kind that it knows"},
        {"agent", "no_memory", "the host had no memory left"},
        {"agent", "malformed", "the vendor's library gave what no event can be"},
        {"agent", "ended", "it ended with them, behind the last fetch"},
        {"agent", "killed", "it was killed with what it held"},
        {"agent", "unseen", "it came and went while vrx-sn did not run"},
        {"library", "full", "the kernel had no room to tell more of failed commands"},
        {"library", "unknown_host", "they were of a host that it does not know, or that had gone"},
        {"library", "no_memory", "the host had no memory left"},
        {"library", "busy", "commands ended while another one was looked at on that processor"},
        {"library", "beyond", "they came faster than it hands them on"},
        {"sensor", "unstored", "they were fetched, and whoever had them did not store them"},
        {"sensor", "answer", "the agent's answer could not be read"},
        {"sensor", "buffer", "the store took nothing for so long that there was no room left"},
        {"sensor", "store", "the store that had them was damaged and set aside, or was taken away"}};
    return sReasons;
}

std::string lossText(const ZTSLoss& acrLoss) {
    std::string lWhy = acrLoss.mReason;
    for (const ZTSLossReason& lrReason : listLossReasons()) {
        if (acrLoss.mSource == lrReason.mpSource && acrLoss.mReason == lrReason.mpReason) {
            lWhy = lrReason.mpText;
        }
    }
    const std::string lCount =
        acrLoss.mEvents
            ? fmt::format("{} event{}", groupedText(*acrLoss.mEvents), *acrLoss.mEvents == 1 ? "" : "s")
        : acrLoss.mAtMost ? fmt::format("up to {} events", groupedText(*acrLoss.mAtMost))
                          : "an unknown number of events";
    const std::string lWho = acrLoss.mSource == "sensor" ? "vrx-sn" : "the " + acrLoss.mSource;
    return fmt::format("{} lost by {}: {}", lCount, lWho, lWhy);
}

std::string changeText(const ZTSChange& acrChange) {
    if (acrChange.mWhat == "note") {
        return fmt::format("note by {}{}: {}", acrChange.mName,
                           acrChange.mAttribute.empty() ? "" : " about " + acrChange.mAttribute,
                           acrChange.mAfter);
    }
    std::string lWhat = acrChange.mWhat + (acrChange.mName.empty() ? "" : " " + acrChange.mName);
    for (char& lrSign : lWhat) {
        lrSign = lrSign == '_' ? ' ' : lrSign;
    }
    if (acrChange.mAttribute.empty()) {
        return lWhat + " " + acrChange.mEvent + (acrChange.mAfter.empty() ? "" : ": " + acrChange.mAfter);
    }
    const auto lShown = [](const std::string& acrText) { return acrText.empty() ? "nothing" : acrText; };
    return fmt::format("{}: {} was {}, is {}", lWhat, acrChange.mAttribute, lShown(acrChange.mBefore),
                       lShown(acrChange.mAfter));
}
