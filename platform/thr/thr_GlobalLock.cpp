// thr_GlobalLock.cpp: the process's one global lock.
#include "thr_GlobalLock.h"

void thr_GlobalLock::Lock() {
  mutex.lock();
}

void thr_GlobalLock::Unlock() {
  mutex.unlock();
}

// Never destroyed: threads that outlive the static objects still release their singletons under it.
template <>
thr_GlobalLock& omi_Singleton<thr_GlobalLock>::Instance() {
  static thr_GlobalLock* const one = new thr_GlobalLock;
  return *one;
}
