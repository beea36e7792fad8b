// rfm_SystemError: what the system's answers to calls on files mean to a user.
#pragma once

#include "rfm_Exception.h"

#include <string>

/// One answer of the system.
struct rfm_SystemError {
  rfm_ErrorKind kind;      ///< Other unless it is of a kind of its own
  std::string words;       ///< "Input/output error", as the system says it
  char const* remedy;      ///< what helps, to go on with ", then try again"; null: nothing special
  bool isOfSpace = false;  ///< no room, for this file or this user
  bool isOfRights = false; ///< the file or its medium is kept from being written
};

/// @param number as errno has it; 0 when the system gave no reason
/// @throws std::bad_alloc for want of memory, which is no failure of the file
rfm_SystemError rfm_systemError(int number);
/// The same where what was asked for is done, or may be, and words must say so: want of memory too.
rfm_SystemError rfm_errorOfDone(int number);

/// The remedy with what to do after it.
/// @param usual the remedy of an error without one
/// @param next "then try again"
std::string rfm_advice(rfm_SystemError const& error, char const* usual, char const* next);
