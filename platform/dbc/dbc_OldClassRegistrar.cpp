#include "dbc_OldClassRegistrar.h"

#include "os_Recorder.h"

dbc_OldClassVersion::~dbc_OldClassVersion() = default;

template <>
dbc_OldClassRegistrar& omi_Singleton<dbc_OldClassRegistrar>::Instance() {
  static dbc_OldClassRegistrar theRegistrar;
  return theRegistrar;
}

void dbc_OldClassRegistrar::Register(Holder* version, unsigned tag) {
  os_recordCall("dbc_OldClassRegistrar::Register", tag);
  versions.push_back({std::unique_ptr<Holder>(version), tag});
}
