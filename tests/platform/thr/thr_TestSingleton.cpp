// thr_TestSingleton.cpp: the shared library's side.
#include "thr_TestSingleton.h"

template class thr_ThreadSingletonBase<TestSingleton>;
template class thr_ThreadSingleton<TestSingleton>;

TestSingleton* testSingletonOfTheOtherLibrary() {
  return &thr_ThreadSingleton<TestSingleton>::Instance();
}

thr_SlotState const* testSlotStateOfTheOtherLibrary() {
  return &TestSingleton::SlotState();
}

bool releaseTestSingletonOfTheOtherLibrary() {
  return thr_ThreadSingleton<TestSingleton>::Release();
}
