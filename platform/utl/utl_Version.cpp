// utl_Version.cpp: the edition of the product that is running.
#include "utl_Version.h"

template <>
utl_Version& omi_Singleton<utl_Version>::Instance() {
  static utl_Version one; // nothing to destroy: good until the process has ended
  return one;
}
