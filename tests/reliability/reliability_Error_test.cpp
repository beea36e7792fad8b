// The device fails: at every call to it, once, and from then on.
#include "reliability_Silence.h"
#include "reliability_Workflow.h"

#include "counts.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <random>
#include <unistd.h>

namespace {

using Effect = device_fault::Effect;

/// What can go wrong with a call.
struct Trouble {
  device_call call;
  Effect effect;
  int errorNumber;
};

constexpr std::array troubles{
    Trouble{device_call::Open, Effect::Error, EIO},
    Trouble{device_call::Open, Effect::Error, EMFILE},
    Trouble{device_call::Open, Effect::Error, EACCES},
    Trouble{device_call::Open, Effect::Error, ENOSPC},
    Trouble{device_call::Open, Effect::Error, EDQUOT},
    Trouble{device_call::Open, Effect::Error, EROFS},
    Trouble{device_call::Read, Effect::Error, EIO},
    Trouble{device_call::Read, Effect::Short, 0},
    Trouble{device_call::Write, Effect::Error, EIO},
    Trouble{device_call::Write, Effect::Error, ENOSPC},
    Trouble{device_call::Write, Effect::Error, EDQUOT},
    Trouble{device_call::Write, Effect::Error, EROFS},
    Trouble{device_call::Write, Effect::Short, 0},
    Trouble{device_call::Sync, Effect::Error, EIO},
    Trouble{device_call::Sync, Effect::Error, ENOSPC},
    Trouble{device_call::Sync, Effect::Error, EDQUOT},
    Trouble{device_call::Sync, Effect::Error, EROFS},
    Trouble{device_call::Truncate, Effect::Error, EIO},
    Trouble{device_call::Truncate, Effect::Error, ENOSPC},
    Trouble{device_call::Truncate, Effect::Error, EDQUOT},
    Trouble{device_call::Truncate, Effect::Error, EROFS},
    Trouble{device_call::Delete, Effect::Error, EIO},
    Trouble{device_call::Delete, Effect::Error, EACCES},
    Trouble{device_call::Delete, Effect::Error, EROFS},
    Trouble{device_call::Delete, Effect::LateError, EIO},
    Trouble{device_call::Rename, Effect::Error, EIO},
    Trouble{device_call::Rename, Effect::Error, EACCES},
    Trouble{device_call::Rename, Effect::Error, ENOSPC},
    Trouble{device_call::Rename, Effect::Error, EDQUOT},
    Trouble{device_call::Rename, Effect::Error, EROFS},
    Trouble{device_call::Rename, Effect::LateError, EIO},
    Trouble{device_call::Lock, Effect::Error, EIO},
};

/// What a message about a trouble must say: the reason, and what helps.
struct Demand {
  int errorNumber;
  char const* reason;
  std::array<char const*, 3> remedies;
};

constexpr std::array demands{
    Demand{EIO, "Input/output error", {"Check the ", "Close the database if "}},
    Demand{EMFILE, "Too many open files", {"Close other files"}},
    Demand{EACCES, "ermission", {"ermission"}},
    Demand{ENOSPC, "o space left on ", {"Make room"}},
    Demand{EDQUOT, "Disk quota exceeded", {"ask for a larger quota"}},
    Demand{EROFS, "Read-only file system", {"Make the medium writable", "Open it for reading, or copy it"}},
};

std::string textOf(device_fault const& fault) {
  std::string const what = fault.effect == Effect::Short ? "half the work" : std::strerror(fault.errorNumber);
  return numbered(nameOf(fault.call), fault.number) +
         (fault.lasting ? " and all later ones fail" : " fails") + " with " + what +
         (fault.effect == Effect::LateError ? " after it was done" : "");
}

class Reliability_Error : public reliability_test {
protected:
  /// Does the work with one thing going wrong.
  /// @returns whether it happened
  bool tryOut(device_fault const& fault) {
    SCOPED_TRACE(textOf(fault));
    startOver();
    int const descriptors = openDescriptors();
    GetParam().begin(*this);
    device.start(fault);
    std::string const failure = failureOf([&] { GetParam().act(*this); });
    device.stop();
    bool const happened = device.faults() > 0;
    bool isDone = true;
    if (failure == "nothing") {
      EXPECT_EQ(hushedUp(fault, device.failures()), std::vector<std::string>());
      expectSynced(failure);
      EXPECT_EQ(recovered(), states().back());
    } else {
      EXPECT_TRUE(happened) << failure;
      ++told;
      expectAMessage(fault, failure);
      std::string const looks = expectBeforeOrAfter(fault, failure);
      EXPECT_EQ(failureOf([&] { isDone = goOn(failure); }), "nothing")
          << "a second try" << looks << ", after: " << failure;
      expectSynced(failure);
    }
    if (isDone) {
      expectDone(failure);
    }
    if (failure != "nothing" || fault.call != device_call::Delete) { // what could not be deleted is left
      expectNothingBeside(failure);
    }
    closeAll();
    EXPECT_EQ(openDescriptors(), descriptors) << failure;
    met += happened ? 1 : 0;
    return happened;
  }

