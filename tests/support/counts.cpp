// counts.cpp: one list for the run.
#include "counts.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <map>
#include <utility>
#include <vector>

namespace {

class Counts : public testing::Environment {
public:
  void Add(std::string const& subject, std::string const& what, long long number) {
    auto& numbers = bySubject[subject];
    for (auto& [known, sum] : numbers) {
      if (known == what) {
        sum += number;
        return;
      }
    }
    numbers.emplace_back(what, number);
  }

  void TearDown() override {
    for (auto const& [subject, numbers] : bySubject) {
      std::string text = subject + ":";
      for (auto const& [what, number] : numbers) {
        text += (text.back() == ':' ? " " : ", ") + std::to_string(number) + " " + what;
      }
      std::printf("%s\n", text.c_str());
    }
  }

private:
  std::map<std::string, std::vector<std::pair<std::string, long long>>> bySubject; // as first added
};

Counts& counts() {
  static auto* const one = static_cast<Counts*>(testing::AddGlobalTestEnvironment(new Counts));
  return *one;
}

// Environments are ended in the run only when they were known as it began.
[[maybe_unused]] Counts& countsOfTheRun = counts();

} // namespace

void addToCount(std::string const& subject, std::string const& what, long long number) {
  counts().Add(subject, what, number);
}
