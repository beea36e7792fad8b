// The running product's edition.
#include "utl_Version.h"

#include <gtest/gtest.h>

namespace {

class Version : public testing::Test {
protected:
  ~Version() override { version.SetProduct(utl_Product::Other); }

  utl_Version& version = omi_Singleton<utl_Version>::Instance();
};

TEST_F(Version, IsNoInteractiveEditionUntilTheHostSaysSo) {
  EXPECT_FALSE(version.IsProductStudio());
  EXPECT_FALSE(version.IsProductLens());
}

TEST_F(Version, IsOneEditionAtATime) {
  version.SetProduct(utl_Product::Studio);
  EXPECT_TRUE(version.IsProductStudio());
  EXPECT_FALSE(version.IsProductLens());
  version.SetProduct(utl_Product::Lens);
  EXPECT_FALSE(version.IsProductStudio());
  EXPECT_TRUE(version.IsProductLens());
}

TEST_F(Version, IsOneForTheProcess) {
  EXPECT_EQ(&version, &omi_Singleton<utl_Version>::Instance());
}

} // namespace
