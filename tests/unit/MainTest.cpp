#include "Installer/Path.h"
#include "Uninstaller/ExitCode.h"
#include "support/FakeFirewall.h"
#include "support/FakeFolders.h"
#include "support/FakePackageManager.h"
#include "support/FakePause.h"
#include "support/FakeRegistry.h"
#include "support/FakeStatusWindow.h"
#include "support/FakeTaskDialog.h"
#include "support/FakeThreadNames.h"
#include "support/LoggedLines.h"
#include "support/OpenHandles.h"
#include "support/PathLimits.h"
#include "support/TestFolder.h"
#include "support/VirtualClock.h"

#include <windows.h>

#include <commctrl.h>
#include <sentry_testing.h>
#include <tlhelp32.h>
#include <winsvc.h>

#include <gtest/gtest.h>
#include <wil/result.h>
#include <winrt/base.h>

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace
{

using namespace Testing;
using namespace std::string_literals;
using Lines = std::vector<std::string>;

constexpr char c_noWindow[] = "|WARNING|: Failed to create the uninstaller window, running in verbose mode.";

// The entry point of the program, on a machine without the product.
class MainTest : public testing::Test
{
protected:
    MainTest()
    {
        registry.SetString(L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment", L"PATH", L"C:\\A");
    }
    ~MainTest() override { SentryTesting::Forget(); }

    int Run(const std::wstring& argument)
    {
        commandLine = L"uninstaller.exe " + argument;
        return wWinMain(nullptr, nullptr, nullptr, 0);
    }

    static std::wstring OwnPath()
    {
        std::wstring own(500, L'\0');
        own.resize(GetModuleFileNameW(nullptr, own.data(), 500));
        return own;
    }
    static std::wstring OwnFolder() { return OwnPath().substr(0, OwnPath().rfind(L'\\') + 1); }

    void InstallTo(const std::wstring& folder)
    {
        const std::wstring key = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Velmora";
        registry.SetString(key, L"InstallLocation", folder);
        registry.SetString(key, L"DisplayVersion", L"2.8.1.2171");
    }

    VirtualClock clock;
    TestFolder root;
    FakeFolders folders{root};
    FakeRegistry registry;
    FakeFirewall firewall;
    std::vector<std::string> packageCalls;
    FakePackageManager packages{packageCalls};
    LoggedLines log;
    OpenHandles handles;
    FakeStatusWindow desktop;
    std::wstring commandLine;
    Lines order;
    std::vector<std::wstring> scheduled;
    BOOL isNewEnough = TRUE;
    DWORD elevation = 1;
    DWORD mutexError = ERROR_SUCCESS;
    HANDLE mutex = nullptr;
    HRESULT comResult = S_OK;
    Fake<&GetCommandLineW> getCommandLine = [this] {
        order.emplace_back(SentryTesting::CurrentRun().isStarted ? "command line" : "command line too early");
        return commandLine.data();
    };
    Fake<&SetDefaultDllDirectories> setLibraryFolders = [this](DWORD flags) -> BOOL {
        EXPECT_EQ(flags, static_cast<DWORD>(LOAD_LIBRARY_SEARCH_SYSTEM32));
        order.emplace_back(SentryTesting::CurrentRun().isStarted ? "libraries" : "libraries too early");
        return TRUE;
    };
    UINT errorMode = SEM_NOALIGNMENTFAULTEXCEPT; // what the process that started this one has left it
    Fake<&GetErrorMode> getErrorMode = [this]() -> UINT { return errorMode; };
    Fake<&SetErrorMode> setProcessErrorMode = [this](UINT mode) -> UINT {
        order.emplace_back(SentryTesting::CurrentRun().isStarted ? "error mode" : "error mode too early");
        return std::exchange(errorMode, mode);
    };
    FakeThreadNames threadNames{[this](HANDLE thread, PCWSTR description) {
        order.emplace_back(SentryTesting::CurrentRun().isStarted ? "thread" : "thread too early");
        EXPECT_EQ(thread, GetCurrentThread());
        EXPECT_STREQ(description, L"uninstaller_thread");
        return S_OK;
    }};
    Fake<&GetCurrentProcessId> processId = []() -> DWORD { return 4711; };
    Fake<&VerifyVersionInfoW> verifyVersion = [this](LPOSVERSIONINFOEXW, DWORD, DWORDLONG) -> BOOL {
        order.emplace_back("version");
        return isNewEnough;
    };
    Fake<&CoInitializeEx> initialize = [this](LPVOID reserved, DWORD kind) -> HRESULT {
        order.emplace_back("COM");
        EXPECT_EQ(reserved, nullptr);
        EXPECT_EQ(kind, static_cast<DWORD>(COINIT_MULTITHREADED));
        return comResult;
    };
    Fake<&GetTokenInformation> token = [this](HANDLE asked, TOKEN_INFORMATION_CLASS kind, LPVOID data, DWORD size,
                                              PDWORD needed) -> BOOL {
        if (kind != TokenElevation)
        {
            return decltype(token)::Real(asked, kind, data, size, needed);
        }
        order.emplace_back("elevation");
        *static_cast<DWORD*>(data) = elevation;
        *needed = size;
        return TRUE;
    };
    Fake<&CreateMutexExW> createMutex = [this](LPSECURITY_ATTRIBUTES, LPCWSTR, DWORD, DWORD) -> HANDLE {
        order.emplace_back("mutex");
        mutex = handles.Make();
        SetLastError(mutexError);
        return mutex;
    };
    Fake<&SetCurrentDirectoryW> setCurrentFolder = [this](LPCWSTR folder) -> BOOL {
        std::wstring system(MAX_PATH, L'\0');
        system.resize(GetSystemDirectoryW(system.data(), MAX_PATH));
        EXPECT_EQ(folder, system);
        order.emplace_back("current folder");
        return TRUE;
    };
    Fake<&_set_error_mode> setErrorMode = [this](int mode) {
        EXPECT_EQ(mode, _OUT_TO_STDERR);
        order.emplace_back("no message box");
        return 0;
    };
    // Nothing of the product is running.
    Fake<&Process32FirstW> firstProcess = [](HANDLE, LPPROCESSENTRY32W) -> BOOL { return FALSE; };
    Fake<&OpenServiceW> openService = [](SC_HANDLE, LPCWSTR, DWORD) -> SC_HANDLE { return nullptr; };
    Fake<&SHChangeNotify> notify = [](LONG, UINT, LPCVOID, LPCVOID) {};
    Fake<&SendMessageTimeoutW> send = [](HWND, UINT, WPARAM, LPARAM, UINT, UINT, PDWORD_PTR) -> LRESULT { return 1; };
    Fake<&MoveFileExW> move = [this](LPCWSTR from, LPCWSTR, DWORD) -> BOOL {
        EXPECT_TRUE(mutex == nullptr || handles.IsOpen(mutex)) << "the mutex was given away too early";
        scheduled.emplace_back(from);
        return TRUE;
    };
    Fake<&AllocConsole> allocConsole = [this]() -> BOOL {
        order.emplace_back("console");
        return TRUE;
    };
    FakePause pause{
        [this] { return handles.Make(); },
        [this] { order.emplace_back(mutex != nullptr && handles.IsOpen(mutex) ? "pause with the mutex" : "pause"); }};
    Fake<&FreeConsole> freeConsole = [this]() -> BOOL {
        order.emplace_back("console goes");
        return TRUE;
    };
};

TEST_F(MainTest, a_silent_run_does_everything_in_its_order)
{
    EXPECT_EQ(Run(L"-s"), Uninstaller::EXIT_NO_ERROR);

    EXPECT_EQ(order, (Lines{"error mode", "no message box", "libraries", "thread", "current folder", "command line",
                            "version", "COM", "elevation", "mutex"}));
    ASSERT_GE(log.All().size(), 7U);
    EXPECT_EQ(Lines(log.All().begin(), log.All().begin() + 7),
              (Lines{"|INFO|:    Running the Velmora uninstaller (4711)...", "|INFO|:    Requested run type of Silent",
                     "|INFO|:    Checking to sure we are running on Windows 10.0.19041 or higher...",
                     "|INFO|:    Checking to see if elevated...",
                     "|INFO|:    Did not find previous Velmora install entry. Will continue with assuming default "
                     "install location.",
                     "|INFO|:    No previous Velmora install directory found, using default.",
                     "|INFO|:    Velmora will leave user directories as-is."}));
    EXPECT_EQ(log.All().back(), "|INFO|:    Uninstall Complete!");
    EXPECT_EQ(scheduled, std::vector<std::wstring>{OwnPath()});
    EXPECT_FALSE(handles.IsOpen(mutex));
    EXPECT_FALSE(SentryTesting::CurrentRun().isStarted);
}

TEST_F(MainTest, writes_the_id_of_its_process_without_a_sign)
{
    const Fake<&GetCurrentProcessId> high = []() -> DWORD { return 0xFFFFFFFC; };

    Run(L"-h");

    EXPECT_EQ(log.All().front(), "|INFO|:    Running the Velmora uninstaller (4294967292)...");
}

TEST_F(MainTest, no_dialog_of_Windows_own_is_shown_and_the_rest_of_the_error_mode_stays)
{
    Run(L"-s");

    EXPECT_EQ(errorMode, UINT{SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX |
                              SEM_NOALIGNMENTFAULTEXCEPT});
}

TEST_F(MainTest, a_mutex_that_cannot_be_closed_at_the_end_is_an_exception)
{
    handles.closeError = ERROR_INVALID_HANDLE;

    EXPECT_THROW(Run(L"-s"), wil::ResultException);

    EXPECT_EQ(log.All().back(), "|INFO|:    Uninstall Complete!");
    EXPECT_EQ(scheduled, std::vector<std::wstring>{OwnPath()});
}

TEST_F(MainTest, removes_from_the_folder_that_the_record_names)
{
    InstallTo(root / L"Elsewhere");
    root.AddFile(L"Elsewhere\\Velmora.exe");
    root.AddFile(L"Program Files\\Velmora\\Velmora.exe");

    EXPECT_EQ(Run(L"-s"), Uninstaller::EXIT_NO_ERROR);

    EXPECT_FALSE(Exists(root / L"Elsewhere"));
    EXPECT_TRUE(Exists(root / L"Program Files\\Velmora\\Velmora.exe"));
}

TEST_F(MainTest, does_not_leave_a_folder_that_is_never_deleted)
{
    // Everything is the root of a volume.
    Fake<&GetVolumePathNameW> roots = [](LPCWSTR path, LPWSTR volume, DWORD size) -> BOOL {
        return swprintf(volume, size, L"%ls\\", path) > 0;
    };
    InstallTo(OwnFolder());

    Run(L"-s"); // whether there is a folder of that name depends on where this program was started from

    EXPECT_EQ(std::ranges::count(log.All(), "|INFO|:    Stopping Velmora..."), 1) << "it went on as a copy";
    EXPECT_EQ(scheduled, std::vector<std::wstring>{OwnPath()});
}

TEST_F(MainTest, looks_for_a_class_of_Windows_in_the_registration_alone)
{
    winrt_activation_handler = nullptr;
    packages.Fail("activate", REGDB_E_CLASSNOTREG, 2);
    Fake<&LoadLibraryExW> load = [](LPCWSTR name, HANDLE, DWORD) -> HMODULE {
        EXPECT_FALSE(std::wstring_view(name).starts_with(L"Windows.")) << Narrow(name) << " is looked for";
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    };

    EXPECT_EQ(Run(L"-s"), Uninstaller::EXIT_NO_ERROR);

    EXPECT_EQ(std::ranges::count(packageCalls, "activate Windows.Management.Deployment.PackageManager"), 2);
}

TEST_F(MainTest, a_verbose_run_has_a_console_and_a_confirmation)
{
    Fake<&TaskDialogIndirect> confirm = [this](const TASKDIALOGCONFIG*, int* button, int*, BOOL*) -> HRESULT {
        order.emplace_back("confirmation");
        *button = IDYES;
        return S_OK;
    };

    EXPECT_EQ(Run(L"-v"), Uninstaller::EXIT_NO_ERROR);

    EXPECT_EQ(order,
              (Lines{"error mode", "no message box", "libraries", "thread", "current folder", "command line", "console",
                     "version", "COM", "elevation", "mutex", "confirmation", "pause", "console goes"}));
    EXPECT_EQ(log.All()[1], "|INFO|:    Requested run type of Verbose");
    EXPECT_TRUE(desktop.Calls().empty());
    EXPECT_FALSE(handles.IsOpen(mutex));
}

// A run that asks for a window.
class MainWindowTest : public MainTest
{
protected:
    MainWindowTest()
    {
        desktop.onCall = [this](const std::string& call) { order.push_back(call); };
    }

    // A user who cancels.
    void CancelWhenAsked(const std::function<void()>& whileAsked = [] {})
    {
        dialog.Answer({.button = IDCANCEL, .whileShown = [this, whileAsked] {
                           order.emplace_back("confirmation");
                           whileAsked();
                       }});
    }

    // What happens from the start to the end of a run that the user cancels.
    static Lines Cancelled(const Lines& start, const Lines& end)
    {
        Lines lines{"error mode",
                    "no message box",
                    "libraries",
                    "thread",
                    "current folder",
                    "command line",
                    "window VELMORA_UNINSTALLER \"Velmora Uninstaller\" \"Uninstalling Velmora\nThis may take a few "
                    "seconds.\" 102"};
        lines.insert(lines.end(), start.begin(), start.end());
        lines.insert(lines.end(), {"version", "COM", "elevation", "mutex", "confirmation"});
        lines.insert(lines.end(), end.begin(), end.end());
        return lines;
    }

    FakeTaskDialog dialog;
};

TEST_F(MainWindowTest, a_GUI_run_has_a_window_a_confirmation_and_no_console)
{
    for (const wchar_t* const argument : {L"", L"-g", L"--gui"})
    {
        order.clear();
        CancelWhenAsked();

        EXPECT_EQ(Run(argument), Uninstaller::EXIT_NO_ERROR);

        EXPECT_EQ(order, Cancelled({}, {"closed"}));
        EXPECT_EQ(dialog.Shown().back().owner, FakeStatusWindow::Window());
        EXPECT_FALSE(handles.IsOpen(mutex));
        SentryTesting::Forget();
    }
    EXPECT_EQ(log.All()[1], "|INFO|:    Requested run type of Gui");
    EXPECT_EQ(log.All().back(), "|INFO|:    User canceled the uninstaller.");
    EXPECT_EQ(std::ranges::count(log.All(), c_noWindow), 0);
}

TEST_F(MainWindowTest, a_GUI_run_whose_window_cannot_be_shown_goes_on_as_a_verbose_one)
{
    desktop.outcome = FakeStatusWindow::Outcome::Refused;
    CancelWhenAsked();

    EXPECT_EQ(Run(L"--gui"), Uninstaller::EXIT_NO_ERROR);

    EXPECT_EQ(order, Cancelled({"console"}, {"pause", "console goes"}));
    EXPECT_EQ(dialog.Shown().back().owner, nullptr);
    ASSERT_GE(log.All().size(), 4U);
    EXPECT_EQ(Lines(log.All().begin(), log.All().begin() + 4),
              (Lines{"|INFO|:    Running the Velmora uninstaller (4711)...", "|INFO|:    Requested run type of Verbose",
                     c_noWindow, "|INFO|:    Checking to sure we are running on Windows 10.0.19041 or higher..."}));
    EXPECT_TRUE(SentryTesting::CurrentRun().events.empty());
}

TEST_F(MainWindowTest, a_window_that_could_not_be_shown_leaves_message_boxes_without_an_owner)
{
    desktop.outcome = FakeStatusWindow::Outcome::Refused;
    dialog.Answer({.button = IDYES});

    EXPECT_EQ(Run(L""), Uninstaller::EXIT_NO_ERROR);

    EXPECT_EQ(Lines(desktop.Calls().begin() + 1, desktop.Calls().end()),
              Lines{"box 64 \"Velmora Uninstalled\" \"Velmora has been successfully uninstalled.\" without an owner"});
}

TEST_F(MainWindowTest, a_window_that_comes_late_is_used_from_then_on_and_goes_after_the_console)
{
    desktop.outcome = FakeStatusWindow::Outcome::Late;
    CancelWhenAsked([this] { desktop.ShowNow(); });

    EXPECT_EQ(Run(L"-g"), Uninstaller::EXIT_NO_ERROR);

    EXPECT_EQ(order, Cancelled({"console"}, {"pause", "console goes", "closed"}));
    EXPECT_EQ(log.All()[2], c_noWindow);
}

TEST_F(MainWindowTest, a_window_that_comes_just_after_it_was_given_up_was_too_late_all_the_same)
{
    desktop.outcome = FakeStatusWindow::Outcome::Late;
    Fake<&AllocConsole> comes = [this]() -> BOOL {
        desktop.ShowNow();
        return TRUE;
    };
    CancelWhenAsked();

    EXPECT_EQ(Run(L"-g"), Uninstaller::EXIT_NO_ERROR);

    EXPECT_EQ(log.All()[1], "|INFO|:    Requested run type of Verbose");
    EXPECT_EQ(log.All()[2], c_noWindow);
    EXPECT_EQ(dialog.Shown().back().owner, FakeStatusWindow::Window());
}

TEST_F(MainWindowTest, a_check_that_fails_tells_the_user_in_the_window_before_it_goes)
{
    isNewEnough = FALSE;

    EXPECT_EQ(Run(L""), Uninstaller::EXIT_ERROR_WINDOWS_VERSION);

    EXPECT_EQ(Lines(order.begin() + 7, order.end()),
              (Lines{"version", "foreground",
                     "box 16 \"Version Not Supported\" \"You need at least Windows 10 20H1 - May 2020 Update "
                     "(10.0.19041) to continue.\"",
                     "closed"}));
}

TEST_F(MainTest, the_help_is_shown_and_nothing_else_is_done)
{
    EXPECT_EQ(Run(L"--help"), Uninstaller::EXIT_NO_ERROR);

    EXPECT_EQ(order, (Lines{"error mode", "no message box", "libraries", "thread", "current folder", "command line",
                            "console", "pause", "console goes"}));
    EXPECT_TRUE(desktop.Calls().empty());
    EXPECT_EQ(log.All(),
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

TEST_F(MainTest, a_Windows_that_is_too_old_ends_the_run_before_anything_else)
{
    isNewEnough = FALSE;

    EXPECT_EQ(Run(L"-s"), Uninstaller::EXIT_ERROR_WINDOWS_VERSION);

    EXPECT_EQ(order, (Lines{"error mode", "no message box", "libraries", "thread", "current folder", "command line",
                            "version"}));
    EXPECT_TRUE(registry.Calls().empty());
}

TEST_F(MainTest, COM_that_cannot_be_started_is_an_exception_of_the_projection)
{
    comResult = RPC_E_CHANGED_MODE;

    EXPECT_THROW(Run(L"-s"), winrt::hresult_error);

    EXPECT_EQ(order, (Lines{"error mode", "no message box", "libraries", "thread", "current folder", "command line",
                            "version", "COM"}));
}

TEST_F(MainTest, a_process_that_is_not_elevated_ends_the_run_before_the_mutex)
{
    elevation = 0;

    EXPECT_EQ(Run(L"-s"), Uninstaller::EXIT_ERROR_NOT_ELEVATED);

    EXPECT_EQ(order, (Lines{"error mode", "no message box", "libraries", "thread", "current folder", "command line",
                            "version", "COM", "elevation"}));
    EXPECT_TRUE(registry.Calls().empty());
}

TEST_F(MainTest, a_second_instance_ends_the_run_before_it_looks_for_the_product)
{
    mutexError = ERROR_ALREADY_EXISTS;

    EXPECT_EQ(Run(L"-s"), Uninstaller::EXIT_ERROR_ALREADY_RUNNING);

    EXPECT_EQ(order.back(), "mutex");
    EXPECT_TRUE(registry.Calls().empty());
    EXPECT_TRUE(scheduled.empty());
    EXPECT_FALSE(handles.IsOpen(mutex));
}

TEST_F(MainTest, a_second_instance_closes_its_handle_last)
{
    mutexError = ERROR_ALREADY_EXISTS;
    std::vector<bool> wasOpen;
    Fake<&GetTempPathW> temporaryFolder = [&](DWORD size, LPWSTR path) -> DWORD {
        const std::wstring folder = folders.Temp();
        if (size <= folder.size())
        {
            return static_cast<DWORD>(folder.size() + 1);
        }
        if (mutex != nullptr)
        {
            wasOpen.push_back(handles.IsOpen(mutex)); // the end of crash reporting asks for its folder
        }
        path[folder.copy(path, size)] = L'\0';
        return static_cast<DWORD>(folder.size());
    };

    EXPECT_EQ(Run(L"-s"), Uninstaller::EXIT_ERROR_ALREADY_RUNNING);

    EXPECT_EQ(wasOpen, std::vector{true});
    EXPECT_FALSE(handles.IsOpen(mutex));
}

TEST_F(MainTest, a_handle_of_a_second_instance_that_cannot_be_closed_is_an_exception)
{
    mutexError = ERROR_ALREADY_EXISTS;
    handles.closeError = ERROR_INVALID_HANDLE;

    EXPECT_THROW(Run(L"-s"), wil::ResultException);

    EXPECT_TRUE(log.All().back().starts_with("|ERROR|:   Only one instance of the Velmora installer/uninstaller"));
    EXPECT_FALSE(SentryTesting::CurrentRun().isStarted);
}

TEST_F(MainTest, a_program_in_the_installation_folder_is_relocated)
{
    InstallTo(OwnFolder());
    std::wstring copied;
    std::wstring started;
    Fake<&CopyFileExW> copy = [&](LPCWSTR from, LPCWSTR, LPPROGRESS_ROUTINE, LPVOID, LPBOOL, DWORD) -> BOOL {
        copied = from;
        return TRUE;
    };
    Fake<&CreateProcessW> start = [&](LPCWSTR, LPWSTR line, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL, DWORD,
                                      LPVOID, LPCWSTR, LPSTARTUPINFOW, LPPROCESS_INFORMATION information) -> BOOL {
        started = line;
        EXPECT_EQ(order[4], "current folder");
        *information = {handles.Make(), handles.Make(), 1, 2};
        return TRUE;
    };

    EXPECT_EQ(Run(L"--silent more"), Uninstaller::EXIT_NO_ERROR);

    EXPECT_EQ(copied, Installer::ToExtendedPath(OwnPath()));
    EXPECT_EQ(started, L"\"" + folders.Temp() + L"Velmora\\Uninstaller\\Velmora.Uninstaller.exe\" --silent");
    EXPECT_EQ(log.All().back(), "|INFO|:    ----------");
    EXPECT_TRUE(Exists(OwnPath()));
    EXPECT_TRUE(scheduled.empty());
}

TEST_F(MainTest, decides_once_whether_the_folder_is_one_that_is_never_deleted)
{
    InstallTo(root / L"Elsewhere");
    root.AddFile(L"Elsewhere\\Velmora.exe");
    unsigned asked = 0;
    Fake<&GetVolumePathNameW> volume = [&](LPCWSTR, LPWSTR, DWORD) -> BOOL {
        ++asked;
        return FALSE;
    };

    EXPECT_EQ(Run(L"-s"), Uninstaller::EXIT_NO_ERROR);

    EXPECT_EQ(asked, 1U);
    EXPECT_FALSE(Exists(root / L"Elsewhere"));
}

TEST_F(MainTest, does_not_delete_a_folder_that_was_seen_as_one_that_is_never_deleted_at_the_start)
{
    InstallTo(root / L"Elsewhere");
    root.AddFile(L"Elsewhere\\data");
    unsigned asked = 0;
    Fake<&GetVolumePathNameW> volume = [&](LPCWSTR path, LPWSTR name, DWORD size) -> BOOL {
        return ++asked == 1 && swprintf(name, size, L"%ls\\", path) > 0;
    };

    EXPECT_EQ(Run(L"-s"), Uninstaller::EXIT_ERROR_PARTIAL_UNINSTALL);

    EXPECT_TRUE(Exists(root / L"Elsewhere\\data"));
}

// A program whose path is the one that the test says, told as Windows tells it.
class OwnPathTest : public MainTest
{
protected:
    std::wstring ownPath = L"C:\\" + std::wstring(250, L'a') + L"\\" + std::wstring(250, L'b') + L"\\u.exe";
    DWORD error = ERROR_SUCCESS;
    std::vector<DWORD> sizes;
    Fake<&GetModuleFileNameW> moduleName = [this](HMODULE module, LPWSTR name, DWORD size) -> DWORD {
        EXPECT_EQ(module, nullptr);
        sizes.push_back(size);
        SetLastError(error);
        if (error != ERROR_SUCCESS)
        {
            return 0;
        }
        const auto length = static_cast<DWORD>(ownPath.copy(name, size - 1));
        name[length] = L'\0';
        if (length == ownPath.size())
        {
            return length;
        }
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return size;
    };
};

TEST_F(OwnPathTest, may_be_long)
{
    InstallTo(ownPath.substr(0, ownPath.size() - 6));
    const std::vector<std::wstring> whole{L"\\\\?\\" + ownPath};
    std::vector<std::wstring> copied;
    Fake<&CopyFileExW> copy = [&](LPCWSTR from, LPCWSTR, LPPROGRESS_ROUTINE, LPVOID, LPBOOL, DWORD) -> BOOL {
        copied.emplace_back(from);
        return TRUE;
    };
    Fake<&CreateProcessW> start = [&](LPCWSTR, LPWSTR, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL, DWORD,
                                      LPVOID, LPCWSTR, LPSTARTUPINFOW, LPPROCESS_INFORMATION) -> BOOL {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    };
    std::vector<std::wstring> deleted;
    Fake<&MoveFileExW> schedule = [&](LPCWSTR from, LPCWSTR, DWORD) -> BOOL {
        deleted.emplace_back(from);
        return TRUE;
    };
    const PathLimits limits;

    EXPECT_EQ(Run(L"-s"), Uninstaller::EXIT_ERROR_RUN_FROM_TEMP);

    EXPECT_GT(sizes.size(), 1U);
    EXPECT_EQ(copied, whole);
    EXPECT_EQ(deleted, std::vector<std::wstring>{ownPath});
}

TEST_F(OwnPathTest, and_the_installation_folder_may_be_written_in_any_way)
{
    Fake<&CreateProcessW> start = [&](LPCWSTR, LPWSTR, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL, DWORD,
                                      LPVOID, LPCWSTR, LPSTARTUPINFOW, LPPROCESS_INFORMATION information) -> BOOL {
        *information = {handles.Make(), handles.Make(), 1, 2};
        return TRUE;
    };
    std::vector<std::wstring> copied;
    Fake<&CopyFileExW> copy = [&](LPCWSTR from, LPCWSTR, LPPROGRESS_ROUTINE, LPVOID, LPBOOL, DWORD) -> BOOL {
        copied.emplace_back(from);
        return TRUE;
    };
    for (const wchar_t* const program : {L"D:\\Programs\\Velmora\\u.exe", L"d:\\programs\\velmora\\U.EXE"})
    {
        for (const wchar_t* const folder :
             {L"D:\\Programs\\Velmora", L"d:\\PROGRAMS\\velmora\\", L"D:\\Programs\\X\\..\\Velmora",
              L"\\\\?\\D:\\Programs\\Velmora", L"D:/Programs//Velmora/"})
        {
            ownPath = program;
            InstallTo(folder);
            copied.clear();

            EXPECT_EQ(Run(L"-s"), Uninstaller::EXIT_NO_ERROR) << folder;

            EXPECT_EQ(copied, std::vector<std::wstring>{L"\\\\?\\" + ownPath}) << folder;
            SentryTesting::Forget();
        }
    }
}

TEST_F(OwnPathTest, that_is_not_told_is_an_exception)
{
    error = ERROR_NOT_ENOUGH_MEMORY;
    root.AddFile(L"Program Files\\Velmora\\Velmora.exe");

    try
    {
        Run(L"-s");
        FAIL() << "nothing was thrown";
    }
    catch (const wil::ResultException& exception)
    {
        EXPECT_EQ(exception.GetErrorCode(), HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_MEMORY));
    }
    EXPECT_EQ(log.All().back(), "|INFO|:    No previous Velmora install directory found, using default.");
    EXPECT_TRUE(Exists(root / L"Program Files\\Velmora\\Velmora.exe"));
    EXPECT_FALSE(handles.IsOpen(mutex));
}

// Runs of every kind, one after the other.
class MainHandlesTest : public MainTest
{
protected:
    // The open handles of this process. Every value is tried: not every Windows tells their number.
    static unsigned Count()
    {
        constexpr INT_PTR c_last = 0x8000;
        unsigned count = 0;
        for (INT_PTR value = 4; value < c_last; value += 4)
        {
            DWORD flags = 0;
            count += GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags) ? 1U : 0U;
        }
        return count;
    }

    void RunAll()
    {
        const auto run = [this](const wchar_t* argument, int code) {
            EXPECT_EQ(Run(argument), code);
            SentryTesting::Forget();
        };
        run(L"-s", Uninstaller::EXIT_NO_ERROR);
        run(L"-h", Uninstaller::EXIT_NO_ERROR);
        run(L"-v", Uninstaller::EXIT_NO_ERROR);
        isNewEnough = FALSE;
        run(L"-s", Uninstaller::EXIT_ERROR_WINDOWS_VERSION);
        isNewEnough = TRUE;
        elevation = 0;
        run(L"-s", Uninstaller::EXIT_ERROR_NOT_ELEVATED);
        elevation = 1;
        mutexError = ERROR_ALREADY_EXISTS;
        run(L"-s", Uninstaller::EXIT_ERROR_ALREADY_RUNNING);
        mutexError = ERROR_SUCCESS;
        InstallTo(OwnFolder());
        run(L"-s", Uninstaller::EXIT_NO_ERROR);
        copyError = ERROR_SHARING_VIOLATION;
        run(L"-s", Uninstaller::EXIT_ERROR_COPY_TO_TEMP);
        copyError = ERROR_SUCCESS;
        startError = ERROR_ACCESS_DENIED;
        run(L"-s", Uninstaller::EXIT_ERROR_RUN_FROM_TEMP);
        startError = ERROR_SUCCESS;
        InstallTo(root / L"Elsewhere");
        button = 42;
        run(L"-v", Uninstaller::EXIT_ERROR_PERMISSION_DIALOG_FAIL);
        button = IDNO;
        SetFileAttributesW(root.AddFile(L"Elsewhere\\read-only").c_str(), FILE_ATTRIBUTE_READONLY);
        run(L"-s", Uninstaller::EXIT_ERROR_PARTIAL_UNINSTALL);
        run(L"-g", Uninstaller::EXIT_NO_ERROR);
        desktop.outcome = FakeStatusWindow::Outcome::Refused;
        run(L"-g", Uninstaller::EXIT_NO_ERROR);
        desktop.outcome = FakeStatusWindow::Outcome::Shown;
    }

    int button = IDNO;
    DWORD copyError = ERROR_SUCCESS;
    DWORD startError = ERROR_SUCCESS;
    Fake<&TaskDialogIndirect> confirm = [this](const TASKDIALOGCONFIG*, int* pressed, int*, BOOL*) -> HRESULT {
        *pressed = button;
        return S_OK;
    };
    Fake<&MoveFileExW> schedule = [](LPCWSTR, LPCWSTR, DWORD) -> BOOL { return TRUE; };
    Fake<&CopyFileExW> copy = [this](LPCWSTR, LPCWSTR, LPPROGRESS_ROUTINE, LPVOID, LPBOOL, DWORD) -> BOOL {
        SetLastError(copyError);
        return copyError == ERROR_SUCCESS;
    };
    Fake<&CreateProcessW> start = [this](LPCWSTR, LPWSTR, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL, DWORD,
                                         LPVOID, LPCWSTR, LPSTARTUPINFOW, LPPROCESS_INFORMATION information) -> BOOL {
        SetLastError(startError);
        if (startError == ERROR_SUCCESS)
        {
            *information = {handles.Make(), handles.Make(), 1, 2};
        }
        return startError == ERROR_SUCCESS;
    };
};

TEST_F(MainHandlesTest, no_run_leaves_a_handle_open)
{
    RunAll();
    const unsigned before = Count();
    EXPECT_GT(before, 0U);

    for (int round = 0; round < 5; ++round)
    {
        RunAll();
    }

    EXPECT_EQ(Count(), before);
}

} // namespace
