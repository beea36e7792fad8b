#include "dia_DiagnosticData.h"

#include "nex_Exception.h"

namespace {

dia_Severity severityOf(cls_ReadVisitor const& reader) {
  int const stored = reader.ReadInt("severity");
  if (stored < static_cast<int>(dia_Severity::Information) ||
      stored > static_cast<int>(dia_Severity::Error)) {
    nex_Exception::Throw(nex_TextException(reader.Where() + ": severity " + std::to_string(stored) +
                                           " is none that this release knows; the file is damaged or newer."),
                         "platform/dia/dia_DiagnosticData", __LINE__);
  }
  return static_cast<dia_Severity>(stored);
}

void* readDiagnosticData(cls_ReadVisitor& reader) {
  return new dia_DiagnosticData(reader);
}

void* readMessage(cls_ReadVisitor& reader) {
  return new dia_Message(reader);
}

} // namespace

dia_Message::dia_Message(int messageTime, dia_Severity messageSeverity, cow_String messageText)
    : time(messageTime), severity(messageSeverity), text(std::move(messageText)), uid(cls_Uid::Allocate()) {}

dia_Message::dia_Message(cls_ReadVisitor const& reader)
    : time(reader.ReadInt("time")), severity(severityOf(reader)), text(reader.ReadString("text")),
      uid(reader.GetUid()) {}

void dia_Message::DBWrite(cls_WriteVisitor const& writer) const {
  if (!writer.StartWrite(TypeId(), uid)) {
    return;
  }
  writer.WriteInt("time", time);
  writer.WriteInt("severity", static_cast<int>(severity));
  writer.WriteString("text", text);
}

dia_DiagnosticData::dia_DiagnosticData() : uid(cls_Uid::Allocate()) {}

dia_DiagnosticData::dia_DiagnosticData(cls_ReadVisitor const& reader)
    : messages(cls_ReadVisitor(reader, "messages")), uid(reader.GetUid()) {}

void dia_DiagnosticData::Append(int time, dia_Severity severity, cow_String const& text) {
  messages.Append(dia_Message(time, severity, text));
}

void dia_DiagnosticData::DBWrite(cls_WriteVisitor const& writer) const {
  if (!writer.StartWrite(TypeId(), uid)) {
    return;
  }
  cls_WriteVisitor const list(writer, "messages");
  messages.DBWrite(list);
}

void dia_registerClasses(cls_ClassRegistrar& registrar) {
  registrar
      .CreateClassMD("dia_DiagnosticData", dia_DiagnosticData::TypeId(), 1, readDiagnosticData,
                     cls_NoBaseTypeId)
      .AddAttribute("messages", cls_AttributeType::Object, cls_ListObjTypeId, cls_CollectionType::List);
  registrar.CreateClassMD("dia_Message", dia_Message::TypeId(), 1, readMessage, cls_NoBaseTypeId)
      .AddAttribute("time", cls_AttributeType::Integer, 1, cls_CollectionType::Single)
      .AddAttribute("severity", cls_AttributeType::Integer, 1, cls_CollectionType::Single)
      .AddAttribute("text", cls_AttributeType::String, 1, cls_CollectionType::Single);
}
