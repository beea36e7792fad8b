#include "dbc_OldClassRegistrar.h"

#include "os_Recorder.h"

#include <typeinfo>
#include <utility>

template <>
dbc_OldClassRegistrar& omi_Singleton<dbc_OldClassRegistrar>::Instance() {
  static dbc_OldClassRegistrar theRegistrar;
  return theRegistrar;
}

void dbc_OldClassRegistrar::Register(Holder* version, unsigned tag) {
  os_recordCall("dbc_OldClassRegistrar::Register", tag);
  Registered added{std::unique_ptr<Holder>(version), tag};
  versions.reserve(versions.size() + 1);
  // A module that starts again while this library stays up registers its layouts once more.
  std::erase_if(versions, [&](Registered const& kept) { return SameLayout(kept, added); });
  versions.push_back(std::move(added));
}

bool dbc_OldClassRegistrar::SameLayout(Registered const& one, Registered const& other) {
  dbc_OldClassVersion const* const first = one.holder == nullptr ? nullptr : one.holder->Peek();
  dbc_OldClassVersion const* const second = other.holder == nullptr ? nullptr : other.holder->Peek();
  return first != nullptr && second != nullptr && typeid(*first) == typeid(*second);
}
