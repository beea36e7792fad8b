// memory_World: a running module and files in which calls run out of memory.
#pragma once

#include "memory_Call.h"
#include "shortcut_host.h"

#include <memory>
#include <string>
#include <vector>

/// A module that runs, and a folder with databases that every call finds anew: "a" holds something of every
/// kind, "b" a model. A model "B" has an extension of a class that nobody knows.
class memory_world : public reliability_test {
public:
  memory_world();
  ~memory_world() override;

  /// The one that there is; a test suite makes it.
  static memory_world& Instance() { return *current; }

  using reliability_test::closeAll;
  using reliability_test::image;
  using reliability_test::setImage;

  /// Makes the folder as it is found, and the registry empty.
  void restore();
  /// What is left behind beside the files: names in the folder, open descriptors, locks of this process.
  std::string traces() const;

private:
  void TestBody() override {}

  static memory_world* current;
  device_image found;
};

/// What the calls of a world are made on.
struct memory_subject {
  memory_subject() { world.restore(); }
  memory_subject(memory_subject const&) = delete;
  memory_subject& operator=(memory_subject const&) = delete;
  ~memory_subject() { world.closeAll(); }

  memory_world& world = memory_world::Instance();
};

/// Calls in a world.
class memory_world_test : public memory_test {
public:
  static void SetUpTestSuite() { world = std::make_unique<memory_world>(); }
  static void TearDownTestSuite() { world.reset(); }

private:
  static inline std::unique_ptr<memory_world> world;
};
