// module_client: one client of the module, as each thread and each process of a host is one.
#pragma once

#include "database_test.h"

#include <string>

/// Starts the module and gives the calling thread's registry its classes; stops the module at its end.
/// Clients may come and go on many threads: starts and stops follow each other, the rest runs beside them.
class module_client {
public:
  module_client();
  ~module_client();
  module_client(module_client const&) = delete;
  module_client& operator=(module_client const&) = delete;

  static ddr_Root& root() { return ddr_Root::Instance(); }
  static ddr_Ddb const& record(cow_String const& name) { return root().Fetch().ConstGet(name); }

  /// Makes a database and saves it once. @returns its persistent name
  static cow_String create(std::string const& path);
  static cow_String open(std::string const& path, utl_FileAccess access = utl_FileAccess::Write);
  /// Changes a record in the way of hosts: a copy of the container, changed and given back.
  static void edit(cow_String const& name, std::function<void(ddr_Ddb&)> const& change);
  /// Adds or changes a model so that its note has that text.
  static void write_model(ddr_Ddb& record, std::string const& model, std::string const& text);
  static void save(cow_String const& name) { root().SaveDdb(name, true); }
  static void close(cow_String const& name) { root().CloseDdb(cow_String(name)); }
  /// The module's classes and those of notes.
  static std::unique_ptr<cls_ClassRegistrar> registrar();
};
