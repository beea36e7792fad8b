// Shortcuts beside the same look-ups done by hand; their scripting paths; copying them.
#include "cls_MetadataRegistrar.h"
#include "ddr_Library.h"
#include "ddr_Root.h"
#include "ddr_Shortcut.h"

#include <cstdio>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <unistd.h>

namespace {

constexpr int modelCount = 10000;
constexpr std::size_t sampleCount = 1024;

/// Starts the module for as long as it lives.
class Module {
public:
  Module() { ddr_initialize(libraries); }
  ~Module() { ddr_finalize(libraries); }
  Module(Module const&) = delete;
  Module& operator=(Module const&) = delete;

private:
  int libraries = 0;
};

/// A name as databases have them: time, file, and blanks up to 2048 byte.
cow_String persistentName(int number) {
  std::string name = "2026/11/21 08:00:00 /data/jobs/job-" + std::to_string(number) + ".odb";
  name.resize(ddr_Root::PERS_STRING_PAD, ' ');
  return cow_String(name);
}

cow_String modelName(int number) {
  return cow_String("Model-" + std::to_string(number));
}

/// One place to look for: the names, as a host keeps them, and the shortcut.
struct Sample {
  cow_String database;
  cow_String model;
  ddr_ModelShortcut shortcut;
};

/// Databases that share their 10,000 models, and what is looked for in them.
struct Scene {
  explicit Scene(int databaseCount) {
    ddr_Ddb first(persistentName(0), "", "");
    for (int number = 0; number < modelCount; ++number) {
      first.models.Insert(modelName(number), ddr_Model("", modelName(number)));
    }
    for (int number = 0; number < databaseCount; ++number) {
      databases.Insert(persistentName(number), first);
    }
    std::mt19937 random(1);
    for (std::size_t index = 0; index < sampleCount; ++index) {
      cow_String const database =
          persistentName(static_cast<int>(random() % static_cast<unsigned>(databaseCount)));
      cow_String const model = modelName(static_cast<int>(random() % modelCount));
      ddr_ModelContainerShortcut const models(
          new ddr_ModelContainerInDdbShortcut(ddr_DdbShortcut(new ddr_DdbShortcutImpl(database))));
      samples.push_back(
          {database, model, ddr_ModelShortcut(new ddr_ModelInModelContainerShortcut(model, models))});
    }
  }
  Sample const& Next() noexcept { return samples[next++ % sampleCount]; }

  ddr_DdbContainer databases;
  std::vector<Sample> samples;
  std::size_t next = 0;
};

void resolve_for_reading(benchmark::State& state) {
  Module const module;
  Scene scene(static_cast<int>(state.range(0)));
  for (auto unused : state) {
    benchmark::DoNotOptimize(&scene.Next().shortcut.ConstGet(scene.databases));
  }
}

void by_hand_for_reading(benchmark::State& state) {
  Module const module;
  Scene scene(static_cast<int>(state.range(0)));
  for (auto unused : state) {
    Sample const& sample = scene.Next();
    benchmark::DoNotOptimize(&scene.databases.ConstGet(sample.database).models.ConstGet(sample.model));
  }
}

// For writing each way has a container of its own: the first visit of a record copies what is shared.
void resolve_for_writing(benchmark::State& state) {
  Module const module;
  Scene scene(static_cast<int>(state.range(0)));
  for (Sample const& sample : scene.samples) {
    benchmark::DoNotOptimize(&sample.shortcut.Get(scene.databases));
  }
  for (auto unused : state) {
    benchmark::DoNotOptimize(&scene.Next().shortcut.Get(scene.databases));
  }
}

void by_hand_for_writing(benchmark::State& state) {
  Module const module;
  Scene scene(static_cast<int>(state.range(0)));
  for (Sample const& sample : scene.samples) {
    benchmark::DoNotOptimize(&sample.shortcut.Get(scene.databases));
  }
  for (auto unused : state) {
    Sample const& sample = scene.Next();
    ddr_ModelContainer& models = scene.databases.Get(sample.database).models;
    benchmark::DoNotOptimize(&models.Get(sample.model));
  }
}

/// A folder that goes away with what is in it.
class Folder {
public:
  Folder() : path("shortcuts-bench-" + std::to_string(getpid())) { std::filesystem::create_directory(path); }
  ~Folder() { std::filesystem::remove_all(path); }
  Folder(Folder const&) = delete;
  Folder& operator=(Folder const&) = delete;
  std::string const path;
};

/// A database in a real file, for paths.
class OpenDatabase {
public:
  OpenDatabase() {
    ddr_Root& root = ddr_Root::Instance();
    root.SetClassRegistrar(omi_Singleton<cls_MetadataRegistrar>::Instance().MakeClassRegistrar());
    cow_String const file(folder.path + "/job-1.odb");
    root.CreateDdb(file, "");
    name = root.GetPersistentName(file); // always 2048 byte
  }
  ddr_ModelShortcut Shortcut(cow_String const& model) const {
    ddr_ModelContainerShortcut const models(
        new ddr_ModelContainerInDdbShortcut(ddr_DdbShortcut(new ddr_DdbShortcutImpl(name))));
    return ddr_ModelShortcut(new ddr_ModelInModelContainerShortcut(model, models));
  }

private:
  Module const module;
  Folder const folder;
  cow_String name;
};

void python_path(benchmark::State& state) {
  OpenDatabase const database;
  ddr_ModelShortcut const shortcut = database.Shortcut("Model-1");
  for (auto unused : state) {
    benchmark::DoNotOptimize(shortcut.PythonPath());
  }
}

void python_path_long_model_name(benchmark::State& state) {
  OpenDatabase const database;
  ddr_ModelShortcut const shortcut = database.Shortcut(cow_String(std::string(2048, 'm')));
  for (auto unused : state) {
    benchmark::DoNotOptimize(shortcut.PythonPath());
  }
}

void copy_shortcut(benchmark::State& state) {
  Module const module;
  Scene scene(1);
  ddr_ModelShortcut const& shortcut = scene.Next().shortcut;
  for (auto unused : state) {
    ddr_ModelShortcut const copy(shortcut);
    benchmark::DoNotOptimize(&copy);
  }
}

BENCHMARK(resolve_for_reading)->Arg(1)->Arg(100)->Arg(10000);
BENCHMARK(by_hand_for_reading)->Arg(1)->Arg(100)->Arg(10000);
BENCHMARK(resolve_for_writing)->Arg(1)->Arg(100)->Arg(10000);
BENCHMARK(by_hand_for_writing)->Arg(1)->Arg(100)->Arg(10000);
BENCHMARK(python_path);
BENCHMARK(python_path_long_model_name);
BENCHMARK(copy_shortcut);

} // namespace
