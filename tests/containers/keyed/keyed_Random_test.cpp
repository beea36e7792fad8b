// Random operations on whole databases, compared step by step with plain maps.
#include "database_test.h"

#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

/// What a database should hold.
struct Plain {
  std::map<std::string, std::string> models; // name to note
  std::map<std::string, std::string> results;
  std::vector<std::string> messages;
  std::string description = "made by a test";

  std::string text() const {
    std::string all;
    for (auto const& [name, note] : models) {
      all += name + "=" + note + "/" + note + " ";
    }
    all += "|";
    for (auto const& [name, uid] : results) {
      all += " " + name + "#" + uid;
    }
    all += " | | " + description + " |";
    for (std::string const& message : messages) {
      all += " " + message;
    }
    return all;
  }
};

class keyed_Random : public database_test, public testing::WithParamInterface<unsigned> {};

INSTANTIATE_TEST_SUITE_P(Seeds, keyed_Random, testing::Range(1U, 9U));

TEST_P(keyed_Random, DatabasesHoldWhatPlainMapsHold) {
  unsigned const seed = GetParam() * 7919U;
  SCOPED_TRACE(numbered("seed ", seed));
  std::mt19937 random(seed);
  auto const below = [&](unsigned limit) { return static_cast<unsigned>(random() % limit); };
  auto const key = [&] { return numbered("M", below(9)); };

  cow_String name = create("a");
  Plain memory;
  Plain file;
  bool everSaved = false;
  std::vector<std::pair<ddr_DdbContainer, Plain>> copies;
  int counter = 0;
  for (int step = 0; step < 160; ++step) {
    SCOPED_TRACE(numbered("step ", step));
    std::string const model = key();
    cow_String const modelKey(model.c_str());
    switch (below(17)) {
    case 0:
    case 1:
    case 2: {
      std::string const note = numbered("n", ++counter);
      writeModel(name, model, note);
      memory.models[model] = note;
      break;
    }
    case 3:
      edit(name, [&](ddr_Ddb& record) {
        EXPECT_EQ(record.models.Remove(modelKey), memory.models.erase(model) == 1);
      });
      break;
    case 4: { // the same record under another name
      std::string const to = key();
      if (memory.models.contains(model)) {
        edit(name, [&](ddr_Ddb& record) {
          ddr_Model const kept = record.models.ConstGet(modelKey);
          record.models.Insert(cow_String(to.c_str()), kept);
        });
        memory.models[to] = memory.models[model];
      }
      break;
    }
    case 5: { // rename
      std::string const to = key();
      if (to != model && memory.models.contains(model)) {
        edit(name, [&](ddr_Ddb& record) {
          ddr_Model const kept = record.models.ConstGet(modelKey);
          record.models.Remove(modelKey);
          record.models.Insert(cow_String(to.c_str()), kept);
        });
        memory.models[to] = memory.models[model];
        memory.models.erase(model);
      }
      break;
    }
    case 6: {
      ddr_Result const result;
      edit(name, [&](ddr_Ddb& record) { record.results.Insert(modelKey, result); });
      memory.results[model] = result.GetUid().Text().substr(22);
      break;
    }
    case 7:
      edit(name, [&](ddr_Ddb& record) { record.results.Remove(modelKey); });
      memory.results.erase(model);
      break;
    case 8: {
      std::string const text = numbered("t", ++counter);
      edit(name, [&](ddr_Ddb& record) {
        record.GetDiagnosticData().Append(step, dia_Severity::Warning, cow_String(text.c_str()));
        record.SetDescription(cow_String(text.c_str()));
      });
      memory.messages.push_back(text);
      memory.description = text;
      break;
    }
    case 9:
      if (copies.empty()) { // a record that a copy has not in memory is what the file holds when it is asked
                            // for
        record(name).models.Release();
      }
      break;
    case 10:
      if (memory.models.contains(model)) {
        ASSERT_EQ(noteOf(record(name).models.ConstGet(modelKey)),
                  memory.models[model] + "/" + memory.models[model]);
      }
      break;
    case 11:
    case 12:
      save(name);
      file = memory;
      everSaved = true;
      ASSERT_EQ(stored("a"), file.text());
      break;
    case 13:
      if (everSaved) {
        contents(name); // copies keep what they have read when the file goes
        for (auto const& [container, plain] : copies) {
          ASSERT_EQ(contentsOf(container.ConstGet(name)), plain.text());
        }
        copies.clear();
        close(name);
        restart();
        name = open("a");
        memory = file;
      }
      break;
    case 16: // a save that fails in the middle
      if (everSaved && !memory.models.contains("broken")) {
        writeModel(name, "broken", note_Extension::poison);
        ASSERT_EQ(failureOf([&] { save(name); }), "the note cannot be written");
        ASSERT_EQ(stored("a"), file.text());
        edit(name, [](ddr_Ddb& record) { record.models.Remove("broken"); });
      }
      break;
    case 14:
      copies.emplace_back(root().Fetch(), memory);
      contentsOf(copies.back().first.ConstGet(name));
      break;
    default:
      if (!copies.empty()) {
        std::size_t const which = below(static_cast<unsigned>(copies.size()));
        root().Replace(copies[which].first);
        memory = copies[which].second;
        copies.erase(copies.begin() + static_cast<std::ptrdiff_t>(which));
      }
      break;
    }
    ASSERT_EQ(record(name).models.Size(), static_cast<int>(memory.models.size()));
    if (below(4) == 0) {
      ASSERT_EQ(contents(name), memory.text());
    }
  }
  save(name);
  ASSERT_EQ(stored("a"), memory.text());
}

} // namespace
