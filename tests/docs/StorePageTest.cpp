// docs/store.md: its tables are those of the store, and its queries run there.
#include <SQLiteCpp/SQLiteCpp.h>

#include <algorithm>
#include <set>

#include "IncidentRows.h"
#include "LossText.h"
#include "TestPages.h"
#include "TestStore.h"

namespace {

constexpr char sPage[] = "docs/store.md";

TEST(StorePage, HasTheTablesAndTheirColumns) {
    const ZTCTestDirectory lDirectory;
    const ZTCTestStore lStore(lDirectory / "history.db");
    SQLite::Database lDatabase = openStoreToRead(lDirectory / "history.db");
    std::map<std::string, std::string> lPage;
    for (const ZTTestTexts& lrRow : rowsOf(sPage, "table | a row is | columns")) {
        for (const ZTTestTexts& lrTable : matchesIn(lrRow.at(0), "`(\\w+)`")) {
            lPage[lrTable[0]] = lrRow.at(2);
        }
    }
    SQLite::Statement lTable(lDatabase, "SELECT name FROM sqlite_schema WHERE type IN ('table', 'view')");
    std::size_t lTables = 0;
    for (; lTable.executeStep(); ++lTables) {
        const std::string lName = lTable.getColumn(0).getString();
        SQLite::Statement lColumn(lDatabase, "SELECT name, pk FROM pragma_table_info(?)");
        lColumn.bind(1, lName);
        while (lColumn.executeStep()) {
            const std::string lText = "`" + lColumn.getColumn(0).getString() + "`";
            EXPECT_TRUE(contains(lPage[lName], lText) || lText == "`id`") << lName << " has " << lText;
        }
    }
    EXPECT_EQ(lPage.size(), lTables);
}

TEST(StorePage, ItsQueriesRunAndShowWhatItSays) {
    const ZTCTestDirectory lDirectory;
    const ZTCTestStore lStore(lDirectory / "history.db");
    SQLite::Database lDatabase = openStoreToRead(lDirectory / "history.db");
    const auto lQueries = matchesIn(sourceOf(sPage), "```sql\n([^`]*)```\n```text\n([^\n]*)");
    EXPECT_GE(lQueries.size(), 10U);
    for (const ZTTestTexts& lrQuery : lQueries) {
        SCOPED_TRACE(lrQuery[0]);
        SQLite::Statement lStatement(lDatabase, lrQuery[0]);
        std::string lHeading;
        for (int lAt = 0; lAt < lStatement.getColumnCount(); ++lAt) {
            lHeading += (lAt == 0 ? "" : " ") + std::string(lStatement.getColumnName(lAt));
        }
        EXPECT_EQ(std::regex_replace(lrQuery[1], std::regex(" +"), " "), lHeading);
        while (lStatement.executeStep()) {
        }
    }
}

TEST(StorePage, HasWhatTheBodyOfAnIncidentHas) {
    const SQLite::Database lDatabase(":memory:");
    ZTSIncident lIncident;
    lIncident.mCauses.emplace_back();
    lIncident.mSymptoms.emplace_back();
    std::set<std::string> lBody;
    SQLite::Statement lName(lDatabase, "SELECT key FROM json_tree(?) WHERE typeof(key) = 'text'");
    lName.bind(1, incidentBody(lIncident));
    while (lName.executeStep()) {
        lBody.insert(lName.getColumn(0).getString());
    }
    std::set<std::string> lPage;
    for (const ZTTestTexts& lrRow : rowsOf(sPage, "name | what")) {
        for (const ZTTestTexts& lrName : matchesIn(lrRow.at(0) + lrRow.at(1), "`(\\w+)`")) {
            lPage.insert(lrName[0]);
        }
    }
    EXPECT_TRUE(std::ranges::includes(lPage, lBody));
    EXPECT_EQ(lPage.size(), lBody.size());
}

TEST(StorePage, HasTheReasonsOfLosses) {
    std::vector<ZTTestTexts> lCode;
    for (const ZTSLossReason& lrReason : listLossReasons()) {
        lCode.push_back({"`" + std::string(lrReason.mpSource) + "`",
                         "`" + std::string(lrReason.mpReason) + "`", lrReason.mpText});
    }
    EXPECT_EQ(rowsOf(sPage, "source | reason | what happened"), lCode);
    EXPECT_EQ(lossText({0, 0, "agent", "limit", 1'234'567, {}}),
              "1,234,567 events lost by the agent: it held as much as it may, and nobody fetched in time");
    EXPECT_EQ(lossText({0, 0, "sensor", "novel", {}, {}}),
              "an unknown number of events lost by vrx-sn: novel");
}

}  // namespace
