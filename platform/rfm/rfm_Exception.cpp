// rfm_Exception.cpp: the exception of database files.
#include "rfm_Exception.h"

rfm_Exception::rfm_Exception(rfm_ErrorKind kind, std::string const& text)
    : nex_TextException(text), errorKind(kind) {}

rfm_Exception::~rfm_Exception() = default;
