#include "Uninstaller/ExitCode.h"
#include "support/unit/SimulatedMachine.h"

#include <windows.h>

#include <gtest/gtest.h>
#include <wil/result.h>
#include <winrt/base.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

// How a run begins, what ends it before anything is removed, and how it ends: on a machine in memory.
namespace
{

using namespace Testing;
using namespace Uninstaller;
using Lines = std::vector<std::string>;

constexpr char c_noWindow[] = "|WARNING|: Failed to create the uninstaller window, running in verbose mode.";

const Calls c_start{
    "SetErrorMode(" +
        std::to_string(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX |
                       SEM_NOALIGNMENTFAULTEXCEPT) +
        ")",
    "_set_error_mode(" + std::to_string(_OUT_TO_STDERR) + ")",
    "SetDefaultDllDirectories(" + std::to_string(LOAD_LIBRARY_SEARCH_SYSTEM32) + ")",
    "SetProcessMitigationPolicy(" + std::to_string(ProcessRedirectionTrustPolicy) + ", 1)", // enforced
    "SetThreadDescription(\"uninstaller_thread\")",
    "SetCurrentDirectoryW(\"C:\\Windows\\System32\")",
    "GetCommandLineW()",
};
const std::string c_version = "VerifyVersionInfoW()";
const std::string c_com = "CoInitializeEx(" + std::to_string(COINIT_MULTITHREADED) + ")";
const std::string c_elevation = "GetTokenInformation()";
const std::string c_mutex = "CreateMutexExW(\"Global\\Velmora_Installer_Mutex\")";
const Calls c_checks{c_version, c_com, c_elevation, c_mutex};
const Calls c_confirmed{"TaskDialogIndirect(confirmation, null)"};
// The logger goes after the mutex, and with it the folder that it holds.
const Calls c_end{"CloseHandle(mutex)", R"(CloseHandle(C:\Windows\Temp\Velmora\Uninstaller))",
                  R"(CloseHandle(C:\Windows\Temp\Velmora))"};
const Calls c_consoleGoes{"WaitForSingleObject(command processor, 4294967295)", "FreeConsole()"};

class MainTest : public testing::Test
{
protected:
    // A machine whose user cancels.
    MainTest() { machine.answers.assign(3, {IDCANCEL}); }
    ~MainTest() override { EXPECT_EQ(machine.Leaks(), ""); }

    // What the program does about its start, its checks and its end, in one order.
    Calls Order() const
    {
        return machine.journal.CallsOf({"SetErrorMode",
                                        "_set_error_mode",
                                        "SetDefaultDllDirectories",
                                        "SetProcessMitigationPolicy",
                                        "SetThreadDescription",
                                        "SetCurrentDirectoryW",
                                        "GetCommandLineW",
                                        "RunStatusWindowThread",
                                        "AllocConsole",
                                        "VerifyVersionInfoW",
                                        "CoInitializeEx",
                                        "GetTokenInformation",
                                        "CreateMutexExW",
                                        "TaskDialogIndirect",
                                        "SetForegroundWindow",
                                        "MessageBoxW",
                                        "WaitForSingleObject(command processor, 4294967295)",
                                        "FreeConsole",
                                        "CloseHandle(mutex)",
                                        c_sentClose});
    }
    Calls Last(int count) const { return {machine.journal.All().end() - count, machine.journal.All().end()}; }
    bool IsUntouched() const
    {
        std::set<std::string> after = machine.Everything();
        after.erase("file " + Narrow(SimulatedMachine::c_logPath));
        return after == before;
    }
    int Run(const std::wstring& arguments)
    {
        before = machine.Everything();
        return machine.Run(arguments);
    }

