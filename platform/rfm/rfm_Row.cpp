// rfm_Row.cpp: reading and changing a row buffer.
#include "rfm_Row.h"

#include "rfm_DatabaseNode.h"
#include "utl_Utf8.h"

#include <limits>

namespace {
constexpr std::string_view classTableField = "Class Table";
constexpr char const* typeIdField = "Type Id";
} // namespace

rfm_Row::rfm_Row() = default;
rfm_Row::~rfm_Row() = default;

rfm_Row::Value const* rfm_Row::Find(rfm_FieldHandle const& field) const noexcept {
  std::optional<std::size_t> const place = layout ? layout->PlaceOf(field.Name(), hint) : std::nullopt;
  if (!place) {
    return nullptr;
  }
  hint = *place;
  return &values[*place];
}

rfm_Row::Value const& rfm_Row::Get(rfm_FieldHandle const& field) const {
  Value const* const value = Find(field);
  if (!value) {
    rfm_throw(rfm_ErrorKind::Other, shape->database.OriginName(),
              {&shape->className, rowNumber, field.Name().View()}, "the stored layout has no such field",
              "Convert the file to the current layout");
  }
  return *value;
}

rfm_Row::Value& rfm_Row::Change(rfm_FieldHandle const& field) {
  return const_cast<Value&>(Get(field));
}

void rfm_Row::Damaged(rfm_FieldHandle const& field, char const* what) const {
  shape->database.ThrowDamaged(what, {&shape->className, rowNumber, field.Name().View()});
}

std::int64_t rfm_Row::Integer(rfm_FieldHandle const& field, Value const& value) const {
  if (value.type == Value::Type::Null) {
    return 0;
  }
  if (value.type != Value::Type::Integer) {
    Damaged(field, "a value that is not an integer is stored there");
  }
  return value.integer;
}

bool rfm_Row::HasField(rfm_FieldHandle const& field) const noexcept {
  return Find(field) != nullptr;
}

bool rfm_Row::FieldIsSet(rfm_FieldHandle const& field) const noexcept {
  Value const* const value = Find(field);
  return value && value->type != Value::Type::Null;
}

int rfm_Row::ReadFieldInt(rfm_FieldHandle const& field) const {
  std::int64_t const number = Integer(field, Get(field));
  if (number < std::numeric_limits<int>::min() || number > std::numeric_limits<int>::max()) {
    Damaged(field, "a number outside 32 bits is stored there");
  }
  return static_cast<int>(number);
}

unsigned rfm_Row::ReadFieldUnsigned(rfm_FieldHandle const& field) const {
  std::int64_t const number = Integer(field, Get(field));
  if (number < 0 || number > std::numeric_limits<unsigned>::max()) {
    Damaged(field, "a number outside 32 bits is stored there");
  }
  return static_cast<unsigned>(number);
}

std::int64_t rfm_Row::ReadFieldInt64(rfm_FieldHandle const& field) const {
  return Integer(field, Get(field));
}

std::int64_t rfm_Row::ReadFieldHandle(rfm_FieldHandle const& field) const {
  Value const& value = Get(field);
  if (shape->isClassList && field.Name().View() == classTableField) {
    bool const hasTable = value.type == Value::Type::Text && !value.text.IsEmpty();
    return hasTable ? ReadFieldUnsigned(rfm_FieldHandle(typeIdField)) : 0;
  }
  return Integer(field, value);
}

cow_String rfm_Row::ReadFieldString(rfm_FieldHandle const& field) const {
  Value const& value = Get(field);
  if (value.type == Value::Type::Null) {
    return {};
  }
  if (value.type == Value::Type::BadText) {
    Damaged(field, "a text that is not UTF-8 or holds a zero byte is stored there");
  }
  if (value.type != Value::Type::Text) {
    Damaged(field, "a value that is not a text is stored there");
  }
  return value.text;
}

double rfm_Row::ReadFieldDouble(rfm_FieldHandle const& field) const {
  Value const& value = Get(field);
  if (value.type == Value::Type::Real) {
    return value.real;
  }
  if (value.type == Value::Type::Null || value.type == Value::Type::Integer) {
    return static_cast<double>(value.integer);
  }
  Damaged(field, "a value that is not a number is stored there");
}

bool rfm_Row::ReadFieldBool(rfm_FieldHandle const& field) const {
  std::int64_t const number = Integer(field, Get(field));
  if (number != 0 && number != 1) {
    Damaged(field, "a number that is neither 0 nor 1 is stored there");
  }
  return number != 0;
}

void rfm_Row::WriteFieldInt64(rfm_FieldHandle const& field, std::int64_t value) {
  Value& changed = Change(field);
  changed = Value();
  changed.type = Value::Type::Integer;
  changed.integer = value;
}

void rfm_Row::WriteFieldInt(rfm_FieldHandle const& field, int value) {
  WriteFieldInt64(field, value);
}

void rfm_Row::WriteFieldUnsigned(rfm_FieldHandle const& field, unsigned value) {
  WriteFieldInt64(field, value);
}

void rfm_Row::WriteFieldHandle(rfm_FieldHandle const& field, std::int64_t value) {
  WriteFieldInt64(field, value);
}

void rfm_Row::WriteFieldBool(rfm_FieldHandle const& field, bool value) {
  WriteFieldInt64(field, value ? 1 : 0);
}

void rfm_Row::WriteFieldDouble(rfm_FieldHandle const& field, double value) {
  Value& changed = Change(field);
  changed = Value();
  changed.type = Value::Type::Real;
  changed.real = value;
}

void rfm_Row::WriteFieldString(rfm_FieldHandle const& field, cow_String const& value) {
  Value& changed = Change(field);
  if (!utl_IsUtf8(value.View())) {
    rfm_throw(rfm_ErrorKind::Other, shape->database.FileName(),
              {&shape->className, rowNumber, field.Name().View()}, "the text to store is not UTF-8",
              "Give the text in UTF-8");
  }
  changed = Value();
  changed.type = Value::Type::Text;
  changed.text = value;
}

void rfm_Row::WriteFieldNull(rfm_FieldHandle const& field) {
  Change(field) = Value();
}

void rfm_Row::CopyFieldsFrom(rfm_Row const& source) {
  auto const copied = [&](std::size_t place) {
    return layout == source.layout ? &source.values[place]
                                   : source.Find(rfm_FieldHandle(layout->columns[place]));
  };
  // First the room for all of them, then the values: they are copied whole or not at all.
  for (std::size_t place = 0; place < values.size(); ++place) {
    if (Value const* const found = copied(place)) {
      values[place].bytes.reserve(found->bytes.size());
    }
  }
  for (std::size_t place = 0; place < values.size(); ++place) {
    if (Value const* const found = copied(place)) {
      values[place] = *found;
    }
  }
  if (source.hasUid) {
    SetUid(source.uid);
  }
}

void rfm_Row::CopyFieldFrom(rfm_Row const& source, rfm_FieldHandle const& field) {
  Value value = source.Get(field);
  Change(field) = std::move(value);
}

std::optional<rfm_Uid> rfm_Row::Uid() const {
  return hasUid ? std::optional<rfm_Uid>(uid) : std::nullopt;
}

void rfm_Row::SetUid(rfm_Uid const& newUid) {
  uidChanged = uidChanged || !hasUid || uid != newUid;
  uid = newUid;
  hasUid = true;
}
