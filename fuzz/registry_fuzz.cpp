// Databases are created, changed, saved, closed and opened again beside a plain model of two files, which
// hold a saved database at first.
#include "fuzz_script.h"
#include "hasty_files.h"
#include "quick_sqlite.h"

#include "database_test.h"
#include "rom_Memento.h"

#include <array>
#include <map>
#include <memory>
#include <optional>

namespace {

constexpr unsigned fileCount = 2;
constexpr unsigned nameCount = 6;
constexpr std::size_t mostSteps = 16;

/// What a database holds.
struct Plain {
  std::map<std::string, std::string> models;   // name to note
  std::map<std::string, std::string> results;  // name to identity
  std::map<std::string, std::string> userData; // name to identity
  std::string description;
  friend bool operator==(Plain const&, Plain const&) = default;

  /// A note as noteOf tells it.
  static std::string textOf(std::string const& note) { return note.empty() ? "-" : note + "/" + note; }

  std::string text() const {
    std::string all;
    for (auto const& [name, note] : models) {
      all += name + "=" + textOf(note) + " ";
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

/// One file, and the database in memory that was opened from it or created in it.
struct File {
  std::string fileName;
  Plain first;                 // what it holds before each script
  std::string firstBytes;      // and what its bytes were when it was made
  std::optional<Plain> stored; // the last save
  std::optional<Plain> memory; // while it is open
  cow_String name;
  std::unique_ptr<rom_Transporter> reader; // a user of its own; made when wanted
  int saves = 0;
  bool wasSaved = false;  // in this script
  bool wasClosed = false; // too
  bool readOnly = false;
};

/// Both databases are open when a script begins. What it does to them is undone by giving back a copy of the
/// registry's container from before, and by saving that; only files that a script has closed are made anew,
/// and from time to time those that have grown by many saves.
class Play : public database_test {
public:
  void TestBody() override {}

  Play() {
    for (unsigned index = 0; index < fileCount; ++index) {
      files[index].fileName = numbered("file", index);
      Make(files[index]);
    }
    before = root().Fetch();
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
    }
    for (File& file : files) {
      RequireSame(file);
      if (file.wasSaved && file.stored) {
        RequireStored(file);
      }
    }
    Undo();
  }

private:
  static std::string ShortUid(cls_Uid const& uid) { return uid.Text().substr(22); }
  static cow_String Key(fuzz_script& script) { return cow_String(numbered("N", script.Below(nameCount))); }

  void Make(File& file) {
    file.name = create(file.fileName);
    for (char const* const model : {"N0", "N1", "N2"}) {
      writeModel(file.name, model, model);
      file.first.models[model] = model;
    }
    ddr_Result const result;
    edit(file.name, [&](ddr_Ddb& record) { record.results.Insert("N1", result); });
    file.first.results["N1"] = ShortUid(result.GetUid());
    file.first.description = record(file.name).GetDescription().Text();
    save(file.name);
    close(file.name);
    file.firstBytes = readFile(folder.path(file.fileName));
    OpenAnew(file);
  }

  void OpenAnew(File& file) {
    file.name = open(file.fileName);
    file.stored = file.memory = file.first;
    file.saves = 0;
    file.readOnly = false;
    RequireSame(file);
  }

  void Undo() {
    constexpr int mostSaves = 64;
    ddr_DdbContainer restored = before;
    for (File& file : files) {
      if (!file.wasClosed && file.saves <= mostSaves) {
        continue;
      }
      if (file.memory) {
        close(file.name);
      }
      fuzz_require(!root().IsMember(pathOf(file.fileName)), "a closed database leaves the registry");
      fuzz_require(folder.names().size() == fileCount, "nothing is left beside the files");
      file.reader.reset(); // it could not tell a save after this from the one that it has seen
      writeFile(folder.path(file.fileName), file.firstBytes);
      OpenAnew(file);
      restored.Insert(file.name, record(file.name));
    }
    root().Replace(restored);
    before = restored;
    for (File& file : files) {
      if (*file.stored != file.first) {
        save(file.name);
        ++file.saves;
      }
      file.stored = file.memory = file.first;
      file.wasSaved = file.wasClosed = false;
    }
  }

  void Begin(File& file, unsigned operation) {
    if (operation < 2) {
      file.reader.reset(); // which would go on with the file that is replaced
      root().CreateDdb(pathOf(file.fileName), "new");
      file.name = root().GetPersistentName(pathOf(file.fileName));
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
      if (before.IsMember(file.name)) {
        contentsOf(before.ConstGet(file.name)); // which shares the entries and must outlast a save
      }
      break;
    case 12:
      Resolve(file, key);
      break;
    case 13:
    case 14:
      Save(file);
      break;
    default:
      if (script.Byte() < 16) { // seldom: opening takes longer than all the rest
        close(file.name);
        file.memory.reset();
        file.wasClosed = true;
      }
      break;
    }
  }

  void Save(File& file) {
    if (file.readOnly) {
      fuzz_require(failureOf([&] { save(file.name); }) != "nothing",
                   "a file opened for reading is not saved to");
      return;
    }
    RequireSame(file);
    save(file.name);
    file.stored = file.memory;
    ++file.saves;
    file.wasSaved = true;
  }

  void Resolve(File const& file, cow_String const& key) {
    ddr_ModelContainerShortcut const models(
        new ddr_ModelContainerInDdbShortcut(ddr_DdbShortcut(new ddr_DdbShortcutImpl(file.name))));
    ddr_ModelShortcut const model(new ddr_ModelInModelContainerShortcut(key, models));
    fuzz_require(models.ConstGet(root().Fetch()).Size() == static_cast<int>(file.memory->models.size()),
                 "a shortcut leads to the collection");
    std::string found;
    bool const isThere = failureOf([&] { found = noteOf(model.ConstGet(root().Fetch())); }) == "nothing";
    auto const expected = file.memory->models.find(key.Text());
    fuzz_require(isThere == (expected != file.memory->models.end()),
                 "a shortcut finds the models that there are");
    if (isThere) {
      RequireEqual("behind a shortcut", found, Plain::textOf(expected->second));
    }
  }

  void RequireSame(File const& file) {
    if (file.memory) {
      RequireEqual("in memory", contents(file.name), file.memory->text());
    }
  }

  void RequireStored(File& file) {
    if (file.reader == nullptr) {
      file.reader = std::make_unique<rom_Transporter>(
          classes.get(), rfm_File::Open(pathOf(file.fileName), utl_FileAccess::Read, true), "D0", -1);
    }
    RequireEqual("in the file", ReadBy(*file.reader), file.stored->text());
  }

  static std::string ReadBy(rom_Transporter& reader) {
    reader.ObjectCache().Clear();
    int const last = reader.GetTableSize(ddr_Ddb::TypeId()) - 1;
    rom_MementoRead const memento(reader, ddr_Ddb::TypeId(), last, cls_Uid::Allocate());
    ddr_Ddb const read((cls_ReadVisitor(memento)));
    return contentsOf(read);
  }

  static void RequireEqual(char const* where, std::string const& found, std::string const& expected) {
    if (found != expected) {
      fuzz_fail(std::string(where) + "\n  " + found + " is\n  " + expected);
    }
  }

  std::array<File, fileCount> files;
  ddr_DdbContainer before;
  std::unique_ptr<cls_ClassRegistrar> classes = registrar();
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static Play& play = [&]() -> Play& {
    use_quick_sqlite();
    use_hasty_files();
    static Play made;
    return made;
  }();
  play.Run(fuzz_script(data, size));
  return 0;
}
