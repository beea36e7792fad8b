// nex_Exception.h: the exceptions of the system.
#pragma once

#include "os_Export.h"

#include <concepts>
#include <exception>
#include <memory>
#include <string>
#include <utility>

class cow_String;

/// Base of everything that the system throws: a text and the place that raised it. Raised through Throw;
/// caught by const reference. Copies share the text and never throw. Derived classes keep their destructor
/// in one source file and are exported, so that a host catches them across shared libraries.
class DDR_API nex_Exception : public std::exception {
public:
  explicit nex_Exception(std::string text);
  nex_Exception(nex_Exception const&) noexcept = default;
  nex_Exception& operator=(nex_Exception const&) noexcept = default;
  ~nex_Exception() override;

  /// The text; lives as long as this exception or a copy of it.
  [[nodiscard]] char const* what() const noexcept override;

  /// The source that raised it, without an ending, as in "generated/ddr/impl/ddr_Root"; "" when it was not
  /// raised through Throw.
  [[nodiscard]] char const* SourcePath() const noexcept { return sourcePath; }
  /// [line from 1], 0 when it was not raised through Throw
  [[nodiscard]] int Line() const noexcept { return line; }

  /// Throws the exception with the place that raises it.
  /// @param sourcePath a literal; it is not copied
  template <std::derived_from<nex_Exception> E>
  [[noreturn]] static void Throw(E exception, char const* sourcePath, int line);

private:
  std::shared_ptr<std::string const> sharedText; // shared, so that copying cannot fail
  char const* sourcePath = "";
  int line = 0;
};

/// A condition that a user can cause; the text is for the user.
class DDR_API nex_TextException : public nex_Exception {
public:
  explicit nex_TextException(std::string text);
  explicit nex_TextException(cow_String const& text);
  explicit nex_TextException(char const* text);
  nex_TextException(nex_TextException const&) noexcept = default;
  nex_TextException& operator=(nex_TextException const&) noexcept = default;
  ~nex_TextException() override;
};

/// A broken invariant; the text is the condition that failed.
class DDR_API nex_AssertException : public nex_Exception {
public:
  explicit nex_AssertException(std::string text);
  explicit nex_AssertException(cow_String const& text);
  explicit nex_AssertException(char const* text);
  nex_AssertException(nex_AssertException const&) noexcept = default;
  nex_AssertException& operator=(nex_AssertException const&) noexcept = default;
  ~nex_AssertException() override;
};

// ---- template bodies ----

template <std::derived_from<nex_Exception> E>
void nex_Exception::Throw(E exception, char const* sourcePath, int line) {
  nex_Exception& base = exception;
  base.sourcePath = sourcePath;
  base.line = line;
  throw E(std::move(exception));
}
