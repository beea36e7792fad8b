// memory_Call: public calls, each of which must bear that any of its allocations fails.
#pragma once

#include "failing_memory.h"
#include "reliability_Workflow.h"

#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <initializer_list>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

/// Whether a call asks for memory at all.
enum class memory_need { Some, None };

/// One public call, and what it is made on.
struct memory_call {
  std::string name;
  /// Makes what the call is made on; always the same.
  std::function<std::shared_ptr<void>()> make;
  std::function<void(void*)> call;
  /// All that a user can see of what the call is made on, and of what the call has given.
  std::function<std::string(void*)> look;
  memory_need need = memory_need::Some;
};
inline std::ostream& operator<<(std::ostream& stream, memory_call const& call) {
  return stream << call.name;
}

/// The name of a call as that of a test.
std::string memory_testName(testing::TestParamInfo<memory_call> const& call);

/// A row of a table: the name of a call, and the call.
template <class Subject>
struct memory_row {
  char const* name;
  void (*call)(Subject&);
  memory_need need = memory_need::Some;
};

/// The calls on subjects of one kind.
/// \tparam Subject its default constructor makes what the calls are made on, look() says all of it.
template <class Subject>
std::vector<memory_call> memory_calls(std::initializer_list<memory_row<Subject>> rows) {
  std::vector<memory_call> calls;
  for (memory_row<Subject> const& row : rows) {
    calls.push_back({row.name, [] { return std::make_shared<Subject>(); },
                     [call = row.call](void* subject) { call(*static_cast<Subject*>(subject)); },
                     [](void* subject) { return static_cast<Subject*>(subject)->look(); }, row.need});
  }
  return calls;
}

/// What a call says that must be refused; whatever else it throws passes through.
template <class Refusal>
std::string memory_refusal(auto const& call) {
  try {
    call();
  } catch (Refusal const& refusal) {
    return refusal.what();
  }
  throw std::logic_error("not refused");
}

/// Which allocations of a call are made to fail: every one where as many are affordable, otherwise some, at
/// places that the seed chooses. DDR_MEMORY=all in the environment asks for every one, however many there
/// are.
class memory_places {
public:
  /// @param allocations that the call makes
  /// @param affordable how many of them may fail in an ordinary run
  /// @param affordableAtLength how many in a long one
  memory_places(std::uint64_t allocations, std::uint64_t affordable, std::uint64_t affordableAtLength,
                torture_share const& share);
  std::uint64_t first() const noexcept { return start; }
  std::uint64_t step() const noexcept { return stride; }

private:
  static bool meetsAll();

  std::uint64_t stride = 1;
  std::uint64_t start = 1;
};

/// Counts calls that were tried and allocations that failed.
void memory_tell(std::uint64_t calls, std::uint64_t failures);

/// Calls in small memory.
class memory_test : public testing::TestWithParam<memory_call> {
protected:
  /// Makes every allocation of the call fail, once and from then on: the object is what it was, nothing
  /// leaks, and the call succeeds when memory is back. There must be one, unless the row says that the call
  /// needs none.
  void failEach(std::uint64_t affordable);

private:
  bool failAt(std::uint64_t number, failing_memory::Lasting lasting);

  std::string before;
  std::string done;
};
