// What every shortcut offers by itself.
#include "omu_Shortcut.h"

#include <gtest/gtest.h>

namespace {

class PlainShortcut : public omu_ShortcutImpl {
public:
  cow_String Name() const override { return "last"; }
  cow_String Path() const override { return "first.last"; }
  bool HoldsTarget() const override { return false; }
  bool ResolvesByName() const override { return true; }
  bool CanBeRedirected() const override { return false; }
  PlainShortcut* Copy() const override { return new PlainShortcut(*this); }
};

TEST(OmuShortcut, ThePathIsTheExpressionUnlessAKindKnowsBetter) {
  EXPECT_STREQ(PlainShortcut().PythonPath().Text(), "first.last");
}

} // namespace
