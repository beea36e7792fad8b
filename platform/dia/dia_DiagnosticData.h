// dia_DiagnosticData: messages kept with a database.
#pragma once

#include "cls_ClassRegistrar.h"
#include "cls_ListObj.h"
#include "cls_ReadVisitor.h"
#include "cls_WriteVisitor.h"
#include "os_Export.h"

/// How serious a message is. Stored.
enum class dia_Severity : int {
  Information = 0,
  Warning = 1,
  Error = 2,
};

/// One message: when, how serious, what. A plain value.
class DDR_API dia_Message {
public:
  /// @param messageTime [seconds since 1970]
  dia_Message(int messageTime, dia_Severity messageSeverity, cow_String messageText);
  /// Throws when the stored severity is none of dia_Severity.
  explicit dia_Message(cls_ReadVisitor const& reader);

  static unsigned TypeId() noexcept { return 0x240002; }
  int Time() const noexcept { return time; }
  dia_Severity Severity() const noexcept { return severity; }
  cow_String const& Text() const noexcept { return text; }
  void DBWrite(cls_WriteVisitor const& writer) const;

private:
  int time;
  dia_Severity severity;
  cow_String text;
  cls_Uid uid;
};

/// Messages that a host leaves with a database, oldest first. Stored with it. Copies share them until one
/// writes.
class DDR_API dia_DiagnosticData {
public:
  /// No messages, a new identity.
  dia_DiagnosticData();
  explicit dia_DiagnosticData(cls_ReadVisitor const& reader);

  static unsigned TypeId() noexcept { return 0x240001; }
  /// Adds a message at the end.
  void Append(int time, dia_Severity severity, cow_String const& text);
  int Size() const { return messages.Size(); }
  /// @param index [index from 0] throws nex_AssertException when there is no such message
  dia_Message const& Message(int index) const { return messages.ConstGet(index); }
  void Clear() { messages.Clear(); }
  cls_Uid const& Uid() const noexcept { return uid; }
  void DBWrite(cls_WriteVisitor const& writer) const;

private:
  cls_ListObj<dia_Message> messages;
  cls_Uid uid;
};

/// Describes the classes of this library to a registrar.
DDR_API void dia_registerClasses(cls_ClassRegistrar& registrar);
