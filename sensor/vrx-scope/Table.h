// Text in columns.
#pragma once

#include <string>
#include <vector>

/// One column's heading, and on which side its cells stand.
struct ZTSColumn {
    std::string mHeading;
    bool mIsNumber = false;  ///< to the right
};

class ZTCTable {
  public:
    explicit ZTCTable(std::vector<ZTSColumn> aColumns) : mColumns(std::move(aColumns)) {}

    /// A row has a cell a column.
    void add(std::vector<std::string> aRow) { mRows.push_back(std::move(aRow)); }
    /// The heading and the rows, a line each, indented by two.
    std::string toText() const;

  private:
    std::vector<ZTSColumn> mColumns;
    std::vector<std::vector<std::string>> mRows;
};
