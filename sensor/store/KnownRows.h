// What a table is known to have, so that only what differs is written.
#pragma once

#include <map>
#include <string>
#include <vector>

/// Rows by what tells them apart.
template <class Row>
class ZTCKnownRows {
  public:
    /// The table has it.
    void know(std::string aKey, Row aRow) { mRows[std::move(aKey)] = {std::move(aRow), true}; }
    void forget() { mRows.clear(); }

    /// These are all that there are. acrSet(key, row, row before or null) is called for each that is new or
    /// not what it was, acrRemove(key) for each that is not among them.
    template <class KeyOf, class Set, class Remove>
    void write(const std::vector<Row>& acrRows, const KeyOf& acrKeyOf, const Set& acrSet,
               const Remove& acrRemove) {
        for (auto& [lrKey, lrKnown] : mRows) {
            lrKnown.mIsThere = false;
        }
        for (const Row& lrRow : acrRows) {
            const auto [lAt, lIsNew] = mRows.try_emplace(acrKeyOf(lrRow));
            Known& lrKnown = lAt->second;
            lrKnown.mIsThere = true;
            if (lIsNew || lrKnown.mRow != lrRow) {
                acrSet(lAt->first, lrRow, lIsNew ? nullptr : &lrKnown.mRow);
                lrKnown.mRow = lrRow;
            }
        }
        std::erase_if(mRows, [&](const auto& acrEntry) {
            const bool lIsGone = !acrEntry.second.mIsThere;
            if (lIsGone) {
                acrRemove(acrEntry.first);
            }
            return lIsGone;
        });
    }

  private:
    struct Known {
        Row mRow;
        bool mIsThere = true;
    };
    std::map<std::string, Known> mRows;
};
