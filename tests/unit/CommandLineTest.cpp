#include "Uninstaller/CommandLine.h"

#include "support/common/ImportTableFake.h"
#include "support/common/Text.h"
#include "support/unit/FakeCodePage.h"

#include <windows.h>

#include <shellapi.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{

using Installer::RunType;
using Uninstaller::CommandLine;
using namespace Testing;

CommandLine ParseLine(std::wstring line)
{
    Fake<&GetCommandLineW> commandLine = [&] { return line.data(); };
    return Uninstaller::ParseCommandLine();
}

CommandLine Parse(const std::wstring& arguments)
{
    return ParseLine(L"\"C:\\Program Files\\Velmora\\Velmora.Uninstaller.exe\"" + arguments);
}

void ExpectRun(const std::wstring& arguments, RunType runType)
{
    const CommandLine commandLine = Parse(arguments);
    EXPECT_EQ(commandLine.runType, runType);
    EXPECT_FALSE(commandLine.help);
}

void ExpectHelp(const std::wstring& arguments)
{
    const CommandLine commandLine = Parse(arguments);
    EXPECT_EQ(commandLine.runType, RunType::Verbose);
    EXPECT_TRUE(commandLine.help);
}

TEST(CommandLineTest, No_argument_is_a_GUI_run)
{
    ExpectRun(L"", RunType::Gui);
    ExpectRun(L"   ", RunType::Gui);
}

TEST(CommandLineTest, The_switches_choose_the_run_type)
{
    ExpectRun(L" -v", RunType::Verbose);
    ExpectRun(L" --verbose", RunType::Verbose);
    ExpectRun(L" -s", RunType::Silent);
    ExpectRun(L" --silent", RunType::Silent);
    ExpectRun(L" -g", RunType::Gui);
    ExpectRun(L" --gui", RunType::Gui);
    ExpectRun(L" \"-s\"", RunType::Silent);
}

TEST(CommandLineTest, Only_the_first_argument_counts)
{
    ExpectRun(L" -s -v --help", RunType::Silent);
    ExpectRun(L" -g nonsense", RunType::Gui);
    ExpectHelp(L" nonsense -s");
}

TEST(CommandLineTest, Anything_else_asks_for_the_help)
{
    for (const wchar_t* const arguments :
         {L" -h", L" --help", L" -S", L" --Silent", L" --SILENT", L" -s1", L" --silen", L" s", L" /s", L" -s-",
          L" \"\"", L" \" -s\"", L" \"-s \"", L" \u2212s", L" \u00e4", L" \u65e5\u672c", L" -s\u0301"})
    {
        ExpectHelp(arguments);
    }
    ExpectHelp(L" " + std::wstring(30'000, L'x'));
}

TEST(CommandLineTest, A_command_line_that_cannot_be_taken_apart_is_a_GUI_run)
{
    Fake<&CommandLineToArgvW> failing = [](LPCWSTR, int*) -> LPWSTR* { return nullptr; };

    ExpectRun(L" \"-s\"", RunType::Gui);
}

// The shell's library is loaded for the others.
TEST(CommandLineTest, Plain_arguments_are_taken_apart_without_the_shell)
{
    unsigned calls = 0;
    unsigned freed = 0;
    Fake<&CommandLineToArgvW> take = [&](LPCWSTR line, int* count) {
        ++calls;
        return decltype(take)::Real(line, count);
    };
    Fake<&LocalFree> free = [&](HLOCAL memory) {
        ++freed;
        return decltype(free)::Real(memory);
    };

    for (const wchar_t* const arguments : {L"", L" ", L" -s", L"\t--verbose  more", L" \u00e9 "})
    {
        Parse(arguments);
    }
    ParseLine(L"Uninstaller.exe -s");
    EXPECT_EQ(calls, 0U);

    Parse(L" \"-s\"");
    Parse(L" -s C:\\");
    EXPECT_EQ(calls, 2U);
    EXPECT_EQ(freed, 2U);
}

TEST(CommandLineTest, The_argument_is_what_Windows_takes_for_it)
{
    for (const wchar_t* const name :
         {L"u.exe", L"\"C:\\a b\\u.exe\"", L"C:\\u.exe", L"\"u.exe", L"\"u\"e", L"u\"e e\"", L"\"\""})
    {
        for (const wchar_t* const arguments :
             {L"",        L" ",       L"\t",      L"-s",      L" -s",       L"\t-s\t",          L"  -s -v",
              L" \"-s\"", L" -\"s\"", L" \"-s",   L" -s\"\"", L" \"-s\"\"", L" \"\"-s",         L" \"\"\"-s",
              L" \\-s",   L" -s\\",   L" \\\"-s", L" \"\"",   L"\"-s\"",    L" a\\\\\"b c\" d", L" /\u00e9"})
        {
            const std::wstring line = std::wstring(name) + arguments;
            int count = 0;
            LPWSTR* const taken = CommandLineToArgvW(line.c_str(), &count);
            const std::wstring expected = count > 1 ? taken[1] : L"";
            LocalFree(taken);
            EXPECT_EQ(ParseLine(line).argument, expected) << "in " << Narrow(line);
        }
    }
}

TEST(CommandLineTest, The_argument_is_compared_in_the_8_bit_code_page)
{
    std::vector<UINT> codePages;
    Fake<&WideCharToMultiByte> convert = [&](UINT page, auto... others) {
        codePages.push_back(page);
        return decltype(convert)::Real(page, others...);
    };

    ExpectRun(L" -s", RunType::Silent);

    EXPECT_EQ(codePages, std::vector<UINT>(2, CP_ACP));
}

TEST(CommandLineTest, Switches_and_nothing_else_are_switches_in_every_code_page)
{
    for (const UINT page : {1252U, 932U, 1251U, static_cast<UINT>(CP_UTF8)})
    {
        SCOPED_TRACE(page);
        const FakeCodePage codePage(page);

        ExpectRun(L" -s", RunType::Silent);
        ExpectRun(L" --silent", RunType::Silent);
        ExpectRun(L" -v", RunType::Verbose);
        ExpectRun(L" --gui", RunType::Gui);
        // Dashes, full-width letters, a letter with an accent, and what is no valid text.
        for (const wchar_t* const argument :
             {L" \u2212s", L" \u2013s", L" \uff0ds", L" -\uff53", L" -\u015b", L" -s\u0301", L" -s\xd800", L" \xdc00"})
        {
            ExpectHelp(argument);
        }
    }
}

TEST(CommandLineTest, An_argument_that_cannot_be_converted_asks_for_the_help)
{
    Fake<&WideCharToMultiByte> failing = Fails(ERROR_INVALID_PARAMETER);

    ExpectHelp(L" -s");
}

TEST(CommandLineTest, The_help_has_four_lines)
{
    const std::vector<std::wstring> lines(std::begin(Uninstaller::c_helpLines), std::end(Uninstaller::c_helpLines));

    EXPECT_EQ(lines, (std::vector<std::wstring>{L"-v  | --verbose            | Detailed uninstaller logging",
                                                L"-s  | --silent             | Don't show a status GUI",
                                                L"-g  | --gui                | Show a status GUI (default)",
                                                L"-h  | --help               | Display this help screen"}));
}

} // namespace
