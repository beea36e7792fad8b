// Objects of a test's own, and a file that a transporter alone writes and reads.
#pragma once

#include "database_test.h"

#include "cls_ListObj.h"
#include "mdl_MapString2Obj.h"
#include "rom_Memento.h"

#include <limits>
#include <memory>
#include <string>

/// An object of plain values.
class Leaf {
public:
  explicit Leaf(int given = 0) : number(given), uid(cls_Uid::Allocate()) {}
  Leaf(int given, cls_Uid const& identity) : number(given), uid(identity) {}
  explicit Leaf(cls_ReadVisitor const& reader) : number(reader.ReadInt("number", -7)), uid(reader.GetUid()) {}
  Leaf* Copy() const { return new Leaf(*this); }
  static unsigned TypeId() { return 0x2f0011; }
  void DBWrite(cls_WriteVisitor const& writer) const {
    if (writer.StartWrite(writtenAs, uid)) {
      writer.WriteInt("number", number);
    }
  }
  cls_Uid const& Uid() const { return uid; }

  int number;
  /// The class of the object that is written: its own, or one derived from it.
  unsigned writtenAs = TypeId();

private:
  cls_Uid uid;
};

/// An object with values of every kind, objects inside, a list and a map.
class Branch {
public:
  Branch() : uid(cls_Uid::Allocate()) {}
  explicit Branch(cls_ReadVisitor const& reader)
      : text(reader.ReadString("text", "absent")), real(reader.ReadDouble("real", -1)),
        flag(reader.ReadBool("flag", true)), number(reader.ReadInt("number", -7)),
        first(cls_ReadVisitor(reader, "first")), second(cls_ReadVisitor(reader, "second")),
        list(cls_ReadVisitor(reader, "list")), map(cls_ReadVisitor(reader, "map")), uid(reader.GetUid()) {}
  Branch* Copy() const { return new Branch(*this); }
  static unsigned TypeId() { return 0x2f0010; }
  void DBWrite(cls_WriteVisitor const& writer) const {
    if (!writer.StartWrite(TypeId(), uid)) {
      return;
    }
    writer.WriteString("text", text);
    if (writer.FieldIsPresent("real")) {
      writer.WriteDouble("real", real);
    }
    writer.WriteBool("flag", flag);
    writer.WriteInt("number", number);
    first.DBWrite(cls_WriteVisitor(writer, "first"));
    secondIsNull ? writer.WriteNullObject("second") : second.DBWrite(cls_WriteVisitor(writer, "second"));
    list.DBWrite(cls_WriteVisitor(writer, "list"));
    map.DBWrite(cls_WriteVisitor(writer, "map"));
  }
  std::string contents() const {
    std::string all = std::string(text.Text()) + " " + std::to_string(real) + (flag ? " yes " : " no ") +
                      std::to_string(number) + " " + std::to_string(first.number) + " " +
                      std::to_string(second.number) + " [";
    for (int index = 0; index < list.Size(); ++index) {
      all += numbered(" ", list.ConstGet(index).number);
    }
    all += " ] {";
    for (mdl_MapString2ObjIT<Leaf> walk(map); !walk.AtEnd(); walk.Next()) {
      all += std::string(" ") + walk.Key().Text() + numbered("=", walk.Value().number);
    }
    return all + " }";
  }

  cow_String text;
  double real = 0;
  bool flag = false;
  int number = 0;
  Leaf first;
  Leaf second;
  bool secondIsNull = false;
  cls_ListObj<Leaf> list;
  mdl_MapString2Obj<Leaf> map;
  cls_Uid uid;
};

inline void registerLeaf(cls_ClassRegistrar& classes) {
  classes.CreateClassMD("Leaf", Leaf::TypeId(), 1, nullptr, cls_NoBaseTypeId)
      .AddAttribute("number", cls_AttributeType::Integer, 1, cls_CollectionType::Single);
}

/// @param without name of an attribute to leave out, as an older layout lacks it
inline cls_ClassMetadata& registerBranch(cls_ClassRegistrar& classes, std::string const& without = {},
                                         std::string const& extra = {}) {
  cls_ClassMetadata& branch = classes.CreateClassMD("Branch", Branch::TypeId(), 1, nullptr, cls_NoBaseTypeId);
  auto const add = [&](char const* name, cls_AttributeType kind, unsigned element,
                       cls_CollectionType collection) {
    if (without != name) {
      branch.AddAttribute(name, kind, element, collection);
    }
  };
  add("text", cls_AttributeType::String, 1, cls_CollectionType::Single);
  add("real", cls_AttributeType::Real, 1, cls_CollectionType::Single);
  add("flag", cls_AttributeType::Boolean, 1, cls_CollectionType::Single);
  add("number", cls_AttributeType::Integer, 1, cls_CollectionType::Single);
  add("first", cls_AttributeType::Object, Leaf::TypeId(), cls_CollectionType::Single);
  add("second", cls_AttributeType::Object, Leaf::TypeId(), cls_CollectionType::Single);
  add("list", cls_AttributeType::Object, cls_ListObjTypeId, cls_CollectionType::List);
  add("map", cls_AttributeType::Object, cls_MapHeaderTypeId, cls_CollectionType::StringMap);
  if (!extra.empty()) {
    branch.AddAttribute(extra.c_str(), cls_AttributeType::String, 1, cls_CollectionType::Single);
  }
  return branch;
}

/// Writes and reads branches.
class branch_test : public database_test {
protected:
  static cls_ClassRegistrar classes(std::string const& without = {}, std::string const& extra = {}) {
    cls_ClassRegistrar made;
    registerLeaf(made);
    registerBranch(made, without, extra);
    return made;
  }
  std::unique_ptr<rom_Transporter> createFile(cls_ClassRegistrar const& registrar) {
    return std::make_unique<rom_Transporter>(&registrar,
                                             rfm_File::Open(pathOf("o"), utl_FileAccess::Create, true), "D0",
                                             "objects", 1700000000, -1);
  }
  std::unique_ptr<rom_Transporter> openFile(cls_ClassRegistrar const& registrar) {
    return std::make_unique<rom_Transporter>(
        &registrar, rfm_File::Open(pathOf("o"), utl_FileAccess::Write, true), "D0", -1);
  }
  static void write(rom_Transporter& into, Branch const& branch, int row = -1) {
    rom_MementoWrite memento(into, Branch::TypeId(), row);
    into.ObjectCache().Clear();
    cls_WriteVisitor visitor(memento);
    branch.DBWrite(visitor);
    visitor.End();
  }
  static Branch read(rom_Transporter& from, int row) {
    rom_MementoRead const memento(from, Branch::TypeId(), row, cls_Uid::Allocate());
    return Branch(cls_ReadVisitor(memento));
  }
  static Branch sample() {
    Branch branch;
    branch.text = "text";
    branch.real = 2.5;
    branch.flag = true;
    branch.number = std::numeric_limits<int>::min();
    branch.first.number = 1;
    branch.second.number = 2;
    for (int i = 0; i < 3; ++i) {
      branch.list.Append(Leaf(i));
      branch.map.Insert(cow_String(numbered("k", i).c_str()), Leaf(10 + i));
    }
    return branch;
  }
};
