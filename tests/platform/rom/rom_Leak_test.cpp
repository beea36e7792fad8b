// Opening and closing many times.
#include "database_test.h"

#include "cow_Counter.h"
#include "ddr_Result.h"
#include "sanitized.h"

#include <fstream>
#include <string>

namespace {

/// Memory of this process [page of 4096 bytes].
long residentPages() {
  std::ifstream statm("/proc/self/statm");
  long total = 0;
  long resident = 0;
  statm >> total >> resident;
  return resident;
}

class rom_Leak : public database_test {};

TEST_F(rom_Leak, OpeningAndClosingThousandsOfTimesLeavesNothing) {
  constexpr int times = isSanitized ? 2000 : 10000; // memory is measured in builds that give it back
  cow_String const made = create("a");
  edit(made, [](ddr_Ddb& record) {
    record.models.Insert("M", ddr_Model(record.GetDbId(), "M"));
    setNote(record.models.Get("M"), "text");
    record.results.Insert("R", ddr_Result());
  });
  save(made);
  close(made);
  int descriptors = 0;
  long pages = 0;
  std::size_t counters = 0;
  for (int i = 0; i < times; ++i) {
    cow_String const name = open("a", i % 2 == 0 ? utl_FileAccess::Write : utl_FileAccess::Read);
    if (i % 10 == 0) {
      ASSERT_EQ(noteOf(record(name).models.ConstGet("M")), "text/text");
    }
    close(name);
    if (i == 1000) {
      descriptors = openDescriptors();
      pages = residentPages();
      counters = cow_Counter::LiveCount();
    }
  }
  EXPECT_EQ(openDescriptors(), descriptors);
  EXPECT_EQ(cow_Counter::LiveCount(), counters);
  if (!isSanitized) {
    EXPECT_LT(residentPages() - pages, 200);
  }
  EXPECT_EQ(folder.names(), (std::vector<std::string>{"a"}));
}

} // namespace
