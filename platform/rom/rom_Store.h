// rom_Store: the inside of a transporter; what sources, sinks and agents of one file share.
#pragma once

#include "cls_ClassRegistrar.h"
#include "cls_Uid.h"
#include "rfm_BaseClasses.h"
#include "rfm_Database.h"
#include "rfm_File.h"
#include "rfm_ReadScope.h"
#include "rom_CowBarn.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

class cls_AgentHandle;
class rom_MapAgent;
class rom_WritePass;

/// Row of a class: the identity of a stored object within its file.
struct rom_RowId {
  unsigned classId = 0;
  int row = -1;
  friend auto operator<=>(rom_RowId const&, rom_RowId const&) = default;
};

class rom_Store {
public:
  /// Objects that hold objects nest a few levels; a file in which they nest deeper than this holds a circle.
  static constexpr int mostNestedInReading = 1000;
  /// What is written keeps a distance, for reading opens a few more objects around what it reads.
  static constexpr int mostNestedInWriting = 900;

  rom_Store(cls_ClassRegistrar const* registrar, rfm_File const& file, rfm_Database opened);
  ~rom_Store();
  rom_Store(rom_Store const&) = delete;
  rom_Store& operator=(rom_Store const&) = delete;

  /// The stored description of a class; throws when the file does not list it.
  rfm_ClassEntry const& StoredClass(unsigned classId) const;
  /// Whether `classId` is `baseTypeId` or derived from it: by the registrar, and for classes that it does not
  /// know by the file's own class list.
  bool IsA(unsigned classId, unsigned baseTypeId) const;
  /// "file 'x', class 'y', row n", for messages.
  std::string Where(unsigned classId, int row) const;

  /// The agent of the keyed collection whose header stands in a row; one for all who ask while any of them
  /// lives.
  cls_AgentHandle Agent(rom_RowId header, cls_Uid const& uid, std::int64_t handle);
  /// An agent of that identity whose header row was taken back by a failed save; null when there is none.
  rom_MapAgent* UnbornAgent(cls_Uid const& uid) const;
  void AddAgent(rom_MapAgent& agent);
  /// An agent that was taken back gets a header row again.
  void BearAgent(rom_MapAgent& agent, rom_RowId header);
  /// The header row of an agent is gone.
  void TakeBackAgent(rom_MapAgent& agent) noexcept;
  void DropAgent(rom_MapAgent& agent) noexcept;

  /// Begins the one write that may be under way.
  rom_WritePass& BeginPass();
  rom_WritePass* Pass() const noexcept { return pass.get(); }
  void EndPass() noexcept;

  cls_ClassRegistrar registrar;
  rfm_File file;
  rfm_Database database;
  rom_CowBarn cache;
  std::uint32_t foreignCommits = 0;  ///< commits of others when the file was opened here
  std::uint64_t bytesReadBefore = 0; ///< what the file had delivered when the outermost of them was opened
  std::uint64_t bytesAllowed = 0;    ///< how much may be delivered until it is closed [byte]
  int openSources = 0; ///< stored objects that are open for reading at this moment, nested in each other

private:
  /// The classes of the file that the registrar does not know, as derived from each other and from those that
  /// it knows.
  rfm_BaseClasses const& UnknownClasses() const;

  mutable rfm_BaseClasses unknownClasses;
  mutable std::optional<std::uint64_t> unknownClassesVersion; // of the class list that they are from
  std::unordered_set<rom_MapAgent*> agents;
  std::vector<rom_MapAgent*> unborn;
  std::map<rom_RowId, rom_MapAgent*> agentsByHeader;
  std::unique_ptr<rom_WritePass> pass;
};
