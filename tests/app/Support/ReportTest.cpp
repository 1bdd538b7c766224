// The whole way of a report: what a person's disk holds, through the collector, into an archive that is unpacked again.
#include "UTL/UTL_HexDump.hpp"
#include "app/Support/Report.hpp"
#include "platform/VendorId.hpp"
#include "platform/linux/usb/SystemSurvey.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gmock/gmock.h>

#include <archive.h>
#include <archive_entry.h>
#include <csignal>
#include <map>
#include <regex>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/utsname.h>

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using Files = std::map<std::string, std::string>;

std::string inSmallLetters(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

std::string wide(const std::string& text) {
    std::string result;
    for (const char c : text) result.append({c, '\0'});
    return result;
}

std::string dump(const std::string& bytes) {
    return utl::HexDump({reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()});
}

/// The bytes of all rows of dumps, one after the other; a masked one is a zero.
std::string bytesOfDumps(const std::string& text) {
    std::string bytes;
    static const std::regex row("[0-9a-f]{4}: (([0-9a-f*]{2} )+)");
    for (std::sregex_iterator match(text.begin(), text.end(), row), end; match != end; ++match) {
        std::istringstream digits((*match)[1]);
        for (std::string byte; digits >> byte;) bytes += static_cast<char>(std::strtoul(byte.c_str(), nullptr, 16));
    }
    return inSmallLetters(bytes);
}

Files unpacked(const std::string& path) {
    Files files;
    const std::unique_ptr<archive, int (*)(archive*)> reader(::archive_read_new(), ::archive_read_free);
    ::archive_read_support_format_zip(reader.get());
    EXPECT_EQ(::archive_read_open_filename(reader.get(), path.c_str(), 10240), ARCHIVE_OK);
    for (archive_entry* entry = nullptr; ::archive_read_next_header(reader.get(), &entry) == ARCHIVE_OK;) {
        std::string contents(static_cast<std::size_t>(::archive_entry_size(entry)), '\0');
        EXPECT_EQ(::archive_read_data(reader.get(), contents.data(), contents.size()),
                  static_cast<la_ssize_t>(contents.size()));
        files[::archive_entry_pathname(entry)] = contents;
    }
    return files;
}

/// A person's folders, and the system as that person sees it.
struct ReportTest : testing::Test {
    ReportTest() {
        sources.logs = folder / "logs";
        sources.traces = folder / "traces";
        sources.now = std::chrono::system_clock::now();
        fs::create_directories(sources.logs);
        fs::create_directories(sources.traces);
    }
    void log(const std::string& name, const std::string& text) { support::WriteFile(sources.logs + "/" + name, text); }
    std::string contentsOf(const std::string& name) {
        EXPECT_EQ(Report::collect(sources).write(folder / "report.zip"), std::error_code());
        return unpacked(folder / "report.zip")["trovik-report/" + name];
    }

    support::TemporaryFolder folder;
    ReportSources sources;
};

TEST_F(ReportTest, NothingInTheArchiveTellsWhoSomebodyIsOrWhichDeviceItIs) {
    const std::string number = {'\x4E', '\xC7', '\x3B', '\xE3'};  // the unit id as it goes over USB
    const std::vector<std::string> texts = {"Anna-Lena",  "/home/anna-lena", "walkerbox",
                                            "SN48151623", "3812345678",      "e33bc74e"};
    const std::string planted =
        "ANNA-LENA, /home/anna-lena/x on walkerbox.lan: sn48151623 SN48151623 3812345678 0xE33BC74E\n";
    const std::string packet = "12345678901Anna-Lena|" + wide("SN48151623") + number + "walkerbox/home/anna-lena";
    // Where each kind of file would show them.
    log("ResetTool_2026.11.22.txt",
        "x | 1 | I | port 1-2, unit id 3812345678\n" + planted + "10:00:00: " + dump(packet));
    log("ResetTool_anna-lena.txt", planted);
    log("ResetTool-1763800000-7.crash", planted + "Stack:\n/home/anna-lena/bin/ResetTool(+0x1) [0x2]\n");
    for (const char* name : {"IouUsbDebug.log", "Trovik Reset Tool.log.previous"})
        support::WriteFile(sources.traces + "/" + name, planted + "Bad packet:\n10:00:00: " + dump(packet));
    sources.facts = planted;
    // A device in sysfs, in the way of the kernel.
    char vendor[8];
    std::snprintf(vendor, sizeof vendor, "%04x", platform::kTrovikVendorId);
    const std::pair<const char*, const char*> attributes[] = {
        {"1-2/idVendor", vendor}, {"1-2/idProduct", "0003"}, {"1-2/product", "Anna-Lena's watch"},
        {"1-2/busnum", "1"},      {"1-2/devnum", "4"},       {"1-2/1-2:1.0/bInterfaceClass", "ff"},
        {"1-3/serial", "17"},     {"1-4/serial", "179"},     {"1-2/serial", "SN48151623"}};
    for (const auto& [name, value] : attributes)
        support::WriteFile(folder / "devices" + "/" + name, std::string(value) + "\n");
    support::WriteFile(folder / "nodes/001/004", "");
    support::WriteFile(folder / "rules/60-trovik-reset-tool.rules", "# for anna-lena\n");
    platform::SurveyPlaces places;
    places.devices = folder / "devices";
    places.nodes = folder / "nodes";
    places.failure.ruleFolders = {folder / "rules"};
    utsname system{};
    ASSERT_EQ(::uname(&system), 0);
    places.release = folder / "os-release";
    support::WriteFile(places.release, std::string("ID=") + system.nodename + "\n");
    ::setenv("USER", "Anna-Lena", 1);
    ::setenv("HOME", "/home/anna-lena", 1);
    sources.survey = platform::surveyOf(places);
    EXPECT_THAT(sources.survey.hosts, testing::Not(testing::Contains(system.nodename))) << "it is the system's own";
    sources.survey.hosts.insert(sources.survey.hosts.begin(), "walkerbox");

    const auto isTold = [](const std::string& text, const std::string& secret) {
        const std::string bytes = bytesOfDumps(text), small = inSmallLetters(secret);
        return inSmallLetters(text).find(small) != std::string::npos || bytes.find(small) != std::string::npos ||
               bytes.find(wide(small)) != std::string::npos;
    };
    const std::string before = planted + "10:00:00: " + dump(packet);
    for (const std::string& secret : texts) EXPECT_TRUE(isTold(before, secret)) << secret << " would not be found";
    EXPECT_NE(bytesOfDumps(before).find(inSmallLetters(number)), std::string::npos);

    const Report report = Report::collect(sources);
    ASSERT_EQ(report.write(folder / "report.zip"), std::error_code());
    const Files files = unpacked(folder / "report.zip");
    ASSERT_EQ(files.size(), 9U);
    for (const auto& [name, text] : files) {
        for (const std::string& secret : texts)
            EXPECT_FALSE(isTold(name + text, secret)) << secret << " in " << name << text;
        EXPECT_EQ(bytesOfDumps(text).find(inSmallLetters(number)), std::string::npos) << name << text;
    }
    const std::string marks = "<user-1>, <home-1>/x on <host-1>.lan: <serial-1> <serial-1> <serial-2> <serial-2>\n";
    for (const char* name : {"logs/ResetTool_user-1.txt", "crashes/ResetTool-1763800000-7.crash", "versions.txt",
                             "traces/IouUsbDebug.log", "traces/Trovik_Reset_Tool.log.previous"})
        EXPECT_THAT(files.at(std::string("trovik-report/") + name), HasSubstr(marks)) << name;
    EXPECT_THAT(
        files.at("trovik-report/usb-devices.txt"),
        AllOf(HasSubstr("  1-2: "), HasSubstr("serial number <serial-1>\n"), HasSubstr("serial number <serial-3>\n"),
              HasSubstr("serial number <serial-4>\n"), HasSubstr("1-2:1.0: interface ff")));
    EXPECT_THAT(files.at("trovik-report/access.txt"), AllOf(HasSubstr("the one that udev takes"), HasSubstr("1-2: ")));
    // What is listed is what is saved.
    for (const Report::Entry& entry : report.entries()) {
        EXPECT_EQ(files.at("trovik-report/" + entry.name).size(), entry.size) << entry.name;
        EXPECT_EQ(files.at("trovik-report/contents.txt").find(entry.name) == std::string::npos,
                  entry.kind == Report::Kind::Contents);
    }
}

TEST_F(ReportTest, OnlyFilesOfTheFoldersAndOfSevenDaysComeIn) {
    log("ResetTool_old.txt", "old\n");
    fs::last_write_time(sources.logs + "/ResetTool_old.txt",
                        fs::file_time_type::clock::now() - std::chrono::hours(8 * 24));
    support::WriteFile(folder / "elsewhere.txt", "private");
    fs::create_symlink(folder / "elsewhere.txt", sources.logs + "/ResetTool_link.txt");
    fs::create_directory(sources.logs + "/ResetTool_folder.txt");
    ASSERT_EQ(::mkfifo((sources.logs + "/ResetTool_pipe.txt").c_str(), 0600), 0);
    log("notes.md", "private");
    log("ResetTool_new.txt", "new\n");
    const Report report = Report::collect(sources);
    std::vector<std::string> names;
    for (const Report::Entry& entry : report.entries()) names.push_back(entry.name);
    EXPECT_THAT(names, testing::ElementsAre("contents.txt", "versions.txt", "usb-devices.txt", "access.txt",
                                            "logs/ResetTool_new.txt"));
}

TEST_F(ReportTest, OfALongFileTheEndIsTakenFromAWholeLineOnAndTheContentsSayIt) {
    sources.survey.users = {"Anna-Lena"};
    sources.mostOfAFile = 400;
    const std::string name = "Anna-Lena", rows = dump(std::string(12, 'x') + name + std::string(20, 'x'));
    const std::string tail = "end " + std::string(400 - 4 - 1 - rows.size() / 2, '.') + "\n";
    log("ResetTool_1.txt", std::string(5000, 'x') + "\n" + rows + tail);  // the cut goes through the dump
    EXPECT_EQ(contentsOf("logs/ResetTool_1.txt"), tail);
    EXPECT_THAT(contentsOf("contents.txt"), HasSubstr("logs/ResetTool_1.txt: the end of it, at most 400 of"));
    log("ResetTool_1.txt", "begin\n" + std::string(300, '\'') + "\nx\n");
    sources.survey.users = {"'"};  // a mark for each
    EXPECT_EQ(contentsOf("logs/ResetTool_1.txt"), "begin\n");
    EXPECT_THAT(contentsOf("contents.txt"), HasSubstr("logs/ResetTool_1.txt: its last lines are left out"));
    sources.survey.users = {"Anna-Lena"};
    sources.mostOfAFile = 1u << 20;
    log("ResetTool_1.txt", std::string(200000, 'x') + "Anna-Lena\nlast");
    EXPECT_EQ(contentsOf("logs/ResetTool_1.txt"), "[a line of more than 65536 bytes is left out]\nlast\n");
    sources.mostOfAll = 0;
    EXPECT_THAT(contentsOf("contents.txt"), HasSubstr("logs/ResetTool_1.txt: left out"));
}

TEST_F(ReportTest, WhatCantBeWrittenLeavesTheOldReportAndNothingElse) {
    std::string noise;
    for (unsigned i = 1; noise.size() < 200000; i = i * 1664525 + 1013904223) noise += std::to_string(i) + '\n';
    log("ResetTool_1.txt", noise);
    const Report report = Report::collect(sources);
    EXPECT_EQ(report.write(folder / "missing/report.zip"), std::errc::no_such_file_or_directory);
    const std::string place = folder / "saved", path = place + "/report.zip";
    fs::create_directories(place + "/folder.zip");
    EXPECT_EQ(report.write(place + "/folder.zip"), std::errc::is_a_directory);
    support::WriteFile(path, "old");
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
    const rlimit small = {20000, limit.rlim_max};
    const auto handler = ::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    EXPECT_EQ(report.write(path), std::errc::file_too_large);
    ::setrlimit(RLIMIT_FSIZE, &limit);
    ::signal(SIGXFSZ, handler);
    EXPECT_EQ(support::ReadFile(path), "old");
    EXPECT_EQ(report.write(path), std::error_code());
    EXPECT_EQ(fs::status(path).permissions(), fs::perms(0600));
    EXPECT_EQ(std::distance(fs::directory_iterator(place), {}), 2) << "the report, the folder and no leftovers";
}

}  // namespace
