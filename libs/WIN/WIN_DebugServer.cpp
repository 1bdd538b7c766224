#include "WIN/WIN_DebugServer.hpp"

#include "GLO/GLO_Exception.hpp"
#include "GLO/GLO_String.hpp"
#include "GLO/GLO_Time.hpp"
#include "WIN/WIN_AppMetaData.hpp"
#include "WIN/WIN_CriticalSection.hpp"
#include "WIN/WIN_Encoding.hpp"
#include "WIN/WIN_Registry.hpp"
#include "libs/WIN/impl/WIN_FirstUse.hpp"
#include "libs/WIN/impl/WIN_TimeStamp.hpp"
#include "platform/common/PrivateFolder.hpp"

#include <atomic>
#include <cstdio>
#include <cstring>

namespace win {
namespace {

std::string Utf8(const std::wstring& text) {
    return glo::string(text, Utf8Encoding());
}

// A program that can print a trace has linked this file.
[[maybe_unused]] const bool gcOutputIsSet =
    (glo::SetDebugOutput([]() -> glo::DebugOutputIntf_t& { return DebugServer(); }), true);

}  // namespace

bool DebugServer_t::mIsPrinting = false;

std::string TimeStampText(glo::Time_t moment, glo::Time_t::DateFlag_t date) {
    const std::wstring text = moment.LocalText(date);
    return text.empty() ? "00:00:00  " : Utf8(text);
}

/// One print: drops itself while another one is under way, else holds the shared lock, opens the file and stamps the
/// line where that is due. Swallows everything, so that a trace never disturbs what it traces.
template <typename Write_t>
void DebugServer_t::Print(Write_t write) noexcept {
    const std::atomic_ref<bool> isPrinting(mIsPrinting);
    if (isPrinting.exchange(true, std::memory_order_relaxed)) return;
    CriticalSection_t& section = DebugServerCriticalSection();
    try {
        section.Enter();
    } catch (...) {
        isPrinting.store(false, std::memory_order_relaxed);
        return;
    }
    try {
        if (mIsNewRunPending) {
            PrintNewRun();
            mIsNewRunPending = false;
        }
        PrintTime();
        write(*mOutput);
    } catch (...) {
        // Lost, like all that can't be written.
    }
    isPrinting.store(false, std::memory_order_relaxed);
    section.Leave();
}

DebugServer_t::DebugServer_t(const std::wstring& name, bool enabled)
    : mIsEnabled(enabled), mFilePath(DebugFilePath(std::wstring(), name)) {
    if (!enabled) return;
    // What every print needs: made here, it outlives this server, and no lock is held while it is made.
    const FirstUseScope_t firstUse;
    static_cast<void>(DebugServerCriticalSection());
    static_cast<void>(AppMetaData());
}

DebugServer_t::DebugServer_t() : DebugServer_t(std::wstring(), DefaultDebugToOn()) {}

DebugServer_t::DebugServer_t(SwitchedOff_t) : mIsEnabled(false) {}

DebugServer_t::~DebugServer_t() = default;

void DebugServer_t::WriteText(const char* text) {
    Print([&](std::ofstream& output) {
        output << text;
        if (!std::strchr(text, '\n')) return;
        output.flush();
        mIsMidLine = false;
    });
}

void DebugServer_t::WriteText(const wchar_t* text) {
    WriteText(Utf8(text).c_str());
}

template <typename Value_t>
void DebugServer_t::WriteData(const Value_t& value) {
    Print([&](std::ofstream& output) { output << value; });
}

template void DebugServer_t::WriteData(const float&);
template void DebugServer_t::WriteData(const char&);
template void DebugServer_t::WriteData(const int&);
template void DebugServer_t::WriteData(const unsigned int&);
template void DebugServer_t::WriteData(const unsigned short&);
template void DebugServer_t::WriteData(const long&);
template void DebugServer_t::WriteData(const unsigned long&);
template void DebugServer_t::WriteData(const std::string&);
template void DebugServer_t::WriteData(const Duration_t&);

void DebugServer_t::PrintException(const glo::Exception_t& exception) {
    if (mIsEnabled) WriteText(glo::ExceptionLine(exception).c_str());
}

void DebugServer_t::PrintException(const glo::Exception_t& exception, const std::string& context) {
    if (mIsEnabled) WriteText(glo::ExceptionLine(exception, context).c_str());
}

void DebugServer_t::PrintTime() {
    if (!mIsEnabled || mIsMidLine || !mOutput) return;
    *mOutput << TimeStampText(glo::Time_t::Now(), glo::Time_t::DateFlag_t::NoDate) << ": ";
    mIsMidLine = true;
}

void DebugServer_t::PrintNewRun() {
    const std::string path = Utf8(mFilePath);
    platform::makePrivateFile(path);  // the stream would let everybody read a new one
    mOutput.reset(new std::ofstream(path, std::ios::app));
    const AppMetaData_t& application = AppMetaData();
    *mOutput << TimeStampText(glo::Time_t::Now(), glo::Time_t::DateFlag_t::WithDate)
             << " ***************** New Run ****************************\n"
             << "Application Version: " << Utf8(application.Version().Str() + L' ' + application.BuildType()) << '\n';
}

void DebugServer_t::Reset() {
    const std::string path = Utf8(mFilePath);
    const std::string previous = path + ".previous";
    std::remove(previous.c_str());
    std::rename(path.c_str(), previous.c_str());
}

CriticalSection_t& DebugServerCriticalSection() {
    static CriticalSection_t section;
    return section;
}

DebugServer_t& DebugServer() {
    static DebugServer_t off(DebugServer_t::SwitchedOff_t{});
    if (FirstUseScope_t::IsInside()) return off;
    static DebugServer_t server = [] {
        const FirstUseScope_t firstUse;
        return DebugServer_t();
    }();
    return server;
}

bool DefaultDebugToOn() {
    const auto& showDebug = Registry().ShowDebug();
    return showDebug.IsKnown() && showDebug.Get();
}

}  // namespace win
