#include "GLO/GLO_String.hpp"
#include "WIN/WIN_AppMetaData.hpp"
#include "WIN/WIN_DebugServer.hpp"
#include "WIN/WIN_Encoding.hpp"
#include "platform/Directories.hpp"
#include "platform/Platform.hpp"
#include "platform/common/PrivateFolder.hpp"

#include <string>

namespace win {

std::wstring DebugFileDirectory() {
    const std::string caches = platform::directories().cachesDirectory();
    return caches.empty() ? std::wstring() : glo::wstring(caches, Utf8Encoding()) + L"/Trovik/";
}

std::wstring DebugFilePath(const std::wstring& suffix, const std::wstring& name) {
    const std::wstring directory = DebugFileDirectory();
    if (directory.empty()) return {};  // a user without a home folder: the file can't be opened and traces are lost
    // Not made where the caches folder itself is missing; the traces are lost then as well.
    const std::string path = glo::string(directory, Utf8Encoding());
    platform::makePrivateFolder(path);
    platform::closeFolder(path);
    return directory + (name.empty() ? AppMetaData().ProductName() + suffix : name) + L".log";
}

}  // namespace win
