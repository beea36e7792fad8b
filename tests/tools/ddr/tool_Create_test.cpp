// Tests of the verb "create".
#include "tool_Test.h"

#include <algorithm>
#include <array>
#include <gmock/gmock.h>
#include <sys/inotify.h>
#include <thread>
#include <unistd.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

struct CreateTest : tool_Test {
  std::string description() { return json({"info", "a.ddr"})["description"]; }
};

TEST_F(CreateTest, AnEmptyDatabaseIsMade) {
  EXPECT_EQ(done({"create", "a.ddr"}), "Created 'a.ddr'.\n");
  EXPECT_EQ(done({"ls", "a.ddr"}), "Models (0)\nResults (0)\nUser data (0)\n");
  EXPECT_THAT(folder.names(), ElementsAre("a.ddr"));
}

TEST_F(CreateTest, TheDescriptionIsStored) {
  done({"create", "a.ddr", "--description", "Wing, \"second\" load case \xc3\xa9"});
  EXPECT_EQ(description(), "Wing, \"second\" load case \xc3\xa9");
}

TEST_F(CreateTest, JsonNamesWhatWasMade) {
  nlohmann::json const answer = json({"create", "a.ddr", "--description", "Wing"});
  EXPECT_EQ(answer["file"], "a.ddr");
  EXPECT_EQ(answer["description"], "Wing");
  EXPECT_THAT(answer["name"].get<std::string>(), MatchesRegex("[0-9/]{10} [0-9:]{8} a\\.ddr"));
  EXPECT_EQ(answer["name"], json({"info", "a.ddr"})["name"]);
  EXPECT_EQ(answer.size(), 3U);
}

TEST_F(CreateTest, AnExistingFileIsNotReplaced) {
  done({"create", "a.ddr", "--description", "old"});
  auto const before = everything();
  EXPECT_EQ(refused({"create", "a.ddr"}),
            "ddr: Database file 'a.ddr': it exists already. Choose another name, "
            "or add --force to replace a database that stands there.");
  EXPECT_EQ(everything(), before);
}

TEST_F(CreateTest, OfTwoCreationsAtOneTimeOneIsRefused) {
  for (int round = 0; round < 20; ++round) {
    std::string const file = "r" + std::to_string(round) + ".ddr";
    program_result first;
    std::thread other([&] { first = run({"create", file, "--description", "first"}); });
    program_result const second = run({"create", file, "--description", "second"});
    other.join();
    ASSERT_EQ(first.status + second.status, 1)
        << testing::PrintToString(first) << testing::PrintToString(second);
    EXPECT_EQ(json({"info", file})["description"], first.status == 0 ? "first" : "second");
  }
}

TEST_F(CreateTest, ForceReplacesADatabase) {
  done({"create", "a.ddr", "--description", "old"});
  done({"model", "add", "a.ddr", "Model-1"});
  done({"create", "a.ddr", "--force", "--description", "new"});
  EXPECT_EQ(description(), "new");
  EXPECT_EQ(json({"ls", "a.ddr"})["models"].size(), 0U);
  EXPECT_THAT(folder.names(), ElementsAre("a.ddr"));
}

// A creation that is stopped leaves the old file or a whole new one, since the new one is complete when it
// takes the name.
TEST_F(CreateTest, NothingIsWrittenOnceTheNameIsTaken) {
  done({"create", "a.ddr", "--description", "old"});
  int const watch = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  ASSERT_GE(inotify_add_watch(watch, folder.path().c_str(), IN_CREATE | IN_MODIFY | IN_MOVED_TO), 0);
  done({"create", "a.ddr", "--force", "--description", "new"});
  std::vector<std::string> events; // by name
  alignas(inotify_event) std::array<char, 65536> bytes{};
  for (ssize_t count = 0; (count = read(watch, bytes.data(), bytes.size())) > 0;) {
    for (ssize_t at = 0; at < count;) {
      auto const* const event = reinterpret_cast<inotify_event const*>(bytes.data() + at);
      events.emplace_back(event->name);
      at += static_cast<ssize_t>(sizeof *event + event->len);
    }
  }
  close(watch);
  ASSERT_FALSE(events.empty());
  EXPECT_EQ(events.back(), "a.ddr");
  EXPECT_EQ(std::count(events.begin(), events.end(), "a.ddr"), 1) << "the renaming alone";
  for (std::string const& name : events) {
    EXPECT_TRUE(name == "a.ddr" || name.starts_with("a.ddr.new-")) << name;
  }
}

