// simulation_world: a thread's registry and the plain model of it, step by step.
#pragma once

#include "module_client.h"
#include "simulation_ground.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

/// A host of the module that does what dice say, and demands after each step that the registry, the files and
/// the outcome are what the plain model says. A claim that does not hold is thrown as std::runtime_error.
class simulation_world {
public:
  simulation_world(simulation_ground& shared, unsigned itsNumber);
  ~simulation_world();
  simulation_world(simulation_world const&) = delete;
  simulation_world& operator=(simulation_world const&) = delete;

  void step();

private:
  enum class Ending { Done, Refused, Failed };
  using Texts = std::vector<std::string>;
  // Parts of texts of which one is said by a call that must be refused; none for a call that must succeed,
  // nothing for one that may end either way. Asked when the call has returned.
  using Expected = std::function<std::optional<Texts>()>;

  // One call of the module on a file, with a fault or in turns with other worlds, or with a fault once others
  // have had their turn. A failure that is not expected names the file, or the one that the work reads, if
  // any.
  Ending attempt(plain_file& file, std::string const& what, bool inTurns, Expected const& expected,
                 std::function<void()> const& work, std::string const& source = {});
  device_fault drawFault();
  // The files, as messages name them, whose calls have just failed; the folder belongs to the one of the
  // call.
  Texts filesThatFailed(plain_file const& file) const;
  // Whether a call that failed has reached the file all the same; the file is what it was before, or `after`.
  bool hasLanded(plain_file const& file, std::optional<plain_record> const& after);
  void replaced(plain_file& file, std::optional<plain_record> const& record);

  void create();
  void open();
  void openUnderNewName();
  void change();
  void keepCopy();
  void giveCopyBack();
  void takeModelsOver();
  void save();
  void saveBesideAnother();
  void close();
  void repairNames();
  void upgrade();
  void check();
  void resolve();
  void readAgain();

  void openFor(utl_FileAccess access, std::string const& newName);
  void openedWhileItChanged(plain_file const& file, plain_file const& before, std::string const& name,
                            bool readOnly);
  plain_database fresh(plain_file const& file, plain_record const& record, bool readOnly) const;
  Texts refusalToOpen(plain_file const& file, bool readOnly) const;
  Texts refusalToSave(plain_way const& way) const;
  void closeOne(std::string const& given);
  void saveOne(std::string const& name);
  void changeOne(ddr_Ddb& record, plain_record& model);

  plain_file& anyFile() { return ground.files[ground.dice.below(ground.files.size())]; }
  std::string anyKey() { return std::string(1, static_cast<char>('A' + ground.dice.below(8))); }
  std::string const& anyName(plain_registry::Databases const& databases);
  void requireFile(plain_file const& file);
  void requireSame();
  void requireSame(ddr_DdbContainer const& found, plain_registry::Databases const& expected);
  void require(bool holds, std::string const& claim) const;

  simulation_ground& ground;
  unsigned number;
  module_client client;
  std::unique_ptr<cls_ClassRegistrar> classes;
  plain_registry plain;
  bool isShaken = false; // whether a fault has met the last call or, meanwhile, others on its file
  std::optional<std::pair<ddr_DdbContainer, plain_registry::Databases>> kept; // a copy and what it holds
};