    SimulatedMachine machine;
    std::set<std::string> before;
};

TEST_F(MainTest, A_silent_run_does_everything_in_its_order)
{
    EXPECT_EQ(machine.Run(L"-s"), EXIT_NO_ERROR);

    EXPECT_EQ(Order(), c_start + c_checks + "CloseHandle(mutex)");
    EXPECT_EQ(Lines(machine.Log().begin(), machine.Log().begin() + 6),
              (Lines{"|INFO|:    Running the Velmora uninstaller (4711)...", "|INFO|:    Requested run type of Silent",
                     "|INFO|:    Checking to sure we are running on Windows 10.0.19041 or higher...",
                     "|INFO|:    Checking to see if elevated...",
                     R"(|INFO|:    Found Velmora install entry at 'C:\Program Files\Velmora\', version 2.8.1.2171.)",
                     "|INFO|:    Velmora will leave user directories as-is."}));
    EXPECT_EQ(machine.Log().back(), "|INFO|:    Uninstall Complete!");
    EXPECT_EQ(Last(3), c_end);
    EXPECT_FALSE(Sentry().isStarted);
}

// Whatever fails from here on is reported.
TEST_F(MainTest, Crash_reporting_comes_first_of_all)
{
    bool wasStarted = false;
    machine.journal.onCall = [&](const std::string& call) {
        wasStarted = wasStarted || (call.starts_with("SetErrorMode(") && Sentry().isStarted);
    };

    machine.Run(L"-h");

    EXPECT_TRUE(wasStarted);
    EXPECT_EQ(Sentry().closes, 1);
}

// As on a drive without access lists: nothing is written there, or taken from there.
TEST_F(MainTest, Leaves_a_temporary_folder_that_cannot_be_made_private_as_it_is)
{
    machine.files.isFat = true;
    machine.answers.clear();
    machine.files.AddFile(SimulatedMachine::c_logPath, "somebody's");
    machine.files.GiveAway(SimulatedMachine::c_logPath);
    const std::wstring reports = L"C:\\Windows\\Temp\\Velmora\\Uninstaller\\Sentry\\somebody's";
    machine.files.AddFile(reports);

    EXPECT_EQ(machine.Run(L"-s"), EXIT_NO_ERROR);

    EXPECT_EQ(machine.Log().back(), "|INFO|:    Uninstall Complete!") << "on the console";
    EXPECT_EQ(machine.files.ContentOf(SimulatedMachine::c_logPath), "somebody's");
    EXPECT_TRUE(machine.files.Has(reports));
    EXPECT_EQ(Sentry().options, std::vector<std::string>{});

    machine.RunFromInstallFolder();
    EXPECT_EQ(machine.Run(L"-g"), EXIT_ERROR_COPY_TO_TEMP);

    EXPECT_EQ(machine.journal.CallsOf({"CopyFileExW", "CreateProcessW"}), Calls{});
    EXPECT_FALSE(machine.HasOpenedLog());
}

TEST_F(MainTest, Writes_no_log_into_somebody_elses_file)
{
    machine.files.AddFile(SimulatedMachine::c_logPath, "somebody's");
    machine.files.GiveAway(SimulatedMachine::c_logPath);
    machine.RemoveHalf(); // so that the log stays

    EXPECT_EQ(machine.Run(L"-s"), EXIT_ERROR_PARTIAL_UNINSTALL);

    EXPECT_TRUE(machine.files.ContentOf(SimulatedMachine::c_logPath).starts_with("|INFO|:    Running"));
}

TEST_F(MainTest, Writes_the_id_of_its_process_without_a_sign)
{
    const Fake<&GetCurrentProcessId> high = []() -> DWORD { return 0xFFFFFFFC; };

    machine.Run(L"-h");

    EXPECT_EQ(machine.Log().front(), "|INFO|:    Running the Velmora uninstaller (4294967292)...");
}

TEST_F(MainTest, A_mutex_that_cannot_be_closed_at_the_end_is_an_exception)
{
    machine.journal.Fail("CloseHandle(mutex)", ERROR_INVALID_HANDLE);

    EXPECT_THROW(machine.Run(L"-s"), wil::ResultException);

    EXPECT_EQ(machine.Log().back(), "|INFO|:    Uninstall Complete!");
    EXPECT_EQ(machine.files.Scheduled(), std::vector{machine.ownPath});
}

TEST_F(MainTest, Looks_for_a_class_of_Windows_in_the_registration_alone)
{
    winrt_activation_handler = nullptr;
    machine.com.Fail("RoGetActivationFactory", REGDB_E_CLASSNOTREG, 2);
    Fake<&LoadLibraryExW> load = [](LPCWSTR name, HANDLE, DWORD) -> HMODULE {
        EXPECT_FALSE(std::wstring_view(name).starts_with(L"Windows.")) << Narrow(name) << " is looked for";
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    };

    EXPECT_EQ(machine.Run(L"-s"), EXIT_NO_ERROR);

    EXPECT_EQ(machine.com.CallsOf({"RoGetActivationFactory"}).size(), 2U);
}

TEST_F(MainTest, A_verbose_run_has_a_console_and_a_confirmation)
{
    EXPECT_EQ(machine.Run(L"-v"), EXIT_NO_ERROR);

    EXPECT_EQ(Order(), c_start + "AllocConsole()" + c_checks + c_confirmed + "CloseHandle(mutex)" + c_consoleGoes);
    EXPECT_EQ(machine.Log()[1], "|INFO|:    Requested run type of Verbose");
}

TEST_F(MainTest, The_help_is_shown_and_nothing_else_is_done)
{
    EXPECT_EQ(Run(L"--help"), EXIT_NO_ERROR);

    EXPECT_EQ(Order(), c_start + "AllocConsole()" + c_consoleGoes);
    EXPECT_EQ(machine.Log(),
              (Lines{"|INFO|:    Running the Velmora uninstaller (4711)...", "|INFO|:    Requested run type of Verbose",
                     "|INFO|:    -v  | --verbose            | Detailed uninstaller logging",
                     "|INFO|:    -s  | --silent             | Don't show a status GUI",
                     "|INFO|:    -g  | --gui                | Show a status GUI (default)",
                     "|INFO|:    -h  | --help               | Display this help screen"}));
    EXPECT_EQ(machine.Everything(), before);
    EXPECT_TRUE(machine.files.Scheduled().empty());
    EXPECT_TRUE(machine.clock.Sleeps().empty());
}

TEST_F(MainTest, A_Windows_that_is_too_old_ends_the_run_before_anything_else)
{
    machine.journal.Fail("VerifyVersionInfoW", ERROR_OLD_WIN_VERSION);

    EXPECT_EQ(Run(L"-s"), EXIT_ERROR_WINDOWS_VERSION);

    EXPECT_EQ(Order(), c_start + c_version);
    EXPECT_TRUE(IsUntouched());
}

TEST_F(MainTest, COM_that_cannot_be_started_is_an_exception_of_the_projection)
{
    machine.journal.Fail("CoInitializeEx", RPC_E_CHANGED_MODE);

    EXPECT_THROW(Run(L"-s"), winrt::hresult_error);

    EXPECT_EQ(Order(), c_start + c_version + c_com);
}

TEST_F(MainTest, A_process_that_is_not_elevated_ends_the_run_before_the_mutex)
{
    machine.isElevated = false;

    EXPECT_EQ(Run(L"-s"), EXIT_ERROR_NOT_ELEVATED);

    EXPECT_EQ(Order(), c_start + c_version + c_com + c_elevation);
    EXPECT_TRUE(IsUntouched());
}

TEST_F(MainTest, A_second_instance_ends_the_run_and_closes_its_handle_last)
{
    machine.isMutexTaken = true;

    EXPECT_EQ(Run(L"-s"), EXIT_ERROR_ALREADY_RUNNING);

    EXPECT_EQ(Order(), c_start + c_checks + "CloseHandle(mutex)");
    EXPECT_EQ(Last(3), c_end);
    EXPECT_TRUE(IsUntouched());
    EXPECT_TRUE(machine.files.Scheduled().empty());
}

// A run that asks for a window.
class MainWindowTest : public MainTest
{
protected:
    // What happens from the start to the end of a run that asks its user once.
    static Calls Confirmed(const Calls& start, const std::string& owner, const Calls& end)
    {
        return c_start +
               "RunStatusWindowThread(\"VELMORA_UNINSTALLER\", \"Velmora Uninstaller\", \"Uninstalling Velmora\nThis "
               "may take a few seconds.\", 102)" +
               start + c_checks + ("TaskDialogIndirect(confirmation, " + owner + ")") + end;
    }
};

TEST_F(MainWindowTest, A_GUI_run_has_a_window_a_confirmation_and_no_console)
{
    for (const wchar_t* const argument : {L"", L"-g", L"--gui"})
    {
        machine.journal.Take();

        EXPECT_EQ(machine.Run(argument), EXIT_NO_ERROR);

        EXPECT_EQ(Order(), Confirmed({}, "window", {"CloseHandle(mutex)", c_sentClose}));
    }
    EXPECT_EQ(machine.Log()[1], "|INFO|:    Requested run type of Gui");
    EXPECT_EQ(machine.Log().back(), "|INFO|:    User canceled the uninstaller.");
    EXPECT_EQ(std::ranges::count(machine.Log(), c_noWindow), 0);
}

TEST_F(MainWindowTest, A_GUI_run_whose_window_cannot_be_shown_goes_on_as_a_verbose_one)
{
    machine.journal.Fail("RunStatusWindowThread");
    machine.StopProduct(); // so that nothing else is asked
    machine.answers = {{IDYES}};

    EXPECT_EQ(machine.Run(L"--gui"), EXIT_NO_ERROR);

    EXPECT_EQ(Order(), Confirmed({"AllocConsole()"}, "null",
                                 ShownBox(MB_ICONINFORMATION, "Velmora Uninstalled",
                                          "Velmora has been successfully uninstalled.", "null") +
                                     "CloseHandle(mutex)" + c_consoleGoes));
    EXPECT_EQ(Lines(machine.Log().begin(), machine.Log().begin() + 4),
              (Lines{"|INFO|:    Running the Velmora uninstaller (4711)...", "|INFO|:    Requested run type of Verbose",
                     c_noWindow, "|INFO|:    Checking to sure we are running on Windows 10.0.19041 or higher..."}));
    EXPECT_TRUE(Sentry().events.empty());
}

TEST_F(MainWindowTest, A_window_that_comes_late_is_used_from_then_on_and_goes_after_the_console)
{
    machine.desktop.comesLate = true;
    machine.answers = {{IDCANCEL, 0, [this] { machine.desktop.ShowNow(); }}};

    EXPECT_EQ(machine.Run(L"-g"), EXIT_NO_ERROR);

    EXPECT_EQ(Order(), Confirmed({"AllocConsole()"}, "null",
                                 Calls{"CloseHandle(mutex)"} + c_consoleGoes + std::string(c_sentClose)));
    EXPECT_EQ(machine.Log()[2], c_noWindow);
}

TEST_F(MainWindowTest, A_window_that_comes_just_after_it_was_given_up_was_too_late_all_the_same)
{
    machine.desktop.comesLate = true;
    Fake<&AllocConsole> comes = [&]() -> BOOL {
        machine.desktop.ShowNow();
        return comes.Hidden();
    };

    EXPECT_EQ(machine.Run(L"-g"), EXIT_NO_ERROR);

    EXPECT_EQ(machine.Log()[1], "|INFO|:    Requested run type of Verbose");
    EXPECT_EQ(machine.Log()[2], c_noWindow);
    EXPECT_EQ(machine.journal.CallsOf({"TaskDialogIndirect"}), Calls{"TaskDialogIndirect(confirmation, window)"});
}

TEST_F(MainWindowTest, A_check_that_fails_tells_the_user_in_the_window_before_it_goes)
{
    machine.journal.Fail("VerifyVersionInfoW", ERROR_OLD_WIN_VERSION);

    EXPECT_EQ(machine.Run(L""), EXIT_ERROR_WINDOWS_VERSION);

    const Calls order = Order();
    EXPECT_EQ(Calls(order.begin() + 8, order.end()),
              Calls{c_version} +
                  ShownBox(MB_ICONERROR, "Version Not Supported", Narrow(exitCodeMessage(EXIT_ERROR_WINDOWS_VERSION))) +
                  std::string(c_sentClose));
}

TEST_F(MainTest, A_protected_installation_folder_is_not_left_for_a_copy)
{
    machine.ClaimFolder(L"C:\\Program Files");
    machine.RunFromInstallFolder();

    machine.Run(L"-s");

    EXPECT_EQ(machine.journal.CallsOf({"CopyFileExW"}), Calls{});
}

// Whatever changes on the machine meanwhile.
TEST_F(MainTest, Whether_the_folder_is_protected_is_decided_once)
{
    for (const bool isProtected : {false, true})
    {
        SimulatedMachine another;
        another.ClaimFolder(L"C:\\Elsewhere");
        another.files.AddFile(L"C:\\Elsewhere\\data");
        unsigned asked = 0;
        Fake<&GetVolumePathNameW> volume = [&](LPCWSTR path, LPWSTR name, DWORD size) -> BOOL {
            return (++asked == 1) == isProtected && swprintf(name, size, L"%ls\\", path) > 0;
        };

        EXPECT_EQ(another.Run(L"-s"), isProtected ? EXIT_ERROR_PARTIAL_UNINSTALL : EXIT_NO_ERROR);

        EXPECT_EQ(asked, 1U);
        EXPECT_EQ(another.files.Has(L"C:\\Elsewhere"), isProtected);
    }
}

TEST_F(MainTest, The_path_of_the_program_may_be_long)
{
    machine.ownPath = L"C:\\" + std::wstring(250, L'a') + L"\\" + std::wstring(250, L'b') + L"\\u.exe";
    machine.files.AddFile(machine.ownPath);
    machine.ClaimFolder(machine.ownPath.substr(0, machine.ownPath.size() - 6));
    machine.journal.Fail("CreateProcessW");

    EXPECT_EQ(machine.Run(L"-s"), EXIT_ERROR_RUN_FROM_TEMP);

    EXPECT_GT(machine.journal.CallsOf({"GetModuleFileNameW"}).size(), 1U);
    EXPECT_TRUE(machine.journal.CallsOf({"CopyFileExW"})
                    .front()
                    .starts_with("CopyFileExW(\"\\\\?\\" + Narrow(machine.ownPath) + '"'));
    EXPECT_EQ(machine.files.Scheduled(), std::vector{machine.ownPath});
}

TEST_F(MainTest, A_path_of_the_program_that_is_not_told_is_an_exception)
{
    machine.journal.Fail("GetModuleFileNameW", ERROR_NOT_ENOUGH_MEMORY);

    EXPECT_THROW(Run(L"-s"), wil::ResultException);

    EXPECT_TRUE(IsUntouched());
}

} // namespace
