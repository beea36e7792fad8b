// The debug stream.
#include "pnt_DebugPrint.h"

#include <gtest/gtest.h>

#include <iostream>
#include <sstream>

namespace {

class DebugPrint : public testing::Test {
protected:
  ~DebugPrint() override { pnt_setDebugPrint(nullptr); }
};

TEST_F(DebugPrint, IsStandardErrorAtFirst) {
  EXPECT_EQ(&pnt_debugPrint(), &std::cerr);
}

TEST_F(DebugPrint, GoesWhereTheHostSaid) {
  std::ostringstream stream;
  pnt_setDebugPrint(&stream);
  pnt_debugPrint() << "took " << 1.5;
  EXPECT_EQ(stream.str(), "took 1.5");
}

TEST_F(DebugPrint, NullRestoresStandardError) {
  std::ostringstream stream;
  pnt_setDebugPrint(&stream);
  pnt_setDebugPrint(nullptr);
  EXPECT_EQ(&pnt_debugPrint(), &std::cerr);
}

} // namespace
