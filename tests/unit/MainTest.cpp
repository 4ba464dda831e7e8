#include "Uninstaller/ExitCode.h"
#include "support/FakeFolders.h"
#include "support/FakeRegistry.h"
#include "support/TestFolder.h"
#include "support/VirtualClock.h"

#include <windows.h>

#include <sentry_testing.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{

using namespace Testing;
using Lines = std::vector<std::string>;

// The entry point of the program, on a machine without the product.
class MainTest : public testing::Test
{
protected:
    ~MainTest() override { SentryTesting::Forget(); }

    int Run(const std::wstring& argument)
    {
        commandLine = L"uninstaller.exe " + argument;
        return wWinMain(nullptr, nullptr, nullptr, 0);
    }

    VirtualClock clock;
    TestFolder root;
    FakeFolders folders{root};
    FakeRegistry registry;
    std::wstring commandLine;
    Lines log;
    std::vector<std::string> order;
    std::vector<std::wstring> scheduled;
    Fake<&GetCommandLineW> getCommandLine = [this] {
        order.emplace_back(SentryTesting::CurrentRun().isStarted ? "command line" : "command line too early");
        return commandLine.data();
    };
    Fake<&SetThreadDescription> describe = [this](HANDLE thread, PCWSTR description) -> HRESULT {
        order.emplace_back(SentryTesting::CurrentRun().isStarted ? "thread" : "thread too early");
        EXPECT_EQ(thread, GetCurrentThread());
        EXPECT_STREQ(description, L"uninstaller_thread");
        return S_OK;
    };
    Fake<&GetCurrentProcessId> processId = []() -> DWORD { return 4711; };
    Fake<&CoInitializeEx> initialize = [this](LPVOID reserved, DWORD kind) -> HRESULT {
        order.emplace_back("COM");
        EXPECT_EQ(reserved, nullptr);
        EXPECT_EQ(kind, static_cast<DWORD>(COINIT_MULTITHREADED));
        return S_OK;
    };
    Fake<&SHChangeNotify> notify = [](LONG, UINT, LPCVOID, LPCVOID) {};
    Fake<&MoveFileExW> move = [this](LPCWSTR from, LPCWSTR, DWORD) -> BOOL {
        scheduled.emplace_back(from);
        return TRUE;
    };
    Fake<&WriteConsoleW> console = [this](HANDLE, const void* text, DWORD length, LPDWORD, LPVOID) -> BOOL {
        const std::wstring line(static_cast<const wchar_t*>(text), length - 1);
        log.emplace_back(line.begin(), line.end());
        return TRUE;
    };
};

TEST_F(MainTest, a_silent_run_starts_in_its_order)
{
    registry.SetString(L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment", L"PATH", L"C:\\A");

    EXPECT_EQ(Run(L"-s"), Uninstaller::EXIT_NO_ERROR);

    EXPECT_EQ(order, (Lines{"thread", "command line", "COM"}));
    ASSERT_GE(log.size(), 5U);
    EXPECT_EQ(log[0], "|INFO|:    Running the Velmora uninstaller (4711)...");
    EXPECT_EQ(log[1], "|INFO|:    Requested run type of Silent");
    EXPECT_EQ(log[2], "|INFO|:    Did not find previous Velmora install entry. Will continue with assuming default "
                      "install location.");
    EXPECT_EQ(log[3], "|INFO|:    No previous Velmora install directory found, using default.");
    EXPECT_EQ(log[4], "|INFO|:    Velmora will leave user directories as-is.");
    EXPECT_EQ(log.back(), "|INFO|:    Uninstall Complete!");
    EXPECT_FALSE(SentryTesting::CurrentRun().isStarted);
}

TEST_F(MainTest, schedules_the_running_program)
{
    registry.SetString(L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment", L"PATH", L"C:\\A");
    std::wstring own(500, L'\0');
    own.resize(GetModuleFileNameW(nullptr, own.data(), 500));

    EXPECT_EQ(Run(L"--silent"), Uninstaller::EXIT_NO_ERROR);

    EXPECT_EQ(scheduled, std::vector<std::wstring>{own});
}

TEST_F(MainTest, removes_from_the_folder_that_the_record_names)
{
    const std::wstring key = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Velmora";
    registry.SetString(key, L"InstallLocation", root / L"Elsewhere");
    registry.SetString(key, L"DisplayVersion", L"2.8.1.2171");
    root.AddFile(L"Elsewhere\\Velmora.exe");
    root.AddFile(L"Program Files\\Velmora\\Velmora.exe");

    EXPECT_EQ(Run(L"-s"), Uninstaller::EXIT_ERROR_PARTIAL_UNINSTALL); // there is no PATH

    EXPECT_FALSE(Exists(root / L"Elsewhere"));
    EXPECT_TRUE(Exists(root / L"Program Files\\Velmora\\Velmora.exe"));
}

TEST_F(MainTest, the_help_is_shown_and_nothing_else_is_done)
{
    EXPECT_EQ(Run(L"--help"), Uninstaller::EXIT_NO_ERROR);

    EXPECT_EQ(order, (Lines{"thread", "command line"}));
    EXPECT_EQ(log,
              (Lines{"|INFO|:    Running the Velmora uninstaller (4711)...", "|INFO|:    Requested run type of Verbose",
                     "|INFO|:    -v  | --verbose            | Detailed uninstaller logging",
                     "|INFO|:    -s  | --silent             | Don't show a status GUI",
                     "|INFO|:    -g  | --gui                | Show a status GUI (default)",
                     "|INFO|:    -h  | --help               | Display this help screen"}));
    EXPECT_TRUE(registry.Calls().empty());
    EXPECT_TRUE(scheduled.empty());
    EXPECT_FALSE(SentryTesting::CurrentRun().isStarted);
    EXPECT_TRUE(clock.Sleeps().empty());
}

TEST_F(MainTest, nothing_is_removed_without_a_confirmation_that_only_silent_runs_go_without)
{
    for (const wchar_t* const argument : {L"", L"-g", L"-v"})
    {
        root.AddFile(L"Program Files\\Velmora\\Velmora.exe");

        EXPECT_EQ(Run(argument), Uninstaller::EXIT_ERROR_PERMISSION_DIALOG_FAIL);

        EXPECT_TRUE(Exists(root / L"Program Files\\Velmora\\Velmora.exe"));
        EXPECT_TRUE(registry.Calls().empty());
        EXPECT_EQ(log.back(),
                  "|ERROR|:   This build cannot ask for confirmation. Use -s to uninstall without being asked.");
    }
}

} // namespace
