// Databases are created, changed, saved, closed and opened again beside a plain model of two files.
#include "fuzz_script.h"
#include "hasty_files.h"

#include "database_test.h"

#include <array>
#include <map>
#include <optional>
#include <unistd.h>

namespace {

constexpr unsigned fileCount = 2;
constexpr unsigned nameCount = 6;
constexpr std::size_t mostSteps = 60;

/// What a database holds.
struct Plain {
  std::map<std::string, std::string> models;   // name to note
  std::map<std::string, std::string> results;  // name to identity
  std::map<std::string, std::string> userData; // name to identity
  std::string description;

  std::string text() const {
    std::string all;
    for (auto const& [name, note] : models) {
      all += name + "=" + (note.empty() ? "-" : note + "/" + note) + " ";
    }
    all += "|";
    for (auto const& [name, uid] : results) {
      all += " " + name + "#" + uid;
    }
    all += " |";
    for (auto const& [name, uid] : userData) {
      all += " " + name + "#" + uid;
    }
    return all + " | " + description + " |";
  }
};

/// One file, and the database in memory that was created in it or opened from it.
struct File {
  std::string fileName;
  bool exists = false;
  std::optional<Plain> stored; // the last save
  std::optional<Plain> memory; // while it is open
  bool readOnly = false;
  cow_String name;
};

class Play : public database_test {
public:
  void TestBody() override {}

  Play() {
    for (unsigned index = 0; index < fileCount; ++index) {
      files[index].fileName = numbered("file", index);
    }
  }

  void Run(fuzz_script script) {
    for (std::size_t step = 0; step < mostSteps && !script.AtEnd(); ++step) {
      File& file = files[script.Below(fileCount)];
      unsigned const operation = script.Below(16);
      if (file.memory) {
        Change(file, operation, script);
      } else {
        Begin(file, operation);
      }
      RequireSame();
    }
    for (File& file : files) {
      if (file.memory) {
        close(file.name);
      }
      RequireStored(file);
      unlink(folder.path(file.fileName).c_str());
      std::string const fileName = file.fileName;
      file = File();
      file.fileName = fileName;
    }
    fuzz_require(root().Fetch().Size() == 0, "closed databases leave the registry");
    fuzz_require(folder.names().empty(), "nothing is left beside the files");
  }

private:
  static std::string ShortUid(cls_Uid const& uid) { return uid.Text().substr(22); }
  static cow_String Key(fuzz_script& script) { return cow_String(numbered("N", script.Below(nameCount))); }

  void Begin(File& file, unsigned operation) {
    if (operation < 6 || !file.exists) {
      root().CreateDdb(pathOf(file.fileName), "new");
      file.name = root().GetPersistentName(pathOf(file.fileName));
      file.exists = true;
      file.stored.reset();
      file.memory = Plain{{}, {}, {}, "new"};
      file.readOnly = false;
    } else if (!file.stored) {
      fuzz_require(failureOf([&] { open(file.fileName); }).find(folder.path(file.fileName)) !=
                       std::string::npos,
                   "a file without a record is refused by name");
    } else {
      file.readOnly = operation > 13;
      file.name = open(file.fileName, file.readOnly ? utl_FileAccess::Read : utl_FileAccess::Write);
      file.memory = file.stored;
    }
  }

  void Change(File& file, unsigned operation, fuzz_script& script) {
    Plain& memory = *file.memory;
    cow_String const key = Key(script);
    std::string const plainKey = key.Text();
    switch (operation) {
    case 0:
    case 1:
    case 2: {
      std::string const note = numbered("n", script.Byte());
      writeModel(file.name, plainKey, note);
      memory.models[plainKey] = note;
      break;
    }
    case 3:
    case 4:
      edit(file.name, [&](ddr_Ddb& record) {
        fuzz_require(record.models.Remove(key) == (memory.models.erase(plainKey) == 1),
                     "removing a model tells whether it was there");
      });
      break;
    case 5: {
      ddr_Result const result;
      edit(file.name, [&](ddr_Ddb& record) { record.results.Insert(key, result); });
      memory.results[plainKey] = ShortUid(result.GetUid());
      break;
    }
    case 6:
      edit(file.name, [&](ddr_Ddb& record) { record.results.Remove(key); });
      memory.results.erase(plainKey);
      break;
    case 7: {
      ddr_UserData const userData;
      edit(file.name, [&](ddr_Ddb& record) { record.userData.Insert(key, userData); });
      memory.userData[plainKey] = ShortUid(userData.GetUid());
      break;
    }
    case 8:
      edit(file.name, [&](ddr_Ddb& record) { record.SetDescription(key); });
      memory.description = plainKey;
      break;
    case 9: { // the same model under another name
      cow_String const other = Key(script);
      if (memory.models.contains(plainKey)) {
        edit(file.name, [&](ddr_Ddb& record) {
          ddr_Model const kept = record.models.ConstGet(key);
          record.models.Insert(other, kept);
        });
        memory.models[other.Text()] = memory.models[plainKey];
      }
      break;
    }
    case 10: { // a copy that is changed and forgotten
      ddr_DdbContainer copy = root().Fetch();
      copy.Get(file.name).models.Remove(key);
      copy.Get(file.name).results.Insert(key, ddr_Result());
      break;
    }
    case 11:
      record(file.name).models.Release();
      break;
    case 12:
      Resolve(file, key);
      break;
    case 13:
    case 14:
      Save(file);
      break;
    default:
      close(file.name);
      file.memory.reset();
      break;
    }
  }

  void Save(File& file) {
    if (file.readOnly) {
      fuzz_require(failureOf([&] { save(file.name); }) != "nothing",
                   "a file opened for reading is not saved to");
      return;
    }
    save(file.name);
    file.stored = file.memory;
    RequireStored(file);
  }

  void Resolve(File const& file, cow_String const& key) {
    ddr_ModelContainerShortcut const models(
        new ddr_ModelContainerInDdbShortcut(ddr_DdbShortcut(new ddr_DdbShortcutImpl(file.name))));
    ddr_ModelShortcut const model(new ddr_ModelInModelContainerShortcut(key, models));
    fuzz_require(models.ConstGet(root().Fetch()).Size() == static_cast<int>(file.memory->models.size()),
                 "a shortcut leads to the collection");
    bool const isThere = failureOf([&] { model.ConstGet(root().Fetch()); }) == "nothing";
    fuzz_require(isThere == file.memory->models.contains(key.Text()),
                 "a shortcut finds the models that there are");
  }

  void RequireSame() {
    for (File const& file : files) {
      if (file.memory) {
        std::string const found = contents(file.name);
        std::string const expected = file.memory->text();
        fuzz_require(found == expected, "in memory\n  " + found + " is\n  " + expected);
      }
    }
  }

  void RequireStored(File const& file) const {
    if (file.stored) {
      std::string const found = stored(file.fileName);
      std::string const expected = file.stored->text();
      fuzz_require(found == expected, "in the file\n  " + found + " is\n  " + expected);
    }
  }

  std::array<File, fileCount> files;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static Play& play = [&]() -> Play& {
    use_hasty_files();
    static Play made;
    return made;
  }();
  play.Run(fuzz_script(data, size));
  return 0;
}
