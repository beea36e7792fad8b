#include "ddr_Shortcut.h"

#include "atr_StringBase.h"
#include "ddr_Ddb.h"
#include "ddr_Root.h"
#include "nex_Exception.h"
#include "rgx_ReIterator.h"
#include "utl_Version.h"

#include <cstdio>

template class ddr_ShortcutImpl<ddr_Ddb>;
template class ddr_ShortcutImpl<ddr_Model>;
template class ddr_ShortcutImpl<ddr_ModelContainer>;
template class ddr_ShortcutImpl<ddr_ResultContainer>;
template class ddr_ShortcutImpl<ddr_UserDataContainer>;
template class ddr_Shortcut<ddr_Ddb>;
template class ddr_Shortcut<ddr_Model>;
template class ddr_Shortcut<ddr_ModelContainer>;
template class ddr_Shortcut<ddr_ResultContainer>;
template class ddr_Shortcut<ddr_UserDataContainer>;

template <>
char const* ddr_MemberOf<ddr_ModelContainer>::Name() noexcept {
  return "models";
}
template <>
ddr_ModelContainer const& ddr_MemberOf<ddr_ModelContainer>::ConstGet(ddr_Ddb const& database) noexcept {
  return database.models;
}
template <>
ddr_ModelContainer& ddr_MemberOf<ddr_ModelContainer>::Get(ddr_Ddb& database) noexcept {
  return database.models;
}
template <>
char const* ddr_MemberOf<ddr_ResultContainer>::Name() noexcept {
  return "result";
}
template <>
ddr_ResultContainer const& ddr_MemberOf<ddr_ResultContainer>::ConstGet(ddr_Ddb const& database) noexcept {
  return database.results;
}
template <>
ddr_ResultContainer& ddr_MemberOf<ddr_ResultContainer>::Get(ddr_Ddb& database) noexcept {
  return database.results;
}
template <>
char const* ddr_MemberOf<ddr_UserDataContainer>::Name() noexcept {
  return "userData";
}
template <>
ddr_UserDataContainer const& ddr_MemberOf<ddr_UserDataContainer>::ConstGet(ddr_Ddb const& database) noexcept {
  return database.userData;
}
template <>
ddr_UserDataContainer& ddr_MemberOf<ddr_UserDataContainer>::Get(ddr_Ddb& database) noexcept {
  return database.userData;
}

template class ddr_MemberShortcut<ddr_Ddb, ddr_ModelContainer, 1>;
template class ddr_MemberShortcut<ddr_Ddb, ddr_ResultContainer, 1>;
template class ddr_MemberShortcut<ddr_Ddb, ddr_UserDataContainer, 1>;
template class ddr_DictionaryShortcut<ddr_ModelContainer, ddr_Model, 1>;

namespace {

constexpr std::string_view containerPrefix = "ddbCont[";
constexpr char const* pathPattern = R"(ddbCont\[\'(.*?)\'\]\.(.*?)$)";

cow_String pythonPath(ddr_ShortcutBaseImpl const& shortcut) {
  cow_String const path = shortcut.Path();
  cow_String const file = ddr_Root::Instance().GetFileName(shortcut.DdbName());
  if (!path.View().starts_with(containerPrefix)) {
    return path;
  }
  // Kept on purpose: nothing behind the database gives an empty rest, and the expression then ends in its
  // dot; scripts go on writing behind it.
  atr_StringBase rest{std::string(rgx_match(pathPattern, path.View()).NthString(2).View())};
  int const found = rest.Find("userData['default userData']", 0);
  if (found < rest.Length()) {
    // The default entry is reached through the collection itself: behind "userData" 20 characters go.
    // Kept on purpose: only the first place is shortened, wherever it is; scripts are compared with these
    // texts.
    rest.Erase(found + 8, 20);
  }
  utl_Version const& product = omi_Singleton<utl_Version>::Instance();
  bool const inSession = product.IsProductStudio() || product.IsProductLens();
  std::string expression(inSession ? "session." : "");
  expression.reserve(expression.size() + file.Length() + rest.Text().size() + 16);
  // Kept on purpose: no quote is escaped; what scripts store and compare is the name as it stands.
  expression.append("openOdb(r'").append(file.View()).append("').").append(rest.Text());
  return cow_String(expression);
}

} // namespace

ddr_ShortcutBaseImpl::~ddr_ShortcutBaseImpl() = default;

cow_String ddr_ShortcutBaseImpl::PythonPath() const {
  try {
    return pythonPath(*this);
  } catch (nex_TextException const& error) {
    std::fprintf(stderr, "ERROR ddr_ShortcutBaseImpl::PythonPath() %s\n", error.what());
    throw;
  }
}

ddr_DdbShortcutImpl::ddr_DdbShortcutImpl(cow_String databaseName)
    : name(std::move(databaseName)), uid(cls_Uid::Allocate()) {}

ddr_DdbShortcutImpl::ddr_DdbShortcutImpl(cls_ReadVisitor const& reader)
    : name(reader.ReadString("name")), uid(reader.GetUid()) {}

ddr_DdbShortcutImpl::~ddr_DdbShortcutImpl() = default;

cow_String ddr_DdbShortcutImpl::Path() const {
  return cow_String(std::string_view(std::string(containerPrefix) + "'" + name.Text() + "']"));
}

ddr_Ddb const& ddr_DdbShortcutImpl::ConstGet(ddr_DdbContainer const& container) const {
  return container.ConstGet(name);
}

ddr_Ddb& ddr_DdbShortcutImpl::Get(ddr_DdbContainer& container) const {
  return container.Get(name);
}

void ddr_DdbShortcutImpl::DBWrite(cls_WriteVisitor const& writer) const {
  if (!writer.StartWrite(TypeId(), uid)) {
    return;
  }
  cls_WriteVisitor const base(writer, ddr_ShortcutImpl<ddr_Ddb>::TypeId());
  ddr_ShortcutImpl<ddr_Ddb>::DBWrite(base);
  writer.WriteString("name", name);
}
