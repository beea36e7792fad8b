// cls_Uid: identities of stored objects.
#include "cls_Uid.h"

#include "child_process.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <unordered_set>
#include <vector>

namespace {

TEST(cls_Uid, DefaultIsNone) {
  EXPECT_TRUE(cls_Uid().IsNone());
  EXPECT_EQ(cls_Uid(), cls_Uid(cls_Uid::Bytes{}));
  EXPECT_EQ(cls_Uid().Text(), "00000000000000000000000000000000");
}

TEST(cls_Uid, AllocatedIsNotNone) {
  EXPECT_FALSE(cls_Uid::Allocate().IsNone());
}

TEST(cls_Uid, BytesAreMostSignificantFirst) {
  cls_Uid::Bytes bytes{};
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<std::uint8_t>(i * 16 + 1);
  }
  cls_Uid const uid(bytes);
  EXPECT_EQ(uid.Stored(), bytes);
  EXPECT_EQ(uid.Text(), "0111213141516171"
                        "8191a1b1c1d1e1f1");
}

TEST(cls_Uid, OrderIsTheOrderOfTheStoredBytes) {
  std::vector<cls_Uid> uids;
  for (int i = 0; i < 1000; ++i) {
    uids.push_back(cls_Uid::Allocate());
  }
  EXPECT_TRUE(std::is_sorted(uids.begin(), uids.end()));
  for (std::size_t i = 1; i < uids.size(); ++i) {
    ASSERT_LT(uids[i - 1].Stored(), uids[i].Stored());
  }
}

TEST(cls_Uid, AreUniqueAcrossThreads) {
  std::vector<std::vector<cls_Uid>> drawn(4);
  {
    std::vector<std::thread> threads;
    for (auto& own : drawn) {
      threads.emplace_back([&own] {
        for (int i = 0; i < 20000; ++i) {
          own.push_back(cls_Uid::Allocate());
        }
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
  }
  std::unordered_set<cls_Uid> all;
  for (auto const& own : drawn) {
    all.insert(own.begin(), own.end());
  }
  EXPECT_EQ(all.size(), 80000U);
}

TEST(cls_Uid, AreUniqueAcrossForkedProcesses) {
  auto const draw = [] {
    std::string texts;
    for (int i = 0; i < 100; ++i) {
      texts += cls_Uid::Allocate().Text() + " ";
    }
    return texts;
  };
  cls_Uid::Allocate(); // the parent has drawn before it forks
  std::string const all = in_child(draw) + in_child(draw) + draw();
  std::set<std::string> unique;
  std::istringstream words(all);
  for (std::string word; words >> word;) {
    unique.insert(word);
  }
  EXPECT_EQ(unique.size(), 300U);
}

} // namespace