  /// Tries again. Where a new file is there, which the same call does not replace, takes one of the ways that
  /// the message tells, which is drawn. Where the changes are in the file and may not stay, and the same
  /// call finds nothing left to do, saves another one, as the message tells too.
  /// @returns whether the work is done; otherwise another change was saved
  bool goOn(std::string const& failure) {
    if (GetParam().makesNewFile() && access(folder.path("a").c_str(), F_OK) == 0) {
      EXPECT_NE(failure.find("save a change to it, or remove it and try again"), std::string::npos)
          << failure;
      EXPECT_NE(failureOf([&] { GetParam().act(*this); }), "nothing") << failure;
      if (chance() % 2 == 0) {
        saveAChange(failure);
        return false;
      }
      unlink(folder.path("a").c_str());
    }
    GetParam().act(*this);
    bool const hasNothingToSave = !GetParam().savesRecord && !device.unsynced().empty();
    if (hasNothingToSave && failure.find("then save again") != std::string::npos) {
      expectDone(failure);
      saveAChange(failure);
      return false;
    }
    return true;
  }

  void saveAChange(std::string const& failure) {
    if (!root().IsMember(pathOf("a"))) {
      opened = open("a");
    }
    edit(opened, [](ddr_Ddb& record) { record.SetDescription("saved to make it last"); });
    save(opened);
    expectSaved(failure);
  }

  /// A power cut can take nothing of the work. Of a recovery it can: it is done again.
  void expectSynced(std::string const& failure) const {
    if (GetParam().steps > 0) {
      EXPECT_EQ(device.unsynced(), std::vector<std::string>()) << failure;
    }
  }

  void expectSaved(std::string const& failure) { EXPECT_EQ(stored("a"), contents(opened)) << failure; }

  void expectTheCause(device_fault const& fault, std::string const& failure) const {
    EXPECT_NE(fault.effect, Effect::Short) << "the rest can be read or written: " << failure;
    auto const demand = std::find_if(demands.begin(), demands.end(),
                                     [&](Demand const& one) { return one.errorNumber == fault.errorNumber; });
    ASSERT_NE(demand, demands.end());
    EXPECT_NE(failure.find(demand->reason), std::string::npos) << failure;
    EXPECT_TRUE(std::any_of(demand->remedies.begin(), demand->remedies.end(), [&](char const* remedy) {
      return remedy && failure.find(remedy) != std::string::npos;
    })) << failure;
  }

  /// Whether the file is named to which the call went that failed, or whose journal or folder it was.
  bool namesWhatFailed(std::string const& failure) const {
    return std::any_of(device.failures().begin(), device.failures().end(), [&](device_failure const& one) {
      std::string const name = one.name.empty() ? "a" : databaseOf(one.name);
      return failure.find("'" + folder.path(name) + "'") != std::string::npos;
    });
  }

