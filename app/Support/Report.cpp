#include "app/Support/Report.hpp"

#include "app/Support/Masker.hpp"
#include "platform/Platform.hpp"
#include "platform/common/FileDescriptor.hpp"

#include <algorithm>
#include <archive.h>
#include <archive_entry.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::hours kNewest(7 * 24);
constexpr std::size_t kLongestLine = 64u << 10;  ///< bytes
constexpr char kFolder[] = "trovik-report/";     ///< in the archive, so that unpacking it makes one folder

/// A file to be reported, as it was when the folder was listed.
struct Source {
    std::string path;
    std::string fileName;
    Report::Kind kind;
    std::int64_t changed;  ///< Unix seconds
    std::size_t size;      ///< bytes
};

/// Opens what must be a file: no link is followed, and no pipe or terminal is waited for.
platform::FileDescriptor openFile(const std::string& path, struct stat& status) {
    constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    platform::FileDescriptor file(::open(path.c_str(), kFlags));
    if (file && ::fstat(file.get(), &status) != 0) file.reset();
    return file;
}

/// Hands over the lines of a part of a file. One that is too long is left out: where it was cut, a part of a value
/// would stay unknown.
/// @return 0, or the errno of a failed read
int eachLine(int file, std::size_t begin, std::size_t end, const std::function<void(std::string)>& take) {
    std::string line;
    const auto handOver = [&] {
        const bool isTooLong = line.size() > kLongestLine;
        take(isTooLong ? "[a line of more than " + std::to_string(kLongestLine) + " bytes is left out]" : line);
        line.clear();
    };
    std::vector<char> buffer(64u << 10);
    while (begin < end) {
        const std::size_t wanted = std::min(buffer.size(), end - begin);
        const ssize_t count =
            platform::uninterrupted([&] { return ::pread(file, buffer.data(), wanted, static_cast<off_t>(begin)); });
        if (count < 0) return errno;
        if (count == 0) break;  // it has been made shorter
        begin += static_cast<std::size_t>(count);
        std::string_view rest(buffer.data(), static_cast<std::size_t>(count));
        for (std::size_t at = rest.find('\n'); at != std::string_view::npos; at = rest.find('\n')) {
            if (line.size() <= kLongestLine) line += rest.substr(0, at);
            handOver();
            rest.remove_prefix(at + 1);
        }
        if (line.size() <= kLongestLine) line += rest;
    }
    if (!line.empty()) handOver();
    return 0;
}

std::string timeText(const char* format, std::chrono::system_clock::time_point moment, bool local) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(moment);
    std::tm parts{};
    local ? ::localtime_r(&seconds, &parts) : ::gmtime_r(&seconds, &parts);
    char text[64];
    return {text, std::strftime(text, sizeof text, format, &parts)};
}

/// A file that is gone unless it has been given its name.
struct TemporaryFile {
    explicit TemporaryFile(std::string pattern) : path(std::move(pattern)), file(::mkostemp(path.data(), O_CLOEXEC)) {}
    ~TemporaryFile() {
        if (file && !isNamed) ::unlink(path.c_str());
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    std::string path;
    platform::FileDescriptor file;
    bool isNamed = false;
};

struct FreeArchive {
    void operator()(archive* writer) const { ::archive_write_free(writer); }
    void operator()(archive_entry* entry) const { ::archive_entry_free(entry); }
};

/// Where an archive goes. What can't be written is only remembered: libarchive, told of it, would lose the compressor
/// that is at work then.
struct Output {
    int file;
    int error = 0;  ///< the first one's errno

    static la_ssize_t write(archive*, void* output, const void* bytes, std::size_t size) {
        auto& self = *static_cast<Output*>(output);
        for (std::size_t done = 0; done < size && self.error == 0;) {
            const ssize_t count = platform::uninterrupted(
                [&] { return ::write(self.file, static_cast<const char*>(bytes) + done, size - done); });
            if (count < 0) self.error = errno;
            if (count > 0) done += static_cast<std::size_t>(count);
        }
        return static_cast<la_ssize_t>(size);
    }
};

std::error_code systemError(int error) {
    return {error != 0 ? error : EIO, std::generic_category()};
}

}  // namespace

