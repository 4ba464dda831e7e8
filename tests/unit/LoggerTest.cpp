#include "Installer/Logger.h"

#include "support/common/Text.h"
#include "support/unit/FakeCodePage.h"
#include "support/unit/FakeFolders.h"
#include "support/unit/FakePause.h"
#include "support/unit/FakeSentry.h"
#include "support/unit/Handles.h"
#include "support/unit/OpenedFiles.h"
#include "support/unit/OutOfMemory.h"
#include "support/unit/RecordedCall.h"
#include "support/unit/RefusedAllocations.h"
#include "support/unit/TestFolder.h"
#include "support/unit/VirtualClock.h"

#include <windows.h>

#include <sentry.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <tuple>
#include <vector>

namespace
{

using namespace Installer;
using namespace Testing;
using testing::AnyOf;
using testing::Contains;
using testing::Each;
using testing::Ge;

class LoggerTest : public testing::Test
{
protected:
    LoggerTest() { sentry_init(sentry_options_new()); }

    std::wstring LogFile(const std::wstring& time = L"2026_3_7_9_5_12") const
    {
        return folders.Temp() + L"Velmora\\Uninstaller\\Uninstaller_" + time + L".log";
    }
    std::string LogText() const { return ReadFileText(LogFile()); }

    SYSTEMTIME now{2026, 3, 6, 7, 9, 5, 12, 345};
    VirtualClock clock;
    TestFolder root;
    FakeFolders folders{root};
    std::vector<std::wstring> console;
    Fake<&GetLocalTime> localTime = [this](LPSYSTEMTIME time) { *time = now; };
    Fake<&GetStdHandle> standardHandle = [](DWORD kind) -> HANDLE {
        EXPECT_EQ(kind, STD_OUTPUT_HANDLE);
        return reinterpret_cast<HANDLE>(0x77);
    };
    Fake<&WriteConsoleW> writeConsole = [this](HANDLE handle, const void* text, DWORD length, LPDWORD, LPVOID) -> BOOL {
        EXPECT_EQ(handle, reinterpret_cast<HANDLE>(0x77));
        console.emplace_back(static_cast<const wchar_t*>(text), length);
        return FALSE; // there is no console
    };
};

class SilentLoggerTest : public LoggerTest
{
protected:
    Logger logger{RunType::Silent};
};

TEST_F(SilentLoggerTest, Is_named_after_the_local_time_without_padding)
{
    EXPECT_EQ(logger.LogPath(), LogFile());
    now = {2027, 1, 5, 1, 0, 0, 0, 999};
    EXPECT_EQ(Logger(RunType::Silent).LogPath(), LogFile(L"2027_1_1_0_0_0"));
    now = {2026, 12, 4, 31, 23, 59, 58, 0};
    EXPECT_EQ(Logger(RunType::Silent).LogPath(), LogFile(L"2026_12_31_23_59_58"));
}

TEST_F(LoggerTest, Is_not_made_without_memory_for_its_path)
{
    Fake<&GetTempPathW> unknown = [](DWORD, LPWSTR) -> DWORD { return 0; }; // the place is a fixed one
    Fake<&CreateDirectoryW> create = [](LPCWSTR, LPSECURITY_ATTRIBUTES) -> BOOL { return TRUE; };

    const auto paths = ReturnedWithoutEachAllocation([] { return Logger(RunType::Silent).LogPath(); });

    // Where there is one, its path is whole.
    const std::wstring path = L"C:\\Windows\\Temp\\Velmora\\Uninstaller\\Uninstaller_2026_3_7_9_5_12.log";
    EXPECT_THAT(paths, Each(AnyOf(path, std::nullopt)));
    EXPECT_THAT(paths, Contains(std::nullopt).Times(Ge(2U))) << "the folder, and what is put behind it";
    EXPECT_EQ(paths.back(), path);
}

TEST_F(SilentLoggerTest, Writes_each_message_to_the_console_and_the_file_and_leaves_a_breadcrumb_or_captures_an_event)
{
    EXPECT_FALSE(Exists(LogFile()));

    logger.Info(L"\n\none\r\ntwo\n");
    logger.Warning(L"\u20ac", false);
    logger.Error(L"before \xd800 after", false);
    EXPECT_TRUE(Sentry().events.empty());
    logger.Warning(L"", true);
    logger.Error(L"\u20ac \xdc00", true);

    // There is no console, which does not matter.
    EXPECT_EQ(console, (std::vector<std::wstring>{L"|INFO|:    one\rtwo\n", L"|WARNING|: \u20ac\n",
                                                  L"|ERROR|:   before \xd800 after\n", L"|WARNING|: \n",
                                                  L"|ERROR|:   \u20ac \xdc00\n"}));
    EXPECT_EQ(LogText(), "|INFO|:    one\rtwo\r\n"
                         "|WARNING|: \xe2\x82\xac\r\n"
                         "|ERROR|:   before \xef\xbf\xbd after\r\n"
                         "|WARNING|: \r\n"
                         "|ERROR|:   \xe2\x82\xac \xef\xbf\xbd\r\n");
    EXPECT_EQ(Sentry().breadcrumbs, (std::vector<Breadcrumb>{{std::nullopt, "\n\none\r\ntwo\n"},
                                                             {std::nullopt, "Warning:\xe2\x82\xac"},
                                                             {std::nullopt, "Error:before \xef\xbf\xbd after"}}));
    EXPECT_EQ(Sentry().events, (std::vector<SentryEvent>{{SENTRY_LEVEL_WARNING, "logger", ""},
                                                         {SENTRY_LEVEL_ERROR, "logger", "\xe2\x82\xac \xef\xbf\xbd"}}));
}

TEST_F(SilentLoggerTest, Runs_of_the_same_second_have_one_file)
{
    logger.Info(L"earlier");

    Logger(RunType::Silent).Info(L"later");

    EXPECT_EQ(LogText(), "|INFO|:    earlier\r\n|INFO|:    later\r\n");
}

TEST_F(SilentLoggerTest, A_reparse_point_in_the_files_place_is_deleted)
{
    logger.Info(L"earlier");
    Fake<&GetFileInformationByHandle> look = [](HANDLE file, LPBY_HANDLE_FILE_INFORMATION information) -> BOOL {
        const BOOL result = decltype(look)::Real(file, information);
        information->dwFileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
        return result;
    };

    Logger(RunType::Silent).Info(L"later");

    EXPECT_EQ(LogText(), "|INFO|:    later\r\n");
}

TEST_F(LoggerTest, Writes_to_no_file_that_cannot_be_examined)
{
    Fake<&CreateFileW> createFile = [&](LPCWSTR path, DWORD access, auto... others) -> HANDLE {
        if (access == READ_CONTROL)
        {
            SetLastError(ERROR_SHARING_VIOLATION);
            return INVALID_HANDLE_VALUE;
        }
        return decltype(createFile)::Real(path, access, others...);
    };

    Logger(RunType::Silent).Info(L"one");

    EXPECT_FALSE(Exists(LogFile()));
}

TEST_F(SilentLoggerTest, Writes_each_line_at_once_with_one_write_and_closes_the_file)
{
    unsigned writes = 0;
    Fake<&WriteFile> writeFile = [&](auto... arguments) {
        ++writes;
        return decltype(writeFile)::Real(arguments...);
    };

    logger.Info(L"one");
    EXPECT_EQ(LogText(), "|INFO|:    one\r\n");
    logger.Info(L"two");

    EXPECT_EQ(writes, 2U);
    EXPECT_EQ(DeleteFileW(LogFile().c_str()), TRUE); // nobody has it open
}

TEST_F(LoggerTest, Looks_for_the_file_and_opens_it_for_appending_follows_no_link_and_lets_others_read_and_write)
{
    using Opening = std::tuple<DWORD, DWORD, DWORD, DWORD>; // access, sharing, disposition, flags
    std::vector<Opening> opened;
    Fake<&CreateFileW> createFile = [&](LPCWSTR path, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES security,
                                        DWORD disposition, DWORD flags, HANDLE pattern) {
        if (path == LogFile())
        {
            opened.emplace_back(access, sharing, disposition, flags);
        }
        return decltype(createFile)::Real(path, access, sharing, security, disposition, flags, pattern);
    };

    Logger(RunType::Silent).Info(L"one");

    EXPECT_EQ(opened, (std::vector<Opening>{{READ_CONTROL, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                             OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT},
                                            {FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_ALWAYS,
                                             FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT}}));
}

TEST_F(SilentLoggerTest, A_file_that_cannot_be_opened_is_left_out)
{
    root.AddFolder(L"Temp\\Velmora\\Uninstaller\\Uninstaller_2026_3_7_9_5_12.log");

    logger.Info(L"one");

    EXPECT_EQ(console.size(), 1U);
    EXPECT_EQ(Sentry().breadcrumbs.size(), 1U);
}

TEST_F(LoggerTest, A_log_folder_that_cannot_be_made_is_left_out_and_the_name_has_the_time_before_the_wait_for_it)
{
    root.AddFile(L"Temp\\Velmora");
    clock.At(500, [this] { now.wYear = 2027; });

    Logger logger(RunType::Silent);
    logger.Info(L"one");

    EXPECT_EQ(logger.LogPath(), LogFile());
    EXPECT_EQ(console.size(), 1U);
}

TEST_F(SilentLoggerTest, Adds_what_an_exception_says_of_itself)
{
    const FakeCodePage western(1252);

    logger.Warning(L"Not done: ", "gr\xFC\xDF\r\ndich", false);
    logger.Error(L"Failed: ", "no luck", false);
    logger.Warning(L"Not done: ", "", true);
    logger.Error(L"Failed: ", "bad luck", true);

    EXPECT_EQ(LogText(), "|WARNING|: Not done: gr\xC3\xBC\xC3\x9F dich\r\n|ERROR|:   Failed: no luck\r\n"
                         "|WARNING|: Not done: \r\n|ERROR|:   Failed: bad luck\r\n");
    EXPECT_EQ(Sentry().breadcrumbs.size(), 2U);
    EXPECT_EQ(Sentry().events.size(), 2U);
}

TEST_F(SilentLoggerTest, Leaves_out_what_an_exception_says_when_memory_has_run_out)
{
    {
        const OutOfMemory outOfMemory;
        logger.Warning(L"Not done: ", "no luck", false);
        logger.Error(L"Failed: ", "no luck", true);
    }

    EXPECT_FALSE(Exists(LogFile()));
}

TEST_F(SilentLoggerTest, Writes_the_console_then_the_file_then_the_breadcrumb_even_if_the_others_fail)
{
    std::vector<std::string> order;
    const Fake<&WriteConsoleW> toConsole = [&](auto...) -> BOOL {
        order.emplace_back("console");
        return FALSE;
    };
    const Fake<&WriteFile> toFile = [&](auto...) -> BOOL {
        order.emplace_back("file, breadcrumbs " + std::to_string(Sentry().breadcrumbs.size()));
        return FALSE;
    };

    logger.Info(L"one");

    EXPECT_EQ(order, (std::vector<std::string>{"console", "file, breadcrumbs 0"}));
    EXPECT_EQ(Sentry().breadcrumbs.size(), 1U);
}

// The console of a run, and how a key is waited for in it.
class LoggerConsoleTest : public LoggerTest
{
protected:
    // The start of the system's own command processor, without anything that a user has set for it.
    static std::string Pause()
    {
        std::wstring folder(MAX_PATH, L'\0');
        folder.resize(GetSystemDirectoryW(folder.data(), MAX_PATH));
        const std::string processor = '"' + Narrow(folder) + "\\cmd.exe\"";
        return "CreateProcessW(" + processor + ", \"" + processor + " /d /c PAUSE\")";
    }

