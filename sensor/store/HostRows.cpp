#include "HostRows.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <map>

namespace {

template <class Read>
void sForEach(SQLite::Database& arDatabase, const char* apSql, const Read& acrRead) {
    SQLite::Statement lRow(arDatabase, apSql);
    while (lRow.executeStep()) {
        acrRead(lRow);
    }
}

// "3:0:1:2" as its numbers.
std::array<std::uint64_t, 4> sAddressOf(const ZTSStoredLun& acrLun) {
    std::array<std::uint64_t, 4> lNumbers{};
    const char* lpAt = acrLun.mLun.mAddress.data();
    const char* const lpEnd = lpAt + acrLun.mLun.mAddress.size();
    for (std::uint64_t& lrNumber : lNumbers) {
        lpAt = std::from_chars(lpAt, lpEnd, lrNumber).ptr;
        lpAt += lpAt != lpEnd ? 1 : 0;
    }
    return lNumbers;
}

ZTEPathSource sSourceOf(const std::string& acrText) {
    using enum ZTEPathSource;
    return acrText == sourceText(Kernel) ? Kernel : acrText == sourceText(Multipathd) ? Multipathd : Ports;
}

std::optional<ZTSWwn> sPortOrNothing(SQLite::Statement& arRow, int aAt) {
    return ZTSWwn::fromText(textAt(arRow, aAt));
}

ZTSStoredLun sReadLun(SQLite::Statement& arRow) {
    return {{textAt(arRow, 0), wwnAt(arRow, 1), wwnAt(arRow, 2), textAt(arRow, 3), numberAt(arRow, 4),
             textAt(arRow, 5), textAt(arRow, 6), textAt(arRow, 7), textAt(arRow, 8), textAt(arRow, 9),
             textAt(arRow, 10), textAt(arRow, 11), smallNumberAt(arRow, 12)},
            arRow.getColumn(13).getInt() != 0,
            arRow.getColumn(14)};
}

void sReadMaps(SQLite::Database& arDatabase, std::vector<ZTSStoredMap>& arMaps) {
    std::map<std::string, std::vector<ZTSPath>> lPaths;
    sForEach(arDatabase, "SELECT map, disk, usable, source FROM map_paths ORDER BY rowid",
             [&](SQLite::Statement& arRow) {
                 lPaths[textAt(arRow, 0)].push_back(
                     {textAt(arRow, 1), numberAt(arRow, 2) != 0, sSourceOf(textAt(arRow, 3))});
             });
    sForEach(arDatabase,
             "SELECT map, disk, name, wwid, total, here, seen, since FROM maps ORDER BY name, map",
             [&](SQLite::Statement& arRow) {
                 arMaps.push_back({{textAt(arRow, 1), textAt(arRow, 2), textAt(arRow, 3),
                                    std::move(lPaths[textAt(arRow, 0)]), arRow.getColumn(4).getUInt()},
                                   arRow.getColumn(5).getInt() != 0,
                                   arRow.getColumn(6),
                                   arRow.getColumn(7)});
             });
}

}  // namespace

std::string portsText(const std::vector<ZTSWwn>& acrPorts) {
    std::string lText;
    for (const ZTSWwn& lrPort : acrPorts) {
        lText += (lText.empty() ? "" : " ") + lrPort.toText();
    }
    return lText;
}

const std::string& sourceText(ZTEPathSource aSource) {
    static const std::array<std::string, 3> sTexts{"ports", "multipathd", "kernel"};
    return sTexts.at(static_cast<std::size_t>(aSource));
}

