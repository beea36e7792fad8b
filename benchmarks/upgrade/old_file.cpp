#include "old_file.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sqlite3.h>
#include <sstream>
#include <stdexcept>
#include <unistd.h>
#include <vector>

namespace {

class Connection {
public:
  explicit Connection(std::string const& path) {
    if (sqlite3_open(path.c_str(), &database) != SQLITE_OK) {
      throw std::runtime_error("cannot open " + path);
    }
    Run("PRAGMA synchronous = off; PRAGMA journal_mode = memory; PRAGMA locking_mode = exclusive;"
        "PRAGMA mmap_size = 0; PRAGMA cell_size_check = on; PRAGMA temp_store = memory;");
  }
  ~Connection() { sqlite3_close(database); }
  Connection(Connection const&) = delete;
  Connection& operator=(Connection const&) = delete;

  void Run(std::string const& sql) {
    if (sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
      throw std::runtime_error(sql.substr(0, 100) + ": " + sqlite3_errmsg(database));
    }
  }
  /// Every row of two texts.
  std::vector<std::pair<std::string, std::string>> Pairs(std::string const& sql) {
    std::vector<std::pair<std::string, std::string>> found;
    auto const take = [](void* into, int, char** values, char**) {
      static_cast<decltype(found)*>(into)->emplace_back(values[0], values[1]);
      return 0;
    };
    if (sqlite3_exec(database, sql.c_str(), take, &found, nullptr) != SQLITE_OK) {
      throw std::runtime_error(sql + ": " + sqlite3_errmsg(database));
    }
    return found;
  }
  std::int64_t Changes() const { return sqlite3_total_changes64(database); }

private:
  sqlite3* database = nullptr;
};

void sync(std::string const& path) {
  int const descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0 || fsync(descriptor) != 0) {
    throw std::runtime_error("cannot sync " + path);
  }
  close(descriptor);
}

/// "INSERT INTO table SELECT columns FROM numbers n = 0 ... last".
std::string fill(std::string const& table, std::int64_t last, std::string const& columns) {
  return "DELETE FROM " + table +
         "; WITH RECURSIVE numbers(n) AS (SELECT 0 UNION ALL SELECT n + 1 FROM numbers WHERE n < " +
         std::to_string(last) + ") INSERT INTO " + table + " SELECT " + columns + " FROM numbers;";
}

} // namespace

void makeOldFile(std::string const& path, std::int64_t count) {
  std::filesystem::remove(path);
  Connection file(path);
  std::stringstream layout;
  layout << std::ifstream(OLD_LAYOUT).rdbuf();
  file.Run(layout.str());
  constexpr int containers = 13;
  std::string references;
  for (int container = 0; container < containers; ++container) {
    references += ", 0x2a50002, n * 13 + " + std::to_string(container);
  }
  file.Run("BEGIN;");
  file.Run(fill("class_ddr_Model", count - 1, "n, randomblob(16), 'Model-' || n"));
  file.Run(
      fill("class_odiK_Model", count - 1, "n, randomblob(16)" + references + ", 0x2a50003, 1, 0x230002, 7"));
  file.Run(fill("class_odiK_Container", count * containers - 1, "n, randomblob(16), 'container ' || n"));
  file.Run("DELETE FROM ddr_entry WHERE handle IN (1, 4);"
           "INSERT INTO ddr_entry SELECT 1, \"row\", modelName, 0x220007, \"row\" FROM class_ddr_Model;"
           "COMMIT;");
}

std::int64_t copyPlainly(std::string const& from, std::string const& to, bool withIndexes) {
  std::filesystem::remove(to);
  std::int64_t rows = 0;
  {
    Connection file(to);
    file.Run("ATTACH '" + from + "' AS old; BEGIN;");
    auto const made = [&](char const* type) {
      return file.Pairs(
          std::string("SELECT name, sql FROM old.sqlite_schema WHERE sql NOT NULL AND type = '") + type +
          "'");
    };
    for (auto const& [name, sql] : made("table")) {
      file.Run(sql);
      file.Run("INSERT INTO main.\"" + name + "\" SELECT * FROM old.\"" + name + "\"");
    }
    rows = file.Changes();
    if (withIndexes) {
      for (auto const& [name, sql] : made("index")) {
        file.Run(sql);
      }
    }
    file.Run("COMMIT");
  }
  sync(to);
  std::string const folder = std::filesystem::path(to).parent_path().string();
  sync(folder.empty() ? "." : folder);
  return rows;
}
