// Work on database files in small memory: the file is the one before or the one after, whole, the registry is
// as it was, and the work succeeds when memory is back.
#include "memory_World.h"

#include "ddr_Result.h"
#include "ddr_UserData.h"

#include <gmock/gmock.h>
#include <new>
#include <random>

namespace {

using Lasting = failing_memory::Lasting;

void makeTwo(reliability_test& test) {
  for (char const* const file : {"b", "a"}) {
    cow_String const name = test.create(file);
    test.edit(name, [&](ddr_Ddb& record) {
      for (char const* const key : {"A", "B", "C"}) {
        record.models.Insert(key, ddr_Model(record.GetDbId(), key));
        setNote(record.models.Get(key), std::string("the note of ") + key + " in " + file);
      }
      record.results.Insert("A", ddr_Result());
    });
    test.save(name);
    test.close(name);
  }
}

void openFirst(reliability_test& test) {
  test.opened = test.open("a");
}

void saveOpened(reliability_test& test) {
  test.save(test.opened);
  test.step();
}

/// Further work than other faults are tried on.
std::vector<Workflow> const furtherWorkflows{
    {"SaveModelsOfAnotherFile", makeTwo,
     [](reliability_test& test) {
       openFirst(test);
       cow_String const other = test.open("b");
       test.edit(test.opened,
                 [&](ddr_Ddb& record) { record.SetModels(test.root().Fetch().ConstGet(other).models); });
     },
     saveOpened, 1, true},
    {"SaveACollectionAssigned", makeTwo,
     [](reliability_test& test) {
       openFirst(test);
       cow_String const other = test.open("b");
       test.edit(test.opened,
                 [&](ddr_Ddb& record) { record.models = test.root().Fetch().ConstGet(other).models; });
     },
     saveOpened, 1, true},
    {"SaveOfACopyTakenBefore", makeTwo,
     [](reliability_test& test) {
       openFirst(test);
       test.edit(test.opened,
                 [](ddr_Ddb& record) { record.models.Insert("D", ddr_Model(record.GetDbId(), "D")); });
       test.contents(test.opened); // a record that was read is stored anew, one that was not is found again
     },
     [](reliability_test& test) {
       if (!test.kept) { // a try that failed has changed the registry
         test.kept.emplace(test.root().Fetch());
       }
       test.edit(test.opened, [](ddr_Ddb& record) {
         record.models.Remove("A");
         record.models.Remove("B");
       });
       test.pause();
       saveOpened(test);
       test.root().Replace(*test.kept);
       test.pause();
       saveOpened(test);
     },
     2, true},
    {"FlushOfOneCollection", makeTwo,
     [](reliability_test& test) {
       openFirst(test);
       test.edit(test.opened, [](ddr_Ddb& record) {
         setNote(record.models.Get("A"), "another note, which is longer");
         record.models.Remove("B");
         record.models.Insert("D", ddr_Model(record.GetDbId(), "D"));
       });
     },
     [](reliability_test& test) {
       test.edit(test.opened, [](ddr_Ddb& record) { record.models.Flush(); });
       test.step();
     },
     1},
    {"CloseOfAChangedDatabase", makeTwo,
     [](reliability_test& test) {
       openFirst(test);
       test.edit(test.opened, [](ddr_Ddb& record) { record.models.Remove("B"); });
     },
     [](reliability_test& test) { test.close(test.opened); }, 0},
};

std::vector<Workflow> allWorkflows() {
  std::vector<Workflow> all = workflows();
  all.insert(all.end(), furtherWorkflows.begin(), furtherWorkflows.end());
  return all;
}

class Memory_Workflows : public reliability_test {
protected:
  Memory_Workflows() { device.rest(); }