/// Makes one report.
class Report::Collector {
  public:
    Collector(const ReportSources& sources, const std::stop_token& stop) : mSources(sources), mStop(stop) {}

    Report collect() {
        for (const std::string& user : mSources.survey.users) mMasker.hide(Masker::Kind::User, user);
        for (const std::string& host : mSources.survey.hosts) mMasker.hide(Masker::Kind::Host, host);
        for (const std::string& home : mSources.survey.homes) mMasker.hide(Masker::Kind::Home, home);
        for (const std::string& serial : mSources.survey.serialNumbers) mMasker.hide(Masker::Kind::Serial, serial);

        list(mSources.logs, {{".txt", Kind::Log}, {".crash", Kind::CrashReport}});
        list(mSources.traces, {{".log", Kind::Trace}, {".previous", Kind::Trace}});
        std::ranges::sort(mFiles, std::greater(),
                          [](const Source& source) { return std::pair(source.changed, source.fileName); });
        for (const Source& source : mFiles) learn(source);  // a log may name what an older one shows

        add("versions.txt", Kind::Versions, masked(mSources.facts + mSources.survey.versions));
        add("usb-devices.txt", Kind::Devices, masked(withoutSerialNumbers(mSources.survey.devices)));
        add("access.txt", Kind::Access, masked(mSources.survey.access));
        for (const Source& source : mFiles) addFile(source);
        addContents();
        std::ranges::stable_sort(mParts, {}, [](const Part& part) { return part.entry.kind; });
        Report report;
        for (Part& part : mParts) {
            report.mEntries.push_back(std::move(part.entry));
            report.mContents.push_back(std::move(part.contents));
            report.mChanged.push_back(part.changed);
        }
        return report;
    }

  private:
    struct Part {
        Entry entry;
        std::string contents;
        std::int64_t changed;
    };

    void note(const std::string& name, const std::string& text) { mNotes += "  " + name + ": " + text + "\n"; }