ZTSStoredFpin readStoredFpin(SQLite::Statement& arRow) {
    ZTSFpin lFpin{.mFirst = arRow.getColumn(0),
                  .mLast = arRow.getColumn(1),
                  .mTimes = numberAt(arRow, 3),
                  .mInitiator = wwnAt(arRow, 4),
                  .mFabric = textAt(arRow, 5),
                  .mDescriptor = textAt(arRow, 6),
                  .mEvent = textAt(arRow, 7),
                  .mSeverity = textAt(arRow, 8),
                  .mDetecting = sPortOrNothing(arRow, 9),
                  .mAttached = sPortOrNothing(arRow, 10),
                  .mModifier = arRow.getColumn(11).getUInt(),
                  .mThreshold = arRow.getColumn(12).getUInt(),
                  .mPeriod = arRow.getColumn(13).getUInt(),
                  .mCount = numberAt(arRow, 14),
                  .mPorts = {}};
    const std::string lPorts = textAt(arRow, 15);
    for (std::size_t lAt = 0; lAt + ZTSWwn::TextSize <= lPorts.size(); lAt += ZTSWwn::TextSize + 1) {
        lFpin.mPorts.push_back(
            ZTSWwn::fromText(std::string_view(lPorts).substr(lAt, ZTSWwn::TextSize)).value_or(ZTSWwn{}));
    }
    return {numberAt(arRow, 2), std::move(lFpin)};
}

ZTSStoredStall readStoredStall(SQLite::Statement& arRow) {
    return {numberAt(arRow, 2),
            {arRow.getColumn(0), arRow.getColumn(9), numberAt(arRow, 3) != 0, textAt(arRow, 4),
             textAt(arRow, 5), textAt(arRow, 6), numberAt(arRow, 7), textAt(arRow, 8)}};
}

ZTSStoredStorage readStoredStorage(SQLite::Database& arDatabase) {
    ZTSStoredStorage lStorage;
    sForEach(arDatabase, "SELECT value FROM meta WHERE name = 'storage'",
             [&](SQLite::Statement& arRow) { lStorage.mTime = arRow.getColumn(0); });
    sForEach(arDatabase,
             "SELECT address, initiator, target, fabric, lun, disk, wwid, serial, vendor, model, state, "
             "access, queue_depth, here, seen FROM luns",
             [&](SQLite::Statement& arRow) { lStorage.mLuns.push_back(sReadLun(arRow)); });
    std::stable_sort(lStorage.mLuns.begin(), lStorage.mLuns.end(),
                     [](const ZTSStoredLun& acrOne, const ZTSStoredLun& acrOther) {
                         return sAddressOf(acrOne) < sAddressOf(acrOther);
                     });
    sReadMaps(arDatabase, lStorage.mMaps);
    std::map<std::string, std::vector<std::string>> lOver;
    sForEach(arDatabase, "SELECT disk, over FROM volume_over ORDER BY disk, over",
             [&](SQLite::Statement& arRow) { lOver[textAt(arRow, 0)].push_back(textAt(arRow, 1)); });
    sForEach(arDatabase, "SELECT disk, name FROM volumes", [&](SQLite::Statement& arRow) {
        lStorage.mVolumes.push_back({textAt(arRow, 0), textAt(arRow, 1), std::move(lOver[textAt(arRow, 0)])});
    });
    sForEach(arDatabase, "SELECT point, disk, type FROM mounts", [&](SQLite::Statement& arRow) {
        lStorage.mMounts.push_back({textAt(arRow, 0), textAt(arRow, 1), textAt(arRow, 2)});
    });
    return lStorage;
}

ZTSHostFacts readStoredFacts(SQLite::Database& arDatabase) {
    ZTSHostFacts lFacts;
    sForEach(arDatabase, "SELECT name, value FROM facts", [&](SQLite::Statement& arRow) {
        const std::string lName = textAt(arRow, 0);
        if (lName == ZTFactBooted) {
            lFacts.mBooted = arRow.getColumn(1);
        }
        for (const auto& [lpName, lpText] : ZTFactTexts) {
            if (lName == lpName) {
                lFacts.*lpText = textAt(arRow, 1);
            }
        }
    });
    return lFacts;
}

ZTSStoreRequest readStoredRequest(SQLite::Statement& arRow) {
    return {numberAt(arRow, 0), arRow.getColumn(1), textAt(arRow, 2),
            textAt(arRow, 3),   textAt(arRow, 4),   textAt(arRow, 5)};
}
