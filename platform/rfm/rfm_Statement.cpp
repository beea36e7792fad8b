// rfm_Statement.cpp: preparing and dropping statements.
#include "rfm_Statement.h"

void rfm_Statement::Prepare(rfm_Connection& used, std::string_view sql) {
  Finalize();
  used.AllowWork(); // preparing may read the schema
  int const result = sqlite3_prepare_v3(used.Database(), sql.data(), static_cast<int>(sql.size()),
                                        SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  if (result != SQLITE_OK) {
    used.Fail(result);
  }
  connection = &used;
  generation = used.Generation();
}

void rfm_Statement::Finalize() noexcept {
  if (statement && generation == connection->Generation()) {
    sqlite3_finalize(statement);
  }
  statement = nullptr;
}
