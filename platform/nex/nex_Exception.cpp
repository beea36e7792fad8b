// nex_Exception.cpp: the exceptions of the system.
#include "nex_Exception.h"

#include "cow_String.h"

nex_Exception::nex_Exception(std::string text)
    : sharedText(std::make_shared<std::string const>(std::move(text))) {}

nex_Exception::~nex_Exception() = default;

char const* nex_Exception::what() const noexcept {
  return sharedText->c_str();
}

nex_TextException::nex_TextException(std::string text) : nex_Exception(std::move(text)) {}

nex_TextException::nex_TextException(cow_String const& text) : nex_Exception(text.Text()) {}

nex_TextException::nex_TextException(char const* text) : nex_Exception(text) {}

nex_TextException::~nex_TextException() = default;

nex_AssertException::nex_AssertException(std::string text) : nex_Exception(std::move(text)) {}

nex_AssertException::nex_AssertException(cow_String const& text) : nex_Exception(text.Text()) {}

nex_AssertException::nex_AssertException(char const* text) : nex_Exception(text) {}

nex_AssertException::~nex_AssertException() = default;
