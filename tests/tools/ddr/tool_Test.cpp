// tool_Test.cpp: runs the tool on files in a folder of the test's own.
#include "tool_Test.h"

#include "child_process.h"
#include "cls_MetadataRegistrar.h"
#include "ddr_Library.h"

#include <algorithm>
#include <fmt/format.h>
#include <ostream>
#include <sqlite3.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

void PrintTo(program_result const& result, std::ostream* stream) {
  *stream << "status " << result.status << "\nout: " << result.out << "\nerr: " << result.err;
}

void runSql(std::string const& path, std::string const& sql) {
  sqlite3* database = nullptr;
  bool const ran = sqlite3_open(path.c_str(), &database) == SQLITE_OK &&
                   sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
  std::string const reason = sqlite3_errmsg(database);
  sqlite3_close(database);
  if (!ran) {
    throw std::runtime_error(reason);
  }
}

program_result tool_Test::run(Words const& words, program_settings settings) {
  settings.folder = folder.path();
  return run_program(TOOL_PROGRAM, words, settings);
}

std::string tool_Test::done(Words const& words) {
  program_result const result = run(words);
  EXPECT_EQ(result.status, 0) << testing::PrintToString(result);
  EXPECT_EQ(result.err, "");
  return result.out;
}

nlohmann::json tool_Test::json(Words words) {
  words.emplace_back("--json");
  return nlohmann::json::parse(done(words));
}

std::string tool_Test::refused(Words const& words, program_settings const& settings) {
  program_result const result = run(words, settings);
  EXPECT_EQ(result.status, 1) << testing::PrintToString(result);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
  EXPECT_TRUE(result.err.ends_with(".\n")) << result.err;
  return result.err.substr(0, result.err.find('\n'));
}

void tool_Test::withLibrary(std::function<void(ddr_Root&)> const& work) {
  std::string const answer = in_child([&] {
    if (chdir(folder.path().c_str()) != 0) {
      return std::string("no folder");
    }
    int libraryCount = 0;
    ddr_initialize(libraryCount);
    ddr_Root& root = ddr_Root::Instance();
    root.SetClassRegistrar(omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar());
    work(root);
    ddr_finalize(libraryCount);
    return std::string("done");
  });
  ASSERT_EQ(answer, "done");
}

std::map<std::string, std::string> tool_Test::everything() const {
  std::map<std::string, std::string> found;
  for (std::string const& name : folder.names()) {
    struct stat status {};
    if (stat(folder.path(name).c_str(), &status) != 0) {
      throw std::runtime_error(name);
    }
    found[name] = fmt::format("inode {}, mode {:o}, {} bytes, hash {:x}, changed {}.{:09}", status.st_ino,
                              status.st_mode, status.st_size,
                              S_ISREG(status.st_mode) ? std::hash<std::string>()(bytes(name)) : 0,
                              status.st_mtim.tv_sec, status.st_mtim.tv_nsec);
  }
  return found;
}
