// cls_PC: base of the collections that write changes back to their file.
#pragma once

#include "cls_CollectionAgent.h"
#include "cls_WriteVisitor.h"

/// A persistent collection.
class DDR_API cls_PC {
public:
  virtual ~cls_PC();
  /// Writes changed records back to the stored collection; nothing where there is none.
  virtual void Flush() = 0;
  /// The class of the stored header.
  virtual unsigned HeaderTypeId() const = 0;
  virtual void DBWrite(cls_WriteVisitor const& writer) const = 0;
  /// How many entries the collection has.
  virtual int EntryCount() const = 0;

protected:
  cls_PC() = default;
  cls_PC(cls_PC const&) = default;
  cls_PC& operator=(cls_PC const&) = default;
};
