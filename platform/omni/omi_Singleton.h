// omi_Singleton.h: the one way to reach an object of which a process has one.
#pragma once

/// `omi_Singleton<T>::Instance()` is the process's one T, made on first use. Only types whose header says so
/// have one: the header declares, and the type's own source defines,
///
///     template <> DDR_API T& omi_Singleton<T>::Instance();
///
/// so that there is one object however many shared libraries are loaded. Whether calls on it may run at the
/// same time, and when it ends, is T's matter.
template <typename T>
class omi_Singleton {
public:
  omi_Singleton() = delete;

  static T& Instance();
};
