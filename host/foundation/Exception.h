#pragma once

#include "host/foundation/String.h"

/// The host's error record. The host's libraries raise it by pointer
/// (`throw new Exception(...)`); whoever catches it logs or shows it and
/// deletes it.
class Exception {
public:
  /// `module` and `function` name where it arose, `code` is one of the codes
  /// below or a module's own, `number` a system error number or 0, `details`
  /// further text or empty, `flag` 1 for a fault of the caller, 0 otherwise.
  Exception(const String& module, const String& function, int code, const String& message, int number,
            const String& details, signed char flag);
  virtual ~Exception();

  const String& Module() const { return m_Module; }
  const String& Function() const { return m_Function; }
  int Code() const { return m_Code; }
  const String& Message() const { return m_Message; }
  int Number() const { return m_Number; }
  const String& Details() const { return m_Details; }
  signed char Flag() const { return m_Flag; }

  /// One line: the message, then the system's text for `number` and the
  /// details where there are any.
  String Text() const;

  /// Writes the record to the log at error level; null is ignored. Does not
  /// delete it.
  static void Log(Exception* exception);

private:
  String m_Module;
  String m_Function;
  int m_Code;
  String m_Message;
  int m_Number;
  String m_Details;
  signed char m_Flag;
};

/// Codes of the exceptions that the host's libraries raise.
enum ExceptionCode : int {
  k_ErrorSystem = 0x10000001,    ///< a system call failed; Number() is errno
  k_ErrorSyntax = 0x10000002,    ///< a text from a user or a file is malformed
  k_ErrorStream = 0x10000003,    ///< a stream ended early or holds nonsense
  k_ErrorReference = 0x10000004, ///< a parameter reference nobody answers, or a cycle
  k_ErrorHandle = 0x10000005,    ///< a counted handle of an object that has none
  k_ErrorLimit = 0x10000006,     ///< a bound that protects the host was reached
  k_ErrorModule = 0x10000007,    ///< code of a module threw what is no Exception*
};

/// Raises an Exception of the host's own libraries.
[[noreturn]] void RaiseException(const char* function, int code, const String& message, int number = 0,
                                 const String& details = String::Null);

/// In a `catch (...)`: the text of what was caught, never empty. An Exception*
/// is deleted with it.
String TakeCaughtText();

/// Runs a step; the text of what it throws, empty where it throws nothing.
template <typename Step> String TextOfFailure(Step step) {
  try {
    step();
    return String::Null;
  } catch (...) {
    return TakeCaughtText();
  }
}

/// In a `catch (...)` of what is no Exception*: raises one, with `who` before
/// its text.
[[noreturn]] void RaiseForeign(const String& who);

/// Calls code of a module. An Exception* passes; anything else that it throws
/// becomes one, whose text begins with `who`, so that a module's own types of
/// errors never cross the host.
template <typename Call> auto CallModule(const String& who, Call call) {
  try {
    return call();
  } catch (Exception*) {
    throw;
  } catch (...) {
    RaiseForeign(who);
  }
}
