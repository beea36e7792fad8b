// rfm_Transaction: changes to a file that happen together or not at all.
#pragma once

#include "os_Export.h"

#include <memory>

class rfm_Database;
class rfm_DatabaseNode;

/// One save. Everything written between construction and Commit reaches the file whole, or not at all.
///
/// There is one transaction at a time on a file that was opened; a second one throws nex_AssertException.
/// When Commit has returned, the changes survive a power cut. Destroying a transaction without Commit takes
/// everything back: rows, entries, handles, and classes in the memory of the database.
class DDR_API rfm_Transaction {
public:
  /// Begins to write.
  /// @throws rfm_Exception ReadOnly for a file opened for reading, Locked when another process is saving,
  /// Moved
  ///   when the file no longer stands under its name
  explicit rfm_Transaction(rfm_Database& database);
  /// Takes everything back unless Commit has returned. Never throws.
  ~rfm_Transaction();
  rfm_Transaction(rfm_Transaction const&) = delete;
  rfm_Transaction& operator=(rfm_Transaction const&) = delete;

  /// Makes the changes permanent. Between the begin and this, a change that ran out of memory half-way, as
  /// one of the class list, makes this refuse.
  /// @throws rfm_Exception Full, Locked, ...; the changes have been taken back then, unless IsStored, and the
  /// transaction has ended
  void Commit();
  /// Whether the changes are in the file. After a Commit that threw too, when the device failed at its very
  /// end: everybody reads them, but a power cut may still take them back. The next Commit that returns has
  /// made them durable, even if it changed nothing itself.
  bool IsStored() const noexcept { return stored; }

private:
  void RollBack() noexcept;

  std::shared_ptr<rfm_DatabaseNode> database;
  bool active = false;
  bool stored = false;
};
