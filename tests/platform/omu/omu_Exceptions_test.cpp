// Bad values and missing keys.
#include "omu_Exceptions.h"

#include <gtest/gtest.h>

#include <exception>
#include <string>
#include <thread>
#include <type_traits>

namespace {

static_assert(std::is_base_of_v<nex_Exception, omu_ValueErrorException>);
static_assert(std::is_base_of_v<nex_Exception, omu_AccessErrorException>);
static_assert(!std::is_base_of_v<nex_TextException, omu_AccessErrorException>);

TEST(OmuExceptions, AValueErrorCarriesItsText) {
  EXPECT_STREQ(omu_ValueErrorException("not allowed: 3").what(), "not allowed: 3");
  EXPECT_STREQ(omu_ValueErrorException(std::string("built")).what(), "built");
  EXPECT_STREQ(omu_ValueErrorException(cow_String("counted")).what(), "counted");
}

TEST(OmuExceptions, AnAccessErrorNamesTheKeyInSingleQuotes) {
  omu_AccessErrorException const exception("Model-1");
  EXPECT_STREQ(exception.what(), "No entry with key 'Model-1'");
  EXPECT_STREQ(exception.Key().Text(), "Model-1");
}

TEST(OmuExceptions, AnAccessErrorKeepsLongAndEmptyKeys) {
  std::string const longKey(2048, 'k');
  EXPECT_EQ(omu_AccessErrorException(cow_String(longKey)).Key().View(), longKey);
  EXPECT_STREQ(omu_AccessErrorException("").what(), "No entry with key ''");
}

TEST(OmuExceptions, AreThrownWithTheirPlace) {
  std::string place;
  std::string key;
  try {
    nex_Exception::Throw(omu_AccessErrorException("Model-1"), "generated/ddr/impl/ddr_Ddb", 12);
  } catch (omu_AccessErrorException const& exception) {
    place = exception.SourcePath() + std::to_string(exception.Line());
    key = exception.Key().Text();
  }
  EXPECT_EQ(place, "generated/ddr/impl/ddr_Ddb12");
  EXPECT_EQ(key, "Model-1");
}

TEST(OmuExceptions, TheKeyIsSharedWithNoOtherText) {
  cow_String const key(std::string(100, 'k'));
  omu_AccessErrorException const exception(key);
  EXPECT_EQ(key.ShareCount(), 1U);
  EXPECT_EQ(exception.Key(), key);
}

} // namespace
