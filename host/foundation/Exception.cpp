#include "host/foundation/Exception.h"

#include "host/foundation/Log.h"

#include <exception>
#include <memory>
#include <system_error>

Exception::Exception(const String& module, const String& function, int code, const String& message,
                     int number, const String& details, signed char flag)
    : m_Module(module), m_Function(function), m_Code(code), m_Message(message), m_Number(number),
      m_Details(details), m_Flag(flag) {}

Exception::~Exception() = default;

String Exception::Text() const {
  String text = m_Message;
  if (m_Number != 0) {
    // Not strerror: its buffer is shared between threads.
    text += ": " + std::system_category().message(m_Number);
  }
  if (!m_Details.empty()) {
    text += " (" + m_Details + ")";
  }
  return text;
}

void Exception::Log(Exception* exception) {
  if (exception != nullptr) {
    LogError(exception->Module() + "::" + exception->Function() + ": " + exception->Text());
  }
}

void RaiseException(const char* function, int code, const String& message, int number,
                    const String& details) {
  throw new Exception("Trovik", function, code, message, number, details, 0);
}

String TakeCaughtText() {
  String text;
  try {
    throw;
  } catch (Exception* exception) {
    const std::unique_ptr<Exception> owned(exception);
    text = owned == nullptr ? String::Null : owned->Text();
  } catch (const std::exception& failure) {
    text = failure.what();
  } catch (...) { // told below
  }
  return text.empty() ? String("An error without a text") : text;
}

void RaiseForeign(const String& who) {
  RaiseException("CallModule", k_ErrorModule, who + ": " + TakeCaughtText());
}
