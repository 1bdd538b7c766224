#pragma once

#include "GLO/GLO_AutoPtr.hpp"
#include "GLO/GLO_DebugOutput.hpp"
#include "GLO/GLO_NonCopyable.hpp"
#include "WIN/WIN_Duration.hpp"

#include <fstream>
#include <string>
#include <type_traits>

namespace glo {
class Exception_t;
}

namespace win {

class CriticalSection_t;

/// A trace file: text is appended, every line starts with the time of day and every run with a banner. Switched on or
/// off for its whole life; switched off, each print costs one test and no file is ever made.
///
/// One print is written at a time, whatever server it goes to. A print that comes while another one is under way, from
/// another thread or from an exception raised by the print itself, is dropped and not delayed: tracing may lose lines
/// but never waits and never recurses.
///
/// Prints never throw and never wait for one another. Any thread.
class DebugServer_t : public glo::DebugOutputIntf_t, private glo::NonCopyable_t {
  public:
    /// Computes the file's path, for which the folder is made when it is missing. The file comes with the first print.
    /// @param name     file name without the ".log" that is appended; empty for the product's name
    /// @param enabled  whether anything is ever written
    DebugServer_t(const std::wstring& name, bool enabled);

    /// The product's own trace, switched on by the setting "ShowDebug".
    DebugServer_t();
    ~DebugServer_t() override;

    /// Writes text. A text with a line end in it flushes the file and lets the next print start a new line.
    /// @{
    void PrintStr(const char* text) {
        if (mIsEnabled) WriteText(text);
    }
    void PrintStr(const wchar_t* text) {
        if (mIsEnabled) WriteText(text);
    }
    /// @}

    /// Writes one value as a standard stream would; never ends the line, never flushes. An enumeration goes out as its
    /// number. Instances exist for float, char, int, unsigned int, unsigned short, long, unsigned long, std::string and
    /// win::Duration_t.
    template <typename Value_t>
    void PrintData(const Value_t& value) {
        if (!mIsEnabled) return;
        if constexpr (std::is_enum_v<Value_t>) {
            WriteData(static_cast<unsigned int>(value));
        } else {
            WriteData(value);
        }
    }

    /// Writes the line of an exception: "Error: ", file, line, " SubId: ", sub-identifier, what(). The second form
    /// appends two spaces and the context.
    /// @{
    void PrintException(const glo::Exception_t& exception) override;
    void PrintException(const glo::Exception_t& exception, const std::string& context);
    /// @}

    /// Writes the line's time stamp if it is due. Called within a print.
    virtual void PrintTime();

    /// Opens the file for appending and writes the banner of a run. A file that can't be opened loses all output.
    /// Called within a print.
    void PrintNewRun();

    /// Moves the file aside to its name plus ".previous", over one that is there.
    void Reset();

    const std::wstring& FilePath() const { return mFilePath; }  ///< there may be no such file yet
    bool IsEnabled() const { return mIsEnabled; }               ///< @plain

    /// Chooses the constructor below.
    struct SwitchedOff_t {};
    /// A server that is off, has no path and touches nothing.
    explicit DebugServer_t(SwitchedOff_t);

  private:
    template <typename Write_t>
    void Print(Write_t write) noexcept;
    void WriteText(const char* text);
    void WriteText(const wchar_t* text);
    template <typename Value_t>
    void WriteData(const Value_t& value);

    const bool mIsEnabled;
    glo::AutoPtr<std::ofstream> mOutput;  ///< empty until the first print
    bool mIsMidLine = false;              ///< the time stamp of the current line has been written
    bool mIsNewRunPending = true;
    const std::wstring mFilePath;

    static bool mIsPrinting;  ///< of all servers and threads; only through std::atomic_ref
};

extern template void DebugServer_t::WriteData(const float&);
extern template void DebugServer_t::WriteData(const char&);
extern template void DebugServer_t::WriteData(const int&);
extern template void DebugServer_t::WriteData(const unsigned int&);
extern template void DebugServer_t::WriteData(const unsigned short&);
extern template void DebugServer_t::WriteData(const long&);
extern template void DebugServer_t::WriteData(const unsigned long&);
extern template void DebugServer_t::WriteData(const std::string&);
extern template void DebugServer_t::WriteData(const Duration_t&);

/// Serialises the prints of all servers. Entered alone, never with another lock. Any thread.
CriticalSection_t& DebugServerCriticalSection();

/// The process's general trace, made at the first call. While the settings and metadata that it is made from are
/// themselves being read, a switched-off stand-in answers: an exception raised there has nowhere to announce itself.
/// Any thread.
DebugServer_t& DebugServer();

/// The setting "ShowDebug" is there and true. One thread at a time, as all settings.
bool DefaultDebugToOn();

/// Folder of the trace files, with a "/" at its end: "Trovik" in the user's caches folder. Any thread.
std::wstring DebugFileDirectory();

/// Path of a trace file, whose folder is made when it is missing (its parents are not). Any thread.
/// @param suffix  appended to the product's name when `name` is empty
/// @param name    without ".log"; else the product's name is taken
std::wstring DebugFilePath(const std::wstring& suffix, const std::wstring& name);

}  // namespace win
