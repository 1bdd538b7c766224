#pragma once

#include "platform/SystemSurvey.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <stop_token>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

/// What a report is made of.
struct ReportSources {
    std::string logs;    ///< folder of logs and crash reports; empty for none
    std::string traces;  ///< folder of traces; empty for none
    std::string facts;   ///< what the program says of itself, in whole lines
    platform::SystemSurvey survey;
    std::chrono::system_clock::time_point now;
    std::size_t mostOfAFile = 8u << 20;  ///< bytes; of a longer file the end is taken
    std::size_t mostOfAll = 64u << 20;   ///< bytes; what comes beyond, oldest files last, is left out

    /// With the time and the survey of this system, from Platform::surveySystem. A program must set that: the survey
    /// also tells which names are masked. Asks the disk. Any thread.
    [[nodiscard]] static ReportSources ofThisSystem(std::string logs, std::string traces, std::string facts);
};

/// What support needs to see why a reset does not complete, in one archive: logs, crash reports and traces of seven
/// days, versions, the tree of USB devices, and who may open them. Names of users and of the computer, home folders and
/// serial numbers are replaced by marks (Masker). What entries() lists is what write() saves, byte for byte, and
/// nothing is sent anywhere. A plain value.
///
///     const Report report = Report::collect(ReportSources::ofThisSystem(logs, traces, "Trovik Reset Tool 1.0\n"));
///     for (const Report::Entry& entry : report.entries()) std::cout << entry.name << ...;
///     if (const std::error_code error = report.write(path)) std::cerr << error.message();
class Report {
  public:
    enum class Kind { Contents, Versions, Devices, Access, Log, CrashReport, Trace };

    struct Entry {
        std::string name;      ///< in the archive, such as "logs/ResetTool_2026.11.22.txt"
        std::size_t size = 0;  ///< bytes, unpacked
        Kind kind = Kind::Contents;
        std::string_view sentence;  ///< what it is, in English
    };

    /// Reads and masks everything; takes some seconds where traces are long. A file that can't be read is named in the
    /// contents with the reason; links, folders and other users' pipes are passed over.
    /// @param stop  ends it early, with a report that is not to be used
    /// Blocks on the disk. Any thread.
    [[nodiscard]] static Report collect(const ReportSources& sources, const std::stop_token& stop = {});

    /// The contents first, then what is in them.
    [[nodiscard]] const std::vector<Entry>& entries() const& { return mEntries; }
    void entries() const&& = delete;

    /// Writes the archive (ZIP), readable by the user alone, and only then puts it in the place of what has that name.
    /// @param stop  ends it early, as operation_canceled
    /// @return why it could not be written; nothing was left or changed then
    /// Blocks on the disk. Any thread, one at a time for each path.
    [[nodiscard]] std::error_code write(const std::string& path, const std::stop_token& stop = {}) const;

    /// "trovik-report-2026-11-22.zip", by the local calendar.
    [[nodiscard]] static std::string fileName(std::chrono::system_clock::time_point now);

    [[nodiscard]] static std::string_view sentenceOf(Kind kind);

  private:
    class Collector;

    std::vector<Entry> mEntries;
    std::vector<std::string> mContents;  ///< of each entry
    std::vector<std::int64_t> mChanged;  ///< when each entry was changed last, in Unix seconds
};