    Journal journal;
    Handles handles{journal};
    RecordedCall<&AllocConsole> allocConsole{journal, FALSE, FALSE}; // which does not matter
    RecordedCall<&FreeConsole> freeConsole{journal, FALSE, FALSE};
    FakePause pause{journal, handles};
};

TEST_F(LoggerConsoleTest, A_verbose_run_has_one_and_waits_for_a_key_before_it_goes)
{
    _wputenv_s(L"COMSPEC", L"C:\\Users\\Mallory\\cmd.exe");
    {
        Logger logger(RunType::Verbose);
        EXPECT_EQ(journal.All(), Calls{"AllocConsole()"});

        logger.Info(L"one");
        EXPECT_EQ(console, std::vector<std::wstring>{L"|INFO|:    one\n"});
        EXPECT_EQ(journal.All().size(), 1U);
    }
    EXPECT_EQ(journal.All(), (Calls{"AllocConsole()", Pause(), "WaitForSingleObject(command processor, 4294967295)",
                                    "CloseHandle(its thread)", "CloseHandle(command processor)", "FreeConsole()"}));
    EXPECT_TRUE(Exists(LogFile()));
}

TEST_F(LoggerConsoleTest, Goes_at_once_where_the_command_processor_does_not_start)
{
    journal.Fail("CreateProcessW", ERROR_FILE_NOT_FOUND);

    Logger{RunType::Verbose};

    EXPECT_EQ(journal.All(), (Calls{"AllocConsole()", Pause(), "FreeConsole()"}));
}

TEST_F(LoggerConsoleTest, Starts_nothing_where_the_folder_of_Windows_is_not_told)
{
    const Fake<&GetSystemDirectoryW> systemFolder = [](LPWSTR, UINT) { return 0U; };

    Logger{RunType::Verbose};

    EXPECT_EQ(journal.All(), (Calls{"AllocConsole()", "FreeConsole()"}));
}

TEST_F(LoggerConsoleTest, A_verbose_run_that_another_process_goes_on_with_does_not_wait)
{
    Logger(RunType::Verbose).ClearPauseOnClose();
    EXPECT_EQ(journal.All(), (Calls{"AllocConsole()", "FreeConsole()"}));
}

TEST_F(LoggerConsoleTest, Other_runs_have_none)
{
    for (const RunType runType : {RunType::Gui, RunType::Silent})
    {
        Logger(runType).Info(L"one");
    }
    EXPECT_EQ(journal.All(), Calls{});
}

class OpenLogTest : public LoggerTest
{
protected:
    OpenedFiles opened;
    Logger logger{RunType::Gui};
};

TEST_F(OpenLogTest, Shows_the_log_of_a_GUI_run)
{
    logger.OpenLog();

    EXPECT_EQ(opened.All(), std::vector<std::wstring>{LogFile()});
    EXPECT_EQ(LogText(), "|INFO|:    Requested to open log...\r\n");
}

TEST_F(OpenLogTest, Shows_nothing_in_other_runs)
{
    Fake<&AllocConsole> allocConsole = []() -> BOOL { return TRUE; };
    Fake<&FreeConsole> freeConsole = []() -> BOOL { return TRUE; };
    for (const RunType runType : {RunType::Verbose, RunType::Silent})
    {
        Logger other(runType);
        other.ClearPauseOnClose();

        other.OpenLog();

        EXPECT_EQ(LogText(), "|INFO|:    Requested to open log...\r\n|INFO|:    Not running as GUI, ignoring...\r\n");
        DeleteFileW(LogFile().c_str());
    }
    EXPECT_TRUE(opened.All().empty());
}

TEST_F(OpenLogTest, Ignores_a_log_that_is_not_there)
{
    const Fake<&GetFileAttributesW> attributes = Fails(ERROR_PATH_NOT_FOUND, INVALID_FILE_ATTRIBUTES);

    logger.OpenLog();

    EXPECT_EQ(LogText(), "|INFO|:    Requested to open log...\r\n|INFO|:    Log file does not exist, ignoring...\r\n");
    EXPECT_TRUE(opened.All().empty());
}

TEST_F(OpenLogTest, Throws_when_the_file_system_cannot_tell)
{
    const Fake<&GetFileAttributesW> attributes = Fails(ERROR_ACCESS_DENIED, INVALID_FILE_ATTRIBUTES);

    try
    {
        logger.OpenLog();
        FAIL() << "nothing was thrown";
    }
    catch (const std::system_error& error)
    {
        EXPECT_EQ(error.code().value(), ERROR_ACCESS_DENIED);
        EXPECT_TRUE(
            std::string(error.what()).starts_with("filesystem error: exists [" + Testing::Narrow(LogFile()) + "]"));
    }
}

TEST_F(OpenLogTest, Passes_on_what_is_no_standard_exception)
{
    Fake<&ShellExecuteW> open = [](auto...) -> HINSTANCE { throw 42; };

    EXPECT_THROW(logger.OpenLog(), int);
}

TEST_F(OpenLogTest, Warns_when_the_log_cannot_be_shown_with_the_reason_in_one_line)
{
    const FakeCodePage western(1252);
    Fake<&ShellExecuteW> open = [](auto...) -> HINSTANCE { throw std::runtime_error("Ung\xfcltig.\r\nWert\r\n"); };

    logger.OpenLog();

    EXPECT_EQ(LogText(), "|INFO|:    Requested to open log...\r\n"
                         "|WARNING|: ShellExecuteFromExplorer failed: Ung\xc3\xbcltig. Wert\r\n");
    EXPECT_TRUE(Sentry().events.empty());
}

} // namespace
