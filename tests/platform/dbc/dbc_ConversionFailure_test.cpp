// dbc_Conversion: what a conversion that fails leaves behind.
#include "thing_module.h"

#include "child_process.h"
#include "fault_vfs.h"
#include "rfm_Exception.h"
#include "rfm_Transaction.h"

#include <cerrno>
#include <filesystem>

namespace {

class dbc_ConversionFailure : public thing_test {
protected:
  /// Puts a database under the name of the output.
  void occupy() { std::filesystem::copy_file(oldPath, newPath); }
  /// Whether input and output are as they were, and nothing else is there.
  void expectUntouched() {
    EXPECT_EQ(readFile(oldPath), before);
    if (occupied.empty()) {
      EXPECT_EQ(folder.names(), std::vector<std::string>{"old.ddr"});
    } else {
      EXPECT_EQ(readFile(newPath), occupied);
      EXPECT_EQ(folder.names(), (std::vector<std::string>{"new.ddr", "old.ddr"}));
    }
  }
  void remember() {
    before = readFile(oldPath);
    occupied = std::filesystem::exists(newPath) ? readFile(newPath) : "";
  }

  std::string before;
  std::string occupied;
};

TEST_F(dbc_ConversionFailure, CancelAtEveryQuestionLeavesNothing) {
  occupy();
  remember();
  int questions = 0;
  convert([&](dbc_Progress const&) {
    ++questions;
    return true;
  });
  std::filesystem::copy_file(oldPath, newPath, std::filesystem::copy_options::overwrite_existing);
  ASSERT_GT(questions, 8);
  for (int last = 1; last <= questions; ++last) {
    int asked = 0;
    EXPECT_EQ(failure([&](dbc_Progress const&) { return ++asked < last; }),
              "The conversion was cancelled; nothing was changed.");
    EXPECT_EQ(asked, last);
    expectUntouched();
  }
}

TEST_F(dbc_ConversionFailure, CancelWhileAnIndexIsMadeLeavesNothing) {
  make("WITH RECURSIVE n(i) AS (SELECT 10 UNION ALL SELECT i + 1 FROM n WHERE i < 200000) "
       "INSERT INTO class_Box(\"row\", label) SELECT i, i FROM n;");
  remember();
  int finishing = 0;
  EXPECT_EQ(failure([&](dbc_Progress const& now) {
              finishing += now.phase == dbc_Progress::Phase::Finishing;
              return finishing < 3 || now.done == now.total; // in the middle, not between the steps
            }),
            "The conversion was cancelled; nothing was changed.");
  EXPECT_EQ(finishing, 3);
  expectUntouched();
}

TEST_F(dbc_ConversionFailure, CancelIsAnExceptionOfItsOwn) {
  EXPECT_THROW(convert([](dbc_Progress const&) { return false; }), dbc_CancelledException);
}

TEST_F(dbc_ConversionFailure, AnExceptionOfAConversionPassesThrough) {
  remember();
  thing_Steps::current().second = [](dbc_Row const& row, dbc_Row&) {
    if (row.Index() == 4) {
      throw std::runtime_error("no");
    }
  };
  EXPECT_EQ(failure(), "no");
  expectUntouched();
  thing_Steps::current().second = nullptr;
  convert();
  EXPECT_EQ(converted().version("Thing"), 40);
}

TEST_F(dbc_ConversionFailure, TheFinalizeFunctionIsCalledOnceAfterAFailureToo) {
  int calls = 0;
  thing_Steps::current().finalizeFirst = [&](dbc_Table const&, dbc_Table&) {
    ++calls;
    throw std::runtime_error("later");
  };
  thing_Steps::current().first = [](dbc_Row const&, dbc_Row&) { throw std::runtime_error("first"); };
  EXPECT_EQ(failure(), "first");
  EXPECT_EQ(calls, 1);
}

TEST_F(dbc_ConversionFailure, AnExceptionOfTheFinalizeFunctionEndsTheConversion) {
  int calls = 0;
  thing_Steps::current().finalizeFirst = [&](dbc_Table const&, dbc_Table&) {
    ++calls;
    throw std::runtime_error("at the end");
  };
  remember();
  EXPECT_EQ(failure(), "at the end");
  EXPECT_EQ(calls, 1);
  expectUntouched();
}

TEST_F(dbc_ConversionFailure, ADamagedValueIsNamedByFileClassRowAndField) {
  make("UPDATE class_Thing SET size = 'big' WHERE \"row\" = 1;");
  remember();
  std::string const said = failure();
  EXPECT_NE(said.find("'" + oldPath + "', class 'Thing', row 1, field 'size'"), std::string::npos) << said;
  expectUntouched();
}

TEST_F(dbc_ConversionFailure, ADamagedPageOfACarriedTableIsBlamedOnTheOldFile) {
  make("WITH RECURSIVE n(i) AS (SELECT 10 UNION ALL SELECT i + 1 FROM n WHERE i < 20000) "
       "INSERT INTO class_Box(\"row\", label) SELECT i, 'label number ' || i FROM n;");
  std::string bytes = readFile(oldPath);
  std::size_t const found = bytes.find("label number 15000");
  ASSERT_NE(found, std::string::npos);
  std::size_t const page = found / 4096 * 4096;
  bytes.replace(page, 100, std::string(100, '\x7f'));
  writeFile(oldPath, bytes);
  remember();
  std::string const said = failure();
  EXPECT_NE(said.find("'" + oldPath + "'"), std::string::npos) << said;
  EXPECT_NE(said.find("damaged"), std::string::npos) << said;
  EXPECT_EQ(said.find(newPath), std::string::npos) << said;
  expectUntouched();
}

TEST_F(dbc_ConversionFailure, AMissingTableIsNamed) {
  for (char const* const table : {"class_Box", "class_Thing"}) {
    make("DROP TABLE " + std::string(table) + ";");
    remember();
    std::string const said = failure();
    EXPECT_NE(said.find("its table is missing"), std::string::npos) << said;
    EXPECT_NE(said.find(std::string(table).substr(6)), std::string::npos) << said;
    expectUntouched();
  }
}

TEST_F(dbc_ConversionFailure, ARowNumberThatCannotBeIsFound) {
  for (char const* const row : {"-1", "2147483647", "4294967296"}) {
    make("INSERT INTO class_Box(\"row\") VALUES(" + std::string(row) + ");");
    remember();
    EXPECT_NE(failure().find("a row number that cannot be"), std::string::npos) << row;
    expectUntouched();
  }
}

TEST_F(dbc_ConversionFailure, TheInputIsNotTheOutputUnderWhateverName) {
  remember();
  std::filesystem::create_hard_link(oldPath, folder.path("hard.ddr"));
  std::filesystem::create_symlink("old.ddr", folder.path("soft.ddr"));
  for (std::string const& name :
       {oldPath, folder.path("hard.ddr"), folder.path("soft.ddr"), folder.path("./old.ddr")}) {
    newPath = name;
    EXPECT_NE(failure().find("it is the file that is to be converted"), std::string::npos) << name;
  }
  EXPECT_EQ(readFile(oldPath), before);
  EXPECT_EQ(folder.names().size(), 3U);
}

TEST_F(dbc_ConversionFailure, AnOutputThatIsNoDatabaseOfOursIsNotReplaced) {
  writeFile(newPath, "my thesis");
  remember();
  EXPECT_NE(failure().find("not a database"), std::string::npos);
  expectUntouched();
}

TEST_F(dbc_ConversionFailure, AnOutputThatOthersWriteToIsNotReplaced) {
  occupy();
  remember();
  child_process writer([this](child_process& self) {
    rfm_Database database =
        rfm_Database::Open(rfm_File::Open(cow_String(newPath), utl_FileAccess::Write, true), "D0");
    rfm_Transaction const transaction(database);
    self.ready();
    self.wait_for_go();
    return std::string("done");
  });
  writer.wait_until_ready();
  std::string const said = failure();
  writer.go();
  EXPECT_EQ(writer.result(), "done");
  EXPECT_NE(said.find("in use"), std::string::npos) << said;
  expectUntouched();
}

// Whoever asked for a new file has not seen the one that appears, and has not agreed to its end.
TEST_F(dbc_ConversionFailure, ANewOutputDoesNotReplaceADatabaseThatAppearsMeanwhile) {
  std::string said = "nothing";
  try {
    dbc_Conversion::Run(
        cow_String(oldPath), cow_String(newPath),
        [this](dbc_Progress const& now) {
          if (occupied.empty() && now.phase == dbc_Progress::Phase::Finishing) {
            occupy();
            remember();
          }
          return true;
        },
        utl_FileAccess::CreateNew);
  } catch (rfm_Exception const& failure) {
    said = failure.what();
  }
  EXPECT_EQ(said,
            "Database file '" + newPath +
                "': a database stands there already. It is not replaced; choose another name, or remove it.");
  ASSERT_FALSE(occupied.empty());
  expectUntouched();
}

TEST_F(dbc_ConversionFailure, AnOutputThatIsNotToBeMadeIsAMistake) {
  remember();
  for (utl_FileAccess const access : {utl_FileAccess::Read, utl_FileAccess::Write}) {
    EXPECT_THROW(dbc_Conversion::Run(cow_String(oldPath), cow_String(newPath), {}, access),
                 nex_AssertException);
    expectUntouched();
  }
}

TEST_F(dbc_ConversionFailure, NobodySavesToTheInputMeanwhile) {
  std::string saved;
  thing_Steps::current().first = [&](dbc_Row const& row, dbc_Row&) {
    if (row.Index() == 0) {
      saved = in_child([this] {
        rfm_Database database =
            rfm_Database::Open(rfm_File::Open(cow_String(oldPath), utl_FileAccess::Write, true), "D0");
        rfm_Transaction transaction(database);
        database.Bind();
        database.NewHandle();
        transaction.Commit();
        return std::string("saved");
      });
    }
  };
  std::string const bytes = readFile(oldPath);
  convert();
  EXPECT_NE(saved.find("in use"), std::string::npos) << saved;
  EXPECT_EQ(readFile(oldPath), bytes);
}

TEST_F(dbc_ConversionFailure, AFullOrFailingDeviceAtAnyRequestLeavesNothing) {
  occupy();
  remember();
  for (int const number : {ENOSPC, EIO}) {
    bool ended = false;
    int failures = 0;
    for (int request = 1; !ended; ++request) {
      std::string said;
      {
        fault_vfs device;
        device.fail_at(request, number, true);
        said = failure();
        failures += device.failures() > 0;
        ended = device.failures() == 0;
      }
      if (ended) {
        EXPECT_EQ(said, "nothing");
      } else {
        EXPECT_NE(said, "nothing") << request;
        EXPECT_NE(said.find(newPath), std::string::npos) << said;
        expectUntouched();
      }
    }
    EXPECT_GT(failures, 10);
    EXPECT_EQ(converted().version("Thing"), 40);
    std::filesystem::copy_file(oldPath, newPath, std::filesystem::copy_options::overwrite_existing);
  }
}

TEST_F(dbc_ConversionFailure, AKilledConversionLeavesAFileThatTheNextOneRemoves) {
  occupy();
  remember();
  {
    child_process killed([this](child_process& self) {
      convert([&](dbc_Progress const& now) {
        if (now.phase == dbc_Progress::Phase::Finishing) {
          self.ready();
          self.wait_for_go();
        }
        return true;
      });
      return std::string();
    });
    killed.wait_until_ready();
    // While it lives, its file is not taken away by others.
    EXPECT_EQ(failure([](dbc_Progress const&) { return false; }),
              "The conversion was cancelled; nothing was changed.");
    EXPECT_EQ(folder.names().size(), 3U);
  }
  EXPECT_EQ(readFile(oldPath), before);
  EXPECT_EQ(readFile(newPath), occupied);
  ASSERT_EQ(folder.names().size(), 3U);
  convert();
  EXPECT_EQ(folder.names(), (std::vector<std::string>{"new.ddr", "old.ddr"}));
  EXPECT_EQ(converted().version("Thing"), 40);
}

TEST_F(dbc_ConversionFailure, NoDescriptorStaysOpen) {
  int const open = openDescriptors();
  convert();
  failure([](dbc_Progress const& now) { return now.phase != dbc_Progress::Phase::Finishing; });
  EXPECT_EQ(openDescriptors(), open);
}

TEST_F(dbc_ConversionFailure, AStrangeNameOfTheInputIsReadAll) {
  std::string const strange = folder.path("50% ? #1 \xe7\xbf\xbc 'a';.ddr");
  std::filesystem::rename(oldPath, strange);
  oldPath = strange;
  convert();
  EXPECT_EQ(converted().rows("Box").size(), 2U);
}

} // namespace
