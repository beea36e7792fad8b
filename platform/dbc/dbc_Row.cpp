#include "dbc_Row.h"

#include "nex_Exception.h"
#include "rfm_ClassEntry.h"
#include "utl_Utf8.h"

#include <algorithm>
#include <string>

namespace {

constexpr std::string_view baseField = "##BaseClassOID";
constexpr int noBasePart = -1;

} // namespace

dbc_Row::~dbc_Row() = default;

rfm_Row const* dbc_Row::Holder(rfm_FieldHandle const& field) const noexcept {
  return stored && (!takesFields || stored->Row().HasField(field)) ? &stored->Row() : nullptr;
}

rfm_Row* dbc_Row::Holder(rfm_FieldHandle const& field) noexcept {
  return stored && (!takesFields || stored->Row().HasField(field)) ? &stored->Row() : nullptr;
}

dbc_Row::Loose const* dbc_Row::Find(rfm_FieldHandle const& field) const noexcept {
  auto const found = std::find_if(loose.begin(), loose.end(),
                                  [&](Loose const& written) { return written.name == field.Name(); });
  return found == loose.end() ? nullptr : &*found;
}

dbc_Row::Loose const& dbc_Row::Get(rfm_FieldHandle const& field) const {
  Loose const* const found = Find(field);
  if (!found) {
    nex_Exception::Throw(nex_TextException("A row that is converted has no field '" +
                                           utl_PrintableStart(field.Name().View()) + "'."),
                         "platform/dbc/dbc_Row", __LINE__);
  }
  return *found;
}

std::int64_t dbc_Row::LooseInteger(rfm_FieldHandle const& field) const {
  std::int64_t const* const number = std::get_if<std::int64_t>(&Get(field).value);
  return number ? *number : 0;
}

void dbc_Row::SetLoose(rfm_FieldHandle const& field, int kind, Value value) {
  if (Loose const* const found = Find(field)) {
    loose[static_cast<std::size_t>(found - loose.data())] = {field.Name(), kind, std::move(value)};
  } else {
    loose.push_back({field.Name(), kind, std::move(value)});
  }
}

bool dbc_Row::HasField(rfm_FieldHandle const& field) const noexcept {
  rfm_Row const* const row = Holder(field);
  return row ? row->HasField(field) : Find(field) != nullptr;
}

bool dbc_Row::IsPresent(rfm_FieldHandle const& field) const noexcept {
  if (rfm_Row const* const row = Holder(field)) {
    return row->FieldIsSet(field);
  }
  Loose const* const written = Find(field);
  return written && !std::holds_alternative<std::monostate>(written->value);
}

int dbc_Row::ReadFieldInt(rfm_FieldHandle const& field) const {
  rfm_Row const* const row = Holder(field);
  return row ? row->ReadFieldInt(field) : static_cast<int>(LooseInteger(field));
}

unsigned dbc_Row::ReadFieldUnsigned(rfm_FieldHandle const& field) const {
  rfm_Row const* const row = Holder(field);
  return row ? row->ReadFieldUnsigned(field) : static_cast<unsigned>(LooseInteger(field));
}

std::int64_t dbc_Row::ReadFieldHandle(rfm_FieldHandle const& field) const {
  rfm_Row const* const row = Holder(field);
  return row ? row->ReadFieldHandle(field) : LooseInteger(field);
}

double dbc_Row::ReadFieldDouble(rfm_FieldHandle const& field) const {
  if (rfm_Row const* const row = Holder(field)) {
    return row->ReadFieldDouble(field);
  }
  double const* const number = std::get_if<double>(&Get(field).value);
  return number ? *number : 0.0;
}

bool dbc_Row::ReadFieldBool(rfm_FieldHandle const& field) const {
  rfm_Row const* const row = Holder(field);
  return row ? row->ReadFieldBool(field) : LooseInteger(field) != 0;
}

cow_String dbc_Row::ReadFieldString(rfm_FieldHandle const& field) const {
  if (rfm_Row const* const row = Holder(field)) {
    return row->ReadFieldString(field);
  }
  cow_String const* const text = std::get_if<cow_String>(&Get(field).value);
  return text ? *text : cow_String();
}

void dbc_Row::WriteFieldInt(rfm_FieldHandle const& field, int value) {
  if (value == noBasePart && field.Name().View() == baseField && stored && !stored->Row().HasField(field)) {
    return; // the class has no base part, so there is nothing to say about it
  }
  changed = true;
  rfm_Row* const row = Holder(field);
  row ? row->WriteFieldInt(field, value) : SetLoose(field, rfm_AttributeKind_Integer, std::int64_t{value});
}

void dbc_Row::WriteFieldUnsigned(rfm_FieldHandle const& field, unsigned value) {
  changed = true;
  rfm_Row* const row = Holder(field);
  row ? row->WriteFieldUnsigned(field, value)
      : SetLoose(field, rfm_AttributeKind_Integer, std::int64_t{value});
}

void dbc_Row::WriteFieldHandle(rfm_FieldHandle const& field, std::int64_t value) {
  changed = true;
  rfm_Row* const row = Holder(field);
  row ? row->WriteFieldHandle(field, value) : SetLoose(field, rfm_AttributeKind_Handle, value);
}

void dbc_Row::WriteFieldDouble(rfm_FieldHandle const& field, double value) {
  changed = true;
  rfm_Row* const row = Holder(field);
  row ? row->WriteFieldDouble(field, value) : SetLoose(field, rfm_AttributeKind_Real, value);
}

void dbc_Row::WriteFieldBool(rfm_FieldHandle const& field, bool value) {
  changed = true;
  rfm_Row* const row = Holder(field);
  row ? row->WriteFieldBool(field, value) : SetLoose(field, rfm_AttributeKind_Boolean, std::int64_t{value});
}

void dbc_Row::WriteFieldString(rfm_FieldHandle const& field, cow_String const& value) {
  changed = true;
  rfm_Row* const row = Holder(field);
  row ? row->WriteFieldString(field, value) : SetLoose(field, rfm_AttributeKind_String, value);
}

void dbc_Row::WriteFieldNull(rfm_FieldHandle const& field) {
  changed = true;
  if (rfm_Row* const row = Holder(field)) {
    row->WriteFieldNull(field);
  } else {
    SetLoose(field, rfm_AttributeKind_Integer, std::monostate());
  }
}
