#include "Table.h"

#include <algorithm>

#include "Terminal.h"

namespace {

// In characters: what follows the first byte of one takes no room.
std::size_t sWidthOf(const std::string& acrCell) {
    return static_cast<std::size_t>(
        std::count_if(acrCell.begin(), acrCell.end(), [](char aByte) { return (aByte & 0xc0) != 0x80; }));
}

}  // namespace

ZTCTable::ZTCTable(std::vector<ZTSColumn> aColumns) : mColumns(std::move(aColumns)) {
    for (const ZTSColumn& lrColumn : mColumns) {
        mWidths.push_back(lrColumn.mHeading.size());
    }
}

void ZTCTable::add(Row aRow) {
    measure(aRow);
    mRows.push_back(std::move(aRow));
}

std::string ZTCTable::toText() const {
    std::string lText = getHeading();
    for (const Row& lrRow : mRows) {
        lText += toLine(lrRow);
    }
    return lText;
}

void ZTCTable::measure(const Row& acrRow) {
    for (std::size_t lAt = 0; lAt < mWidths.size(); ++lAt) {
        mWidths[lAt] = std::max(mWidths[lAt], sWidthOf(acrRow[lAt]));
    }
}

std::string ZTCTable::getHeading() const {
    Row lHeadings;
    for (const ZTSColumn& lrColumn : mColumns) {
        lHeadings.push_back(lrColumn.mHeading);
    }
    return bold(joinCells(lHeadings)) + "\n";
}

std::string ZTCTable::toLine(const Row& acrRow) const {
    return joinCells(acrRow) + "\n";
}

std::string ZTCTable::joinCells(const Row& acrRow) const {
    std::string lText;
    for (std::size_t lAt = 0; lAt < mColumns.size(); ++lAt) {
        const std::size_t lBlanks = mWidths[lAt] - std::min(mWidths[lAt], sWidthOf(acrRow[lAt]));
        lText.append(2 + (mColumns[lAt].mIsNumber ? lBlanks : 0), ' ');
        lText += acrRow[lAt];
        lText.append(mColumns[lAt].mIsNumber ? 0 : lBlanks, ' ');
    }
    lText.erase(lText.find_last_not_of(' ') + 1);
    return lText;
}
