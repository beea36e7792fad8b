// The power goes: whatever part of the writes since the last syncs the device kept, the file is whole.
#include "reliability_Workflow.h"

#include "counts.h"

#include <algorithm>
#include <unordered_set>

namespace {

/// The part of the random choices that a workflow gets.
double partOf(Workflow const& workflow) {
  int all = 0;
  for (Workflow const& one : workflows()) {
    all += one.weight();
  }
  return static_cast<double>(workflow.weight()) / all;
}

class Reliability_PowerCut : public reliability_test {
protected:
  power_cut record() {
    states();
    startOver();
    GetParam().begin(*this);
    device_image const start = image();
    std::map<std::string, int> const numbers = device.record(folder.names());
    GetParam().act(*this);
    device.stop();
    power_cut cut(start, numbers, device.events());
    EXPECT_TRUE(cut.whole(cut.length()) == image()) << "a change of the folder was not recorded";
    closeAll();
    return cut;
  }

  /// Looks at what an image holds, unless it is known.
  void look(device_image const& seenImage, int leastState) {
    ++tried;
    if (!seen.insert(numberOf(seenImage) + static_cast<std::size_t>(leastState)).second) {
      return;
    }
    setImage(seenImage);
    std::string const file = recovered();
    auto const found = std::find(states().begin() + leastState, states().end(), file);
    EXPECT_NE(found, states().end()) << file;
  }

  std::unordered_set<std::size_t> seen;
  long long tried = 0;
};

TEST_P(Reliability_PowerCut, LeavesAStateBeforeOrAfter) {
  constexpr int samples = 3;
  constexpr int moreSamples = 50;
  power_cut cut = record();
  std::mt19937_64 random(share.seed());
  for (std::size_t event = 0; event <= cut.length(); ++event) {
    if (event < cut.length() && !takes(static_cast<long long>(event), GetParam().stride)) {
      continue;
    }
    SCOPED_TRACE(numbered("power gone before event ", static_cast<long long>(event)));
    auto const use = [&](device_image const& one) { look(one, cut.marksBefore(event)); };
    cut.each(event, use);
    cut.some(event, samples, random, use);
    ASSERT_FALSE(HasFailure());
  }
  // and other choices, as long as more are asked for
  std::vector<std::size_t> const uncertain = cut.uncertain();
  EXPECT_EQ(uncertain.empty(), GetParam().isReading);
  while (!uncertain.empty() && share.goesOn(partOf(GetParam()), tried)) {
    std::size_t const event = uncertain[random() % uncertain.size()];
    SCOPED_TRACE(numbered("power gone before event ", static_cast<long long>(event)) +
                 numbered(", seed ", static_cast<long long>(share.seed())));
    cut.some(event, moreSamples, random, [&](device_image const& one) { look(one, cut.marksBefore(event)); });
    ASSERT_FALSE(HasFailure());
  }
  addToCount("images", "tried", tried);
  addToCount("images", "distinct", static_cast<long long>(seen.size()));
  EXPECT_GE(seen.size(), GetParam().steps > 0 ? 20U : 1U);
}

INSTANTIATE_TEST_SUITE_P(Workflows, Reliability_PowerCut, testing::ValuesIn(workflows()),
                         [](auto const& chosen) { return chosen.param.name; });

} // namespace
