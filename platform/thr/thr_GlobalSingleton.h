// thr_GlobalSingleton.h: one object for all threads of the process.
#pragma once

/// `thr_GlobalSingleton<T>::Instance()` is the process's one T, whose calls may run on all threads at the
/// same time. As with omi_Singleton, T's header declares and T's source defines
///
///     template <> DDR_API T& thr_GlobalSingleton<T>::Instance();
template <typename T>
class thr_GlobalSingleton {
public:
  thr_GlobalSingleton() = delete;

  static T& Instance();
};
