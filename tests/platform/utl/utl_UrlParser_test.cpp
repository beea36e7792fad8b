// Network addresses and file names.
#include "cow_String.h"
#include "utl_FileAccess.h"
#include "utl_UrlParser.h"

#include <gtest/gtest.h>

namespace {

TEST(UrlParser, KnowsAddressesByTheirScheme) {
  EXPECT_TRUE(utl_UrlParser::IsUrl("http://host/job.odb"));
  EXPECT_TRUE(utl_UrlParser::IsUrl("HTTPS://host"));
  EXPECT_TRUE(utl_UrlParser::IsUrl("file:///tmp/job.odb"));
  EXPECT_TRUE(utl_UrlParser::IsUrl("x-odb+2.1://host:80"));
  EXPECT_TRUE(utl_UrlParser::IsUrl("ftp://"));
}

TEST(UrlParser, FileNamesAreNoAddresses) {
  EXPECT_FALSE(utl_UrlParser::IsUrl(""));
  EXPECT_FALSE(utl_UrlParser::IsUrl("job-1.odb"));
  EXPECT_FALSE(utl_UrlParser::IsUrl("/data/job-1.odb"));
  EXPECT_FALSE(utl_UrlParser::IsUrl("C:\\data\\job-1.odb"));
  EXPECT_FALSE(utl_UrlParser::IsUrl("host:/data"));
  EXPECT_FALSE(utl_UrlParser::IsUrl("http:/host"));
}

TEST(UrlParser, ADriveLetterIsNoScheme) {
  EXPECT_FALSE(utl_UrlParser::IsUrl("C://data/job-1.odb"));
}

TEST(UrlParser, ASchemeStandsAtTheBeginningAndHoldsNoOtherCharacters) {
  EXPECT_FALSE(utl_UrlParser::IsUrl("://host"));
  EXPECT_FALSE(utl_UrlParser::IsUrl("/data/http://host"));
  EXPECT_FALSE(utl_UrlParser::IsUrl(" http://host"));
  EXPECT_FALSE(utl_UrlParser::IsUrl("2http://host"));
  EXPECT_FALSE(utl_UrlParser::IsUrl("ht_tp://host"));
}

TEST(FileAccess, CodesAreFixed) {
  EXPECT_EQ(static_cast<int>(utl_FileAccess::Read), 0);
  EXPECT_EQ(static_cast<int>(utl_FileAccess::Write), 1);
  EXPECT_EQ(static_cast<int>(utl_FileAccess::Create), 2);
  EXPECT_EQ(static_cast<int>(utl_FileAccess::CreateNew), 3);
}

} // namespace
