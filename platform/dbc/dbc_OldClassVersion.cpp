#include "dbc_OldClassVersion.h"

dbc_OldClassVersion::~dbc_OldClassVersion() = default;

void dbc_OldClassVersion::SchemaChanges(dbc_DatabaseConverter&) const {}

void dbc_OldClassVersion::ClassesToDelete(dbc_DatabaseConverter&) const {}

void dbc_OldClassVersion::ClassesToRename(dbc_DatabaseConverter&) const {}

void dbc_OldClassVersion::TablesToRename(dbc_DatabaseConverter&) const {}
