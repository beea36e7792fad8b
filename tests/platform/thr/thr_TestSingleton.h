// thr_TestSingleton.h: a per-thread singleton that a program and a shared library both use.
#pragma once

#include "os_Export.h"
#include "thr_ThreadSingleton.h"

class DDR_API TestSingleton : public thr_ThreadSingletonBase<TestSingleton> {
private:
  friend class thr_ThreadSingleton<TestSingleton>;

  TestSingleton() = default;
  ~TestSingleton() = default;
};

extern template class thr_ThreadSingletonBase<TestSingleton>;
extern template class thr_ThreadSingleton<TestSingleton>;

DDR_API TestSingleton* testSingletonOfTheOtherLibrary();
DDR_API thr_SlotState const* testSlotStateOfTheOtherLibrary();
DDR_API bool releaseTestSingletonOfTheOtherLibrary();
