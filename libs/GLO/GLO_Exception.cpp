#include "GLO/GLO_Exception.hpp"

#include "GLO/GLO_CallStack.hpp"
#include "GLO/GLO_String.hpp"
#include "platform/common/Boundary.hpp"

namespace glo {
namespace {

constexpr std::size_t gcWhatRoom = 4096;  // characters; a longer text may move the one that what() shares

bool ReadRaiseSite(std::string& file, int& line) {
    try {
        throw;
    } catch (const Exception_t& e) {
        file = e.File();
        line = e.Line();
        return true;
    } catch (...) {
        return false;
    }
}

constinit DebugOutputSource_t gDebugOutput = nullptr;  // set while static objects are made, in no certain order

// A program that can throw an Exception_t has linked this file.
[[maybe_unused]] const bool gcReaderIsSet = (platform::setRaiseSiteReader(ReadRaiseSite), true);

}  // namespace

void SetDebugOutput(DebugOutputSource_t output) noexcept {
    gDebugOutput = output;
}

ExceptionBase_t::ExceptionBase_t(bool captureStack) {
    if (captureStack) mStackTrace = CallStack();
}

ExceptionBase_t::~ExceptionBase_t() = default;

Exception_t::Exception_t(const char* file, unsigned short line, const std::wstring& message,
                         const std::string& subIdentifier, bool captureStack)
    : ExceptionBase_t(captureStack), mFile(file), mLine(line), mMessage(message), mSubIdentifier(subIdentifier) {
    // The source itself may fail, while the debug output is being made.
    try {
        if (gDebugOutput) Announce(gDebugOutput());
    } catch (...) {
    }
}

Exception_t::Exception_t(const char* file, unsigned short line, const std::string& message,
                         const std::string& subIdentifier, bool captureStack)
    : Exception_t(file, line, wstring(message, gcErrStdEncoding()), subIdentifier, captureStack) {}

Exception_t::Exception_t(DebugOutputIntf_t& output, const char* file, unsigned short line, const std::wstring& message,
                         const std::string& subIdentifier, bool captureStack)
    : ExceptionBase_t(captureStack), mFile(file), mLine(line), mMessage(message), mSubIdentifier(subIdentifier) {
    Announce(output);
}

Exception_t::~Exception_t() = default;

void Exception_t::Announce(DebugOutputIntf_t& output) const noexcept {
    try {
        output.PrintException(*this);
    } catch (...) {
        // The failure being reported matters more than the failure to report it.
    }
}

const char* Exception_t::what() const noexcept {
    static std::string sText;
    try {
        // Copied into room that stays where it is, so that earlier pointers show the new text.
        sText.reserve(gcWhatRoom);
        sText.assign(NarrowMessage().c_str());
    } catch (...) {
        return "";
    }
    return sText.c_str();
}

std::string Exception_t::NarrowMessage() const {
    return string(mMessage, gcErrStdEncoding());
}

std::string Exception_t::ErrString(unsigned int number) {
    return std::to_string(number);
}

std::string ExceptionLine(const Exception_t& exception) {
    return "Error: " + exception.File() + " " + std::to_string(exception.Line()) +
           " SubId: " + exception.SubIdentifier().c_str() + " " + exception.NarrowMessage().c_str() + "\n";
}

std::string ExceptionLine(const Exception_t& exception, const std::string& context) {
    std::string line = ExceptionLine(exception);
    line.insert(line.size() - 1, std::string("  ") + context.c_str());
    return line;
}

}  // namespace glo
