// What conversion functions are given to read and to write: rows, tables, and the two databases.
#include "thing_module.h"

#include "rfm_Exception.h"
#include "rom_Transporter.h"
#include "typ_ArchCompTable.h"

#include <array>

namespace {

using Texts = std::vector<std::string>;

constexpr unsigned newTypeId = 0x500009; // of a class that nobody knows

dbc_DatabaseConverter& converter() {
  return omi_Singleton<dbc_DatabaseConverterHolder>::Instance().GetDatabaseConverter();
}

std::unique_ptr<dbc_Table> newClass(unsigned typeId = newTypeId) {
  return omi_Singleton<dbc_Utils>::Instance().CreateTempClassInOutputDatabase(typeId, 3);
}

std::string textOf(std::function<void()> const& work) {
  try {
    work();
  } catch (std::exception const& error) {
    return error.what();
  }
  return "nothing";
}

class dbc_Rows : public thing_test {
protected:
  /// Does the work once, while the first row of a step is converted.
  void atFirstStep(std::function<void(dbc_Row const&, dbc_Row&)> const& work) {
    thing_Steps::current().first = onFirstRow(work);
  }
  void atSecondStep(std::function<void(dbc_Row const&, dbc_Row&)> const& work) {
    thing_Steps::current().second = onFirstRow(work);
  }
  static std::function<void(dbc_Row const&, dbc_Row&)>
  onFirstRow(std::function<void(dbc_Row const&, dbc_Row&)> const& work) {
    return [work](dbc_Row const& input, dbc_Row& output) {
      if (input.Index() == 0) {
        work(input, output);
      }
    };
  }
};

// ---- rows ----

TEST_F(dbc_Rows, ANewRowReadsBackWhatWasWrittenIntoIt) {
  atFirstStep([](dbc_Row const&, dbc_Row&) {
    auto const table = newClass();
    dbc_Row& row = table->AppendRow();
    row.WriteFieldInt("int", -3);
    row.WriteFieldUnsigned("unsigned", 0xffffffffU);
    row.WriteFieldHandle("handle", std::int64_t{1} << 40);
    row.WriteFieldDouble("double", 0.25);
    row.WriteFieldBool("bool", true);
    row.WriteFieldString("string", "text");
    row.WriteFieldNull("null");
    EXPECT_EQ(row.ReadFieldInt("int"), -3);
    EXPECT_EQ(row.ReadFieldUnsigned("unsigned"), 0xffffffffU);
    EXPECT_EQ(row.ReadFieldHandle("handle"), std::int64_t{1} << 40);
    EXPECT_EQ(row.ReadFieldDouble("double"), 0.25);
    EXPECT_TRUE(row.ReadFieldBool("bool"));
    EXPECT_EQ(row.ReadFieldString("string"), cow_String("text"));
    EXPECT_TRUE(row.HasField("null"));
    EXPECT_FALSE(row.IsPresent("null"));
    EXPECT_FALSE(row.HasField("other"));
    EXPECT_FALSE(row.IsPresent("other"));
    table->FinishRow(row);
  });
  convert();
  EXPECT_EQ(converted().field("0x500009", 0, "string"), "'text'");
  EXPECT_EQ(converted().field("0x500009", 0, "null"), "NULL");
}

TEST_F(dbc_Rows, ANewRowKeepsTheLastOfTwoValues) {
  atFirstStep([](dbc_Row const&, dbc_Row&) {
    auto const table = newClass();
    dbc_Row& row = table->AppendRow();
    row.WriteFieldInt("value", 1);
    row.WriteFieldString("value", "two");
    table->FinishRow(row);
  });
  convert();
  EXPECT_EQ(converted().field("0x500009", 0, "value"), "'two'");
  EXPECT_EQ(converted().attributes("0x500009"), Texts{"value 11 0x1 0"});
}

TEST_F(dbc_Rows, AValueOfAnotherKindThatANewRowHasReadsAsNothing) {
  atFirstStep([](dbc_Row const&, dbc_Row&) {
    auto const table = newClass();
    dbc_Row& row = table->AppendRow();
    row.WriteFieldString("text", "7");
    row.WriteFieldInt("number", 7);
    EXPECT_EQ(row.ReadFieldInt("text"), 0);
    EXPECT_EQ(row.ReadFieldDouble("text"), 0.0);
    EXPECT_EQ(row.ReadFieldString("number"), cow_String());
  });
  convert();
}

TEST_F(dbc_Rows, AFieldThatANewRowHasNotIsNamed) {
  std::string said;
  atFirstStep([&](dbc_Row const&, dbc_Row&) {
    auto const table = newClass();
    said = textOf([&] { table->AppendRow().ReadFieldInt("missing"); });
  });
  convert();
  EXPECT_EQ(said, "A row that is converted has no field 'missing'.");
}

TEST_F(dbc_Rows, ALaterRowOfANewClassHasTheFieldsOfTheFirstAndTakesMore) {
  atFirstStep([](dbc_Row const&, dbc_Row&) {
    auto const table = newClass();
    dbc_Row& first = table->AppendRow();
    first.WriteFieldHandle("handle", 1);
    first.WriteFieldDouble("double", 1.0);
    first.WriteFieldBool("bool", false);
    first.WriteFieldString("string", "1");
    table->FinishRow(first);
    dbc_Row& second = table->AppendRow();
    second.WriteFieldHandle("handle", 2);
    second.WriteFieldDouble("double", 2.0);
    second.WriteFieldBool("bool", true);
    second.WriteFieldString("string", "2");
    second.WriteFieldInt("more", -1);
    EXPECT_EQ(second.ReadFieldHandle("handle"), 2);
    EXPECT_EQ(second.ReadFieldDouble("double"), 2.0);
    EXPECT_TRUE(second.ReadFieldBool("bool"));
    EXPECT_EQ(second.ReadFieldString("string"), cow_String("2"));
    EXPECT_EQ(second.ReadFieldInt("more"), -1);
    EXPECT_TRUE(second.HasField("handle"));
    table->FinishRow(second);
  });
  convert();
  EXPECT_EQ(converted().field("0x500009", 1, "handle"), "2");
  EXPECT_EQ(converted().field("0x500009", 1, "more"), "-1");
  EXPECT_EQ(converted().field("0x500009", 0, "more"), "NULL");
}

TEST_F(dbc_Rows, ARowOfTheOldFileHasTheFieldsOfItsLayoutOnly) {
  std::string said;
  atFirstStep([&](dbc_Row const& input, dbc_Row& output) {
    EXPECT_TRUE(input.HasField("gone"));
    EXPECT_FALSE(output.HasField("gone"));
    EXPECT_EQ(input.ReadFieldDouble("weight"), -1.5);
    said = textOf([&] { output.WriteFieldString("gone", "x"); });
  });
  convert();
  EXPECT_NE(said.find("class 'Thing'"), std::string::npos) << said;
  EXPECT_NE(said.find("field 'gone'"), std::string::npos) << said;
}

// ---- tables ----

TEST_F(dbc_Rows, AStoredRowIsChangedWhenItIsFinished) {
  atFirstStep([](dbc_Row const&, dbc_Row&) {
    auto const boxes = converter().OutputDatabase().GetOutputTable(boxTypeId);
    dbc_Row& box = boxes->Row(0);
    box.WriteFieldString("label", "green");
    boxes->FinishRow(box);
    dbc_Row& other = boxes->Row(2);
    boxes->FinishRow(other); // nothing was written into it
  });
  convert();
  EXPECT_EQ(converted().field("Box", 0, "label"), "'green'");
  EXPECT_EQ(converted().field("Box", 0, "#uid"), "x'000102030405060708090a0b0c0d0e0f'");
  EXPECT_EQ(converted().field("Box", 2, "label"), "NULL");
}

TEST_F(dbc_Rows, AStoredRowOfAClassThatNobodyKnowsTakesMoreFields) {
  atFirstStep([](dbc_Row const&, dbc_Row&) {
    auto const boxes = converter().OutputDatabase().GetTempTable(boxTypeId);
    dbc_Row& box = boxes->AppendRow();
    box.WriteFieldString("label", "blue");
    box.WriteFieldInt("depth", 4);
    boxes->FinishRow(box);
  });
  convert();
  EXPECT_EQ(converted().field("Box", 3, "label"), "'blue'");
  EXPECT_EQ(converted().field("Box", 3, "depth"), "4");
}

TEST_F(dbc_Rows, ManyRowsAreWrittenSideBySide) {
  atFirstStep([](dbc_Row const&, dbc_Row&) {
    auto const boxes = converter().OutputDatabase().GetOutputTable(boxTypeId);
    std::vector<dbc_Row*> added;
    for (char const* const label : {"a", "b", "c", "d", "e", "f"}) {
      added.push_back(&boxes->AppendRow());
      added.back()->WriteFieldString("label", label);
    }
    for (dbc_Row* const row : added) {
      boxes->FinishRow(*row);
    }
  });
  convert();
  EXPECT_EQ(converted().value("SELECT group_concat(label, '') FROM class_Box WHERE \"row\" > 2"), "'abcdef'");
}

TEST_F(dbc_Rows, RowsThatAreNotThereAreRefused) {
  Texts said;
  atFirstStep([&](dbc_Row const&, dbc_Row&) {
    auto const input = converter().InputDatabase().GetInputTable(boxTypeId);
    auto const output = converter().OutputDatabase().GetOutputTable(boxTypeId);
    for (auto const* const table : {&input, &output}) {
      for (int const row : {-1, 1, 3}) {
        said.push_back(textOf([&] { (*table)->Row(row); }));
      }
    }
  });
  convert();
  ASSERT_EQ(said.size(), 6U);
  for (std::string const& text : said) {
    EXPECT_NE(text.find("class 'Box'"), std::string::npos) << text;
    EXPECT_NE(text.find("there is no such row"), std::string::npos) << text;
  }
}

TEST_F(dbc_Rows, ARowGoesBackToItsOwnTableOnly) {
  std::string said;
  atFirstStep([&](dbc_Row const&, dbc_Row&) {
    auto const one = newClass();
    auto const other = newClass();
    dbc_Row& row = one->AppendRow();
    said = textOf([&] { other->FinishRow(row); });
  });
  convert();
  EXPECT_EQ(said, "row is open");
}

TEST_F(dbc_Rows, EntriesThatAreNotThereAreAMistake) {
  atFirstStep([](dbc_Row const&, dbc_Row&) {
    auto const entries = converter().InputDatabase().GetInputEntries(5);
    EXPECT_THROW(entries->Row(-1), nex_AssertException);
    EXPECT_THROW(entries->Row(2), nex_AssertException);
    EXPECT_EQ(entries->Row(1).ReadFieldString("Key"), cow_String("a"));
  });
  convert();
}

TEST_F(dbc_Rows, EntriesOfTheInputAreNotAddedTo) {
  std::string said;
  atFirstStep([&](dbc_Row const&, dbc_Row&) {
    said = textOf([] { converter().InputDatabase().GetInputEntries(5)->AppendRow(); });
  });
  convert();
  EXPECT_EQ(said, "A table of the input of a conversion cannot be written.");
}

TEST_F(dbc_Rows, AnEntryThatWasOnlyReadIsNotAddedAgain) {
  atFirstStep([](dbc_Row const&, dbc_Row&) {
    auto const entries = converter().OutputDatabase().GetOutputEntries(5);
    entries->FinishRow(entries->Row(0));
  });
  EXPECT_EQ(convert().entriesOut, 3);
}

TEST_F(dbc_Rows, AnEntryIntoWhichNothingWasWrittenLeadsNowhere) {
  atFirstStep([](dbc_Row const&, dbc_Row& output) {
    auto const map = omi_Singleton<dbc_Utils>::Instance().SetNewAttributeMapInOutputDatabase(output, "map");
    map->FinishRow(map->AppendRow());
  });
  convert();
  EXPECT_EQ(converted().collection("Thing", 0, "map"), Texts{" 0 -1"});
}

// ---- the two databases ----

TEST_F(dbc_Rows, AnOutputTableOfAClassThatIsNotListedIsRefused) {
  std::string said;
  atFirstStep([&](dbc_Row const&, dbc_Row&) {
    said = textOf([] { converter().OutputDatabase().GetOutputTable(0x777); });
  });
  convert();
  EXPECT_NE(said.find("class 0x777, which others refer to, is not in its class list"), std::string::npos)
      << said;
}

TEST_F(dbc_Rows, ALaterStepReadsWhatEarlierOnesMade) {
  atFirstStep([](dbc_Row const&, dbc_Row&) {
    auto const made = newClass();
    dbc_Row& row = made->AppendRow();
    row.WriteFieldInt("number", 5);
    made->FinishRow(row);
    auto const boxes = converter().OutputDatabase().GetOutputTable(boxTypeId);
    dbc_Row& box = boxes->AppendRow();
    box.WriteFieldString("label", "added");
    boxes->FinishRow(box);
    EXPECT_EQ(converter().InputDatabase().GetInputTable(boxTypeId)->Length(), 3);
  });
  atSecondStep([](dbc_Row const&, dbc_Row&) {
    dbc_InputDatabase const& input = converter().InputDatabase();
    ASSERT_TRUE(input.HasInputTable(newTypeId));
    auto const made = input.GetInputTable(newTypeId);
    EXPECT_EQ(made->Row(0).ReadFieldInt("number"), 5);
    EXPECT_EQ(made->Row(0).ReadFieldInt("number"), 5);
    EXPECT_EQ(input.GetInputTable(boxTypeId)->Row(3).ReadFieldString("label"), cow_String("added"));
  });
  convert();
}

TEST_F(dbc_Rows, OnlyRowsOfTheOldFileAreOfIt) {
  atFirstStep([](dbc_Row const&, dbc_Row&) {
    auto const boxes = converter().OutputDatabase().GetOutputTable(boxTypeId);
    boxes->FinishRow(boxes->AppendRow());
  });
  atSecondStep([](dbc_Row const&, dbc_Row&) {
    dbc_InputDatabase const& input = converter().InputDatabase();
    EXPECT_TRUE(input.IsOfOldFile(boxTypeId, 2));
    EXPECT_FALSE(input.IsOfOldFile(boxTypeId, 1));
    EXPECT_FALSE(input.IsOfOldFile(boxTypeId, 3));
    EXPECT_FALSE(input.IsOfOldFile(boxTypeId, -1));
    EXPECT_FALSE(input.IsOfOldFile(0x777, 0));
  });
  convert();
}

TEST_F(dbc_Rows, ClassesAreFoundByTheirAttributes) {
  atFirstStep([](dbc_Row const&, dbc_Row&) {
    dbc_InputDatabase const& input = converter().InputDatabase();
    EXPECT_EQ(input.ClassesWith("label"), std::set<unsigned>{boxTypeId});
    EXPECT_EQ(input.ClassesWith("name"), std::set<unsigned>{thingTypeId});
    EXPECT_TRUE(input.ClassesWith("nowhere").empty());
  });
  convert();
}

TEST_F(dbc_Rows, TheEntriesOfTheOldFileAreCounted) {
  std::int64_t counted = 0;
  atFirstStep([&](dbc_Row const&, dbc_Row&) {
    auto const entries = converter().OutputDatabase().GetOutputEntries(5);
    entries->FinishRow(entries->AppendRow());
    counted = converter().InputDatabase().EntriesOfOldFile();
  });
  convert();
  EXPECT_EQ(counted, 3);
}

TEST_F(dbc_Rows, ARefusalNamesTheOldFileTheClassAndTheRow) {
  std::string said;
  atFirstStep([&](dbc_Row const&, dbc_Row&) {
    said = textOf([] { converter().InputDatabase().Refuse(boxTypeId, 2, "it is too small"); });
  });
  convert();
  EXPECT_EQ(said, "Database file '" + oldPath +
                      "', class 'Box', row 2: it is damaged: it is too small. Restore it from a backup.");
}

// The number behind the last one would overflow.
TEST_F(dbc_Rows, ATableWithoutRoomTakesNoRow) {
  make(R"(UPDATE class_Box SET "row" = 2147483646 WHERE "row" = 2)");
  atFirstStep([](dbc_Row const&, dbc_Row&) {
    auto const boxes = converter().OutputDatabase().GetOutputTable(boxTypeId);
    boxes->FinishRow(boxes->AppendRow());
  });
  std::string const said = failure();
  EXPECT_NE(said.find("class 'Box': the table has no room for more rows"), std::string::npos) << said;
}

TEST_F(dbc_Rows, ANewClassGetsTheNameThatItsTypeHas) {
  std::array<typ_Entry, 10> entries{};
  entries[9] = {7, 1, "Wheel"};
  typ_ArchCompTable::InsertEntry(0x50, typ_ArchCompEntry(entries.data(), 10));
  atFirstStep([](dbc_Row const&, dbc_Row&) {
    auto const table = newClass();
    table->FinishRow(table->AppendRow());
  });
  convert();
  typ_ArchCompTable::InsertEntry(0x50, typ_ArchCompEntry(entries.data(), 0));
  EXPECT_EQ(converted().rows("Wheel").size(), 1U);
}

TEST_F(dbc_Rows, ANewClassWhoseTypeHasTheNameOfAnotherOneIsStoredUnderItsNumber) {
  std::array<typ_Entry, 10> entries{};
  entries[9] = {7, 1, "Box"};
  typ_ArchCompTable::InsertEntry(0x50, typ_ArchCompEntry(entries.data(), 10));
  atFirstStep([](dbc_Row const&, dbc_Row&) {
    auto const table = newClass();
    table->FinishRow(table->AppendRow());
  });
  convert();
  typ_ArchCompTable::InsertEntry(0x50, typ_ArchCompEntry(entries.data(), 0));
  EXPECT_EQ(converted().rows("0x500009").size(), 1U);
  EXPECT_EQ(converted().rows("Box").size(), 2U);
}

TEST_F(dbc_Rows, ANameThatAnotherClassHasIsNotGivenAgain) {
  atFirstStep([](dbc_Row const&, dbc_Row&) {
    auto const table = newClass(0x500077);
    table->FinishRow(table->AppendRow());
    converter().ClassView("Box", *table, 1, 0, -1).reset();
  });
  convert();
  EXPECT_EQ(converted().rows("0x500077").size(), 1U);
  EXPECT_EQ(converted().rows("Box").size(), 2U);
}

TEST_F(dbc_Rows, AClassWithABaseKeepsItWhenItsTableGetsTheColumn) {
  make("UPDATE ddr_class SET \"Base Type Id\" = 0x500003 WHERE \"Class Name\" = 'Box';");
  atFirstStep([](dbc_Row const&, dbc_Row&) {
    auto const boxes = converter().OutputDatabase().GetOutputTable(boxTypeId);
    dbc_Row& box = boxes->AppendRow();
    box.WriteFieldInt("##BaseClassOID", 0);
    boxes->FinishRow(box);
  });
  convert();
  EXPECT_EQ(converted().value("SELECT \"Base Type Id\" FROM ddr_class WHERE \"Class Name\" = 'Box'"),
            std::to_string(0x500003));
  EXPECT_EQ(converted().field("Box", 3, "##BaseClassOID"), "0");
}

TEST_F(dbc_Rows, ARowThatIsAddedForAnObjectWithoutIdentityGetsOne) {
  thing_Steps::current().first = [](dbc_Row const& input, dbc_Row&) {
    if (input.Index() == 4) {
      auto const table = newClass();
      table->FinishRow(table->AppendRow());
    }
  };
  convert();
  EXPECT_NE(converted().field("Thing", 0, "#uid"), "NULL");
  EXPECT_EQ(converted().field("Thing", 4, "#uid"), "NULL");
  EXPECT_NE(converted().value("SELECT \"#uid\" FROM \"class_0x500009\""), "NULL");
}

TEST_F(dbc_Rows, ATransporterOfAnotherFileIsAMistake) {
  bool thrown = false;
  atFirstStep([&](dbc_Row const&, dbc_Row&) {
    rom_Transporter other(nullptr, rfm_File::Open(cow_String(oldPath), utl_FileAccess::Read, true), "D0", -1);
    try {
      omi_Singleton<dbc_Utils>::Instance().CreateClassInOutputDatabase(newTypeId, other);
    } catch (nex_AssertException const&) {
      thrown = true;
    }
  });
  convert();
  EXPECT_TRUE(thrown);
}

TEST(dbc_DatabaseConverter, HasDatabasesOnlyWhileAConversionRuns) {
  dbc_DatabaseConverter const idle;
  EXPECT_THROW(idle.InputDatabase(), nex_AssertException);
  EXPECT_THROW(idle.OutputDatabase(), nex_AssertException);
  EXPECT_EQ(idle.Step(), 0);
}

TEST_F(dbc_Rows, NotesAreCountedByKindFieldAndText) {
  thing_Steps::current().first = [](dbc_Row const& input, dbc_Row&) {
    converter().Carried("size", input.Index() == 4 ? "as the last" : "as another");
    converter().Carried("name", "as another");
  };
  std::string const said = notes(thingReport(convert()));
  EXPECT_NE(said.find("7 Carried size: as another x2; "), std::string::npos) << said;
  EXPECT_NE(said.find("7 Carried size: as the last x1; "), std::string::npos) << said;
  EXPECT_NE(said.find("7 Carried name: as another x3; "), std::string::npos) << said;
}

TEST_F(dbc_Rows, ANoteOutsideAConversionIsNobodys) {
  dbc_DatabaseConverter idle;
  EXPECT_NO_THROW(idle.Supplied("size", "one"));
  EXPECT_EQ(notes(thingReport(convert())).find("Supplied"), std::string::npos);
}

} // namespace
