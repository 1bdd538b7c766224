#pragma once

#include "GLO/GLO_DebugOutput.hpp"

#include <exception>
#include <string>

namespace glo {

/// Carries the call stack of the raise site, where the capture was asked for.
class ExceptionBase_t {
  public:
    ExceptionBase_t() = default;
    explicit ExceptionBase_t(bool captureStack);  ///< true keeps the calling thread's stack
    /// @plain
    /// @{
    ExceptionBase_t(const ExceptionBase_t&) = default;
    ExceptionBase_t& operator=(const ExceptionBase_t&) = default;
    virtual ~ExceptionBase_t();
    /// @}

    /// As win::StackTrace() tells it; empty where no capture was asked for.
    const std::wstring& StackTrace() const { return mStackTrace; }

  private:
    std::wstring mStackTrace;  ///< empty unless the capture was asked for
};

/// Root of every failure that the library throws. Says where it was raised and announces itself on a debug output at
/// the moment it is made, so that a trace exists even when a caller swallows it. A copy does not announce itself again.
/// Raise sites pass their source path without extension ("libs/IOL/IOL_Link") and line.
class Exception_t : public ExceptionBase_t, public std::exception {
  public:
    /// All fields empty, line 0, not announced.
    Exception_t() = default;

    /// Announces itself on the process-wide debug output. A failure to announce is swallowed. Any thread.
    /// @param file           the raise site's source path
    /// @param line           the raise site's line
    /// @param message        wide, or narrow in the error code page
    /// @param subIdentifier  printed after "SubId:"; usually empty
    /// @param captureStack   keeps the raise site's call stack
    /// @{
    Exception_t(const char* file, unsigned short line, const std::wstring& message, const std::string& subIdentifier,
                bool captureStack = false);
    Exception_t(const char* file, unsigned short line, const std::string& message, const std::string& subIdentifier,
                bool captureStack = false);
    /// @}

    /// Announces itself on the given output, which is borrowed for the call.
    Exception_t(DebugOutputIntf_t& output, const char* file, unsigned short line, const std::wstring& message,
                const std::string& subIdentifier, bool captureStack = false);

    /// A copy is not announced.
    /// @{
    Exception_t(const Exception_t&) = default;
    Exception_t& operator=(const Exception_t&) = default;
    /// @}
    ~Exception_t() override;

    /// The message in the error code page. Every call, on whichever exception, overwrites the one text that all
    /// exceptions of the process share: the pointer shows the latest call's text. Callers depend on that sharing. It is
    /// not locked: one thread at a time; use NarrowMessage() where several threads report.
    const char* what() const noexcept override;

    /// As given to the constructor; the message also has what was appended.
    /// @{
    const std::string& File() const { return mFile; }
    unsigned short Line() const { return mLine; }
    const std::wstring& Message() const { return mMessage; }
    const std::string& SubIdentifier() const { return mSubIdentifier; }
    /// @}

    /// The message in the error code page, as a text of the caller's own. Any thread.
    std::string NarrowMessage() const;

    /// Appends to the message, without a separator.
    void AppendToWhat(const std::wstring& text) { mMessage += text; }

    /// The number as decimal digits.
    static std::string ErrString(unsigned int number);

  protected:
    /// Gives a message to an exception that has announced itself without one.
    void SetMessage(const std::wstring& message) { mMessage = message; }

  private:
    void Announce(DebugOutputIntf_t& output) const noexcept;

    std::string mFile;
    unsigned short mLine = 0;
    std::wstring mMessage;
    std::string mSubIdentifier;
};

/// The line that announces an exception: "Error: <file> <line> SubId: <sub-identifier> <message>\n". A context, where
/// given, stands after two more spaces before the line's end. A text with a zero character in it counts up to there, as
/// in what(), whose shared text is never touched. Any thread.
/// @{
std::string ExceptionLine(const Exception_t& exception);
std::string ExceptionLine(const Exception_t& exception, const std::string& context);
/// @}

// Some of the classes below are raised by nothing in this program; they are there for what is built on this library.
// A constructor takes the raise site, as Exception_t does; where it takes no message, the message is empty.

/// An index or a value outside its range. Also written to the black box.
class OutOfRange_t : public Exception_t {
  public:
    /// @plain
    OutOfRange_t(const char* file, unsigned short line, const std::wstring& message);
};

/// Invalid input. Carries a text for the user, apart from the message, which stays empty.
class InvalidInput_t : public Exception_t {
  public:
    InvalidInput_t(const std::wstring& userText, const char* file, unsigned short line);  ///< @plain

    /// The text for the user is looked up: table "crl" (in any case) means "CRL_Common", other names are taken in upper
    /// case, and an empty name is the bundle's default table.
    InvalidInput_t(const wchar_t* table, const wchar_t* key, const char* file, unsigned short line);

    const std::wstring& UserText() const { return mUserText; }  ///< in the user's language

  private:
    std::wstring mUserText;
};

/// The current operation was asked to end.
class Terminate_t : public Exception_t {
  public:
    Terminate_t(const char* file, unsigned short line);  ///< @plain
};

/// A failure of the file system. The message ends with "Path: " and the path.
class FileError_t : public Exception_t {
  public:
    /// @plain
    /// @{
    FileError_t(const char* file, unsigned short line, const std::wstring& path);
    FileError_t(const char* file, unsigned short line, const std::wstring& message, const std::wstring& path);
    /// @}
};

/// An unknown locale name, which is the message.
class LocaleDoesNotExist_t : public Exception_t {
  public:
    /// @plain
    LocaleDoesNotExist_t(const char* file, unsigned short line, const std::string& localeName);
};

/// Any failure talking to a device.
class CommunicationsError_t : public Exception_t {
  public:
    /// Announces itself on the process-wide debug output, or on the given one.
    /// @{
    CommunicationsError_t(const char* file, unsigned short line, const std::wstring& message);
    CommunicationsError_t(DebugOutputIntf_t& output, const char* file, unsigned short line,
                          const std::wstring& message);
    /// @}
};

/// A device did not answer in time.
class Timeout_t : public CommunicationsError_t {
  public:
    /// Announces itself on the process-wide debug output, or on the given one.
    /// @{
    Timeout_t(const char* file, unsigned short line);
    Timeout_t(DebugOutputIntf_t& output, const char* file, unsigned short line);
    /// @}
};

/// A window that no longer exists.
class WindowDoesNotExist_t : public Exception_t {
  public:
    WindowDoesNotExist_t(const char* file, unsigned short line);  ///< @plain
};

/// A process-wide object used after it was destroyed.
class DefunctSingleton_t : public Exception_t {
  public:
    DefunctSingleton_t(const char* file, unsigned short line);  ///< @plain
};

/// A failed assertion. Announced, never thrown.
class Assert_t : public Exception_t {
  public:
    Assert_t(const char* file, unsigned short line);  ///< @plain
};

/// A failed XML transformation.
class XsltException_t : public Exception_t {
  public:
    XsltException_t(const std::wstring& message, const char* file, unsigned short line);  ///< @plain
};

/// An XML transformation that ran out of memory.
class XsltOutOfMemoryException_t : public XsltException_t {
  public:
    /// @plain
    XsltOutOfMemoryException_t(const std::wstring& message, const char* file, unsigned short line);
};

/// Thrown to leave a thread's body. Outside the tree, so that a handler for Exception_t never stops it.
class ExitThread_t {};

}  // namespace glo
