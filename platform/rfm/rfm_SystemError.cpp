// rfm_SystemError.cpp: the system's answers.
#include "rfm_SystemError.h"

#include <cerrno>
#include <new>
#include <system_error>

rfm_SystemError rfm_systemError(int number) {
  if (number == ENOMEM) {
    throw std::bad_alloc();
  }
  return rfm_errorOfDone(number);
}

rfm_SystemError rfm_errorOfDone(int number) {
  rfm_SystemError error{rfm_ErrorKind::Other, std::generic_category().message(number), nullptr};
  switch (number) {
  case ENOSPC:
    error.kind = rfm_ErrorKind::Full;
    error.remedy = "Make room on the device";
    error.isOfSpace = true;
    break;
  case EDQUOT:
    error.kind = rfm_ErrorKind::Full;
    error.remedy = "Make room, or ask for a larger quota";
    error.isOfSpace = true;
    break;
  case EFBIG:
    error.kind = rfm_ErrorKind::Full;
    error.remedy = "Raise the limit of the size of files";
    error.isOfSpace = true;
    break;
  case EROFS:
    error.kind = rfm_ErrorKind::ReadOnly;
    error.remedy = "Make the medium writable";
    error.isOfRights = true;
    break;
  case EACCES:
  case EPERM:
    error.kind = rfm_ErrorKind::NoPermission;
    error.remedy = "Check the permissions of the file and of its folder";
    error.isOfRights = true;
    break;
  case EMFILE:
  case ENFILE:
    error.remedy = "Close other files";
    break;
  case ENAMETOOLONG:
    error.remedy = "Choose a shorter name";
    break;
  case ENOENT:
    error.remedy = "Check the name";
    break;
  default:
    break;
  }
  return error;
}

std::string rfm_advice(rfm_SystemError const& error, char const* usual, char const* next) {
  return std::string(error.remedy ? error.remedy : usual) + ", " + next;
}
