// ddr_ModuleTest: a running module with an empty folder, and the verbs that its tests use.
#pragma once

#include "cls_MetadataRegistrar.h"
#include "ddr_Library.h"
#include "ddr_Root.h"
#include "os_Recorder.h"
#include "os_Runtime.h"
#include "temporary_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using Texts = std::vector<std::string>;

/// The exception of type E that the work throws. Fails the test when there is none.
template <class E, class Work>
E caught(Work const& work) {
  try {
    work();
  } catch (E const& exception) {
    return exception;
  }
  throw std::logic_error("nothing was thrown");
}

/// Where an exception says that it was raised: "path:line".
inline std::string placeOf(nex_Exception const& exception) {
  return std::string(exception.SourcePath()) + ":" + std::to_string(exception.Line());
}

/// One call that the observer has seen.
struct Call {
  std::string name;
  unsigned number;
  friend bool operator==(Call const&, Call const&) = default;
  friend std::ostream& operator<<(std::ostream& stream, Call const& call) {
    return stream << call.name << " " << call.number;
  }
};

/// Sees every recorded call of the platform while it lives.
class CallRecorder {
public:
  CallRecorder() {
    os_setCallObserver(
        [](char const* call, unsigned number, void* context) {
          static_cast<std::vector<Call>*>(context)->push_back({call, number});
        },
        &calls);
  }
  ~CallRecorder() { os_setCallObserver(nullptr, nullptr); }
  CallRecorder(CallRecorder const&) = delete;
  CallRecorder& operator=(CallRecorder const&) = delete;

  /// Names of the calls that match, in order.
  Texts Names(std::function<bool(Call const&)> const& wanted) const {
    Texts names;
    for (Call const& call : calls) {
      if (wanted(call)) {
        names.push_back(call.name);
      }
    }
    return names;
  }

  std::vector<Call> calls;
};

/// The module with its classes installed in this thread's registry, and a folder for its files.
class ddr_ModuleTest : public ::testing::Test {
protected:
  ddr_ModuleTest() {
    ddr_initialize(libraries);
    installClasses();
  }
  ~ddr_ModuleTest() override {
    os_runtimeCalls() = os_RuntimeCalls();
    ddr_finalize(libraries);
  }

  static ddr_Root& root() { return ddr_Root::Instance(); }
  static void installClasses() {
    root().SetClassRegistrar(omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar());
  }

  cow_String path(std::string const& name) const { return cow_String(folder.path(name)); }

  /// Makes a database and saves it once.
  /// @return its persistent name
  cow_String createSaved(std::string const& name) {
    cow_String const made = create(name);
    save(made);
    return made;
  }
  cow_String create(std::string const& name, std::string const& description = "a description") {
    root().CreateDdb(path(name), cow_String(description));
    return root().GetPersistentName(path(name));
  }
  static void save(cow_String const& database, bool stamp = true) { root().SaveDdb(database, stamp); }
  static void close(cow_String const& database) { root().CloseDdb(database); }
  cow_String open(std::string const& name, utl_FileAccess access = utl_FileAccess::Write,
                  cow_String const& newName = cow_String()) {
    return root().OpenDdb(rfm_File::Open(path(name), access, true), newName);
  }
  /// Closes and opens again, so that everything is read anew.
  cow_String reopen(cow_String const& database, std::string const& name) {
    close(database);
    return open(name);
  }
  static ddr_Ddb const& record(cow_String const& database) { return root().Fetch().ConstGet(database); }
  /// Changes a record the way hosts do: through a copy of the container that is given back.
  static void change(cow_String const& database, std::function<void(ddr_Ddb&)> const& work) {
    ddr_DdbContainer copy = root().Fetch();
    work(copy.Get(database));
    root().Replace(copy);
  }
  void addModels(cow_String const& database, Texts const& names) {
    change(database, [&](ddr_Ddb& changed) {
      for (std::string const& name : names) {
        changed.models.Insert(cow_String(name), ddr_Model(changed.GetDbId(), cow_String(name)));
      }
    });
  }
  static Texts modelNames(ddr_Ddb const& database) {
    Texts names;
    cls_Map2ObjIter<cow_String, ddr_Model, cow_ArrayCOW<ddr_Model, cow_Virtual<ddr_Model>>> walk(
        database.models);
    for (walk.First(); !walk.AtEnd(); walk.Next()) {
      names.emplace_back(walk.Key().Text());
    }
    return names;
  }
  template <class Collection>
  static Texts keysOf(Collection const& collection) {
    Texts names;
    for (cow_String const& key : collection.ConstGetMap().Keys()) {
      names.emplace_back(key.Text());
    }
    return names;
  }

  /// Fixes the clock, and the zone to Greenwich.
  static void setClock(std::int64_t seconds) {
    clock() = seconds;
    os_runtimeCalls().time64 = [](std::int64_t* taken) {
      if (taken != nullptr) {
        *taken = clock();
      }
      return clock();
    };
    os_runtimeCalls().localtime64 = [](std::int64_t const* moment) {
      static thread_local std::tm broken;
      std::time_t const time = *moment;
      return gmtime_r(&time, &broken);
    };
  }

  int libraries = 0;
  temporary_folder folder;

private:
  static std::int64_t& clock() {
    static std::int64_t now = 0;
    return now;
  }
};
