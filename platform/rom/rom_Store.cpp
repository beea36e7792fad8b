#include "rom_Store.h"

#include "nex_Exception.h"
#include "rom_MapAgent.h"
#include "rom_WritePass.h"
#include "utl_Utf8.h"

#include <algorithm>

namespace {
constexpr char const* sourcePath = "platform/rom/rom_Store";
}

rom_Store::rom_Store(cls_ClassRegistrar const* givenRegistrar, rfm_File const& openedFile,
                     rfm_Database opened)
    : registrar(givenRegistrar == nullptr ? cls_ClassRegistrar() : *givenRegistrar), file(openedFile),
      database(std::move(opened)), foreignCommits(database.ForeignCommits()) {}

rom_Store::~rom_Store() {
  pass.reset();
  cache.Clear();
  // An agent that only this store keeps goes when it is detached.
  unborn.clear();
  agentsByHeader.clear();
  // What an agent lets go may hold the last handle of another one, which then leaves the set itself.
  while (!agents.empty()) {
    cls_AgentHandle const agent(*agents.begin());
    agents.erase(agents.begin());
    static_cast<rom_MapAgent&>(*agent).Detach();
  }
}

rfm_ClassEntry const& rom_Store::StoredClass(unsigned classId) const {
  rfm_ClassEntry const* entry = database.FindClass(classId);
  if (entry == nullptr) {
    char id[32];
    std::snprintf(id, sizeof id, "0x%x", classId);
    nex_Exception::Throw(nex_TextException(("The database file '" + utl_Printable(file.FileName().View()) +
                                            "' refers to class " + id +
                                            ", which its class list does not have; the file is damaged.")),
                         sourcePath, __LINE__);
  }
  return *entry;
}

bool rom_Store::IsA(unsigned classId, unsigned baseTypeId) const {
  // Objects of a class that this process knows are made by its own code, whatever the file says of them.
  if (classId == baseTypeId || registrar.Find(classId) != nullptr) {
    return registrar.IsDerivedFrom(classId, baseTypeId);
  }
  rfm_BaseClasses const& bases = UnknownClasses();
  return bases.IsA(classId, baseTypeId) || registrar.IsDerivedFrom(bases.Outermost(classId), baseTypeId);
}

rfm_BaseClasses const& rom_Store::UnknownClasses() const {
  if (unknownClassesVersion != database.ClassListVersion()) {
    std::vector<std::pair<unsigned, unsigned>> derivations;
    for (rfm_ClassEntry const& entry : database.Classes()) {
      if (registrar.Find(entry.typeId) == nullptr) {
        derivations.emplace_back(entry.typeId, entry.baseTypeId);
      }
    }
    unknownClasses = rfm_BaseClasses(derivations);
    unknownClassesVersion = database.ClassListVersion();
  }
  return unknownClasses;
}

std::string rom_Store::Where(unsigned classId, int row) const {
  rfm_ClassEntry const* entry = database.FindClass(classId);
  std::string const where = "File '" + utl_Printable(file.FileName().View()) + "', ";
  if (entry == nullptr) {
    return where + "missing object";
  }
  return where + "class '" + utl_PrintableStart(entry->name.View()) + "', row " + std::to_string(row);
}

cls_AgentHandle rom_Store::Agent(rom_RowId header, cls_Uid const& uid, std::int64_t handle) {
  auto found = agentsByHeader.find(header);
  if (found != agentsByHeader.end()) {
    return cls_AgentHandle(found->second);
  }
  return cls_AgentHandle(new rom_MapAgent(*this, header, uid, handle));
}

rom_MapAgent* rom_Store::UnbornAgent(cls_Uid const& uid) const {
  auto found =
      std::find_if(unborn.begin(), unborn.end(), [&](rom_MapAgent* agent) { return agent->Uid() == uid; });
  return found == unborn.end() ? nullptr : *found;
}

void rom_Store::AddAgent(rom_MapAgent& agent) {
  if (unborn.capacity() <= agents.size()) { // room for each of them, so that none fails to be taken back
    unborn.reserve(2 * agents.size() + 1);
  }
  auto const added = agents.insert(&agent).first;
  try {
    agentsByHeader[agent.Header()] = &agent;
  } catch (...) {
    agents.erase(added);
    throw;
  }
}

void rom_Store::BearAgent(rom_MapAgent& agent, rom_RowId header) {
  agentsByHeader[header] = &agent;
  std::erase(unborn, &agent);
}

void rom_Store::TakeBackAgent(rom_MapAgent& agent) noexcept {
  auto const found = agentsByHeader.find(agent.Header());
  if (found != agentsByHeader.end() && found->second == &agent) {
    agentsByHeader.erase(found);
  }
  unborn.push_back(&agent);
}

void rom_Store::DropAgent(rom_MapAgent& agent) noexcept {
  agents.erase(&agent);
  std::erase(unborn, &agent);
  auto found = agentsByHeader.find(agent.Header());
  if (found != agentsByHeader.end() && found->second == &agent) {
    agentsByHeader.erase(found);
  }
}

rom_WritePass& rom_Store::BeginPass() {
  if (pass != nullptr) {
    nex_Exception::Throw(nex_AssertException("no other write of this file is under way"), sourcePath,
                         __LINE__);
  }
  pass = std::make_unique<rom_WritePass>(*this);
  return *pass;
}

void rom_Store::EndPass() noexcept {
  pass.reset();
}
