#include "mdl_Extension.h"

#include <mutex>
#include <set>

namespace {

struct ExtensionTypes {
  std::mutex mutex;
  std::set<unsigned> ids;
};

ExtensionTypes& extensionTypes() {
  static ExtensionTypes types;
  return types;
}

} // namespace

mdl_Extension::~mdl_Extension() = default;

void mdl_addExtensionType(unsigned typeId) {
  ExtensionTypes& types = extensionTypes();
  std::scoped_lock lock(types.mutex);
  types.ids.insert(typeId);
}

bool mdl_isExtensionType(cls_ClassRegistrar const& registrar, unsigned typeId) {
  if (registrar.IsDerivedFrom(typeId, mdl_Extension::TypeId())) {
    return true;
  }
  ExtensionTypes& types = extensionTypes();
  std::scoped_lock lock(types.mutex);
  return types.ids.contains(typeId);
}