  /// Does the work with an allocation failing.
  /// @returns whether one did
  bool tryOut(std::uint64_t number, Lasting lasting) {
    startOver();
    opened = cow_String();
    forgetImages();
    std::int64_t const blocks = failing_memory::blocks();
    int const descriptors = openDescriptors();
    bool const failed = workWith(number, lasting);
    closeAll();
    opened = cow_String();
    forgetImages();
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_TRUE(failing_memory::blocks() == blocks || isWarming)
        << failing_memory::blocks() - blocks << " blocks leaked";
    return failed;
  }

  bool isWarming = false; // what is made once and kept is being made

private:
  bool workWith(std::uint64_t number, Lasting lasting) {
    GetParam().begin(*this);
    std::string failure = "nothing";
    failing_memory::start(number, lasting);
    try {
      GetParam().act(*this);
    } catch (std::bad_alloc const&) {
      failing_memory::stop();
      failure = "no memory";
    } catch (std::exception const& other) {
      failing_memory::stop();
      failure = other.what();
    }
    failing_memory::stop();
    std::uint64_t const failures = failing_memory::failures();
    if (failure != "nothing") {
      EXPECT_EQ(failure, "no memory");
      EXPECT_GT(failures, 0U);
      std::string const looks = expectBeforeOrAfter();
      EXPECT_EQ(failureOf([&] { GetParam().act(*this); }), "nothing") << "when tried again" << looks;
    }
    if (GetParam().savesRecord) {
      EXPECT_EQ(stored("a"), contents(opened));
      EXPECT_EQ(registry(), registryStates().back());
    } else {
      EXPECT_EQ(recovered(), states().back());
    }
    return failures > 0;
  }

  /// To ask the registry loads all models, and to look at the file plays its journal back. A second try must
  /// do with and without either, so each is done by chance.
  /// @returns what was looked at
  std::string expectBeforeOrAfter() {
    std::string looks;
    if (chance() % 2 == 0) {
      looks += ", the registry asked";
      EXPECT_THAT(registryStates(), testing::Contains(registry()));
    }
    if (chance() % 2 == 0) {
      looks += ", the file read";
      EXPECT_THAT(states(), testing::Contains(recovered()));
    }
    for (std::string const& name : folder.names()) {
      EXPECT_TRUE(name == "a" || name == "b" || before().contains(name)) << name << " is left";
    }
    return looks;
  }

  std::mt19937_64 chance{share.seed()};
};

TEST_P(Memory_Workflows, ChangeNothingOrAllAfterAnyFailedAllocation) {
  states();
  std::uint64_t allocations = 0;
  isWarming = true;
  for (int warming = 0; warming < 2; ++warming) {
    tryOut(0, Lasting::Once);
    allocations = failing_memory::allocations();
  }
  bool const isOneOfSeveralAlike = !GetParam().layout.empty() && GetParam().stride > 1;
  constexpr std::uint64_t ofOneOfSeveralAlike = 2000;
  RecordProperty("allocations", std::to_string(allocations));
  memory_places const places(allocations, isOneOfSeveralAlike ? 4 : 8,
                             isOneOfSeveralAlike ? ofOneOfSeveralAlike : allocations, share);
  tryOut(places.first(), Lasting::Once); // the first failure of its kind, too, leaves what is kept
  isWarming = false;
  std::uint64_t failures = 0;
  for (Lasting const lasting : {Lasting::Once, Lasting::FromThenOn}) {
    for (std::uint64_t number = places.first();; number += places.step()) {
      SCOPED_TRACE("allocation " + std::to_string(number) + " of " + std::to_string(allocations) +
                   (lasting == Lasting::Once ? "" : " and all later ones"));
      bool const failed = tryOut(number, lasting);
      ASSERT_FALSE(HasFailure());
      if (!failed) {
        break;
      }
      ++failures;
    }
  }
  EXPECT_GT(failures, 3U);
  memory_tell(1, failures);
}

INSTANTIATE_TEST_SUITE_P(All, Memory_Workflows, testing::ValuesIn(allWorkflows()),
                         [](auto const& chosen) { return chosen.param.name; });

} // namespace
