#include "dbc_DatabaseConverter.h"

#include "dbc_DatabaseConverterHolder.h"
#include "dbc_OutputDatabase.h"
#include "nex_Exception.h"

#include <string>
#include <tuple>
#include <utility>

dbc_DatabaseConverter::~dbc_DatabaseConverter() = default;

dbc_Converter& dbc_DatabaseConverter::GetConverter(int number) {
  return converters.try_emplace(number, number).first->second;
}

dbc_InputDatabase& dbc_DatabaseConverter::InputDatabase() const {
  if (!input) {
    nex_Exception::Throw(nex_AssertException("input"), "platform/dbc/dbc_DatabaseConverter", __LINE__);
  }
  return *input;
}

dbc_OutputDatabase& dbc_DatabaseConverter::OutputDatabase() const {
  if (!output) {
    nex_Exception::Throw(nex_AssertException("output"), "platform/dbc/dbc_DatabaseConverter", __LINE__);
  }
  return *output;
}

std::unique_ptr<dbc_ClassView> dbc_DatabaseConverter::ClassView(cow_String const& className, dbc_Table& table,
                                                                int version, int first, int last) {
  OutputDatabase().NameClassOf(table, className);
  return std::make_unique<dbc_ClassView>(className, table, version, first, last);
}

void dbc_DatabaseConverter::Supplied(std::string_view field, std::string_view text) {
  Note(dbc_Note::Kind::Supplied, field, text);
}

void dbc_DatabaseConverter::Dropped(std::string_view field, std::string_view text) {
  if (dropped.find(field) == dropped.end()) {
    dropped.emplace(field);
  }
  Note(dbc_Note::Kind::Dropped, field, text);
}

void dbc_DatabaseConverter::Carried(std::string_view field, std::string_view text) {
  Note(dbc_Note::Kind::Carried, field, text);
}

void dbc_DatabaseConverter::NoteIn(dbc_ClassReport* reported) {
  report = nullptr;
  notePlaces.clear();
  if (reported) {
    for (std::size_t place = 0; place < reported->notes.size(); ++place) {
      dbc_Note const& note = reported->notes[place];
      notePlaces.emplace(std::tuple(note.kind, note.step, note.field, note.text), place);
    }
  }
  report = reported;
}

void dbc_DatabaseConverter::Note(dbc_Note::Kind kind, std::string_view field, std::string_view text) {
  if (report) {
    ++report->notes[PlaceOfNote(kind, field, text)].rows;
  }
}

std::size_t dbc_DatabaseConverter::PlaceOfNote(dbc_Note::Kind kind, std::string_view field,
                                               std::string_view text) {
  if (auto const noted = notePlaces.find(NoteName(kind, step, field, text)); noted != notePlaces.end()) {
    return noted->second;
  }
  std::size_t const place = report->notes.size();
  dbc_Note note{kind, step, std::string(field), std::string(text), 0};
  auto const noted = notePlaces.emplace(std::tuple(kind, step, std::string(field), std::string(text)), place);
  try {
    report->notes.push_back(std::move(note));
  } catch (...) {
    notePlaces.erase(noted.first);
    throw;
  }
  return place;
}

template <>
dbc_DatabaseConverterHolder& omi_Singleton<dbc_DatabaseConverterHolder>::Instance() {
  static dbc_DatabaseConverterHolder theHolder;
  return theHolder;
}

dbc_DatabaseConverter& dbc_DatabaseConverterHolder::GetDatabaseConverter() const {
  dbc_DatabaseConverter* const converter = held;
  if (!converter) {
    nex_Exception::Throw(nex_AssertException("converter"), "platform/dbc/dbc_DatabaseConverter", __LINE__);
  }
  return *converter;
}

void dbc_DatabaseConverterHolder::Hold(dbc_DatabaseConverter& converter) {
  dbc_DatabaseConverter* none = nullptr;
  if (!held.compare_exchange_strong(none, &converter)) {
    nex_Exception::Throw(nex_TextException("Another database is being converted in this process; wait until "
                                           "that conversion has ended."),
                         "platform/dbc/dbc_DatabaseConverter", __LINE__);
  }
}
