// The exceptions of the system.
#include "cow_String.h"
#include "nex_Exception.h"

#include <gtest/gtest.h>

#include <exception>
#include <string>
#include <thread>
#include <type_traits>

namespace {

static_assert(std::is_base_of_v<std::exception, nex_Exception>);
static_assert(std::is_nothrow_copy_constructible_v<nex_TextException>);
static_assert(std::is_nothrow_copy_constructible_v<nex_AssertException>);
static_assert(!std::is_base_of_v<nex_TextException, nex_AssertException>);
static_assert(!std::is_base_of_v<nex_AssertException, nex_TextException>);

constexpr char const* source = "generated/ddr/impl/ddr_Root";

// What a catcher of type Caught learns.
template <typename Caught, typename Thrown>
std::string caught(Thrown const& thrown) {
  try {
    nex_Exception::Throw(thrown, source, 161);
  } catch (Caught const& exception) {
    return std::string(exception.SourcePath()) + ":" + std::to_string(exception.Line()) + ": " +
           exception.what();
  } catch (...) {
    return "other";
  }
}

TEST(Exception, CarriesTextSourceAndLine) {
  EXPECT_EQ(caught<nex_TextException>(nex_TextException("Class registrar not initialized")),
            "generated/ddr/impl/ddr_Root:161: Class registrar not initialized");
}

TEST(Exception, IsThrownAsWhatItIs) {
  EXPECT_EQ(caught<nex_AssertException>(nex_AssertException("n > 0")),
            "generated/ddr/impl/ddr_Root:161: n > 0");
  EXPECT_EQ(caught<nex_TextException>(nex_AssertException("n > 0")), "other");
  EXPECT_EQ(caught<nex_AssertException>(nex_TextException("text")), "other");
}

TEST(Exception, IsCaughtAsItsBase) {
  EXPECT_EQ(caught<nex_Exception>(nex_TextException("text")), "generated/ddr/impl/ddr_Root:161: text");
}

TEST(Exception, IsCaughtAsTheStandardBase) {
  std::string text;
  try {
    nex_Exception::Throw(nex_AssertException("n > 0"), source, 1);
  } catch (std::exception const& exception) {
    text = exception.what();
  }
  EXPECT_EQ(text, "n > 0");
}

TEST(Exception, TakesEveryKindOfText) {
  std::string const longText(3000, 'x');
  EXPECT_STREQ(nex_TextException("literal").what(), "literal");
  EXPECT_EQ(nex_TextException(longText).what(), longText);
  EXPECT_STREQ(nex_TextException(cow_String("counted")).what(), "counted");
  EXPECT_STREQ(nex_AssertException(cow_String("counted")).what(), "counted");
  EXPECT_STREQ(nex_AssertException(std::string("built")).what(), "built");
  EXPECT_STREQ(nex_TextException(cow_String()).what(), "");
}

TEST(Exception, HasNoPlaceUntilItIsRaised) {
  nex_TextException const exception("text");
  EXPECT_STREQ(exception.SourcePath(), "");
  EXPECT_EQ(exception.Line(), 0);
}

TEST(Exception, ACopyOutlivesTheOriginal) {
  std::string text;
  {
    nex_TextException copy("former");
    {
      nex_TextException const original(std::string(100, 'y'));
      copy = original;
    }
    text = copy.what();
  }
  EXPECT_EQ(text, std::string(100, 'y'));
}

TEST(Exception, IsRethrownUnchanged) {
  std::string text;
  int line = 0;
  try {
    try {
      nex_Exception::Throw(nex_TextException("text"), source, 7);
    } catch (nex_Exception const&) {
      throw;
    }
  } catch (nex_TextException const& exception) {
    text = exception.what();
    line = exception.Line();
  }
  EXPECT_EQ(text, "text");
  EXPECT_EQ(line, 7);
}

TEST(Exception, PassesToAnotherThread) {
  std::exception_ptr carried;
  std::thread([&carried] {
    try {
      nex_Exception::Throw(nex_TextException(cow_String(std::string(100, 'z'))), source, 9);
    } catch (...) {
      carried = std::current_exception();
    }
  }).join();
  std::string text;
  try {
    std::rethrow_exception(carried);
  } catch (nex_TextException const& exception) {
    text = exception.what();
  }
  EXPECT_EQ(text, std::string(100, 'z'));
}

} // namespace
