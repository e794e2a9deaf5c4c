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
    using Row = std::vector<std::string>;  ///< a cell a column

    explicit ZTCTable(std::vector<ZTSColumn> aColumns);

    void add(Row aRow);
    /// The heading and the rows that were added, a line each, indented by two.
    std::string toText() const;

    // The same for more rows than should be held: each is measured, then made into its line.
    void measure(const Row& acrRow);
    std::string getHeading() const;
    std::string toLine(const Row& acrRow) const;

  private:
    std::string joinCells(const Row& acrRow) const;

    std::vector<ZTSColumn> mColumns;
    std::vector<std::size_t> mWidths;
    std::vector<Row> mRows;
};
