#include "omu_Shortcut.h"

omu_ShortcutBase::~omu_ShortcutBase() = default;
omu_ShortcutImpl::~omu_ShortcutImpl() = default;

cow_String omu_ShortcutImpl::PythonPath() const {
  return Path();
}
