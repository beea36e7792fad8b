// The power goes: whatever part of the writes since the last syncs the device kept, the file is whole.
#include "reliability_Workflow.h"

#include <algorithm>
#include <unordered_set>

namespace {

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

  /// Looks at what an image holds. @returns whether it was new
  bool look(device_image const& seenImage, int leastState) {
    std::string all = numbered("", leastState);
    for (auto const& [name, bytes] : seenImage) {
      all += name + " " + bytes;
    }
    if (!seen.insert(std::hash<std::string>()(all)).second) {
      return false;
    }
    ++images;
    setImage(seenImage);
    std::string const file = recovered();
    auto const found = std::find(states().begin() + leastState, states().end(), file);
    EXPECT_NE(found, states().end()) << file;
    return true;
  }

  std::unordered_set<std::size_t> seen;
  int images = 0;
};

TEST_P(Reliability_PowerCut, LeavesAStateBeforeOrAfter) {
  power_cut cut = record();
  std::mt19937_64 random(share.seed());
  for (std::size_t event = 0; event <= cut.length(); ++event) {
    SCOPED_TRACE(numbered("power gone before event ", static_cast<long long>(event)));
    cut.each(event, 3, random, [&](device_image const& one) { look(one, cut.marksBefore(event)); });
    ASSERT_FALSE(HasFailure());
  }
  // and other choices, as long as there is time
  while (share.goesOn(static_cast<int>(workflows().size()))) {
    std::size_t const event = random() % (cut.length() + 1);
    SCOPED_TRACE(numbered("power gone before event ", static_cast<long long>(event)) +
                 numbered(", seed ", static_cast<long long>(share.seed())));
    cut.each(event, 20, random, [&](device_image const& one) { look(one, cut.marksBefore(event)); });
    ASSERT_FALSE(HasFailure());
  }
  RecordProperty("images", images);
  EXPECT_GE(images, GetParam().steps > 0 ? 20 : 1);
}

INSTANTIATE_TEST_SUITE_P(Workflows, Reliability_PowerCut, testing::ValuesIn(workflows()),
                         [](auto const& chosen) { return std::string(chosen.param.name); });

} // namespace