    void list(const std::string& folder, std::initializer_list<std::pair<std::string_view, Kind>> endings) {
        if (folder.empty()) return;
        const auto oldest = std::chrono::system_clock::to_time_t(mSources.now - kNewest);
        std::error_code error;
        for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
            const std::string name = entry->path().filename();
            const auto ending = std::ranges::find_if(endings, [&](const auto& e) { return name.ends_with(e.first); });
            if (ending == endings.end()) continue;
            struct stat status {};
            const platform::FileDescriptor file = openFile(entry->path(), status);
            if (!file && errno != ELOOP) note(nameInArchive(name), "can't be read: " + systemError(errno).message());
            if (!file || !S_ISREG(status.st_mode) || status.st_mtim.tv_sec < oldest) continue;
            mFiles.push_back(
                {entry->path(), name, ending->second, status.st_mtim.tv_sec, static_cast<std::size_t>(status.st_size)});
        }
        if (error && error != std::errc::no_such_file_or_directory)
            note(mMasker.maskedText(folder), "can't be read: " + error.message());
    }

    /// Letters that every system takes in a name of a file.
    std::string nameInArchive(const std::string& fileName) const {
        std::string name = mMasker.maskedText(fileName);
        std::erase_if(name, [](char c) { return c == '<' || c == '>'; });
        constexpr std::string_view kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-";
        std::ranges::replace_if(
            name, [&](char c) { return kPlain.find(c) == std::string_view::npos; }, '_');
        return name;
    }

    /// @return 0, or the errno of what failed
    int read(const Source& source, std::size_t most, const std::function<void(std::string)>& take) {
        struct stat status {};
        const platform::FileDescriptor file = openFile(source.path, status);
        if (!file) return errno;
        const std::size_t begin = source.size - std::min(source.size, most);
        // The line that is cut, and the rows of a dump that is, may hold the end of a value.
        bool isCut = begin > 0;
        bool isFirst = isCut;
        return eachLine(file.get(), begin, source.size, [&](std::string line) {
            isCut = isCut && (isFirst || Masker::Lines::isRow(line));
            isFirst = false;
            if (!isCut && !mStop.stop_requested()) take(std::move(line));
        });
    }

    void learn(const Source& source) {
        read(source, mSources.mostOfAFile, [&](const std::string& line) { mMasker.learn(line); });
    }

    void addFile(const Source& source) {
        std::string name = source.kind == Kind::Trace ? "traces/" : source.kind == Kind::Log ? "logs/" : "crashes/";
        name += nameInArchive(source.fileName);
        const auto isTaken = [&](const std::string& taken) {
            return std::ranges::any_of(mParts, [&](const Part& part) { return part.entry.name == taken; });
        };
        for (int i = 2; isTaken(name); ++i) name += '-' + std::to_string(i);

        const std::size_t most =
            std::min(mSources.mostOfAFile, mSources.mostOfAll - std::min(mSources.mostOfAll, mSize));
        if (most == 0) return note(name, "left out, since the report is full.");
        std::string contents;
        const std::size_t mostMasked = 2 * most;  // marks may be longer than what they stand for
        bool isWhole = true;
        Masker::Lines lines(mMasker, [&](const std::string& line) {
            isWhole = isWhole && contents.size() + line.size() < mostMasked;
            if (isWhole) contents.append(line).append("\n");
        });
        const int error = read(source, most, [&](std::string line) {
            mMasker.learn(line);
            lines.add(std::move(line));
        });
        lines.finish();
        if (error != 0) note(name, "can't be read: " + systemError(error).message());
        if (!isWhole) note(name, "its last lines are left out, since the marks make it too long.");
        if (source.size > most) {
            note(name,
                 "the end of it, at most " + std::to_string(most) + " of " + std::to_string(source.size) + " bytes.");
        }
        add(std::move(name), source.kind, std::move(contents), source.changed);
    }

    std::string masked(const std::string& text) const {
        std::string result;
        Masker::Lines lines(mMasker, [&](const std::string& line) { result.append(line).append("\n"); });
        std::size_t begin = 0;
        for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', begin)) {
            lines.add(text.substr(begin, end - begin));
            begin = end + 1;
        }
        if (begin < text.size()) lines.add(text.substr(begin));
        lines.finish();
        return result;
    }

    /// A serial number of any length is known where it is called one.
    std::string withoutSerialNumbers(std::string devices) {
        constexpr std::string_view kLabel = ", serial number ";
        for (const std::string& serial : mSources.survey.serialNumbers) {
            const std::string written = std::string(kLabel) + serial;
            for (std::size_t at = 0; (at = devices.find(written, at)) != std::string::npos; at += kLabel.size()) {
                const std::size_t end = at + written.size();
                if (end < devices.size() && devices[end] != ',' && devices[end] != '\n') continue;
                devices.replace(at + kLabel.size(), serial.size(), mMasker.markOf(Masker::Kind::Serial, serial));
            }
        }
        return devices;
    }

    void add(std::string name, Kind kind, std::string contents, std::int64_t changed = 0) {
        if (changed == 0) changed = std::chrono::system_clock::to_time_t(mSources.now);
        mSize += contents.size();
        const Entry entry{std::move(name), contents.size(), kind, sentenceOf(kind)};
        mParts.push_back({entry, std::move(contents), changed});
    }

    void addContents() {
        std::string text =
            "Report of Trovik Reset Tool, made " + timeText("%F %T UTC", mSources.now, false) + "\n\nFiles:\n";
        for (const auto& [entry, contents, changed] : mParts) {
            text += "  " + entry.name + " (" + std::to_string(entry.size) + " bytes): " + std::string(entry.sentence) +
                    "\n";
        }
        if (!mNotes.empty()) text += "\nNot whole:\n" + mNotes;
        text +=
            "\nLogs, crash reports and traces are those that were changed in the last seven days. In place of what "
            "tells\n"
            "who somebody is stand these marks, in bytes of dumps \"**\" with the mark behind the row:\n";
        for (const std::string& line : mMasker.legend()) text += "  " + line + "\n";
        add("contents.txt", Kind::Contents, std::move(text));
    }

    const ReportSources& mSources;
    const std::stop_token& mStop;
    Masker mMasker;
    std::vector<Source> mFiles;
    std::string mNotes;
    std::size_t mSize = 0;
    std::vector<Part> mParts;
};

