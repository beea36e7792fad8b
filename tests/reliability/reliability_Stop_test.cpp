// The process ends at every call to the device.
#include "reliability_Workflow.h"

#include "child_process.h"
#include "counts.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <unistd.h>
#include <unordered_set>

namespace {

using Effect = device_fault::Effect;

constexpr device_call changingCalls[] = {device_call::Write, device_call::Sync, device_call::Truncate,
                                         device_call::Delete, device_call::Rename};

// What an ordinary run takes one in so many of: folders whose recovery is stopped, behind the first one,
// which differ in a page or two, and calls that change nothing, at which the folder is as the change before
// left it. A whole run takes more of the folders that a save leaves, and all of those of a first save.
constexpr int recoveryStride = 40;
constexpr int saveStride = 8;
constexpr int unchangedStride = 5;

bool changesTheFolder(device_call call) {
  return std::find(std::begin(changingCalls), std::end(changingCalls), call) != std::end(changingCalls);
}

/// How a process can end at a call.
std::vector<Effect> endsAt(device_call call) {
  if (call == device_call::Write) {
    return {Effect::Stop, Effect::StopHalfway, Effect::StopAfter};
  }
  return changesTheFolder(call) ? std::vector<Effect>{Effect::Stop, Effect::StopAfter}
                                : std::vector<Effect>{Effect::Stop};
}

class Reliability_Stop : public reliability_test {
protected:
  /// Does a piece of work in a process of its own that is stopped.
  /// @returns whether it was
  bool stops(device_fault const& fault, std::function<void()> const& work) {
    std::string const answer = in_child([&] {
      work();
      return std::string("done");
    });
    bool const wasStopped = answer == numbered("exit status ", device_stopped);
    EXPECT_TRUE(wasStopped || answer == "done") << answer << " " << fault.number;
    return wasStopped;
  }

  /// Stops the work.
  bool tryOut(device_fault const& fault) {
    SCOPED_TRACE(numbered("stopped at ", fault.number) + nameOf(fault.call) +
                 numbered(", effect ", static_cast<int>(fault.effect)));
    startOver();
    bool const wasStopped = stops(fault, [&] {
      GetParam().begin(*this);
      device.start(fault);
      GetParam().act(*this);
    });
    stopped += wasStopped ? 1 : 0;
    device_image const left = image();
    expectAState();
    stopRecoveries(left);
    if (GetParam().makesFile()) {
      setImage(left);
      expectASecondTryToSucceed();
    }
    return wasStopped;
  }

  bool tryOutRecovery(device_image const& left, device_fault const& fault) {
    SCOPED_TRACE(numbered("recovery stopped at ", fault.number) + nameOf(fault.call));
    setImage(left);
    bool const wasStopped = stops(fault, [&] {
      device.start(fault);
      recovered();
    });
    recoveriesStopped += wasStopped ? 1 : 0;
    recoveriesStoppedInWrites += wasStopped && fault.call == device_call::Write ? 1 : 0;
    expectAState();
    return wasStopped;
  }

  /// Stops the recovery of a folder, which has just been made, at each of its changes. Always taken is the
  /// first folder in which it has brought something back.
  void stopRecoveries(device_image const& left) {
    if (!left.contains("a") || !left.contains("a-journal") || !tried.insert(numberOf(left)).second) {
      return;
    }
    bool const isFirst = recoveriesStoppedInWrites == 0 && image().at("a") != left.at("a");
    if (!isFirst && !takesRecovery()) {
      return;
    }
    for (device_call const call : changingCalls) {
      for (Effect const effect : endsAt(call)) {
        for (int number = 1; tryOutRecovery(left, {call, number, effect, 0, false}); ++number) {
        }
      }
    }
  }

  /// Whether this run takes one of the other folders whose recovery can be stopped.
  bool takesRecovery() const {
    int stride = recoveryStride;
    if (isWhole() && GetParam().name == "CreateAndSave") {
      stride = 1;
    } else if (isWhole() && GetParam().name == "SaveChanges") {
      stride = saveStride;
    }
    return share.takes(static_cast<long long>(tried.size()), stride);
  }

  void expectAState() {
    std::string const file = recovered();
    EXPECT_NE(std::find(states().begin(), states().end(), file), states().end()) << file;
  }

  /// What makes a file clears away what was left of it. Where none may be replaced and it is there already,
  /// it stays, and is removed for the next try.
  void expectASecondTryToSucceed() {
    if (GetParam().makesNewFile() && access(folder.path("a").c_str(), F_OK) == 0) {
      std::string const failure = failureOf([&] { GetParam().act(*this); });
      EXPECT_NE(failure.find("remove it"), std::string::npos) << failure;
      EXPECT_EQ(recovered(), states().back());
      unlink(folder.path("a").c_str());
    }
    GetParam().act(*this);
    EXPECT_EQ(recovered(), states().back());
    std::vector<std::string> names = folder.names();
    std::erase(names, "old"); // which recovered() compares
    EXPECT_EQ(names, std::vector<std::string>{"a"});
  }

  std::unordered_set<std::size_t> tried;
  long long stopped = 0;
  long long recoveriesStopped = 0;
  long long recoveriesStoppedInWrites = 0;
};

// A whole run ends the work at every call in each way, another one in one of the ways in turn.
TEST_P(Reliability_Stop, LeavesAStateBeforeOrAfter) {
  states();
  for (int kind = 0; kind < device_callKinds; ++kind) {
    auto const call = static_cast<device_call>(kind);
    std::vector<Effect> const ends = endsAt(call);
    int const stride = GetParam().stride * (changesTheFolder(call) ? 1 : unchangedStride);
    // Behind the last call the work is not stopped any more.
    for (int number = 1; number <= callsOf(call) + 1; ++number) {
      bool const isThere = number <= callsOf(call);
      if (isThere && !takes(number, stride)) {
        continue;
      }
      std::size_t const inTurn = (static_cast<std::size_t>(number) + share.seed()) % ends.size();
      for (std::size_t index = 0; index < ends.size(); ++index) {
        if (isWhole() || index == inTurn) {
          EXPECT_EQ(tryOut({call, number, ends[index], 0, false}), isThere);
          ASSERT_FALSE(HasFailure());
        }
      }
    }
  }
  EXPECT_GT(stopped, 3);
  EXPECT_EQ(tried.empty(), !GetParam().changesInPlace());
  EXPECT_EQ(recoveriesStoppedInWrites > 0, GetParam().changesInPlace());
  addToCount("stops", "of the work", stopped);
  addToCount("stops", "of recoveries", recoveriesStopped);
}

TEST(Reliability_Crash, IsNoStop) {
  EXPECT_EQ(in_child([]() -> std::string { std::abort(); }), numbered("signal ", SIGABRT));
}

INSTANTIATE_TEST_SUITE_P(Workflows, Reliability_Stop, testing::ValuesIn(workflows()),
                         [](auto const& chosen) { return chosen.param.name; });

} // namespace
