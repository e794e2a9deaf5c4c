#include "Table.h"

#include <fmt/format.h>

#include <algorithm>

#include "Terminal.h"

std::string ZTCTable::toText() const {
    std::vector<std::size_t> lWidths;
    for (std::size_t lAt = 0; lAt < mColumns.size(); ++lAt) {
        std::size_t lWidth = mColumns[lAt].mHeading.size();
        for (const auto& lrRow : mRows) {
            lWidth = std::max(lWidth, lrRow[lAt].size());
        }
        lWidths.push_back(lWidth);
    }
    const auto lLine = [&](const auto& acrCellAt) {
        std::string lText;
        for (std::size_t lAt = 0; lAt < mColumns.size(); ++lAt) {
            lText += mColumns[lAt].mIsNumber ? fmt::format("  {:>{}}", acrCellAt(lAt), lWidths[lAt])
                                             : fmt::format("  {:<{}}", acrCellAt(lAt), lWidths[lAt]);
        }
        lText.erase(lText.find_last_not_of(' ') + 1);
        return lText;
    };
    std::string lText = bold(lLine([&](std::size_t aAt) { return mColumns[aAt].mHeading; })) + "\n";
    for (const auto& lrRow : mRows) {
        lText += lLine([&](std::size_t aAt) { return lrRow[aAt]; }) + "\n";
    }
    return lText;
}