ReportSources ReportSources::ofThisSystem(std::string logs, std::string traces, std::string facts) {
    return {std::move(logs), std::move(traces), std::move(facts), platform::surveySystem(),
            std::chrono::system_clock::now()};
}

Report Report::collect(const ReportSources& sources, const std::stop_token& stop) {
    return Collector(sources, stop).collect();
}

std::error_code Report::write(const std::string& path, const std::stop_token& stop) const {
    TemporaryFile temporary(fs::path(path).replace_filename(".trovik-report.XXXXXX").string());
    if (!temporary.file) return systemError(errno);
    Output output{temporary.file.get()};
    const std::unique_ptr<archive, FreeArchive> writer(::archive_write_new());
    const auto failed = [&](int result) { return result < ARCHIVE_WARN; };
    const auto failure = [&] { return systemError(::archive_errno(writer.get())); };
    if (!writer) return systemError(ENOMEM);
    if (failed(::archive_write_set_format_zip(writer.get())) ||
        failed(::archive_write_set_bytes_in_last_block(writer.get(), 1)) ||
        failed(::archive_write_open(writer.get(), &output, nullptr, Output::write, nullptr)))
        return failure();
    for (std::size_t i = 0; i < mEntries.size(); ++i) {
        if (stop.stop_requested()) return systemError(ECANCELED);
        const std::unique_ptr<archive_entry, FreeArchive> entry(::archive_entry_new());
        if (!entry) return systemError(ENOMEM);
        ::archive_entry_set_pathname(entry.get(), (kFolder + mEntries[i].name).c_str());
        ::archive_entry_set_size(entry.get(), static_cast<la_int64_t>(mContents[i].size()));
        ::archive_entry_set_filetype(entry.get(), AE_IFREG);
        ::archive_entry_set_perm(entry.get(), 0600);
        ::archive_entry_set_mtime(entry.get(), static_cast<std::time_t>(mChanged[i]), 0);
        if (failed(::archive_write_header(writer.get(), entry.get())) ||
            ::archive_write_data(writer.get(), mContents[i].data(), mContents[i].size()) !=
                static_cast<la_ssize_t>(mContents[i].size()))
            return failure();
    }
    if (failed(::archive_write_close(writer.get()))) return failure();
    if (output.error != 0) return systemError(output.error);
    // On the disk before it takes the other's place, or a loss of power could leave neither.
    if (::fsync(temporary.file.get()) != 0 || ::rename(temporary.path.c_str(), path.c_str()) != 0)
        return systemError(errno);
    temporary.isNamed = true;
    return {};
}

std::string Report::fileName(std::chrono::system_clock::time_point now) {
    return timeText("trovik-report-%F.zip", now, true);
}

std::string_view Report::sentenceOf(Kind kind) {
    switch (kind) {
        case Kind::Contents:
            return "What the report holds";
        case Kind::Versions:
            return "Versions of the tool and of the system";
        case Kind::Devices:
            return "The connected USB devices";
        case Kind::Access:
            return "Who may open the device";
        case Kind::Log:
            return "What the tool did on a day";
        case Kind::CrashReport:
            return "Where the tool crashed";
        case Kind::Trace:
            return "The conversation with the device";
    }
    return {};
}
