// shortcut_set: one shortcut of each kind, all into the same database.
#pragma once

#include "ddr_Shortcut.h"

/// Shortcuts to a database, to its three collections and to one of its models.
struct shortcut_set {
  /// @param name the persistent name of the database
  /// @param modelKey the name of the model
  shortcut_set(cow_String const& name, cow_String const& modelKey)
      : database(new ddr_DdbShortcutImpl(name)), models(new ddr_ModelContainerInDdbShortcut(database)),
        results(new ddr_ResultContainerInDdbShortcut(database)),
        userData(new ddr_UserDataContainerInDdbShortcut(database)),
        model(new ddr_ModelInModelContainerShortcut(modelKey, models)) {}

  ddr_DdbShortcut database;
  ddr_ModelContainerShortcut models;
  ddr_ResultContainerShortcut results;
  ddr_UserDataContainerShortcut userData;
  ddr_ModelShortcut model;
};
