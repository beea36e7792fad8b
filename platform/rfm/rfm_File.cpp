// rfm_File.cpp: the public handle of a file.
#include "rfm_File.h"

#include "rfm_FileNode.h"

rfm_File::rfm_File(std::shared_ptr<rfm_FileNode> openFile) noexcept : node(std::move(openFile)) {}

rfm_File rfm_File::Open(cow_String const& name, utl_FileAccess access, bool) {
  return rfm_File(std::make_shared<rfm_FileNode>(name, access));
}

cow_String const& rfm_File::FileName() const noexcept {
  return node->Name();
}

bool rfm_File::ReadOnly() const noexcept {
  return node->Access() == utl_FileAccess::Read;
}

utl_FileAccess rfm_File::Access() const noexcept {
  return node->Access();
}

rfm_Statistics const& rfm_File::Statistics() const noexcept {
  return node->Connection().statistics;
}

std::uint64_t rfm_File::Size() const noexcept {
  return static_cast<std::uint64_t>(node->Connection().FileSize());
}