  void expectAMessage(device_fault const& fault, std::string const& failure) const {
    expectTheCause(fault, failure);
    EXPECT_TRUE(namesWhatFailed(failure)) << failure;
    EXPECT_EQ(failure.find("damaged"), std::string::npos) << failure; // it is the device that failed
    EXPECT_EQ(failure.find("not an error"), std::string::npos) << failure;
  }

  /// To ask the registry loads all models, and to look at the file plays its journal back. A second try must
  /// do with and without either, so each is done by chance.
  /// @returns what was looked at
  std::string expectBeforeOrAfter(device_fault const& fault, std::string const& failure) {
    if (fault.call != device_call::Delete) {
      expectNothingBeside(failure, "a-journal"); // which the next save takes, while the file stays open
    }
    std::string looks;
    if (chance() % 2 == 0) {
      looks += ", the registry asked";
      std::string const memory = registry();
      EXPECT_NE(std::find(registryStates().begin(), registryStates().end(), memory), registryStates().end())
          << memory << "\n"
          << failure;
    }
    if (chance() % 2 == 0) {
      looks += ", the file read";
      std::string const file = recovered();
      EXPECT_NE(std::find(states().begin(), states().end(), file), states().end()) << file << "\n" << failure;
    }
    triedAtOnce += looks.empty() ? 1 : 0;
    return looks;
  }

  /// No file is left but those of the work.
  void expectNothingBeside(std::string const& failure, std::string const& allowed = {}) {
    std::vector<std::string> names = folder.names();
    for (std::string const& name : {std::string("a"), std::string("old"), allowed}) {
      std::erase(names, name);
    }
    EXPECT_EQ(names, std::vector<std::string>()) << failure;
  }

  /// File and registry are as the work leaves them when nothing goes wrong.
  void expectDone(std::string const& failure) {
    if (GetParam().savesRecord) {
      expectSaved(failure);
    } else {
      EXPECT_EQ(recovered(), states().back()) << failure;
    }
    EXPECT_EQ(registry(), registryStates().back()) << failure;
  }

  std::mt19937_64 chance{share.seed()};
  long long met = 0;
  long long told = 0;
  long long triedAtOnce = 0; // again, without any look in between
};

// A whole run meets every trouble at every call, another one every call with one of its troubles in turn.
TEST_P(Reliability_Error, IsToldAndChangesNothingOrEverything) {
  states();
  for (int kind = 0; kind < device_callKinds; ++kind) {
    auto const call = static_cast<device_call>(kind);
    std::vector<device_fault> faults;
    for (Trouble const& trouble : troubles) {
      if (trouble.call == call) {
        faults.push_back({call, 0, trouble.effect, trouble.errorNumber, false});
        faults.push_back({call, 0, trouble.effect, trouble.errorNumber, true});
      }
    }
    ASSERT_FALSE(faults.empty());
    // Behind the last call nothing goes wrong any more.
    for (int number = 1; number <= callsOf(call) + 1; ++number) {
      bool const isThere = number <= callsOf(call);
      if (isThere && !takes(number, GetParam().stride)) {
        continue;
      }
      std::size_t const inTurn = (static_cast<std::size_t>(number) + share.seed()) % faults.size();
      for (std::size_t index = 0; index < faults.size(); ++index) {
        if (isWhole() || index == inTurn) {
          faults[index].number = number;
          EXPECT_EQ(tryOut(faults[index]), isThere);
          ASSERT_FALSE(HasFailure());
        }
      }
    }
  }
  constexpr long long many = 20;
  EXPECT_GT(told, 5);
  EXPECT_TRUE(triedAtOnce > 0 || told < many);
  addToCount("errors", "met", met);
  addToCount("errors", "told", told);
  addToCount("errors", "followed at once by the second try", triedAtOnce);
}

INSTANTIATE_TEST_SUITE_P(Workflows, Reliability_Error, testing::ValuesIn(workflows()),
                         [](auto const& chosen) { return chosen.param.name; });

} // namespace
