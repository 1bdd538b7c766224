#include "GLO/GLO_Blackbox.hpp"
#include "GLO/GLO_Exception.hpp"
#include "GLO/GLO_String.hpp"
#include "platform/NSBundle.hpp"
#include "platform/Platform.hpp"

#include <algorithm>

namespace glo {
namespace {

std::wstring LocalizedString(const wchar_t* table, const wchar_t* key) {
    std::wstring name(table);
    if (EqualNoCase(name, L"crl"))
        name = L"CRL_Common";
    else
        std::ranges::transform(name, name.begin(), [](wchar_t c) {
            return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c;
        });
    return wstring(platform::mainBundle().localizedStringForKey(string(key, gcUtf8Encoding), std::string(),
                                                                string(name, gcUtf8Encoding)),
                   gcUtf8Encoding);
}

std::wstring PathMessage(const std::wstring& message, const std::wstring& path) {
    return message + L"Path: " + path;
}

}  // namespace

OutOfRange_t::OutOfRange_t(const char* file, unsigned short line, const std::wstring& message)
    : Exception_t(file, line, message, "") {
    Blackbox().Add("File: " + std::string(file) + " Line: " + std::to_string(line) + "\n");
    Blackbox().Add(NarrowMessage());
}

InvalidInput_t::InvalidInput_t(const std::wstring& userText, const char* file, unsigned short line)
    : Exception_t(file, line, L"", ""), mUserText(userText) {}

InvalidInput_t::InvalidInput_t(const wchar_t* table, const wchar_t* key, const char* file, unsigned short line)
    : InvalidInput_t(LocalizedString(table, key), file, line) {}

Terminate_t::Terminate_t(const char* file, unsigned short line) : Exception_t(file, line, L"", "") {}

FileError_t::FileError_t(const char* file, unsigned short line, const std::wstring& path)
    : FileError_t(file, line, L"", path) {}

FileError_t::FileError_t(const char* file, unsigned short line, const std::wstring& message, const std::wstring& path)
    : Exception_t(file, line, PathMessage(message, path), "") {}

LocaleDoesNotExist_t::LocaleDoesNotExist_t(const char* file, unsigned short line, const std::string& localeName)
    : Exception_t(file, line, localeName, "") {}

CommunicationsError_t::CommunicationsError_t(const char* file, unsigned short line, const std::wstring& message)
    : Exception_t(file, line, message, "") {}

CommunicationsError_t::CommunicationsError_t(DebugOutputIntf_t& output, const char* file, unsigned short line,
                                             const std::wstring& message)
    : Exception_t(output, file, line, message, "") {}

Timeout_t::Timeout_t(const char* file, unsigned short line) : CommunicationsError_t(file, line, L"") {}

Timeout_t::Timeout_t(DebugOutputIntf_t& output, const char* file, unsigned short line)
    : CommunicationsError_t(output, file, line, L"") {}

WindowDoesNotExist_t::WindowDoesNotExist_t(const char* file, unsigned short line) : Exception_t(file, line, L"", "") {}

DefunctSingleton_t::DefunctSingleton_t(const char* file, unsigned short line) : Exception_t(file, line, L"", "") {}

Assert_t::Assert_t(const char* file, unsigned short line) : Exception_t(file, line, L"", "") {}

XsltException_t::XsltException_t(const std::wstring& message, const char* file, unsigned short line)
    : Exception_t(file, line, message, "") {}

XsltOutOfMemoryException_t::XsltOutOfMemoryException_t(const std::wstring& message, const char* file,
                                                       unsigned short line)
    : XsltException_t(message, file, line) {}

}  // namespace glo
