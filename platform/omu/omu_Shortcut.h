// omu_ShortcutBase and omu_ShortcutImpl: what every shortcut offers, whatever it leads to.
#pragma once

#include "cow_String.h"
#include "os_Export.h"

/// A handle of a shortcut.
class DDR_API omu_ShortcutBase {
public:
  virtual ~omu_ShortcutBase();
  /// Whether the handle leads anywhere.
  virtual bool IsSet() const = 0;
  /// The last component of the path.
  virtual cow_String Name() const = 0;
  virtual cow_String Path() const = 0;
  virtual cow_String PythonPath() const = 0;

protected:
  omu_ShortcutBase() = default;
  omu_ShortcutBase(omu_ShortcutBase const&) = default;
  omu_ShortcutBase& operator=(omu_ShortcutBase const&) = default;
};

/// The implementation behind a handle: one kind of path.
class DDR_API omu_ShortcutImpl {
public:
  virtual ~omu_ShortcutImpl();
  virtual cow_String Name() const = 0;
  virtual cow_String Path() const = 0;
  /// An expression of the scripting language; the path itself unless a derived class knows better.
  virtual cow_String PythonPath() const;
  /// Whether the target is held by the shortcut itself.
  virtual bool HoldsTarget() const = 0;
  /// Whether the target is found by name each time.
  virtual bool ResolvesByName() const = 0;
  /// Whether the shortcut may change what it leads to.
  virtual bool CanBeRedirected() const = 0;
  /// A copy of the most derived object, owned by the caller.
  virtual omu_ShortcutImpl* Copy() const = 0;

protected:
  omu_ShortcutImpl() = default;
  omu_ShortcutImpl(omu_ShortcutImpl const&) = default;
  omu_ShortcutImpl& operator=(omu_ShortcutImpl const&) = default;
};
