#include "Installer/Logger.h"

#include "support/common/Text.h"
#include "support/unit/FakeCodePage.h"
#include "support/unit/FakeFolders.h"
#include "support/unit/FakePause.h"
#include "support/unit/FakeSentry.h"
#include "support/unit/Handles.h"
#include "support/unit/OpenedFiles.h"
#include "support/unit/OutOfMemory.h"
#include "support/unit/TestFolder.h"
#include "support/unit/VirtualClock.h"

#include <windows.h>

#include <sentry.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace
{

using namespace Installer;
using namespace Testing;

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

TEST_F(LoggerTest, Takes_the_time_before_it_waits_for_its_folder)
{
    root.AddFile(L"Temp\\Velmora");
    clock.At(500, [this] { now.wYear = 2027; });

    EXPECT_EQ(Logger(RunType::Silent).LogPath(), LogFile());
}

TEST_F(SilentLoggerTest, Makes_its_folder_but_no_file_before_the_first_line)
{
    EXPECT_TRUE(Exists(folders.Temp() + L"Velmora\\Uninstaller"));
    EXPECT_FALSE(Exists(LogFile()));
    EXPECT_TRUE(console.empty());
}

TEST_F(LoggerTest, Is_not_made_without_memory_for_its_path)
{
    Fake<&GetTempPathW> unknown = [](DWORD, LPWSTR) -> DWORD { return 0; }; // the place is a fixed one
    Fake<&CreateDirectoryW> create = [](LPCWSTR, LPSECURITY_ATTRIBUTES) -> BOOL { return TRUE; };
    unsigned thrown = 0;
    bool hasRefused = true;
    for (unsigned spared = 0; hasRefused; ++spared)
    {
        std::optional<Logger> logger;
        try
        {
            const OutOfMemory outOfMemory(spared);
            logger.emplace(RunType::Silent);
            hasRefused = OutOfMemory::HasRefused();
        }
        catch (const std::bad_alloc&)
        {
            ++thrown;
            continue;
        }
        // Where there is one, its path is whole.
        EXPECT_EQ(logger->LogPath(), L"C:\\Windows\\Temp\\Velmora\\Uninstaller\\Uninstaller_2026_3_7_9_5_12.log")
            << spared;
    }
    EXPECT_GE(thrown, 2U) << "the folder, and what is put behind it";
}

TEST_F(SilentLoggerTest, Tags_are_eleven_characters_wide)
{
    logger.Info(L"one");
    logger.Warning(L"two", false);
    logger.Error(L"three", false);
    logger.Warning(L"four", true);
    logger.Error(L"five", true);

    EXPECT_EQ(LogText(), "|INFO|:    one\r\n"
                         "|WARNING|: two\r\n"
                         "|ERROR|:   three\r\n"
                         "|WARNING|: four\r\n"
                         "|ERROR|:   five\r\n");
}

TEST_F(SilentLoggerTest, Writes_every_line_to_the_console_too_whether_or_not_there_is_one)
{
    logger.Info(L"one");
    logger.Warning(L"two\nlines", false);
    logger.Error(L"\u20ac", true);

    EXPECT_EQ(console,
              (std::vector<std::wstring>{L"|INFO|:    one\n", L"|WARNING|: twolines\n", L"|ERROR|:   \u20ac\n"}));
}

TEST_F(SilentLoggerTest, Writes_one_line_of_UTF_8_for_any_message)
{
    const std::pair<const wchar_t*, const char*> messages[] = {
        {L"", ""},
        {L"a\nb", "ab"},
        {L"\n\na\r\nb\r\n\n", "a\rb\r"},
        {L"\u00e9 \u0416 \u65e5 \U0001f600", "\xc3\xa9 \xd0\x96 \xe6\x97\xa5 \xf0\x9f\x98\x80"},
        {L"before \xd800 after", "before \xef\xbf\xbd after"},
    };
    for (const auto& [message, line] : messages)
    {
        logger.Info(message);
        EXPECT_EQ(LogText(), "|INFO|:    " + std::string(line) + "\r\n");
        DeleteFileW(LogFile().c_str());
    }
}

TEST_F(SilentLoggerTest, Appends_to_a_file_that_is_there)
{
    root.AddFile(L"Temp\\Velmora\\Uninstaller\\Uninstaller_2026_3_7_9_5_12.log", "earlier\n");

    logger.Info(L"later");

    EXPECT_EQ(LogText(), "earlier\n|INFO|:    later\r\n");
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

TEST_F(SilentLoggerTest, Opens_the_file_for_appending_and_lets_others_read_and_write)
{
    std::vector<std::pair<DWORD, DWORD>> opened;
    Fake<&CreateFileW> createFile = [&](LPCWSTR path, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES security,
                                        DWORD disposition, DWORD flags, HANDLE pattern) {
        EXPECT_EQ(path, LogFile());
        EXPECT_EQ(disposition, static_cast<DWORD>(OPEN_ALWAYS));
        opened.emplace_back(access, sharing);
        return decltype(createFile)::Real(path, access, sharing, security, disposition, flags, pattern);
    };

    logger.Info(L"one");

    EXPECT_EQ(opened, (decltype(opened){{FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE}}));
}

TEST_F(SilentLoggerTest, A_link_in_the_files_place_is_not_followed)
{
    std::map<DWORD, DWORD> flagsByAccess;
    Fake<&CreateFileW> createFile = [&](LPCWSTR path, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES security,
                                        DWORD disposition, DWORD flags, HANDLE pattern) {
        flagsByAccess[access] = flags;
        return decltype(createFile)::Real(path, access, sharing, security, disposition, flags, pattern);
    };

    Logger another(RunType::Silent);
    another.Info(L"one");

    EXPECT_EQ(flagsByAccess[READ_CONTROL], static_cast<DWORD>(FILE_FLAG_OPEN_REPARSE_POINT));
    EXPECT_EQ(flagsByAccess[FILE_APPEND_DATA],
              static_cast<DWORD>(FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT));
}

TEST_F(SilentLoggerTest, A_reader_that_holds_the_file_open_stops_nothing)
{
    logger.Info(L"one");
    const HANDLE reader = CreateFileW(LogFile().c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                      OPEN_EXISTING, 0, nullptr);

    logger.Info(L"two");

    CloseHandle(reader);
    EXPECT_EQ(LogText(), "|INFO|:    one\r\n|INFO|:    two\r\n");
}

TEST_F(SilentLoggerTest, A_file_that_cannot_be_opened_is_left_out)
{
    root.AddFolder(L"Temp\\Velmora\\Uninstaller\\Uninstaller_2026_3_7_9_5_12.log");

    logger.Info(L"one");

    EXPECT_EQ(console.size(), 1U);
    EXPECT_EQ(Sentry().breadcrumbs.size(), 1U);
}

TEST_F(SilentLoggerTest, A_file_that_cannot_be_written_is_left_out)
{
    Fake<&WriteFile> writeFile = [](auto...) -> BOOL { return FALSE; };

    logger.Error(L"one", false);

    EXPECT_EQ(LogText(), "");
    EXPECT_EQ(Sentry().breadcrumbs.size(), 1U);
}

TEST_F(LoggerTest, A_log_folder_that_cannot_be_made_is_left_out)
{
    root.AddFile(L"Temp\\Velmora");
    Logger logger(RunType::Silent);
    logger.Info(L"one");

    EXPECT_EQ(logger.LogPath(), LogFile());
    EXPECT_EQ(console.size(), 1U);
}

TEST_F(SilentLoggerTest, Leaves_breadcrumbs_without_a_type_and_captures_events_where_it_is_asked_to)
{
    logger.Info(L"one\ntwo");
    logger.Warning(L"\u20ac", false);
    logger.Error(L"before \xd800 after", false);
    EXPECT_TRUE(Sentry().events.empty());
    logger.Warning(L"one\n", true);
    logger.Error(L"\u20ac \xdc00", true);

    EXPECT_EQ(Sentry().breadcrumbs, (std::vector<Breadcrumb>{{std::nullopt, "one\ntwo"},
                                                             {std::nullopt, "Warning:\xe2\x82\xac"},
                                                             {std::nullopt, "Error:before \xef\xbf\xbd after"}}));
    EXPECT_EQ(Sentry().events, (std::vector<SentryEvent>{{SENTRY_LEVEL_WARNING, "logger", "one\n"},
                                                         {SENTRY_LEVEL_ERROR, "logger", "\xe2\x82\xac \xef\xbf\xbd"}}));
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

TEST_F(SilentLoggerTest, Writes_the_console_then_the_file_then_the_breadcrumb)
{
    std::vector<std::string> order;
    Fake<&WriteConsoleW> toConsole = [&](HANDLE, const void*, DWORD, LPDWORD, LPVOID) -> BOOL {
        order.emplace_back("console");
        return TRUE;
    };
    Fake<&WriteFile> toFile = [&](HANDLE, LPCVOID, DWORD, LPDWORD, LPOVERLAPPED) -> BOOL {
        order.emplace_back("file, breadcrumbs " + std::to_string(Sentry().breadcrumbs.size()));
        return TRUE;
    };

    logger.Info(L"one");

    EXPECT_EQ(order, (std::vector<std::string>{"console", "file, breadcrumbs 0"}));
    EXPECT_EQ(Sentry().breadcrumbs.size(), 1U);
}

// The console of a run, and how a key is waited for in it.
class LoggerConsoleTest : public LoggerTest
{
protected:
    LoggerConsoleTest()
    {
        journal.onCall = [this](const std::string& call) {
            if (call.starts_with("WaitForSingleObject"))
            {
                calls.emplace_back("wait");
            }
        };
    }

    static std::string SystemFolder()
    {
        std::wstring folder(MAX_PATH, L'\0');
        folder.resize(GetSystemDirectoryW(folder.data(), MAX_PATH));
        return Narrow(folder);
    }

    // The start of the system's own command processor, without anything that a user has set for it.
    static std::string Pause()
    {
        const std::string processor = SystemFolder() + "\\cmd.exe";
        return "start " + processor + " as \"" + processor + "\" /d /c PAUSE";
    }

    std::vector<std::string> calls;
    Journal journal;
    Handles handles{journal};
    DWORD startError = ERROR_SUCCESS;
    Fake<&AllocConsole> allocConsole = [this]() -> BOOL {
        calls.emplace_back("alloc");
        return FALSE; // its result does not matter
    };
    Fake<&FreeConsole> freeConsole = [this]() -> BOOL {
        calls.emplace_back("free");
        return FALSE;
    };
    FakePause pause{journal, handles};
    Fake<&CreateProcessW> start = [this](LPCWSTR program, LPWSTR commandLine, LPSECURITY_ATTRIBUTES process,
                                         LPSECURITY_ATTRIBUTES thread, BOOL inherits, DWORD flags, LPVOID environment,
                                         LPCWSTR folder, LPSTARTUPINFOW startup,
                                         LPPROCESS_INFORMATION started) -> BOOL {
        EXPECT_EQ(inherits, TRUE);
        EXPECT_EQ(flags, 0U);
        EXPECT_EQ(environment, nullptr);
        EXPECT_EQ(folder, nullptr);
        EXPECT_EQ(startup->dwFlags, 0U);
        calls.push_back("start " + Narrow(program) + " as " + Narrow(commandLine));
        if (startError != ERROR_SUCCESS)
        {
            SetLastError(startError);
            return FALSE;
        }
        return start.Hidden(program, commandLine, process, thread, inherits, flags, environment, folder, startup,
                            started);
    };
};

TEST_F(LoggerConsoleTest, A_verbose_run_has_one_and_waits_for_a_key_before_it_goes)
{
    _wputenv_s(L"COMSPEC", L"C:\\Users\\Mallory\\cmd.exe");
    {
        Logger logger(RunType::Verbose);
        EXPECT_EQ(calls, std::vector<std::string>{"alloc"});
        EXPECT_FALSE(Exists(LogFile()));

        logger.Info(L"one");
        EXPECT_EQ(console, std::vector<std::wstring>{L"|INFO|:    one\n"});
        EXPECT_EQ(calls.size(), 1U);
    }
    EXPECT_EQ(calls, (std::vector<std::string>{"alloc", Pause(), "wait", "free"}));
    EXPECT_TRUE(Exists(LogFile()));
}

TEST_F(LoggerConsoleTest, Goes_at_once_where_the_command_processor_does_not_start)
{
    startError = ERROR_FILE_NOT_FOUND;

    Logger{RunType::Verbose};

    EXPECT_EQ(calls, (std::vector<std::string>{"alloc", Pause(), "free"}));
}

TEST_F(LoggerConsoleTest, Starts_nothing_where_the_folder_of_Windows_is_not_told)
{
    for (const UINT length : {0U, MAX_PATH + 5U}) // a failure, and a buffer that is too small
    {
        calls.clear();
        Fake<&GetSystemDirectoryW> systemFolder = [&](LPWSTR, UINT) { return length; };

        Logger{RunType::Verbose};

        EXPECT_EQ(calls, (std::vector<std::string>{"alloc", "free"}));
    }
}

TEST_F(LoggerConsoleTest, A_verbose_run_that_another_process_goes_on_with_does_not_wait)
{
    Logger(RunType::Verbose).ClearPauseOnClose();
    EXPECT_EQ(calls, (std::vector<std::string>{"alloc", "free"}));
}

TEST_F(LoggerConsoleTest, Other_runs_have_none)
{
    for (const RunType runType : {RunType::Gui, RunType::Silent})
    {
        Logger logger(runType);
        logger.Info(L"one");
    }
    EXPECT_TRUE(calls.empty());
}

TEST_F(LoggerTest, OpenLog_shows_the_log_of_a_GUI_run)
{
    OpenedFiles opened;
    Logger logger(RunType::Gui);

    logger.OpenLog();

    EXPECT_EQ(opened.All(), std::vector<std::wstring>{LogFile()});
    EXPECT_EQ(LogText(), "|INFO|:    Requested to open log...\r\n");
}

TEST_F(LoggerTest, OpenLog_shows_nothing_in_other_runs)
{
    OpenedFiles opened;
    Fake<&AllocConsole> allocConsole = []() -> BOOL { return TRUE; };
    Fake<&FreeConsole> freeConsole = []() -> BOOL { return TRUE; };
    for (const RunType runType : {RunType::Verbose, RunType::Silent})
    {
        Logger logger(runType);
        logger.ClearPauseOnClose();

        logger.OpenLog();

        EXPECT_EQ(LogText(), "|INFO|:    Requested to open log...\r\n|INFO|:    Not running as GUI, ignoring...\r\n");
        DeleteFileW(LogFile().c_str());
    }
    EXPECT_TRUE(opened.All().empty());
}

TEST_F(LoggerTest, OpenLog_ignores_a_log_that_is_not_there_whatever_Windows_calls_that)
{
    OpenedFiles opened;
    for (const DWORD error : {2UL, 3UL, 53UL, 64UL, 123UL, 161UL, 267UL})
    {
        Fake<&GetFileAttributesW> attributes = [&](LPCWSTR path) -> DWORD {
            if (path != LogFile())
            {
                return attributes.Hidden(path);
            }
            SetLastError(error);
            return INVALID_FILE_ATTRIBUTES;
        };
        Logger logger(RunType::Gui);

        logger.OpenLog();

        EXPECT_EQ(LogText(),
                  "|INFO|:    Requested to open log...\r\n|INFO|:    Log file does not exist, ignoring...\r\n");
        DeleteFileW(LogFile().c_str());
    }
    EXPECT_TRUE(opened.All().empty());
}

TEST_F(LoggerTest, OpenLog_throws_when_the_file_system_cannot_tell)
{
    Logger logger(RunType::Gui);
    const Fake<&GetFileAttributesW> attributes = [](LPCWSTR) -> DWORD {
        SetLastError(ERROR_ACCESS_DENIED);
        return INVALID_FILE_ATTRIBUTES;
    };

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

TEST_F(LoggerTest, OpenLog_passes_on_what_is_no_standard_exception)
{
    const OpenedFiles opened;
    Fake<&ShellExecuteW> open = [](auto...) -> HINSTANCE { throw 42; };
    Logger logger(RunType::Gui);

    EXPECT_THROW(logger.OpenLog(), int);
}

TEST_F(LoggerTest, OpenLog_warns_when_the_log_cannot_be_shown)
{
    OpenedFiles opened;
    opened.result = 32;
    Logger logger(RunType::Gui);

    logger.OpenLog();

    const std::string start = "|INFO|:    Requested to open log...\r\n|WARNING|: ShellExecuteFromExplorer failed: ";
    EXPECT_EQ(LogText().substr(0, start.size()), start);
    EXPECT_NE(LogText().find("80070483"), std::string::npos); // no program is associated with it
    EXPECT_TRUE(Sentry().events.empty());
}

TEST_F(LoggerTest, OpenLog_tells_a_reason_in_the_code_page_of_the_system_in_one_line)
{
    const FakeCodePage western(1252);
    const OpenedFiles opened;
    Fake<&ShellExecuteW> open = [](auto...) -> HINSTANCE { throw std::runtime_error("Ung\xfcltig.\r\nWert\r\n"); };
    Logger logger(RunType::Gui);

    logger.OpenLog();

    EXPECT_EQ(LogText(), "|INFO|:    Requested to open log...\r\n"
                         "|WARNING|: ShellExecuteFromExplorer failed: Ung\xc3\xbcltig. Wert\r\n");
}

} // namespace
