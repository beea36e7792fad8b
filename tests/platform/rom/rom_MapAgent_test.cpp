// The stored side of a keyed collection, asked directly.
#include "branch_test.h"

#include "cls_CollectionAgent.h"

#include <memory>
#include <string>

namespace {

struct NotedState : cls_StoredState {};

class rom_MapAgents : public branch_test {
protected:
  rom_MapAgents() : registrar(classes()), file(createFile(registrar)) { write(*file, sample()); }
  /// The agent of the map of a branch.
  cls_AgentHandle agentOf(int row) {
    rom_MementoRead const memento(*file, Branch::TypeId(), row, cls_Uid::Allocate());
    cls_ReadVisitor const branch(memento);
    return cls_ReadVisitor(branch, "map").GetCollectionAgent();
  }
  /// The agent of a map whose save was taken back.
  cls_AgentHandle unborn() {
    rom_MementoWrite memento(*file, Branch::TypeId(), -1);
    cls_WriteVisitor const branch(memento);
    branch.StartWrite(Branch::TypeId(), cls_Uid::Allocate());
    cls_WriteVisitor const map(branch, "map");
    map.StartWrite(cls_MapHeaderTypeId, cls_Uid::Allocate());
    return map.TakeCollectionAgent();
  }

  cls_ClassRegistrar const registrar;
  std::unique_ptr<rom_Transporter> file;
};

TEST_F(rom_MapAgents, CollectionWhoseSaveWasTakenBackHoldsNothing) {
  cls_AgentHandle const agent = unborn();
  EXPECT_TRUE(cls_AgentWalk(*agent).AtEnd());
  EXPECT_EQ(agent->OpenRecord("k0"), nullptr);
  EXPECT_FALSE(agent->IsStored("k0"));
}

TEST_F(rom_MapAgents, KeyIsStoredOrNot) {
  cls_AgentHandle const agent = agentOf(0);
  EXPECT_TRUE(agent->IsStored("k1"));
  EXPECT_FALSE(agent->IsStored("k9"));
  EXPECT_NE(agent->OpenRecord("k1"), nullptr);
  EXPECT_EQ(agent->OpenRecord("k9"), nullptr);
}

TEST_F(rom_MapAgents, RecordOutsideAWriteIsRefused) {
  EXPECT_THROW(agentOf(0)->WriteRequest("k0"), nex_AssertException);
}

TEST_F(rom_MapAgents, TakingOutAKeyThatIsNotThereChangesNothing) {
  std::string const before = read(*file, 0).contents();
  cls_AgentHandle const agent = agentOf(0);
  agent->BeginWrite();
  agent->RemoveStored("k9");
  agent->RemoveStored("k1");
  agent->EndWrite(nullptr);
  EXPECT_EQ(before, "text 2.500000 yes -2147483648 1 2 [ 0 1 2 ] { k0=10 k1=11 k2=12 }");
  EXPECT_EQ(read(*file, 0).contents(), "text 2.500000 yes -2147483648 1 2 [ 0 1 2 ] { k0=10 k2=12 }");
}

TEST_F(rom_MapAgents, OnlyAKeyThatWasTakenOutIsBroughtBack) {
  cls_AgentHandle const agent = agentOf(0);
  agent->BeginWrite();
  agent->RemoveStored("k1");
  agent->EndWrite(nullptr);
  agent->BeginWrite();
  EXPECT_TRUE(agent->RestoreRemoved("k1"));
  EXPECT_FALSE(agent->RestoreRemoved("k9"));
  agent->EndWrite(nullptr);
  EXPECT_TRUE(agent->IsStored("k1"));
  EXPECT_FALSE(agent->IsStored("k9"));
}

TEST_F(rom_MapAgents, AKeyThatIsWrittenTwiceIntoAnEmptyCollectionLeadsWhereItWasLastLedTo) {
  Branch const empty;
  write(*file, empty);
  cls_AgentHandle const full = agentOf(0);
  cls_AgentWalk walk(*full);
  cls_StoredReference const first = full->Reference();
  walk.Next();
  cls_StoredReference const second = full->Reference();
  cls_AgentHandle const agent = agentOf(1);
  agent->BeginWrite();
  agent->WriteReference("k", first);
  agent->WriteReference("k", second);
  agent->EndWrite(nullptr);
  EXPECT_EQ(read(*file, 1).map.Size(), 1);
  EXPECT_EQ(read(*file, 1).map.ConstGet("k").number, 11);
}

TEST_F(rom_MapAgents, GivingUpAWriteThatWasNotBegunDoesNothing) {
  cls_AgentHandle const agent = agentOf(0);
  agent->AbandonWrite();
  agent->BeginWrite();
  agent->RemoveStored("k1");
  agent->AbandonWrite();
  EXPECT_TRUE(agent->IsStored("k1"));
  file.reset();
  agent->AbandonWrite();
  EXPECT_THROW(agent->BeginWrite(), nex_TextException);
}

TEST_F(rom_MapAgents, MarksAreForgottenAtOnceWhereTheFileIsClosed) {
  cls_AgentHandle const agent = agentOf(0);
  file.reset();
  agent->MarkChanged("k0");
  agent->MarkChanged("k1");
  agent->ForgetChangedWhenStored({"k0"});
  EXPECT_FALSE(agent->IsChanged("k0"));
  EXPECT_TRUE(agent->IsChanged("k1"));
}

TEST_F(rom_MapAgents, StateSetBehindTheEndOfItsWriteHoldsOnceTheWriteIsPermanent) {
  cls_AgentHandle const agent = agentOf(0);
  auto later = std::make_unique<NotedState>();
  cls_StoredState const* const expected = later.get();
  for (bool const commits : {false, true}) {
    rom_MementoWrite memento(*file, Branch::TypeId(), 0);
    agent->BeginWrite();
    agent->EndWrite(std::make_unique<NotedState>());
    agent->SetStoredState(commits ? std::move(later) : std::make_unique<NotedState>());
    if (commits) {
      memento.End();
    }
  }
  EXPECT_EQ(agent->StoredState(), expected);
}

TEST_F(rom_MapAgents, StateOfAWriteThatWasTakenBackIsForgotten) {
  cls_AgentHandle const agent = agentOf(0);
  cls_StoredState const* const before = agent->StoredState();
  {
    rom_MementoWrite const memento(*file, Branch::TypeId(), 0);
    agent->BeginWrite();
    agent->EndWrite(std::make_unique<NotedState>());
    agent->SetStoredState(std::make_unique<NotedState>());
    EXPECT_NE(agent->StoredState(), before);
  }
  EXPECT_EQ(agent->StoredState(), before);
}

TEST_F(rom_MapAgents, StateThatIsSetWithoutAFileLivesWithTheAgent) {
  cls_AgentHandle const agent = agentOf(0);
  file.reset();
  auto state = std::make_unique<NotedState>();
  cls_StoredState const* const expected = state.get();
  agent->SetStoredState(std::move(state));
  EXPECT_EQ(agent->StoredState(), expected);
  EXPECT_TRUE(agent.IsSoleHolder());
}

TEST_F(rom_MapAgents, MapOfAnObjectThatWasNotReadReplacesWhatIsStored) {
  Branch branch = sample();
  write(*file, branch);
  branch.map.Remove("k1");
  branch.map.Insert("k3", Leaf(13));
  file = nullptr;
  file = openFile(registrar);
  write(*file, branch);
  EXPECT_EQ(read(*file, 2).contents(), "text 2.500000 yes -2147483648 1 2 [ 0 1 2 ] { k0=10 k2=12 k3=13 }");
}

} // namespace