TEST_F(CreateTest, ForceMakesAFileWhereNoneStands) {
  EXPECT_EQ(done({"create", "a.ddr", "--force"}), "Created 'a.ddr'.\n");
}

TEST_F(CreateTest, ForceReplacesNothingButADatabase) {
  writeFile(folder.path("letter"), "Dear reader");
  writeFile(folder.path("empty"), "");
  runSql(folder.path("other"), "CREATE TABLE t(a)");
  auto const before = everything();
  for (char const* file : {"letter", "empty", "other", "."}) {
    EXPECT_THAT(refused({"create", file, "--force"}),
                StartsWith("ddr: Database file '" + std::string(file) + "': "));
    EXPECT_THAT(refused({"create", file, "--force"}), HasSubstr("It is not replaced; choose another name"));
  }
  EXPECT_EQ(everything(), before);
}

TEST_F(CreateTest, AFolderIsRefusedWithoutForceToo) {
  EXPECT_EQ(refused({"create", "."}),
            "ddr: Database file '.': a folder stands there. It is not replaced; choose "
            "another name, or remove it.");
}

TEST_F(CreateTest, AMissingFolderIsTold) {
  EXPECT_EQ(refused({"create", "no/a.ddr"}),
            "ddr: Database file 'no/a.ddr': its folder does not exist. Make the folder, or check the name.");
}

TEST_F(CreateTest, ADescriptionThatIsNotUtf8LeavesWhatWasThere) {
  refused({"create", "a.ddr", "--description", "\xff"});
  EXPECT_THAT(folder.names(), ElementsAre());
  done({"create", "a.ddr", "--description", "old"});
  std::string const before = bytes("a.ddr");
  EXPECT_THAT(refused({"create", "a.ddr", "--force", "--description", "\xff"}), HasSubstr("is not UTF-8"));
  EXPECT_EQ(bytes("a.ddr"), before);
  EXPECT_THAT(folder.names(), ElementsAre("a.ddr"));
}

TEST_F(CreateTest, AFileNameThatIsNotUtf8IsRefused) {
  EXPECT_THAT(refused({"create", "\xff"}), StartsWith("ddr: Database file '\\xff': the name is not UTF-8. "));
  EXPECT_THAT(folder.names(), ElementsAre());
}

TEST_F(CreateTest, ALinkToADatabaseStaysALink) {
  done({"create", "a.ddr", "--description", "old"});
  ASSERT_EQ(symlink("a.ddr", folder.path("link.ddr").c_str()), 0);
  done({"create", "link.ddr", "--force", "--description", "new"});
  EXPECT_EQ(description(), "new");
  EXPECT_THAT(folder.names(), ElementsAre("a.ddr", "link.ddr"));
}

// At some limits the new file cannot be begun, at some its first save fails, at some all goes well.
TEST_F(CreateTest, WithoutRoomTheOldFileStaysOrNoneIsMade) {
  constexpr unsigned long page = 4096;
  int failures = 0;
  int successes = 0;
  for (unsigned long limit = page; limit <= 24 * page; limit += page) {
    program_settings settings;
    settings.fileSizeLimit = limit;
    done({"create", "a.ddr", "--force", "--description", "old"});
    std::string const before = bytes("a.ddr");
    bool const replaced = run({"create", "a.ddr", "--force", "--description", "new"}, settings).status == 0;
    EXPECT_EQ(description(), replaced ? "new" : "old");
    EXPECT_EQ(bytes("a.ddr") == before, !replaced);
    bool const made = run({"create", "b.ddr"}, settings).status == 0;
    EXPECT_EQ(access(folder.path("b.ddr").c_str(), F_OK) == 0, made);
    unlink(folder.path("b.ddr").c_str());
    EXPECT_THAT(folder.names(), ElementsAre("a.ddr")) << "limit " << limit;
    ++(replaced && made ? successes : failures);
  }
  EXPECT_GT(failures, 0);
  EXPECT_GT(successes, 0);
}

TEST_F(CreateTest, AFullDeviceIsTold) {
  program_settings settings;
  settings.fileSizeLimit = 8192;
  EXPECT_THAT(refused({"create", "a.ddr"}, settings), StartsWith("ddr: Database file 'a.ddr': "));
  EXPECT_THAT(
      refused({"create", "a.ddr"}, settings),
      HasSubstr(
          "(File too large); nothing was changed. Raise the limit of the size of files, then try again."));
}

} // namespace
