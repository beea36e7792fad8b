// dbc_OldClassVersion: what a module knows of an older layout of one of its classes.
#pragma once

#include "cls_ClassRegistrar.h"
#include "os_Export.h"

class dbc_DatabaseConverter;

/// An older layout of a class. A module derives one class for each layout and registers an object of it.
class DDR_API dbc_OldClassVersion {
public:
  virtual ~dbc_OldClassVersion();
  /// Enters the old layout: class name, type id, version, attributes in order.
  virtual void DefineClassMetadata(cls_ClassRegistrar& registrar) const = 0;
  /// Declares the class to the step that brings its rows to the next layout, and binds the functions that do
  /// it. Declares nothing by default.
  virtual void SchemaChanges(dbc_DatabaseConverter& converter) const;
  /// @{ Asked after SchemaChanges; nothing is deleted or renamed by default.
  virtual void ClassesToDelete(dbc_DatabaseConverter& converter) const;
  virtual void ClassesToRename(dbc_DatabaseConverter& converter) const;
  virtual void TablesToRename(dbc_DatabaseConverter& converter) const;
  /// @}

protected:
  dbc_OldClassVersion() = default;
  dbc_OldClassVersion(dbc_OldClassVersion const&) = delete;
  dbc_OldClassVersion& operator=(dbc_OldClassVersion const&) = delete;
};
