#include "GLO/GLO_CallStack.hpp"
#include "GLO/GLO_ErrorReport.hpp"
#include "GLO/GLO_Exception.hpp"
#include "platform/Platform.hpp"
#include "platform/common/CrashReporter.hpp"
#include "platform/linux/settings/Bundle.hpp"
#include "simulator/world/SimulatedWorld.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

/// Keeps the lines and fails each time: that harms no exception.
struct Output : glo::DebugOutputIntf_t {
    void PrintException(const glo::Exception_t& e) override {
        lines += glo::ExceptionLine(e);
        throw std::runtime_error("disk full");
    }
    std::string lines;
};

}  // namespace

TEST(Exception, AnnouncesItselfOnceAlsoWhereThatFailsAndItsCopiesDoNot) {
    Output output;
    const glo::Exception_t e(output, "libs/X/X_File", 65535, L"caf\x00E9", "id", true);
    const glo::Exception_t copy(e);
    EXPECT_EQ(output.lines, "Error: libs/X/X_File 65535 SubId: id caf\xE9\n");
    EXPECT_EQ(glo::ExceptionLine(copy, "while idle"), "Error: libs/X/X_File 65535 SubId: id caf\xE9  while idle\n");
    EXPECT_EQ(copy.StackTrace(), e.StackTrace());
    EXPECT_NE(e.StackTrace(), L"");

    output.lines.clear();
    EXPECT_EQ(glo::Timeout_t(output, "f", 1).StackTrace(), L"");
    EXPECT_EQ(output.lines, "Error: f 1 SubId:  \n");
}

TEST(Exception, WhatSharesOneTextAmongAllExceptions) {
    glo::Exception_t first("f", 1, "fir\x80", "");
    EXPECT_EQ(first.Message(), L"fir\x20AC");
    first.AppendToWhat(L"st");
    const char* text = first.what();
    EXPECT_STREQ(text, "fir\x80st");
    const glo::FileError_t second("f", 2, L"Gone", L"/tmp/x");
    EXPECT_STREQ(second.what(), "GonePath: /tmp/x");
    EXPECT_STREQ(text, "GonePath: /tmp/x");
    EXPECT_EQ(glo::FileError_t("f", 1, L"/tmp/x").Message(), L"Path: /tmp/x");
    EXPECT_EQ(glo::LocaleDoesNotExist_t("f", 1, "x\xE9").Message(), L"x\xE9");
    EXPECT_EQ(glo::Exception_t::ErrString(4294967295U), "4294967295");
}

TEST(Exception, UserTextOfInvalidInputComesFromTheNamedTable) {
    const support::TemporaryFolder folder;
    for (const std::string table : {"CRL_Common", "UNITS2", "Localizable"}) {
        const platform::PropertyList::Dictionary texts{{"key", {table + "\xC3\xA9"}}};
        support::WriteFile(folder / ("en.lproj/" + table + ".strings"), platform::formatPropertyList({texts}));
    }
    platform::Bundle bundle(folder.path(), {"en"});
    platform::PlatformScope scope({.mainBundle = &bundle});
    const wchar_t* const cases[][2] = {
        {L"cRl", L"CRL_Common\xE9"}, {L"Units2", L"UNITS2\xE9"}, {L"", L"Localizable\xE9"}, {L"absent", L"key"}};
    for (const auto& [table, text] : cases) {
        const glo::InvalidInput_t e(table, L"key", "f", 81);
        EXPECT_EQ(e.UserText(), text);
        EXPECT_EQ(e.Message(), L"");
        EXPECT_EQ(e.Line(), 81);
    }
}

TEST(CallStack, LinesAreDemangledWhereTheyHoldAName) {
    using platform::demangledStackLine;
    EXPECT_EQ(demangledStackLine("3   tool   0x01 _ZN3glo3FooEi + 12"), "3   tool   0x01 glo::Foo(int) + 12");
    EXPECT_EQ(demangledStackLine("/a_b/tool(_ZN3glo3FooEi+0x1f) [0x5]"), "/a_b/tool(glo::Foo(int)+0x1f) [0x5]");
    for (const char* line : {"/a_b/tool(_start+0x1f) [0x5]", "tool(f+0x1f) [0x5]", "+_ZN3glo3FooEi", ""})
        EXPECT_EQ(demangledStackLine(line), line);
    EXPECT_NE(glo::CallStack().find(L"glo::CallStack"), std::wstring::npos);
}

TEST(ErrorReport, CallsTheSubroutineOfTheBundlesScript) {
    const support::TemporaryFolder folder;
    platform::Bundle bundle(folder.path(), {});
    simulator::RecordingScriptRunner scripts;
    platform::PlatformScope scope({.mainBundle = &bundle, .scriptRunner = &scripts});
    testing::internal::CaptureStderr();
    for (const char* const script : {"absent", "", "on error_report(a)"}) {
        if (script != std::string("absent")) support::WriteFile(folder / "Scripts/ErrorReport.scpt", script);
        glo::sendErrorReport(L"a", L"b\"\\", L"\xE9", L"", -1, L"e");
    }
    const std::string unread = "The script " + folder / "Scripts/ErrorReport.scpt" + " could not be read\n";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), unread) << "the empty one";
    EXPECT_EQ(scripts.calls, std::vector<std::string>{"on error_report(a)\nerror_report(\"a\", \"b\\\"\\\\\", "
                                                      "\"\xC3\xA9\", \"\", -1, \"e\")\n"});
}
