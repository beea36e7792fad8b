// rfm_Exception.cpp: the exception of database files.
#include "rfm_Exception.h"

rfm_Exception::rfm_Exception(rfm_ErrorKind kind, std::string const& where, std::string const& what,
                             std::string const& advice)
    : nex_TextException(where + ": " + what + ". " + advice + "."),
      pieces(std::make_shared<Pieces const>(Pieces{where, what, advice})), errorKind(kind) {}

rfm_Exception::~rfm_Exception() = default;
