// Old files that lack a column: each column of each table of each layout, one at a time.
#include "long_run.h"
#include "upgrade_test.h"

#include <filesystem>
#include <set>

namespace {

using Texts = std::vector<std::string>;
using Counts = std::map<std::string, std::size_t>;

std::string unquoted(std::string const& text) {
  return text.substr(1, text.size() - 2);
}

class DdrUpgradeColumns : public each_layout_test {
protected:
  DdrUpgradeColumns() {
    make(GetParam());
    whole = readFile(oldPath);
    for (std::string const& name : before().classes()) {
      std::string const table =
          before().value("SELECT \"Class Table\" FROM ddr_class WHERE \"Class Name\" = '" + name + "'");
      if (table != "NULL") {
        tables[name] = unquoted(table);
      }
    }
    rows = rowCounts(before());
  }

  /// The columns of a table but for those that cannot be dropped.
  Texts columnsOf(std::string const& table) const {
    Texts names;
    for (std::string const& name :
         before().lines("SELECT name FROM pragma_table_info('" + table + "') WHERE pk = 0 ORDER BY cid")) {
      names.push_back(unquoted(name));
    }
    return names;
  }
  /// SQL that drops a column with the index that needs it.
  static std::string dropping(std::string const& table, std::string const& column) {
    return (column == "#uid" ? "DROP INDEX \"" + table + "#uid\";" : std::string()) + "ALTER TABLE \"" +
           table + "\" DROP COLUMN \"" + column + "\";";
  }
  /// How many rows each class of the old file has in a file.
  Counts rowCounts(stored_file const& file) const {
    Counts counts;
    for (auto const& [name, table] : tables) {
      counts[name] = file.rows(name).size();
    }
    return counts;
  }
  /// The classes that have lost rows.
  Texts rowsLost() const {
    Texts lost;
    for (auto const& [name, count] : rowCounts(after())) {
      if (count < rows.at(name)) {
        lost.push_back(name);
      }
    }
    return lost;
  }

  /// What the conversion of the old file says after a change of it. "nothing": it has all rows, and is sound.
  std::string sayAfter(std::string const& changes) {
    writeFile(oldPath, whole);
    change_stored_file(oldPath, changes);
    std::string said = failure();
    if (said == "nothing") {
      EXPECT_EQ(after().integrity(), "ok");
      EXPECT_EQ(rowsLost(), Texts{});
      std::filesystem::remove(newPath);
    }
    EXPECT_EQ(folder.names(), Texts{"old.ddr"});
    writeFile(oldPath, whole);
    return said;
  }
  bool isOfOldFile(std::string const& said) const {
    return said.starts_with("Database file '" + oldPath + "'");
  }

  /// Whether what becomes of a table's columns is the same in another layout that is tried.
  static bool isLikeInAnother(std::string const& className) {
    bool const isCarried = className.starts_with("odiK_"); // by databases of each layout
    return isCarried && GetParam() != "database_309" && GetParam() != "model_203" &&
           GetParam() != "model_401" && setting("DDR_LAYOUT_COLUMNS", 0) == 0;
  }

  std::string whole;
  std::map<std::string, std::string> tables; // by class
  Counts rows;
};

INSTANTIATE_TEST_SUITE_P(Each, DdrUpgradeColumns, testing::ValuesIn(layout_names()),
                         [](auto const& instance) { return instance.param; });

TEST_P(DdrUpgradeColumns, OneThatTheClassListPromisesIsNotSetOrTheFileIsRefused) {
  std::set<std::string> refused;
  int tried = 0;
  for (auto const& [name, table] : tables) {
    for (std::string const& column : isLikeInAnother(name) ? Texts() : columnsOf(table)) {
      SCOPED_TRACE(name + ", " + column);
      std::string const said = sayAfter(dropping(table, column));
      if (said != "nothing") {
        EXPECT_PRED1([&](std::string const& text) { return isOfOldFile(text); }, said);
        EXPECT_NE(said.find("class '" + name + "'"), std::string::npos) << said;
        refused.insert(column);
      }
      ++tried;
    }
  }
  EXPECT_GT(tried, 20);
  EXPECT_EQ(refused, std::set<std::string>{"#uid"});
}

TEST_P(DdrUpgradeColumns, OneThatRecordsAndModelsNeverHadIsNotSet) {
  for (std::string const name : {"ddr_Ddb", "ddr_Model"}) {
    for (std::string const& column : columnsOf(tables.at(name))) {
      SCOPED_TRACE(name + ", " + column);
      if (column != "#uid") { // no attribute
        std::string const forgetting =
            "DELETE FROM ddr_attribute WHERE name = '" + column.substr(0, column.find('#')) +
            "' AND class = (SELECT \"row\" FROM ddr_class WHERE \"Class Name\" = '" + name +
            "');UPDATE ddr_attribute AS one SET position = (SELECT count(*) FROM ddr_attribute AS other "
            "WHERE "
            "other.class = one.class AND other.position < one.position);";
        EXPECT_EQ(sayAfter(dropping(tables.at(name), column) + forgetting), "nothing");
      }
    }
  }
}

TEST_P(DdrUpgradeColumns, OneThatATableOfTheFormatLacksIsRefused) {
  for (std::string const table : {"ddr_header", "ddr_class", "ddr_attribute", "ddr_entry"}) {
    for (std::string const& column : columnsOf(table)) {
      SCOPED_TRACE(table + ", " + column);
      EXPECT_PRED1([&](std::string const& text) { return isOfOldFile(text); },
                   sayAfter("DROP INDEX ddr_entry_key;" + dropping(table, column)));
    }
  }
}

} // namespace
