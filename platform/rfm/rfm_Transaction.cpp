// rfm_Transaction.cpp: one save.
#include "rfm_Transaction.h"

#include "rfm_DatabaseNode.h"

rfm_Transaction::rfm_Transaction(rfm_Database& changed) : database(changed.node) {
  database->Begin();
  active = true;
}

rfm_Transaction::~rfm_Transaction() {
  RollBack();
}

void rfm_Transaction::Commit() {
  try {
    database->Commit();
  } catch (...) {
    stored = database->CommitStands();
    RollBack();
    throw;
  }
  active = false;
  stored = true;
}

void rfm_Transaction::RollBack() noexcept {
  if (active) {
    active = false;
    database->RollBack();
  }
}
