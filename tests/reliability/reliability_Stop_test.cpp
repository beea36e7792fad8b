// The process ends at every call to the device.
#include "reliability_Workflow.h"

#include "child_process.h"

#include <algorithm>
#include <set>

namespace {

using Effect = device_fault::Effect;

constexpr device_call changingCalls[] = {device_call::Write, device_call::Sync, device_call::Truncate,
                                         device_call::Delete, device_call::Rename};

constexpr std::size_t shortStride = 40;

class Reliability_Stop : public reliability_test {
protected:
  /// Does a piece of work in a process of its own that is stopped.
  /// @returns whether it was
  bool stops(device_fault const& fault, std::function<void()> const& work) {
    ++processes;
    std::string const answer = in_child([&] {
      work();
      return std::string("done");
    });
    EXPECT_TRUE(answer == "killed" || answer == "done") << answer << " " << fault.number;
    stopped += answer == "killed" ? 1 : 0;
    return answer == "killed";
  }

  bool stopWork(device_fault const& fault) {
    return stops(fault, [&] {
      GetParam().begin(*this);
      device.start(fault);
      GetParam().act(*this);
    });
  }

  bool stopRecovery(device_fault const& fault) {
    return stops(fault, [&] {
      device.start(fault);
      recovered();
    });
  }

  /// Stops the recovery of a folder at each of its changes.
  void stopRecoveries() {
    device_image const left = image();
    if (!left.contains("a-journal") || !tried.insert(left).second) {
      return;
    }
    // Most folders that are left differ in a page or two; a short run takes a few, from the first to the
    // last.
    if (!share.isLong() && (tried.size() + share.seed()) % shortStride != 0) {
      return;
    }
    for (device_call const call : changingCalls) {
      for (Effect const effect : {Effect::Stop, Effect::StopHalfway, Effect::StopAfter}) {
        if (effect == Effect::StopHalfway && call != device_call::Write) {
          continue;
        }
        for (int number = 1;; ++number) {
          SCOPED_TRACE(numbered("recovery stopped at ", number) + nameOf(call));
          setImage(left);
          bool const wasStopped = stopRecovery({call, number, effect, 0, false});
          expectAState();
          if (!wasStopped) {
            break;
          }
          ++recoveriesStopped;
        }
      }
    }
  }

  void expectAState() {
    std::string const file = recovered();
    EXPECT_NE(std::find(states().begin(), states().end(), file), states().end()) << file;
  }

  std::set<device_image> tried;
  int processes = 0;
  int stopped = 0;
  int recoveriesStopped = 0;
};

TEST_P(Reliability_Stop, LeavesAStateBeforeOrAfter) {
  states();
  for (int kind = 0; kind < device_callKinds; ++kind) {
    auto const call = static_cast<device_call>(kind);
    bool const changes =
        std::find(std::begin(changingCalls), std::end(changingCalls), call) != std::end(changingCalls);
    for (Effect const effect : {Effect::Stop, Effect::StopHalfway, Effect::StopAfter}) {
      if ((effect == Effect::StopHalfway && call != device_call::Write) ||
          (effect == Effect::StopAfter && !changes)) {
        continue;
      }
      for (int number = 1;; ++number) {
        SCOPED_TRACE(numbered("stopped at ", number) + nameOf(call));
        startOver();
        bool const wasStopped = stopWork({call, number, effect, 0, false});
        stopRecoveries();
        expectAState();
        if (!wasStopped) {
          break;
        }
        ASSERT_LT(number, 2000);
      }
    }
  }
  EXPECT_GT(stopped, 9);
  RecordProperty("stops", stopped);
  RecordProperty("stopsOfRecoveries", recoveriesStopped);
}

INSTANTIATE_TEST_SUITE_P(Workflows, Reliability_Stop, testing::ValuesIn(workflows()),
                         [](auto const& chosen) { return std::string(chosen.param.name); });

} // namespace
