// mdl_Extension: something that another module attaches to a model.
#pragma once

#include "cls_ClassRegistrar.h"
#include "cls_WriteVisitor.h"
#include "os_Export.h"

/// Something that another module attaches to a model under a command name.
///
/// A module derives its class from this one, registers the class with a reading constructor and with
/// mdl_Extension::TypeId() as its base (or registers a prototype under a command name), and from then on
/// models hold, save and load it. In a process without the module the stored extension is carried unread.
class DDR_API mdl_Extension {
public:
  virtual ~mdl_Extension();
  /// A copy of the most derived object, owned by the caller. The identity is copied too.
  virtual mdl_Extension* Copy() const = 0;
  virtual unsigned DynTypeId() const = 0;
  virtual void DBWrite(cls_WriteVisitor const& writer) const = 0;

  static unsigned TypeId() noexcept { return 0x250001; }

protected:
  mdl_Extension() = default;
  mdl_Extension(mdl_Extension const&) = default;
  mdl_Extension& operator=(mdl_Extension const&) = default;
};

/// Remembers that objects of a class are extensions, though the catalogue does not say so. Any thread.
DDR_API void mdl_addExtensionType(unsigned typeId);
/// Whether objects of a class are extensions: by its bases in the catalogue, or because a prototype of it was
/// registered. Any thread.
DDR_API bool mdl_isExtensionType(cls_ClassRegistrar const& registrar, unsigned typeId);
