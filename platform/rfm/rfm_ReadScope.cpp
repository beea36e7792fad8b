// rfm_ReadScope.cpp: one state of the file for several reads.
#include "rfm_ReadScope.h"

#include "rfm_Database.h"
#include "rfm_FileNode.h"

rfm_ReadScope::rfm_ReadScope(rfm_Database const& database) : file(rfm_FileNode::Share(database.File())) {
  file->Connection().EnterScope();
}

rfm_ReadScope::~rfm_ReadScope() {
  file->Connection().LeaveScope();
}
